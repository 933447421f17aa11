#include "UnicodeText.h"

#include <QChar>

UnicodeText::LikePattern::LikePattern(const char* utf8, int bytes, uint escape) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8);
    const unsigned char* end = p + bytes;
    while (p < end) {
        uint c = DecodeUtf8(p, end);
        if (escape != 0 && c == escape && p < end) {
            tokens.append(static_cast<int>(Fold(DecodeUtf8(p, end))));
            ++minimumLength;
        } else if (c == '%') {
            if (tokens.isEmpty() || tokens.last() != anyRun) {  // "%%" means the same as "%"
                tokens.append(anyRun);
            }
        } else if (c == '_') {
            tokens.append(anyOne);
            ++minimumLength;
        } else {
            tokens.append(static_cast<int>(Fold(c)));
            ++minimumLength;
        }
    }
}

bool UnicodeText::LikePattern::Matches(const char* utf8, int bytes) const {
    const unsigned char* begin = reinterpret_cast<const unsigned char*>(utf8);
    const unsigned char* end = begin + bytes;
    if (minimumLength > bytes) {  // a code point takes at least one byte
        return false;
    }
    const unsigned char* t = begin;
    int p = 0;
    const int patternSize = tokens.size();
    int starToken = -1;
    const unsigned char* starText = nullptr;
    while (t < end) {
        if (p < patternSize) {
            const int token = tokens[p];
            if (token == anyRun) {
                starToken = ++p;
                starText = t;
                continue;
            }
            const unsigned char* next = t;
            const uint c = DecodeUtf8(next, end);
            if (token == anyOne || static_cast<uint>(token) == Fold(c)) {
                ++p;
                t = next;
                continue;
            }
        }
        if (starToken < 0) {
            return false;
        }
        // Let the last % swallow one more character and retry from there.
        DecodeUtf8(starText, end);
        t = starText;
        p = starToken;
    }
    while (p < patternSize && tokens[p] == anyRun) {
        ++p;
    }
    return p == patternSize;
}

uint UnicodeText::Fold(uint c) {
    if (c < 0x80) {
        return (c >= 'A' && c <= 'Z') ? c + ('a' - 'A') : c;
    }
    if (c & 0x80000000u) {
        return c;
    }
    return QChar::toCaseFolded(c);
}

uint UnicodeText::DecodeUtf8(const unsigned char*& p, const unsigned char* end) {
    const unsigned char lead = *p++;
    if (lead < 0x80) {
        return lead;
    }
    int extra = 0;
    uint c = 0;
    if ((lead & 0xE0) == 0xC0) {
        extra = 1;
        c = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        extra = 2;
        c = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        extra = 3;
        c = lead & 0x07;
    } else {
        return 0x80000000u | lead;
    }
    if (end - p < extra) {
        return 0x80000000u | lead;
    }
    for (int i = 0; i < extra; ++i) {
        if ((p[i] & 0xC0) != 0x80) {
            return 0x80000000u | lead;
        }
        c = (c << 6) | (p[i] & 0x3F);
    }
    p += extra;
    return c;
}

namespace {

bool isAscii(const char* utf8, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        if (static_cast<unsigned char>(utf8[i]) >= 0x80) {
            return false;
        }
    }
    return true;
}

}  // namespace

QByteArray UnicodeText::Upper(const char* utf8, int bytes) {
    if (isAscii(utf8, bytes)) {
        QByteArray out(utf8, bytes);
        for (char& c : out) {
            if (c >= 'a' && c <= 'z') {
                c = static_cast<char>(c - ('a' - 'A'));
            }
        }
        return out;
    }
    return QString::fromUtf8(utf8, bytes).toUpper().toUtf8();
}

QByteArray UnicodeText::Lower(const char* utf8, int bytes) {
    if (isAscii(utf8, bytes)) {
        QByteArray out(utf8, bytes);
        for (char& c : out) {
            if (c >= 'A' && c <= 'Z') {
                c = static_cast<char>(c + ('a' - 'A'));
            }
        }
        return out;
    }
    return QString::fromUtf8(utf8, bytes).toLower().toUtf8();
}

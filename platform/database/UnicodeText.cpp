#include "UnicodeText.h"

#include <QChar>
#include <algorithm>
#include <array>

namespace {

// Whether a character outside ASCII folds to this ASCII character (KELVIN SIGN to "k", LONG S
// to "s"); worked out once from the fold table itself. Only the BMP is asked: no character
// beyond it folds into ASCII, and the whole range took 20 times longer at the first search.
bool hasFoldMateOutsideAscii(uint ascii) {
    static const auto mates = [] {
        std::array<bool, 128> found{};
        for (uint c = 0x80; c <= 0xFFFF; ++c) {
            const uint folded = UnicodeText::Fold(c);
            if (folded < 0x80) {
                found[folded] = true;
            }
        }
        return found;
    }();
    return mates[ascii];
}

}  // namespace

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
    for (const int token : tokens) {
        if (token >= 0 && (token >= 0x80 || hasFoldMateOutsideAscii(static_cast<uint>(token)))) {
            asciiLiterals = false;
        }
    }
    bytewise = asciiLiterals && !tokens.contains(anyOne);
    const int literals = static_cast<int>(
        std::count_if(tokens.cbegin(), tokens.cend(), [](int token) { return token >= 0; }));
    if (bytewise && literals > 0 && tokens.last() == anyRun) {
        const bool infix = tokens.first() == anyRun;
        if (literals + (infix ? 2 : 1) == tokens.size()) {
            shape = infix ? Shape::Infix : Shape::Prefix;
            for (const int token : tokens) {
                if (token >= 0) {
                    run.append(static_cast<char>(token));
                }
            }
        }
    }
}

namespace {

inline uint foldedByte(unsigned char c) {
    return static_cast<uint>(c - 'A') < 26u ? c + ('a' - 'A') : c;
}

// Whether the bytes at `text` fold to `run` (ASCII, folded); a byte outside ASCII never does.
inline bool startsWithFolded(const unsigned char* text, const QByteArray& run) {
    for (int i = 0; i < run.size(); ++i) {
        if (foldedByte(text[i]) != static_cast<unsigned char>(run[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool UnicodeText::LikePattern::Matches(const char* utf8, int bytes, const StopCheck* check,
                                       bool* stopped) const {
    const unsigned char* begin = reinterpret_cast<const unsigned char*>(utf8);
    const unsigned char* end = begin + bytes;
    if (minimumLength > bytes) {  // a code point takes at least one byte
        return false;
    }
    if (shape == Shape::Prefix) {
        return bytes >= run.size() && startsWithFolded(begin, run);
    }
    if (shape == Shape::Infix) {
        const uint first = static_cast<unsigned char>(run[0]);
        for (const unsigned char* at = begin; at + run.size() <= end; ++at) {
            if (foldedByte(*at) == first && startsWithFolded(at, run)) {
                return true;
            }
        }
        return false;
    }
    const unsigned char* t = begin;
    int p = 0;
    const int patternSize = tokens.size();
    int starToken = -1;
    const unsigned char* starText = nullptr;
    int work = 0;
    while (t < end) {
        // A long pattern against a long text costs their product: let the caller stop it.
        if (check && check->Asked(work)) {
            if (stopped) {
                *stopped = true;
            }
            return false;
        }
        if (p < patternSize) {
            const int token = tokens[p];
            if (token == anyRun) {
                starToken = ++p;
                starText = t;
                continue;
            }
            // Most of a name is ASCII: read in place. Past it, fold only when a literal could
            // match.
            const unsigned char* next = t;
            uint c = *t;
            if (c < 0x80) {
                ++next;
                c = c - 'A' < 26u ? c + ('a' - 'A') : c;
            } else if (bytewise) {
                // An ASCII literal only matches an ASCII byte, which always starts a character,
                // and no "_" counts characters: the rest of a character is skipped byte by byte.
                ++next;
                c = 0x80000000u;
            } else {
                c = DecodeUtf8(next, end);
                c = asciiLiterals ? 0x80000000u : Fold(c);
            }
            if (token == anyOne || static_cast<uint>(token) == c) {
                ++p;
                t = next;
                continue;
            }
        }
        if (starToken < 0) {
            return false;
        }
        // Let the last % swallow one more character (or byte) and retry from there.
        if (bytewise) {
            ++starText;
        } else {
            DecodeUtf8(starText, end);
        }
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

bool isContinuationByte(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// Maps a text piece by piece, asking `check` between pieces; pieces end before a lead byte, so
// that every code point (and every invalid sequence) is converted whole, as in one go.
template <typename AsciiMap, typename TextMap>
QByteArray convert(const char* utf8, int bytes, const UnicodeText::StopCheck* check, bool* stopped,
                   AsciiMap ascii, TextMap text) {
    QByteArray out;
    const int piece = check ? check->every : bytes;
    for (int start = 0; start < bytes;) {
        int stop = qMin(bytes, start + qMax(1, piece));
        while (stop < bytes && isContinuationByte(utf8[stop])) {
            ++stop;
        }
        if (isAscii(utf8 + start, stop - start)) {
            QByteArray part(utf8 + start, stop - start);
            for (char& c : part) {
                c = ascii(c);
            }
            out += part;
        } else {
            out += text(QString::fromUtf8(utf8 + start, stop - start)).toUtf8();
        }
        start = stop;
        if (check && start < bytes && check->stop && check->stop(check->context)) {
            if (stopped) {
                *stopped = true;
            }
            return QByteArray();
        }
    }
    return out;
}

}  // namespace

QByteArray UnicodeText::Upper(const char* utf8, int bytes, const StopCheck* check, bool* stopped) {
    return convert(
        utf8, bytes, check, stopped,
        [](char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - ('a' - 'A')) : c; },
        [](const QString& text) { return text.toUpper(); });
}

QByteArray UnicodeText::Lower(const char* utf8, int bytes, const StopCheck* check, bool* stopped) {
    return convert(
        utf8, bytes, check, stopped,
        [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + ('a' - 'A')) : c; },
        [](const QString& text) { return text.toLower(); });
}

#pragma once

#include <QString>
#include <QStringView>

// UTF-8 of a text written straight into a caller's buffer, with no QByteArray on the way: for
// the paths that hand a text to SQLite at every scan or write a million lines of an export.
namespace Utf8 {

// Writes the UTF-8 of `text` to `out`, which has room for 3 * text.size() bytes, and returns
// the bytes written; -1 when the text holds a lone surrogate, whose replacement is left to
// QString::toUtf8(). The bytes are always what toUtf8() gives.
inline int Encode(QStringView text, char* out) {
    const char16_t* units = text.utf16();
    const int size = static_cast<int>(text.size());
    char* const first = out;
    for (int i = 0; i < size; ++i) {
        const unsigned u = units[i];
        if (u < 0x80) {
            *out++ = static_cast<char>(u);
        } else if (u < 0x800) {
            *out++ = static_cast<char>(0xC0 | (u >> 6));
            *out++ = static_cast<char>(0x80 | (u & 0x3F));
        } else if (u < 0xD800 || u > 0xDFFF) {
            *out++ = static_cast<char>(0xE0 | (u >> 12));
            *out++ = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
            *out++ = static_cast<char>(0x80 | (u & 0x3F));
        } else if (u < 0xDC00 && i + 1 < size && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
            // A pair takes two units and four bytes: within the room asked for.
            const unsigned code = 0x10000 + ((u - 0xD800) << 10) + (units[++i] - 0xDC00);
            *out++ = static_cast<char>(0xF0 | (code >> 18));
            *out++ = static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            *out++ = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            *out++ = static_cast<char>(0x80 | (code & 0x3F));
        } else {
            return -1;
        }
    }
    return static_cast<int>(out - first);
}

}  // namespace Utf8

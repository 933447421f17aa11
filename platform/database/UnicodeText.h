#pragma once

#include <QString>
#include <QVector>

// Case-insensitive text matching that folds every Unicode letter, not only ASCII: the
// register's users type "żółty" and expect "ŻÓŁTY SER". Works on UTF-8 as SQLite stores it.
class UnicodeText {
public:
    // Asked now and then by the long loops below with `context`; true stops them early.
    struct StopCheck {
        bool (*stop)(void* context) = nullptr;
        void* context = nullptr;
        // Units of work (characters compared or converted) between two questions.
        int every = 1 << 14;
        bool Asked(int& work) const { return stop && ++work % every == 0 && stop(context); }
    };

    // A LIKE pattern compiled once: folded code points and wildcards.
    class LikePattern {
    public:
        // `escape` is the ESCAPE character, 0 for none.
        LikePattern(const char* utf8, int bytes, uint escape);
        // The SQL LIKE semantics: % any run, _ any one character, the rest compared folded.
        // When `check` stops it, returns false with `*stopped` set.
        bool Matches(const char* utf8, int bytes, const StopCheck* check = nullptr,
                     bool* stopped = nullptr) const;
        // Literal characters and "_" the text must at least hold.
        int MinimumLength() const { return minimumLength; }

    private:
        QVector<int> tokens;  // >= 0 folded code point, anyRun or anyOne
        int minimumLength = 0;
        // Every literal is an ASCII character no other character folds to: a text character
        // outside ASCII can then only match "_" or "%", and needs no folding.
        bool asciiLiterals = true;
        // And there is no "_": the text can be matched byte by byte.
        bool bytewise = false;
        // Such a pattern of one run of literals, as "%run%" or "run%": a search for `run`
        // (folded) in the bytes, or a comparison of the first bytes.
        enum class Shape { Other, Infix, Prefix } shape = Shape::Other;
        QByteArray run;
    };

    static constexpr int anyRun = -1;
    static constexpr int anyOne = -2;

    // The case fold of one code point (simple folding).
    static uint Fold(uint codePoint);
    // Decodes the code point at `*p` and advances; an invalid byte decodes to itself with the
    // top bit set so that it only ever equals the same byte.
    static uint DecodeUtf8(const unsigned char*& p, const unsigned char* end);
    // Upper and lower case of a whole text (full mapping, e.g. "ß" becomes "SS"). When `check`
    // stops it, returns an empty text with `*stopped` set.
    static QByteArray Upper(const char* utf8, int bytes, const StopCheck* check = nullptr,
                            bool* stopped = nullptr);
    static QByteArray Lower(const char* utf8, int bytes, const StopCheck* check = nullptr,
                            bool* stopped = nullptr);
};

#include "SqlLiteralParameterizer.h"

#include <cstring>

namespace {

bool isIdentifierChar(QChar c) {
    const ushort u = c.unicode();
    return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') || u == '_' ||
           u == '$' || u >= 0x80;
}

bool isDigit(QChar c) {
    return c.unicode() >= '0' && c.unicode() <= '9';
}

// Whether the `length` characters at `text` spell `keyword` (upper-case ASCII), in any case.
bool isKeyword(const QChar* text, int length, const char* keyword) {
    int i = 0;
    for (; i < length && keyword[i]; ++i) {
        ushort c = text[i].unicode();
        if (c >= 'a' && c <= 'z') {
            c = static_cast<ushort>(c - ('a' - 'A'));
        }
        if (c != static_cast<ushort>(keyword[i])) {
            return false;
        }
    }
    return i == length && keyword[i] == '\0';
}

// Index just past a quoted token that starts at `start` with `quote`; doubled quotes stay
// inside. Returns -1 when the token is not terminated. `value` receives the unescaped text.
int scanQuoted(const QString& sql, int start, QChar quote, QString* value) {
    const QChar* data = sql.constData();
    const int n = sql.size();
    int i = start + 1;
    int runStart = i;
    while (i < n) {
        if (data[i] == quote) {
            if (value) {
                value->append(data + runStart, i - runStart);
            }
            if (i + 1 < n && data[i + 1] == quote) {
                if (value) {
                    value->append(quote);
                }
                i += 2;
                runStart = i;
                continue;
            }
            return i + 1;
        }
        ++i;
    }
    return -1;
}

int skipTrivia(const QString& sql, int i) {
    const int n = sql.size();
    while (i < n) {
        if (sql[i].isSpace() || sql[i] == QLatin1Char('(')) {
            ++i;
        } else if (sql.midRef(i, 2) == QLatin1String("--")) {
            while (i < n && sql[i] != QLatin1Char('\n')) {
                ++i;
            }
        } else if (sql.midRef(i, 2) == QLatin1String("/*")) {
            const int end = sql.indexOf(QLatin1String("*/"), i + 2);
            i = end < 0 ? n : end + 2;
        } else {
            break;
        }
    }
    return i;
}

bool isDataStatement(const QString& sql) {
    const int i = skipTrivia(sql, 0);
    int end = i;
    while (end < sql.size() && isIdentifierChar(sql[end])) {
        ++end;
    }
    const QChar* word = sql.constData() + i;
    const int length = end - i;
    for (const char* keyword :
         {"SELECT", "INSERT", "UPDATE", "DELETE", "REPLACE", "WITH", "VALUES"}) {
        if (isKeyword(word, length, keyword)) {
            return true;
        }
    }
    return false;
}

// The keywords the rewriting pays attention to.
enum Keyword { OtherWord, Order, Group, By, As, EndsOrdering };

// Keyword of an identifier; tells most words apart by length and first letter alone, since it
// runs for every word of every statement.
Keyword keywordOf(const QChar* word, int length) {
    auto upper = [word](int i) {
        const ushort c = word[i].unicode();
        return (c >= 'a' && c <= 'z') ? static_cast<ushort>(c - ('a' - 'A')) : c;
    };
    switch (length) {
        case 2:
            if (upper(0) == 'B' && upper(1) == 'Y') {
                return By;
            }
            return upper(0) == 'A' && upper(1) == 'S' ? As : OtherWord;
        case 5:
            switch (upper(0)) {
                case 'O':
                    return isKeyword(word, length, "ORDER") ? Order : OtherWord;
                case 'G':
                    return isKeyword(word, length, "GROUP") ? Group : OtherWord;
                case 'L':
                    return isKeyword(word, length, "LIMIT") ? EndsOrdering : OtherWord;
                case 'U':
                    return isKeyword(word, length, "UNION") ? EndsOrdering : OtherWord;
                default:
                    return OtherWord;
            }
        case 6:
            switch (upper(0)) {
                case 'O':
                    return isKeyword(word, length, "OFFSET") ? EndsOrdering : OtherWord;
                case 'H':
                    return isKeyword(word, length, "HAVING") ? EndsOrdering : OtherWord;
                case 'W':
                    return isKeyword(word, length, "WINDOW") ? EndsOrdering : OtherWord;
                case 'E':
                    return isKeyword(word, length, "EXCEPT") ? EndsOrdering : OtherWord;
                default:
                    return OtherWord;
            }
        case 9:
            return isKeyword(word, length, "INTERSECT") ? EndsOrdering : OtherWord;
        default:
            return OtherWord;
    }
}

}  // namespace

SqlLiteralParameterizer::Result SqlLiteralParameterizer::Parameterize(const QString& sql) {
    if (!isDataStatement(sql)) {
        Result verbatim;
        verbatim.text = sql;
        return verbatim;
    }
    return parameterize(sql, false);
}

SqlLiteralParameterizer::Result SqlLiteralParameterizer::ParameterizeFragment(
    const QString& fragment) {
    return parameterize(fragment, true);
}

SqlLiteralParameterizer::Result SqlLiteralParameterizer::parameterize(const QString& sql,
                                                                      bool fragment) {
    Result result;
    for (int i = 0; i < shapes.size(); ++i) {
        if (shapes[i].fragment == fragment && matches(shapes[i], sql, result)) {
            if (i > 0) {
                shapes.move(i, 0);
            }
            return result;
        }
    }
    Shape shape;
    shape.fragment = fragment;
    result = rewrite(sql, &shape);
    if (result.changed) {
        shape.text = result.text;
        shapes.prepend(shape);
        if (shapes.size() > remembered) {
            shapes.removeLast();
        }
    }
    return result;
}

bool SqlLiteralParameterizer::matches(const Shape& shape, const QString& sql, Result& result) {
    const QChar* data = sql.constData();
    const int n = sql.size();
    int position = 0;
    QVector<QVariant> values;
    values.reserve(shape.kinds.size());
    for (int i = 0; i < shape.pieces.size(); ++i) {
        const QString& piece = shape.pieces[i];
        if (n - position < piece.size() ||
            std::memcmp(data + position, piece.constData(), sizeof(QChar) * piece.size()) != 0) {
            return false;
        }
        position += piece.size();
        if (i == shape.kinds.size()) {
            break;
        }
        const char kind = shape.kinds[i];
        if (kind == '0') {
            int end = position;
            while (end < n && isDigit(data[end])) {
                ++end;
            }
            if (end == position ||
                (end < n && (isIdentifierChar(data[end]) || data[end] == QLatin1Char('.')))) {
                return false;
            }
            bool ok = false;
            const qlonglong number = sql.midRef(position, end - position).toLongLong(&ok);
            if (!ok) {
                return false;
            }
            values.append(QVariant(number));
            position = end;
        } else {
            if (position >= n || data[position] != QLatin1Char(kind)) {
                return false;
            }
            QString value;
            const int end = scanQuoted(sql, position, QLatin1Char(kind), &value);
            if (end < 0) {
                return false;
            }
            values.append(QVariant(value));
            position = end;
        }
    }
    if (position != n) {
        return false;
    }
    result.text = shape.text;
    result.values = values;
    result.changed = true;
    return true;
}

SqlLiteralParameterizer::Result SqlLiteralParameterizer::rewrite(const QString& sql, Shape* shape) {
    Result result;
    result.text.reserve(sql.size());
    const QChar* data = sql.constData();
    const int n = sql.size();
    int depth = 0;
    int orderingDepth = -1;  // paren depth of an open ORDER BY / GROUP BY clause, -1 for none
    Keyword previous = OtherWord;
    int i = 0;
    // Text is copied in runs: everything since `pending` goes out when a literal is replaced.
    int pending = 0;
    auto replaceLiteral = [&](int from, int to, const QVariant& value) {
        result.text.append(data + pending, from - pending);
        if (shape) {
            shape->pieces.append(sql.mid(pending, from - pending));
            shape->kinds.append(value.userType() == QMetaType::QString ? data[from].toLatin1()
                                                                       : '0');
        }
        result.text.append(QLatin1Char('?'));
        result.values.append(value);
        result.changed = true;
        pending = to;
    };
    while (i < n) {
        const QChar c = data[i];
        if (c == QLatin1Char('"') && previous == As) {
            // "AS" is always followed by a name (an alias, a type), never a value.
            const int end = scanQuoted(sql, i, c, nullptr);
            const int stop = end < 0 ? n : end;
            previous = OtherWord;
            i = stop;
            continue;
        }
        if (c == QLatin1Char('\'') || c == QLatin1Char('"')) {
            QString value;
            const int end = scanQuoted(sql, i, c, &value);
            if (end < 0) {  // unterminated: let SQLite report it
                break;
            }
            replaceLiteral(i, end, QVariant(value));
            previous = OtherWord;
            i = end;
            continue;
        }
        if (c == QLatin1Char('[') || c == QLatin1Char('`')) {
            const int end = c == QLatin1Char('[') ? sql.indexOf(QLatin1Char(']'), i + 1)
                                                  : scanQuoted(sql, i, c, nullptr);
            const int stop = end < 0 ? n : (c == QLatin1Char('[') ? end + 1 : end);
            i = stop;
            continue;
        }
        if (c == QLatin1Char('-') && i + 1 < n && data[i + 1] == QLatin1Char('-')) {
            const int end = sql.indexOf(QLatin1Char('\n'), i);
            const int stop = end < 0 ? n : end;
            i = stop;
            continue;
        }
        if (c == QLatin1Char('/') && i + 1 < n && data[i + 1] == QLatin1Char('*')) {
            const int end = sql.indexOf(QLatin1String("*/"), i + 2);
            const int stop = end < 0 ? n : end + 2;
            i = stop;
            continue;
        }
        if (c == QLatin1Char('?') ||
            ((c == QLatin1Char(':') || c == QLatin1Char('@') || c == QLatin1Char('$')) &&
             i + 1 < n && isIdentifierChar(data[i + 1]) && data[i + 1] != QLatin1Char('$'))) {
            // The text brings its own parameters: numbering them is the caller's business.
            Result verbatim;
            verbatim.text = sql;
            return verbatim;
        }
        if (isDigit(c)) {
            int end = i;
            while (end < n && isDigit(data[end])) {
                ++end;
            }
            const bool plainInteger =
                end >= n || !(isIdentifierChar(data[end]) || data[end] == QLatin1Char('.'));
            if (plainInteger && orderingDepth < 0) {
                bool ok = false;
                const qlonglong number = sql.midRef(i, end - i).toLongLong(&ok);
                if (ok) {
                    replaceLiteral(i, end, QVariant(number));
                    previous = OtherWord;
                    i = end;
                    continue;
                }
            }
            // Reals, hexadecimal, out-of-range or positional numbers stay as written.
            while (end < n &&
                   (isIdentifierChar(data[end]) || data[end] == QLatin1Char('.') ||
                    ((data[end] == QLatin1Char('+') || data[end] == QLatin1Char('-')) &&
                     (data[end - 1] == QLatin1Char('e') || data[end - 1] == QLatin1Char('E'))))) {
                ++end;
            }
            previous = OtherWord;
            i = end;
            continue;
        }
        if (isIdentifierChar(c)) {
            int end = i;
            while (end < n && isIdentifierChar(data[end])) {
                ++end;
            }
            if (end - i == 1 && (c == QLatin1Char('x') || c == QLatin1Char('X')) && end < n &&
                data[end] == QLatin1Char('\'')) {
                // A blob literal stays as written.
                const int blobEnd = scanQuoted(sql, end, QLatin1Char('\''), nullptr);
                const int stop = blobEnd < 0 ? n : blobEnd;
                i = stop;
                continue;
            }
            const Keyword keyword = keywordOf(data + i, end - i);
            if (keyword == By && (previous == Order || previous == Group)) {
                orderingDepth = depth;
            } else if (orderingDepth >= 0 && keyword == EndsOrdering) {
                orderingDepth = -1;
            }
            previous = keyword;
            i = end;
            continue;
        }
        if (c == QLatin1Char('(')) {
            ++depth;
        } else if (c == QLatin1Char(')')) {
            --depth;
            if (orderingDepth > depth) {
                orderingDepth = -1;
            }
        } else if (c == QLatin1Char(';')) {
            orderingDepth = -1;
        }
        if (!c.isSpace()) {
            previous = OtherWord;
        }
        ++i;
    }
    if (!result.changed) {
        result.text = sql;  // shares the caller's text
    } else {
        result.text.append(data + pending, n - pending);
        if (shape) {
            shape->pieces.append(sql.mid(pending));
        }
    }
    return result;
}

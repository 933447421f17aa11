#include "SqlLiteralParameterizer.h"

namespace {

bool isIdentifierChar(QChar c) {
    const ushort u = c.unicode();
    return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') || u == '_' ||
           u == '$' || u >= 0x80;
}

bool isDigit(QChar c) {
    return c.unicode() >= '0' && c.unicode() <= '9';
}

// Index just past a quoted token that starts at `start` with `quote`; doubled quotes stay
// inside. Returns -1 when the token is not terminated. `value` receives the unescaped text.
int scanQuoted(const QString& sql, int start, QChar quote, QString* value) {
    int i = start + 1;
    const int n = sql.size();
    while (i < n) {
        if (sql[i] == quote) {
            if (i + 1 < n && sql[i + 1] == quote) {
                if (value) {
                    value->append(quote);
                }
                i += 2;
                continue;
            }
            return i + 1;
        }
        if (value) {
            value->append(sql[i]);
        }
        ++i;
    }
    return -1;
}

int skipTrivia(const QString& sql, int i) {
    const int n = sql.size();
    while (i < n) {
        if (sql[i].isSpace() || sql[i] == '(') {
            ++i;
        } else if (sql.midRef(i, 2) == QLatin1String("--")) {
            while (i < n && sql[i] != '\n') {
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
    int i = skipTrivia(sql, 0);
    int end = i;
    while (end < sql.size() && isIdentifierChar(sql[end])) {
        ++end;
    }
    const QString word = sql.mid(i, end - i).toUpper();
    return word == QLatin1String("SELECT") || word == QLatin1String("INSERT") ||
           word == QLatin1String("UPDATE") || word == QLatin1String("DELETE") ||
           word == QLatin1String("REPLACE") || word == QLatin1String("WITH") ||
           word == QLatin1String("VALUES");
}

bool endsOrderingClause(const QString& upperWord) {
    return upperWord == QLatin1String("LIMIT") || upperWord == QLatin1String("OFFSET") ||
           upperWord == QLatin1String("HAVING") || upperWord == QLatin1String("WINDOW") ||
           upperWord == QLatin1String("UNION") || upperWord == QLatin1String("EXCEPT") ||
           upperWord == QLatin1String("INTERSECT");
}

}  // namespace

SqlLiteralParameterizer::Result SqlLiteralParameterizer::Parameterize(const QString& sql) {
    if (!isDataStatement(sql)) {
        Result verbatim;
        verbatim.text = sql;
        return verbatim;
    }
    return rewrite(sql);
}

SqlLiteralParameterizer::Result SqlLiteralParameterizer::ParameterizeFragment(
    const QString& fragment) {
    return rewrite(fragment);
}

SqlLiteralParameterizer::Result SqlLiteralParameterizer::rewrite(const QString& sql) {
    Result result;
    result.text.reserve(sql.size());
    const int n = sql.size();
    int depth = 0;
    int orderingDepth = -1;  // paren depth of an open ORDER BY / GROUP BY clause, -1 for none
    QString previousWord;
    int i = 0;
    while (i < n) {
        const QChar c = sql[i];
        if (c == '"' && previousWord == QLatin1String("AS")) {
            // "AS" is always followed by a name (an alias, a type), never a value.
            const int end = scanQuoted(sql, i, c, nullptr);
            const int stop = end < 0 ? n : end;
            result.text.append(sql.midRef(i, stop - i));
            previousWord.clear();
            i = stop;
            continue;
        }
        if (c == '\'' || c == '"') {
            QString value;
            const int end = scanQuoted(sql, i, c, &value);
            if (end < 0) {  // unterminated: let SQLite report it
                result.text.append(sql.midRef(i));
                break;
            }
            result.text.append(QLatin1Char('?'));
            result.values.append(QVariant(value));
            result.changed = true;
            i = end;
            continue;
        }
        if (c == '[' || c == '`') {
            const int end =
                c == '[' ? sql.indexOf(QLatin1Char(']'), i + 1) : scanQuoted(sql, i, c, nullptr);
            const int stop = end < 0 ? n : (c == '[' ? end + 1 : end);
            result.text.append(sql.midRef(i, stop - i));
            i = stop;
            continue;
        }
        if (sql.midRef(i, 2) == QLatin1String("--")) {
            const int end = sql.indexOf(QLatin1Char('\n'), i);
            const int stop = end < 0 ? n : end;
            result.text.append(sql.midRef(i, stop - i));
            i = stop;
            continue;
        }
        if (sql.midRef(i, 2) == QLatin1String("/*")) {
            const int end = sql.indexOf(QLatin1String("*/"), i + 2);
            const int stop = end < 0 ? n : end + 2;
            result.text.append(sql.midRef(i, stop - i));
            i = stop;
            continue;
        }
        if (c == '?' || ((c == ':' || c == '@' || c == '$') && i + 1 < n &&
                         isIdentifierChar(sql[i + 1]) && sql[i + 1] != '$')) {
            // The text brings its own parameters: numbering them is the caller's business.
            Result verbatim;
            verbatim.text = sql;
            return verbatim;
        }
        if (isDigit(c)) {
            int end = i;
            while (end < n && isDigit(sql[end])) {
                ++end;
            }
            const bool plainInteger = end >= n || !(isIdentifierChar(sql[end]) || sql[end] == '.');
            if (plainInteger && orderingDepth < 0) {
                bool ok = false;
                const qlonglong number = sql.midRef(i, end - i).toLongLong(&ok);
                if (ok) {
                    result.text.append(QLatin1Char('?'));
                    result.values.append(QVariant(number));
                    result.changed = true;
                    i = end;
                    continue;
                }
            }
            // Reals, hexadecimal, out-of-range or positional numbers stay as written.
            while (end < n && (isIdentifierChar(sql[end]) || sql[end] == '.' ||
                               ((sql[end] == '+' || sql[end] == '-') &&
                                (sql[end - 1] == 'e' || sql[end - 1] == 'E')))) {
                ++end;
            }
            result.text.append(sql.midRef(i, end - i));
            i = end;
            continue;
        }
        if (isIdentifierChar(c)) {
            int end = i;
            while (end < n && isIdentifierChar(sql[end])) {
                ++end;
            }
            const QString word = sql.mid(i, end - i);
            if ((word == QLatin1String("x") || word == QLatin1String("X")) && end < n &&
                sql[end] == '\'') {
                const int blobEnd = scanQuoted(sql, end, QLatin1Char('\''), nullptr);
                const int stop = blobEnd < 0 ? n : blobEnd;
                result.text.append(sql.midRef(i, stop - i));
                i = stop;
                continue;
            }
            const QString upper = word.toUpper();
            if (upper == QLatin1String("BY") && (previousWord == QLatin1String("ORDER") ||
                                                 previousWord == QLatin1String("GROUP"))) {
                orderingDepth = depth;
            } else if (orderingDepth >= 0 && endsOrderingClause(upper)) {
                orderingDepth = -1;
            }
            previousWord = upper;
            result.text.append(word);
            i = end;
            continue;
        }
        if (c == '(') {
            ++depth;
        } else if (c == ')') {
            --depth;
            if (orderingDepth > depth) {
                orderingDepth = -1;
            }
        } else if (c == ';') {
            orderingDepth = -1;
        }
        if (!c.isSpace()) {
            previousWord.clear();
        }
        result.text.append(c);
        ++i;
    }
    return result;
}

#include "SqlText.h"

namespace SqlText {

QString QuoteIdentifier(const QString& name) {
    QString quoted = name;
    quoted.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

QString EscapeLikePattern(const QString& text) {
    QString escaped;
    escaped.reserve(text.size() + 4);
    for (const QChar c : text) {
        if (c == QLatin1Char('%') || c == QLatin1Char('_') || c == QLatin1Char('\\')) {
            escaped.append(QLatin1Char('\\'));
        }
        escaped.append(c);
    }
    return escaped;
}

}  // namespace SqlText

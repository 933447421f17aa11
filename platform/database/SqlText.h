#pragma once

// Internal to the database layer: pieces of SQL text made from names and values.

#include <QString>

namespace SqlText {

// `name` as an SQL identifier in double quotes, inner double quotes doubled.
QString QuoteIdentifier(const QString& name);
// `text` with %, _ and \ escaped by \, for LIKE ... ESCAPE '\'.
QString EscapeLikePattern(const QString& text);
// Whether two texts are equal, known at once when they share their data: a caller that hands
// back the very names or statement parts it gave before (every scan does) costs no compare.
inline bool Same(const QString& a, const QString& b) {
    return a.size() == b.size() && (a.constData() == b.constData() || a == b);
}

}  // namespace SqlText

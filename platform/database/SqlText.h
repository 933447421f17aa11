#pragma once

// Internal to the database layer: pieces of SQL text made from names and values.

#include <QString>

namespace SqlText {

// `name` as an SQL identifier in double quotes, inner double quotes doubled.
QString QuoteIdentifier(const QString& name);
// `text` with %, _ and \ escaped by \, for LIKE ... ESCAPE '\'.
QString EscapeLikePattern(const QString& text);

}  // namespace SqlText

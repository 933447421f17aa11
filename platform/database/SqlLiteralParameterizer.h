#pragma once

#include <QString>
#include <QVariant>
#include <QVector>

// Rewrites the literal values of a data statement (text in single or double quotes, decimal
// integers) as "?" parameters and hands the values back for binding.
//
// Two reasons: in this dialect text in double quotes is always a value, never a column name,
// even when it reads like one ("price"); and statements that differ only in their values share
// one compiled statement in the cache.
//
// Left verbatim: statements that are not SELECT/INSERT/UPDATE/DELETE/REPLACE/WITH/VALUES
// (schema changes, PRAGMA, ...), texts that already hold parameters, blob literals, numbers
// that are not plain decimal integers, and column positions in ORDER BY / GROUP BY.
//
// The shapes of recent texts are remembered: a text that differs from one of them only in its
// literal values is split by comparing the fixed parts instead of reading it character by
// character. Not thread-safe; each database connection has its own.
class SqlLiteralParameterizer {
public:
    struct Result {
        QString text;
        QVector<QVariant> values;
        bool changed = false;
    };

    // A whole statement.
    Result Parameterize(const QString& sql);
    // A fragment placed inside a generated statement (a WHERE condition): always rewritten.
    Result ParameterizeFragment(const QString& fragment);

private:
    // A text split at its literals: the fixed pieces around them and each literal's kind
    // (the quote character, or '0' for an integer).
    struct Shape {
        bool fragment = false;
        QVector<QString> pieces;  // one more than kinds
        QVector<char> kinds;
        QString text;  // the parameterized text
    };

    static constexpr int remembered = 32;

    Result parameterize(const QString& sql, bool fragment);
    static bool matches(const Shape& shape, const QString& sql, Result& result);
    static Result rewrite(const QString& sql, Shape* shape);

    QVector<Shape> shapes;  // most recently used first
};

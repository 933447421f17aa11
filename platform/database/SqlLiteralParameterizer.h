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
class SqlLiteralParameterizer {
public:
    struct Result {
        QString text;
        QVector<QVariant> values;
        bool changed = false;
    };

    // A whole statement.
    static Result Parameterize(const QString& sql);
    // A fragment placed inside a generated statement (a WHERE condition): always rewritten.
    static Result ParameterizeFragment(const QString& fragment);

private:
    static Result rewrite(const QString& sql);
};

#pragma once

// Internal to the database layer: statements that carry one pasted text.

#include <QString>
#include <QStringList>
#include <QVector>

#include "StatementCache.h"

// The declared shapes of statements built by pasting one text between fixed parts: a head that
// ends with the text's opening double quote, the text, then one of the tails, each beginning
// with the closing double quote (a tail may go on with further clauses). A text of such a shape
// runs as the statement head + "?" + tail, compiled once, with everything between the head and
// the tail bound as one text value: whatever it holds (quotes, comments, a second statement,
// NUL) can change the value, never the statement. A shape may say how many rows its caller
// reads, so that no more are fetched. Guarded by the DBManager's mutex.
class StatementTemplates {
public:
    // Adds a shape whose caller reads at most `rowsRead` rows (0: all); declaring one again
    // keeps the larger need. Returns false with `why` set for a shape whose texts could be read
    // two ways: a head or tail not quoted as above, or a tail that ends another tail.
    bool Declare(const QString& head, const QStringList& tails, int rowsRead, QString& why);

    struct Match {
        QString statement;  // the text to compile, with "?" for the pasted text
        QString value;      // the pasted text
        int rowsRead = 0;   // 0: all
    };
    // Whether `sql` has a declared shape, and its parts.
    bool Find(const QString& sql, Match& match) const;
    // The declared shape of `head` and `tail` (a text given in its parts): its statement and
    // the rows its caller reads; null when no such shape was declared.
    struct Shape {
        QString head;
        QString tail;
        QString statement;
        int rowsRead;
        StatementCache::Hint compiled;  // where its statement lies in the cache
    };
    Shape* FindParts(const QString& head, const QString& tail);

private:
    QVector<Shape> shapes;
};

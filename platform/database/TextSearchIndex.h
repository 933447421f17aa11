#pragma once

// Internal to the database layer: the trigram index behind the name and barcode searches.

#include <QHash>
#include <QSet>
#include <QSharedPointer>
#include <QString>
#include <QVector>

#include "DBData.h"
#include "DBManager.h"
#include "DBTable.h"

class SchemaCatalogue;
class StatementRunner;

// Serves Load with a LIKE pattern and LoadPrefix ignoring case from a trigram index, giving
// exactly the rows, in exactly the order, of the plain statement they stand in for: the index
// finds candidates, each is checked with the same case-folding LIKE, then sorted and capped as
// the statement would.
//
// The contract with the schema, stated here once:
//  - a virtual table "CREATE VIRTUAL TABLE X USING fts5 (c1, c2, ..., content = 'T', ...,
//    tokenize = 'trigram' ...)" indexes the columns c1, c2, ... of table T by T's rowid;
//  - a table named X + "Pending" (pendingSuffix), with the columns "id", "indexed", c1, c2, ...,
//    holds notes of the rows of T written since the index was last brought up to date, one per
//    row id: indexed = 1 with the values the index holds for that row, or indexed = 0 when the
//    index holds nothing for it. The schema's triggers write the notes; this class folds them
//    into the index (in one transaction with their removal) before a search reads the index and
//    before a transaction of this manager commits. A search never waits for the write lock to
//    fold: while another connection holds it, the noted rows are candidates along with the
//    index's. An index whose pending table lacks a column is not used: it could be behind its
//    table.
//
// Guarded by the DBManager's mutex.
class TextSearchIndex {
public:
    static constexpr const char* pendingSuffix = "Pending";

    TextSearchIndex(StatementRunner& runner, SchemaCatalogue& catalogue);

    // Finds the trigram indexes of the catalogue's tables; after every schema change.
    void Describe();
    // Forgets every index and memo; called when the connection closes.
    void Clear();
    // Folds the notes of every index into it; a failure leaves them, and the searches read them.
    void FoldAll();

    // Load's rows for one LIKE condition on `field`, ordered by `order` (empty, the column, or
    // UPPER of it) and capped at `limit` (0: all). False when the index cannot serve the request
    // or failed: the plain statement then answers.
    bool LoadLike(const DBTable* table, const DBField* field, DBManager::eLoadMode mode,
                  const QString& order, int limit, QSharedPointer<DBData>& result);
    // LoadPrefix's rows ignoring case, ordered by `orderColumn` (null: rowid). False as above.
    bool LoadPrefix(const DBTable* table, const DBColumn* column, const QString& prefix,
                    const DBColumn* orderColumn, QSharedPointer<DBData>& result);

private:
    struct Index {
        QString quotedName;
        QString quotedContent;  // the table it indexes
        QSet<QString> columns;
        // The statements that fold the pending notes into it; empty when it has no such table.
        QString anyPending;
        QString pendingIds;  // " UNION ALL SELECT id FROM <notes>", appended to index lookups
        QByteArray foldRemoved;
        QByteArray foldWritten;
        QByteArray foldAll;  // when the indexed table is empty
        QByteArray clearPending;
        QString contentEmpty;
    };
    struct SearchCandidate {
        qint64 rowid;
        int type;  // SQLite storage class of the text
        QByteArray text;
    };

    // Folds the index's notes if the write lock is free at once; otherwise leaves them.
    void fold(const Index& index);
    // The condition on rowid selecting the candidates of one MATCH (bound as its parameter): the
    // rows the index finds and every noted row.
    static QString indexedRows(const Index& index);
    QString trigramQuery(const Index& index, const QString& run);
    double estimatedRows(const Index& index);
    bool candidates(const DBTable* table, const DBColumn* column, const Index& index,
                    const QString& match, QVector<SearchCandidate>& rows);
    bool loadRowsInOrder(const DBTable* table, const QVector<qint64>& rowids,
                         QSharedPointer<DBData>& result);

    StatementRunner& runner;
    SchemaCatalogue& catalogue;
    // The trigram indexes, by the name of the table they index.
    QHash<QString, Index> indexes;
    // Capped counts of index entries per trigram, to ask the index for the rarest.
    static constexpr int maxRememberedTrigrams = 20000;
    QHash<QString, int> trigramFrequencies;
    // The candidates of the last index lookup: the incremental search asks for the same run
    // twice in a row (as a prefix, then as an infix). Valid while the database is unchanged.
    struct CandidateMemo {
        QString lookup;  // table, column and index query
        qint64 dataVersion = -1;
        qint64 changes = -1;
        qint64 schemaVersion = -1;
        QVector<SearchCandidate> rows;
    } memo;
    static constexpr int maxMemoCandidates = 4096;
};

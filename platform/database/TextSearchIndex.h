#pragma once

// Internal to the database layer: the trigram index behind the name and barcode searches.

#include <QHash>
#include <QSet>
#include <QSharedPointer>
#include <QString>
#include <QVector>

#include "DBData.h"
#include "DBDirectQueryResult.h"
#include "DBManager.h"
#include "DBTable.h"

class SchemaCatalogue;
class SqliteStatement;
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
//    into the index (in one transaction with their removal) before a transaction of this
//    manager commits, and before a search when they have grown many. Until then, and while
//    another connection holds the write lock (a search never waits for it), the noted rows are
//    candidates along with the index's. An index whose pending table lacks a column is not used: it
//    could be behind its table.
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
    // Answers a text handed to Execute that resolved to "SELECT * FROM t WHERE c like ?" with
    // one text value, whose caller reads `rowsRead` rows (> 0): the rows the table scan would
    // give, in its order, found through an index instead. An exact name (no wildcard) is
    // looked up on an index of the column under COLLATE NOCASE, a pattern through the trigram
    // index. False when no index can serve it: the statement then runs itself.
    bool AnswerLike(SqliteStatement& statement, const QVector<QVariant>& values, int rowsRead,
                    DBDirectQueryResult& result);

private:
    struct Index {
        QString quotedName;
        QString quotedContent;  // the table it indexes
        QSet<QString> columns;
        // The statements that fold the pending notes into it; empty when it has no such table.
        QString anyPending;
        QString manyPending;
        QString pendingIds;  // " UNION ALL SELECT id FROM <notes>", appended to index lookups
        QByteArray foldRemoved;
        QByteArray foldWritten;
        QByteArray foldAll;  // when the indexed table is empty
        QByteArray clearPending;
        QString contentEmpty;
    };
    struct SearchCandidate {
        qint64 rowid;
        int type;    // SQLite storage class of the text
        int offset;  // of the text in Candidates::texts
        int bytes;
    };
    // The texts in one buffer: a candidate costs its text and 24 bytes, not an allocation.
    struct Candidates {
        QVector<SearchCandidate> rows;
        QByteArray texts;
    };

    // Folds the index's notes if the write lock is free at once; otherwise leaves them. A
    // search folds only when the notes are many (`always` false).
    void fold(const Index& index, bool always = false);
    // The condition on rowid selecting the candidates of one MATCH (bound as its parameter): the
    // rows the index finds and every noted row.
    static QString indexedRows(const Index& index);
    QString trigramQuery(const Index& index, const QString& run);
    double estimatedRows(const Index& index);
    bool candidates(const DBTable* table, const DBColumn* column, const Index& index,
                    const QString& match, Candidates& found);
    bool loadRowsInOrder(const DBTable* table, const QVector<qint64>& rowids,
                         QSharedPointer<DBData>& result);
    // LoadLike for a pattern too short for the index: one scan of the column answers it and
    // the infix of its longest run, which the incremental search asks for next.
    bool scanLike(const DBTable* table, const DBColumn* column, const QString& pattern, int sortKey,
                  int limit, QSharedPointer<DBData>& result);
    // PRAGMA data_version (-1 when unreadable) and this connection's change count: together
    // they tell whether anything was written since they were last read.
    void readVersions(qint64& dataVersion, qint64& changes);
    // The rowids, ascending, of the rows whose column is LIKE `pattern` (no escape), found
    // through an index; false when none can serve it.
    bool likeRowids(const DBTable* table, const DBColumn* column, const QString& pattern,
                    QVector<qint64>& rowids);
    bool ignoringCaseRowids(const DBTable* table, const DBColumn* column, const QString& text,
                            QVector<qint64>& rowids);
    // Whether a statement's plan reads its table in rowid order (a plain scan), remembered per
    // text and schema version.
    bool scansInRowidOrder(SqliteStatement& statement, const DBTable* table);

    StatementRunner& runner;
    SchemaCatalogue& catalogue;
    // The trigram indexes, by the name of the table they index.
    QHash<QString, Index> indexes;
    // Capped counts of index entries per trigram, to ask the index for the rarest.
    static constexpr int maxRememberedTrigrams = 20000;
    QHash<QString, int> trigramFrequencies;
    // The candidates of the last index lookup: the incremental search asks for the same run
    // twice in a row (as a prefix, then as an infix), so both passes read the index once.
    // Valid while the database is unchanged. A large set serves one more lookup and is then
    // let go, so that it does not stay in memory between searches.
    struct CandidateMemo {
        QString lookup;  // table, column and index query
        qint64 dataVersion = -1;
        qint64 changes = -1;
        qint64 schemaVersion = -1;
        Candidates found;
    } memo;
    static constexpr int maxKeptCandidates = 4096;
    // The answer scanLike found for the infix along with the pattern it was asked for.
    struct ScanMemo {
        QString lookup;  // table, column, order, limit and infix
        qint64 dataVersion = -1;
        qint64 changes = -1;
        qint64 schemaVersion = -1;
        QVector<qint64> rowids;
    } scanned;
    // The most rows scanLike answers: it keeps twice as many candidates per answer.
    static constexpr int maxScanLimit = 1000;
    // Statements handed to Execute that AnswerLike serves, with their table and column.
    struct LikeShape {
        bool served = false;
        QString table;
        QString column;
        qint64 schemaVersion = -1;
        bool scans = false;
    };
    QHash<QString, LikeShape> likeShapes;
};

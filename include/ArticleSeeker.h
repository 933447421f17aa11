#pragma once

#include <QList>
#include <QMutex>
#include <QString>
#include <QVariant>
#include <QVector>
#include <atomic>

#include "Article.h"
#include "ArticleBrief.h"
#include "ArticleManagerGlobal.h"
#include "DBManager.h"

// The read side of the Article table: every lookup of an article goes through it. Each public
// operation holds the seeker's mutex for its whole run (the initialised test comes first),
// except FindFirstArtclePlu and FindLastArticlePlu, which rely on the database's own locking.
// A failed lookup leaves the caller's outputs untouched (CountPluInRange zeroes its count and the
// infix searches empty their vector first).
class ARTICLEMANAGER_EXPORT ArticleSeeker {
public:
    // Result codes of the seeker's operations.
    enum eResult {
        RESULT_FOUND = 0,
        RESULT_NOT_FOUND = 3,
        RESULT_DB_ERROR = 4,
        RESULT_NOT_INITIALIZED = 6,
        RESULT_INVALID_RANGE = 7,
        RESULT_AMBIGUOUS_BARCODE = 8,
    };

    // Not initialised: every lookup answers 6 until Initialize succeeds.
    ArticleSeeker();
    ~ArticleSeeker();

    ArticleSeeker(const ArticleSeeker&) = delete;
    ArticleSeeker& operator=(const ArticleSeeker&) = delete;

    // Binds the seeker to a database holding the Article and ArticleBarcode tables. False (and
    // a level-5 message) for a null database or a missing table.
    bool Initialize(DBManager* db);
    // Always true. Lookups answer 6 afterwards.
    bool Uninitialize();

    // The article with that PLU (and on the handy list when asked): 0 found, 3 none, 4 database
    // error, 6 not initialised.
    int FindPlu(const unsigned int& pluNo, Article& article, bool onlyHandyList);
    // The same by record id.
    int FindById(unsigned int id, Article& article, bool onlyHandyList);
    // Fills `article` from a row whose fields carry Article column names; fields of other
    // names are skipped, missing columns leave the article's field as it was. Then fills
    // unitName from the payment system's units ("" when the unit is unknown).
    void BuildArticleFromDbData(DBRow* row, Article* article);
    // Whether the barcode is on file in the ArticleBarcode table: 0 once, 8 more than once,
    // 3 not at all, 4 database error, 6 not initialised.
    int FindBarcode(const QString& barcode);
    // The first article whose name matches `name` as a LIKE pattern (case-insensitive; % and _
    // are wildcards): 0 found, 3 none, 4 database error, 6 not initialised.
    int FindName(const QString& name, Article& article);

    // PLU navigation. Numbers go into the conditions in decimal.

    // The smallest PLU (0 for an empty table): 0, or 4 database error. onlyHandyList is not
    // used. REQUIRES: an initialised seeker (the flag is not tested).
    int FindFirstArtclePlu(unsigned int& pluNo, bool onlyHandyList);
    // The largest PLU, the same way.
    int FindLastArticlePlu(unsigned int& pluNo, bool onlyHandyList);
    // The next PLU above fromPlu: 0, 3 none, 4, 6. onlyHandyList is not used.
    int FindNextPlu(const unsigned int& fromPlu, unsigned int& nextPlu, bool onlyHandyList);
    // The previous PLU below fromPlu: 0, 3 none, 4, 6. onlyHandyList is not used.
    int FindPrevPlu(const unsigned int& fromPlu, unsigned int& prevPlu, bool onlyHandyList);
    // Up to `count` articles (all for 0) with a PLU from fromPlu on, in the order the database
    // gives them, replacing the list's content: 0 some, 3 none, 4, 6.
    int FindNextPlu(const unsigned int& fromPlu, const unsigned int& count,
                    QList<Article>& articles, bool onlyHandyList);
    // How many articles have a PLU in [fromPlu, toPlu]: 0, 4, 6, or 7 for a reversed range
    // (count 0).
    int CountPluInRange(const unsigned int& fromPlu, const unsigned int& toPlu, unsigned int& count,
                        bool onlyHandyList);
    // The briefs of the articles with a PLU in [fromPlu, toPlu], sorted by PLU, replacing the
    // list's content: 0 some, 3 none (a reversed range matches none), 4, 6.
    int FindPluInRange(const unsigned int& fromPlu, const unsigned int& toPlu,
                       QList<ArticleBrief>& briefs, bool onlyHandyList);
    // The smallest PLU >= 1 no article has: 0, 4, 6.
    int FindFirstUnusedPlu(QVariant& pluNo);

    // Searches.

    // The article a scanned code belongs to: an in-store label is looked up by the article
    // barcode it carries. 0 found, 3 none, 4 database error, 6 not initialised, 8 more than
    // one article carries it (logged).
    int FindArticleByBarcode(const QString& barcode, Article& article, bool onlyHandyList);
    // Articles whose name begins with `prefix` (taken literally, case-insensitive), by name;
    // appended to the vector: 0 some, 3 none, 4, 6.
    int FindNamePrefix(const QString& prefix, QVector<Article>& articles, bool onlyHandyList);
    // The names of those articles.
    int FindNamePrefix(const QString& prefix, QVector<QString>& names, bool onlyHandyList);
    // Incremental search on one column: the articles whose `column` begins with `infix` (a
    // case-insensitive LIKE pattern), then those holding it elsewhere, each article once, at
    // most 100 of each kind. Replaces the vector's content. 0 (also when nothing matched or the
    // database failed), 6 not initialised.
    int FindByGivenInfixAndColumn(const QString& infix, const QString& column,
                                  QVector<Article>& articles);
    // The incremental search on main barcodes and on names.
    int FindByBarcodeInfix(const QString& infix, QVector<Article>& articles);
    int FindNameInfix(const QString& infix, QVector<Article>& articles);

    // The worker of both FindNamePrefix forms: rows of `table` whose `column` begins with
    // `prefix`, ordered by `orderColumn`, appended as articles. Call with the mutex held.
    int findNameByPrefix(const QString& table, const QString& column, const QString& prefix,
                         QVector<Article>& articles, const QString& orderColumn);

private:
    // One pass of the incremental search; appends the articles not listed yet.
    void appendLikeMatches(const QString& column, const QString& pattern,
                           QVector<Article>& articles);
    // The minimum or maximum PLU matching `condition`.
    int extremePlu(bool maximum, const QString& condition, QVariant& value);
    // The first article whose `column` equals `key`; called with the mutex held.
    int findArticle(const QString& column, const QVariant& key, Article& article,
                    bool onlyHandyList, const QString& errorMessage);
    // The fields of `row`'s columns, mapped once per shape of a result; mutex held.
    const int* slotsOf(const DBRowReader& row);

    // The Article fields of the columns of the result last read by name (-1: none), and the
    // id of its columns; guarded by the mutex.
    QVector<int> columnSlots;
    quint64 columnSlotsId = 0;

    std::atomic<bool> initialized;
    DBManager* db;
    DBTable* articleTable;
    DBTable* barcodeTable;
    QMutex mutex;
};

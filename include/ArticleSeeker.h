#pragma once

#include <QMutex>
#include <QString>
#include <atomic>

#include "Article.h"
#include "ArticleManagerGlobal.h"
#include "DBManager.h"

// The read side of the Article table: every lookup of an article goes through it. Each public
// operation holds the seeker's mutex for its whole run (the initialised test comes first).
// A failed lookup leaves the caller's Article untouched.
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

private:
    // The first article whose `column` equals `key`; called with the mutex held.
    int findArticle(const QString& column, const QVariant& key, Article& article,
                    bool onlyHandyList, const QString& errorMessage);

    std::atomic<bool> initialized;
    DBManager* db;
    DBTable* articleTable;
    DBTable* barcodeTable;
    QMutex mutex;
};

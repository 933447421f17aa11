#pragma once

#include <QString>

#include "Article.h"
#include "ArticleManagerGlobal.h"
#include "ArticleSeeker.h"
#include "CurrencyExchangeRate.h"
#include "DBManager.h"
#include "PriceValue.h"
#include "SpecialBarcodeRecognizer.h"

// The write side of the Article table: adds, edits and deletes single articles. It writes only
// the Article table: an article's barcode rows and other articles' links to it are the caller's
// to keep in step (ArticleBarcodeManager, RemoveAllLinksToGivenArticle). No lock of its own.
// The Article passed in is never modified.
class ARTICLEMANAGER_EXPORT ArticleEditor {
public:
    // Not initialised; the barcode recogniser is created here and lives until destruction.
    ArticleEditor();
    ~ArticleEditor();

    ArticleEditor(const ArticleEditor&) = delete;
    ArticleEditor& operator=(const ArticleEditor&) = delete;

    // Binds the editor to the article database and an initialised seeker. False (and a level-5
    // message) for a null database, a missing Article table or a null seeker.
    bool Initialize(DBManager* db, ArticleSeeker* seeker);
    // Always true; the operations answer 6 (IsRecordExist false) afterwards.
    bool Uninitialize();

    // Whether an article's name matches `name` (the seeker's FindName). False when not
    // initialised.
    bool IsRecordExist(const QString& name);
    // Inserts the article (its id is assigned by the database and not read back), its main
    // barcode normalised by the special-barcode recogniser. Returns the database's result:
    // 0 done, non-zero refused (e.g. 5 for a duplicate PLU or name); 6 not initialised.
    eDBOperationResult AddRecord(Article& article);
    // Rewrites the row whose id is article.id with the article's fields. 0 done, 6 not
    // initialised, otherwise the database's result.
    eDBOperationResult EditRecord(Article& article);
    // Deletes the row whose id is article.id, and nothing else. 0 done, 6 not initialised,
    // otherwise the database's result.
    eDBOperationResult DeleteRecord(Article& article);
    // Sets link_plu_no to 0 wherever it is pluNo. Returns true when the update FAILED and false
    // when it worked. Only for an initialised editor.
    bool RemoveAllLinksToGivenArticle(unsigned int pluNo);

    // Sets the price of the article with that PLU to price.GetNumberValue() (minor units):
    // 0 done (also when no article has the PLU), 4 refused, 6 not initialised.
    eDBOperationResult UpdateArticlePrice(unsigned int pluNo, const PriceValue& price);
    // Converts every price p to p / rate, to the nearest minor unit with halves going up and
    // capped at 999999999, in one statement: every price or none. 0 done, 4 failed. Rates need
    // fewer than 9 precision digits and must not be 0; only for an initialised editor.
    eDBOperationResult ChangeAllArticlesPrices(const CurrencyExchangeRate& rate);
    // Empties the catalogue (Article, ArticleBarcode, NotepadCategoryItem,
    // NotepadHandyListCategory, in this order) unless the receipt database (G::dbReceipt)
    // still holds receipt lines, then calls the signal system's all-articles-removed callbacks
    // with 1. 0 done, 1 refused (receipt lines exist), 4 a count or clear failed (tables
    // cleared before it stay cleared). Only for an initialised editor.
    int RemoveAllArticles();

private:
    // One row holding the article's fields (the id first when `withId`).
    QSharedPointer<DBData> articleRow(const Article& article, bool withId);

    bool initialized;
    const DBTable* articleTable;
    DBManager* db;
    ArticleSeeker* seeker;
    SpecialBarcodeRecognizer* barcodeRecognizer;
};

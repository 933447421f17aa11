#pragma once

#include <QString>

#include "Article.h"
#include "ArticleManagerGlobal.h"
#include "ArticleSeeker.h"
#include "CurrencyExchangeRate.h"
#include "DBManager.h"
#include "PriceValue.h"
#include "ScaleLabelRecognizer.h"

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
    // Inserts the article with its main barcode normalised; the new id is not read back.
    // 0 done, 6 not initialised, otherwise the database's refusal (e.g. 5 duplicate PLU).
    eDBOperationResult AddRecord(Article& article);
    // Rewrites the row whose id is article.id with the article's fields. 0 done, 6 not
    // initialised, otherwise the database's result.
    eDBOperationResult EditRecord(Article& article);
    // Deletes the row whose id is article.id, and nothing else. 0 done, 6 not initialised,
    // otherwise the database's result.
    eDBOperationResult DeleteRecord(Article& article);
    // Sets link_plu_no to 0 wherever it is pluNo. Returns true when the update FAILED and false
    // when it worked. REQUIRES: initialised editor (not tested).
    bool RemoveAllLinksToGivenArticle(unsigned int pluNo);

    // Sets the price of the article with that PLU to price.GetNumberValue() (minor units):
    // 0 done (also when no article has the PLU), 4 refused, 6 not initialised.
    eDBOperationResult UpdateArticlePrice(unsigned int pluNo, const PriceValue& price);
    // Divides every price by the rate, rounded half up and capped at 999999999, all or none:
    // 0 done, 4 failed or refused (a rate of 0 or below, or with more than 8 precision
    // digits, changes no price). REQUIRES: initialised editor.
    eDBOperationResult ChangeAllArticlesPrices(const CurrencyExchangeRate& rate);
    // Empties the catalogue and its barcodes and notepads, then calls the all-articles-removed
    // callbacks with 1: 0 done, 1 refused (G::dbReceipt holds receipt lines), 4 a count or
    // clear failed (tables cleared before it stay cleared). REQUIRES: initialised editor.
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

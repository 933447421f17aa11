#pragma once

#include <QString>

#include "Article.h"
#include "ArticleBarcodes.h"
#include "ArticleManagerGlobal.h"
#include "ArticleSeeker.h"
#include "Barcode.h"
#include "DBManager.h"
#include "ScaleLabelRecognizer.h"

// Which of an article's barcode rows DeleteBarcodes removes.
enum ArticleBarcodesDeleteMode {
    ADDITIONAL_BARCODES = 0,  // the rows with is_main 0
    MAIN_BARCODE = 1,         // the row with is_main 1
    ALL_BARCODES = 2,         // every row of the article
};

// Keeps the ArticleBarcode table: one main and any number of additional barcodes per article.
// Barcodes are normalised on the way in by the special-barcode recogniser (a scale label
// becomes the article barcode it carries). No lock of its own.
//
// Results: 0 done, 2 the barcode already exists, 3 no such row (LoadBarcode), 4 the database
// refused, 6 not initialised, 7 empty input.
class ARTICLEMANAGER_EXPORT ArticleBarcodeManager {
public:
    ArticleBarcodeManager();
    ~ArticleBarcodeManager();

    ArticleBarcodeManager(const ArticleBarcodeManager&) = delete;
    ArticleBarcodeManager& operator=(const ArticleBarcodeManager&) = delete;

    // Binds the manager to the article database and the seeker it checks duplicates with.
    // False (and a level-5 message) for a null database, a null seeker or a missing table.
    bool Initialize(DBManager* db, ArticleSeeker* seeker);
    // Unbinds the database, table and seeker; always true.
    bool Uninitialize();

    // Whether the barcode is on file (any article, main or additional). A barcode made only of
    // "0" characters never counts; an uninitialised manager counts every barcode as taken.
    bool IsRecordExist(const QString& barcode);
    // Adds a barcode row for an article after normalising the barcode and refusing duplicates;
    // of two connections adding the same barcode at once, one gets 2.
    eDBOperationResult AddRecord(unsigned int articleId, const QString& barcode, bool isMain);
    // Adds the article's own main barcode (7 when its id is 0 or its barcode empty).
    eDBOperationResult AddRecord(Article& article, bool isMain);
    // Replaces the text of the article's main barcode row (normalised; no duplicate check).
    eDBOperationResult UpdateMainBarcode(unsigned int articleId, const QString& barcode);
    // Replaces the text of an additional barcode row; a main row is never changed this way.
    eDBOperationResult UpdateAdditionalBarcode(unsigned int barcodeId, const QString& barcode);
    // Deletes the additional barcode rows holding this text (as given); main rows stay.
    eDBOperationResult DeleteRecord(const QString& barcode);
    // Deletes the article's rows of the given kind; the second form takes article.id.
    eDBOperationResult DeleteBarcodes(unsigned int articleId, ArticleBarcodesDeleteMode mode);
    eDBOperationResult DeleteBarcodes(Article& article, ArticleBarcodesDeleteMode mode);
    // Deletes every additional barcode of every article.
    eDBOperationResult DeleteAllAdditionalBarcodes();

    // Appends the barcodes of barcodes.GetArticleId() to barcodes.GetBarcodes(), in row order;
    // what the record held stays.
    eDBOperationResult Load(ArticleBarcodes& barcodes);
    // The index-th additional barcode of the whole table (from 0, in row order): result 0
    // found, 3 past the last, 4 query failed; an empty Barcode unless found. Walking 0, 1, 2...
    // until 3 visits every additional barcode once while the table does not change.
    Barcode LoadBarcode(eDBOperationResult& result, unsigned int index);
    // The id of the row holding this text (as given, main or additional); 0 when there is
    // none or the lookup failed; 6 when not initialised.
    unsigned int GetBarcodeIndex(const QString& barcode);

    // The recogniser of in-store labels this manager normalises with; the seeker uses it to
    // look scanned labels up.
    SpecialBarcodeRecognizer* GetSpecialBarcodeRecognizer() const { return barcodeRecognizer; }

private:
    QString normalised(const QString& barcode) const;

    bool initialized;
    const DBTable* barcodeTable;
    DBManager* db;
    ArticleSeeker* seeker;
    SpecialBarcodeRecognizer* barcodeRecognizer;
};

#pragma once

#include <QVector>

#include "Barcode.h"
#include "VexCoreGlobal.h"

// The barcodes of one article. The record owns the Barcode objects in its list; copies are
// deep.
class VEXCORE_EXPORT ArticleBarcodes {
public:
    explicit ArticleBarcodes(unsigned int articleId = 0);
    ArticleBarcodes(const ArticleBarcodes& other);
    ArticleBarcodes& operator=(const ArticleBarcodes& other);
    ~ArticleBarcodes();

    unsigned int GetArticleId() const { return articleId; }
    void SetArticleId(unsigned int id) { articleId = id; }
    // The list to which loaded barcodes are appended; the record deletes what it holds.
    QVector<Barcode*>& GetBarcodes() { return barcodes; }
    const QVector<Barcode*>& GetBarcodes() const { return barcodes; }
    // The main barcode, or null when the list has none.
    const Barcode* GetMainBarcode() const;
    // Deletes every barcode of the list.
    void Clear();

private:
    unsigned int articleId;
    QVector<Barcode*> barcodes;
};

#pragma once

#include <QString>

#include "AbstractDatabaseBasicRecord.h"
#include "VexCoreGlobal.h"

// One row of the ArticleBarcode table: a barcode of an article, its main one or an additional
// one. The default record (id 0, article 0, no text) stands for "no barcode".
class VEXCORE_EXPORT Barcode : public AbstractDatabaseBasicRecord {
public:
    Barcode();
    Barcode(unsigned int id, unsigned int articleId, const QString& barcode, bool isMain);

    unsigned int GetArticleId() const { return articleId; }
    const QString& GetBarcode() const { return barcode; }
    bool IsMain() const { return isMain; }

    bool operator==(const Barcode& other) const;
    bool operator!=(const Barcode& other) const { return !(*this == other); }

private:
    unsigned int articleId;
    QString barcode;
    bool isMain;
};

#include "CatalogueWriter.h"

CatalogueWriter::CatalogueWriter(ArticleManager& manager) : manager(manager) {}

int CatalogueWriter::addBarcode(unsigned int articleId, const QString& barcode, bool isMain,
                                QString& error) {
    const int result = manager.GetBarcodeManager()->AddRecord(articleId, barcode, isMain);
    if (result == DB_OPERATION_ALREADY_EXISTS) {
        Article owner;
        const bool known = manager.GetSeeker()->FindArticleByBarcode(barcode, owner, false) == 0;
        error = known ? QStringLiteral("barcode %1 already belongs to PLU %2 (%3)")
                            .arg(barcode)
                            .arg(owner.pluNo)
                            .arg(owner.name)
                      : QStringLiteral("barcode %1 is already on file").arg(barcode);
    } else if (result != DB_OPERATION_SUCCESS) {
        error = QStringLiteral("barcode %1 could not be stored").arg(barcode);
    }
    return result;
}

int CatalogueWriter::Write(const Article& given, const QStringList& extraBarcodes, Mode mode,
                           QString& error, std::optional<unsigned int> storedId) {
    Article article = given;
    Article stored;
    int found = 3;
    if (!storedId) {
        found = manager.GetSeeker()->FindPlu(article.pluNo, stored, false);
    } else if (*storedId != 0) {
        found = 0;
        stored.id = *storedId;
    }
    if (found == 0 && mode == CreateOnly) {
        error =
            QStringLiteral("PLU %1 is already taken by \"%2\"").arg(article.pluNo).arg(stored.name);
        return DB_OPERATION_ALREADY_EXISTS;
    }
    if (found != 0 && found != 3) {
        error = QStringLiteral("PLU %1 could not be looked up").arg(article.pluNo);
        return found;
    }
    int result = DB_OPERATION_SUCCESS;
    if (found == 0) {
        article.id = stored.id;
        result = manager.GetEditor()->EditRecord(article);
        if (result == DB_OPERATION_SUCCESS) {
            result = manager.GetBarcodeManager()->DeleteBarcodes(article.id, ALL_BARCODES);
        }
    } else {
        result = manager.GetEditor()->AddRecord(article);
        if (result == DB_OPERATION_SUCCESS) {
            result = manager.GetSeeker()->FindPlu(article.pluNo, stored, false);
            article.id = stored.id;
        }
    }
    if (result == DB_OPERATION_CONSTRAINT) {
        error =
            QStringLiteral("the name \"%1\" is already used by another article").arg(article.name);
        return result;
    }
    if (result != DB_OPERATION_SUCCESS) {
        error = QStringLiteral("PLU %1 could not be stored").arg(article.pluNo);
        return result;
    }
    if (!article.mainBarcode.isEmpty()) {
        result = addBarcode(article.id, article.mainBarcode, true, error);
        if (result != DB_OPERATION_SUCCESS) {
            return result;
        }
    }
    for (const QString& barcode : extraBarcodes) {
        result = addBarcode(article.id, barcode, false, error);
        if (result != DB_OPERATION_SUCCESS) {
            return result;
        }
    }
    return DB_OPERATION_SUCCESS;
}

#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include "Article.h"
#include "ArticleManager.h"

// Writes an article and its barcodes through the library, as the register's application must:
// the Article row through the editor, the main and additional barcodes through the barcode
// manager. Callers group writes in a database transaction.
//
// Results are the library's: 0 done; 2 (a barcode already on file) and 5 (the name already
// used) refuse the article, with `error` saying why; anything else is a database failure,
// whose reason the database keeps (DBManager::GetLastError).
class CatalogueWriter {
public:
    enum Mode {
        CreateOnly,       // a PLU already on file is refused
        CreateOrReplace,  // a PLU on file is rewritten with all its barcodes
    };

    explicit CatalogueWriter(ArticleManager& manager);

    // Adds or replaces the article of article.pluNo with all its barcodes.
    int Write(const Article& article, const QStringList& extraBarcodes, Mode mode, QString& error);
    // Adds a new article with its main and additional barcodes; sets article.id.
    int Add(Article& article, const QStringList& extraBarcodes, QString& error);
    // Turns the stored article into `article` (same id): the Article row when a field differs,
    // the main barcode row when the main barcode differs, and the additional barcodes when
    // `extraBarcodes` is given (all of them, in that order). Nothing else is touched.
    int Update(const Article& stored, const Article& article, const QStringList* extraBarcodes,
               QString& error);
    // The additional barcodes of an article, in row order.
    int ExtraBarcodes(unsigned int articleId, QStringList& extras);
    // The additional barcodes of each of `articles`, by article id, in row order: one read for
    // all of them.
    int ExtraBarcodes(const QList<Article>& articles, QHash<unsigned int, QStringList>& extras);
    // The barcode as the library stores it: a scale label becomes the article part it carries.
    QString Normalised(const QString& barcode);

private:
    int addBarcode(unsigned int articleId, const QString& barcode, bool isMain, QString& error);
    int articleResult(int result, const Article& article, QString& error);

    ArticleManager& manager;
};

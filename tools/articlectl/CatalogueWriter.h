#pragma once

#include <QString>
#include <QStringList>
#include <optional>

#include "Article.h"
#include "ArticleManager.h"

// Writes an article and its barcodes through the library, as the register's application must:
// the Article row through the editor, the main and additional barcodes through the barcode
// manager. Callers group writes in a database transaction.
class CatalogueWriter {
public:
    enum Mode {
        CreateOnly,       // a PLU already on file is refused
        CreateOrReplace,  // a PLU on file is rewritten with all its barcodes
    };

    explicit CatalogueWriter(ArticleManager& manager);

    // Returns the library's result (0 done) with `error` saying what was refused. `storedId`:
    // the id of the article on file under this PLU (0 for none) when the caller knows it, so
    // that a bulk import need not look every PLU up.
    int Write(const Article& article, const QStringList& extraBarcodes, Mode mode, QString& error,
              std::optional<unsigned int> storedId = std::nullopt);

private:
    int addBarcode(unsigned int articleId, const QString& barcode, bool isMain, QString& error);

    ArticleManager& manager;
};

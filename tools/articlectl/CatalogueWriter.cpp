#include "CatalogueWriter.h"

#include <QSet>

#include "DBManager.h"
#include "Globals.h"
#include "PriceValue.h"

CatalogueWriter::CatalogueWriter(ArticleManager& manager) : manager(manager) {}

QString CatalogueWriter::Normalised(const QString& barcode) {
    QString article;
    return manager.GetBarcodeManager()->GetSpecialBarcodeRecognizer()->getArticleBarcode(barcode,
                                                                                         article)
               ? article
               : barcode;
}

int CatalogueWriter::ExtraBarcodes(unsigned int articleId, QStringList& extras) {
    extras.clear();
    ArticleBarcodes barcodes(articleId);
    const int result = manager.GetBarcodeManager()->Load(barcodes);
    for (const Barcode* barcode : barcodes.GetBarcodes()) {
        if (!barcode->IsMain()) {
            extras.append(barcode->GetBarcode());
        }
    }
    return result;
}

int CatalogueWriter::ExtraBarcodes(const QList<Article>& articles,
                                   QHash<unsigned int, QStringList>& extras) {
    extras.clear();
    if (articles.isEmpty()) {
        return DB_OPERATION_SUCCESS;
    }
    // One read over the page's PLU range, kept to the page's articles (a page of the handy
    // list leaves others out).
    QSet<unsigned int> ids;
    unsigned int lowest = articles.first().pluNo;
    unsigned int highest = lowest;
    for (const Article& article : articles) {
        ids.insert(article.id);
        lowest = qMin(lowest, article.pluNo);
        highest = qMax(highest, article.pluNo);
    }
    return G::dbArticles->Execute(
        // CROSS JOIN keeps the walk on the PLU index with one seek per article; ordered so
        // without a sort.
        QStringLiteral("SELECT b.article_id, b.barcode FROM Article AS a CROSS JOIN "
                       "ArticleBarcode AS b ON b.article_id = a.id AND b.is_main = 0 WHERE "
                       "a.plu_no BETWEEN %1 AND %2 ORDER BY a.plu_no, b.id")
            .arg(lowest)
            .arg(highest),
        [&](const DBRowReader& row) {
            const unsigned int id = row.Value(0).toUInt();
            if (ids.contains(id)) {
                extras[id].append(row.Value(1).toString());
            }
            return true;
        });
}

int CatalogueWriter::addBarcode(unsigned int articleId, const QString& barcode, bool isMain,
                                QString& error) {
    const int result = manager.GetBarcodeManager()->AddRecord(articleId, barcode, isMain);
    if (result == DB_OPERATION_ALREADY_EXISTS) {
        Article owner;
        const bool known = manager.GetSeeker()->FindArticleByBarcode(barcode, owner, false) ==
                           ArticleSeeker::RESULT_FOUND;
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

int CatalogueWriter::articleResult(int result, const Article& article, QString& error) {
    if (result == DB_OPERATION_SUCCESS) {
        return result;
    }
    if (result == DB_OPERATION_CONSTRAINT) {
        // The PLU was looked up first, so the name is the one unique column left; a constraint
        // that is not a taken name is the database's failure, not the article's.
        Article owner;
        if (manager.GetSeeker()->FindName(article.name, owner) == ArticleSeeker::RESULT_FOUND &&
            owner.name == article.name && owner.id != article.id) {
            error = QStringLiteral("the name \"%1\" is already used by PLU %2")
                        .arg(article.name)
                        .arg(owner.pluNo);
            return result;
        }
        result = DB_OPERATION_ERROR;
    }
    error = QStringLiteral("PLU %1 could not be stored").arg(article.pluNo);
    return result;
}

int CatalogueWriter::Add(Article& article, const QStringList& extraBarcodes, QString& error) {
    int result = articleResult(manager.GetEditor()->AddRecord(article), article, error);
    if (result != DB_OPERATION_SUCCESS) {
        return result;
    }
    // The id the database gave the row: the editor does not read it back. The row just
    // inserted is found by its rowid (an import does this for every new article), and must
    // hold this PLU.
    static const QString insertedRow =
        QStringLiteral("SELECT id, plu_no FROM Article WHERE id = last_insert_rowid()");
    qint64 id = 0;
    qint64 plu = -1;
    result = G::dbArticles->Execute(insertedRow, [&](const DBRowReader& row) {
        id = row.Integer(0);
        plu = row.Integer(1);
        return false;
    });
    if (result != DB_OPERATION_SUCCESS || id <= 0 || plu != article.pluNo) {
        error = QStringLiteral("PLU %1 could not be read back").arg(article.pluNo);
        return DB_OPERATION_ERROR;
    }
    article.id = static_cast<unsigned int>(id);
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

int CatalogueWriter::Update(const Article& stored, const Article& given,
                            const QStringList* extraBarcodes, QString& error) {
    Article article = given;
    article.id = stored.id;
    article.mainBarcode = Normalised(article.mainBarcode);
    ArticleBarcodeManager* barcodes = manager.GetBarcodeManager();
    const bool mainChanged = article.mainBarcode != stored.mainBarcode;
    // The old rows go first, so that a barcode moving between the main and the additional
    // ones is not taken for another article's.
    if (mainChanged && barcodes->DeleteBarcodes(article.id, MAIN_BARCODE) != 0) {
        error = QStringLiteral("the barcodes of PLU %1 could not be changed").arg(article.pluNo);
        return DB_OPERATION_ERROR;
    }
    if (extraBarcodes && barcodes->DeleteBarcodes(article.id, ADDITIONAL_BARCODES) != 0) {
        error = QStringLiteral("the barcodes of PLU %1 could not be changed").arg(article.pluNo);
        return DB_OPERATION_ERROR;
    }
    Article samePrice = article;
    samePrice.price = stored.price;
    if (samePrice == stored && article.price != stored.price) {
        // The price alone: rewriting the whole row would also queue the name for the search
        // index, which a price list of a whole catalogue makes a large part of its work.
        if (manager.GetEditor()->UpdateArticlePrice(article.pluNo, PriceValue(article.price)) !=
            DB_OPERATION_SUCCESS) {
            error = QStringLiteral("the price of PLU %1 could not be stored").arg(article.pluNo);
            return DB_OPERATION_ERROR;
        }
    } else if (article != stored) {
        const int result = articleResult(manager.GetEditor()->EditRecord(article), article, error);
        if (result != DB_OPERATION_SUCCESS) {
            return result;
        }
    }
    if (mainChanged && !article.mainBarcode.isEmpty()) {
        const int result = addBarcode(article.id, article.mainBarcode, true, error);
        if (result != DB_OPERATION_SUCCESS) {
            return result;
        }
    }
    for (const QString& barcode : extraBarcodes ? *extraBarcodes : QStringList()) {
        const int result = addBarcode(article.id, barcode, false, error);
        if (result != DB_OPERATION_SUCCESS) {
            return result;
        }
    }
    return DB_OPERATION_SUCCESS;
}

int CatalogueWriter::Write(const Article& given, const QStringList& extraBarcodes, Mode mode,
                           QString& error) {
    Article article = given;
    Article stored;
    const int found = manager.GetSeeker()->FindPlu(article.pluNo, stored, false);
    if (found == ArticleSeeker::RESULT_FOUND && mode == CreateOnly) {
        error =
            QStringLiteral("PLU %1 is already taken by \"%2\"").arg(article.pluNo).arg(stored.name);
        return DB_OPERATION_ALREADY_EXISTS;
    }
    if (found == ArticleSeeker::RESULT_FOUND) {
        return Update(stored, article, &extraBarcodes, error);
    }
    if (found != ArticleSeeker::RESULT_NOT_FOUND) {
        error = QStringLiteral("PLU %1 could not be looked up").arg(article.pluNo);
        return found;
    }
    return Add(article, extraBarcodes, error);
}

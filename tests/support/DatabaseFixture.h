#pragma once

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <memory>

#include "DBManager.h"
#include "Globals.h"
#include "LogCapture.h"
#include "QtPrinters.h"
#include "RawSqlite.h"

// A fresh article database and receipt database with the real schema in a temporary folder,
// published as G::dbArticles and G::dbReceipt, the payment system's units loaded, the log
// captured.
class DatabaseFixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    QString ArticlesPath() const { return dir.filePath(QStringLiteral("articles.db")); }
    QString ReceiptsPath() const { return dir.filePath(QStringLiteral("receipts.db")); }
    // A second connection to the article database.
    RawSqlite& Raw();
    // Every article as "id|plu|name|price", by id, read through Raw().
    QStringList ArticlesInTable() {
        return Raw().Rows(
            QStringLiteral("SELECT id, plu_no, art_name, price FROM Article ORDER BY id"));
    }

    using Field = QPair<QString, QVariant>;
    // Rows on `table`, each given as its (column, value) fields.
    static QSharedPointer<DBData> Rows(const DBTable* table, const QList<QList<Field>>& rows);
    // One column of rows as text, row by row.
    static QStringList Column(const QSharedPointer<DBData>& data, const QString& column);
    static QStringList Column(const DBDirectQueryResult& result, int column);

    // Stores an article with the given PLU and name and the other columns at their defaults
    // (barcode, price and flags as given); returns its id.
    qint64 AddArticle(unsigned int plu, const QString& name, const QString& mainBarcode = QString(),
                      qint64 price = 0, bool onHandyList = false, int unitNo = 1);
    // Stores a barcode row for an article.
    void AddBarcode(qint64 articleId, const QString& barcode, bool isMain);
    // The register's scale-label prefixes: 27 and 29 price labels, 23 and 24 weight labels.
    void AddLabelPrefixes();

    QTemporaryDir dir;
    std::unique_ptr<DBManager> articles;
    std::unique_ptr<DBManager> receipts;
    std::unique_ptr<LogCapture> log;

private:
    std::unique_ptr<RawSqlite> raw;
};

// Creates an article database, stores one article through the database layer and finds it
// again with the article seeker, as the register's application would.
//
//   quickstart [FILE]      (default: articles.db in the current folder)

#include <QCoreApplication>
#include <QTextStream>

#include "ArticleSeeker.h"
#include "DBManager.h"
#include "Globals.h"
#include "PaymentSystem.h"

namespace {

QTextStream& out() {
    static QTextStream stream(stdout);
    return stream;
}

void print(const Article& article) {
    out() << "  PLU " << article.pluNo << "  \"" << article.name << "\"  "
          << QString::number(article.price / 100.0, 'f', 2) << " per " << article.unitName
          << "  barcode " << article.mainBarcode << "  (id " << article.id << ")\n";
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QString fileName =
        argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("articles.db");

    DBManager db(fileName, DBManager::SCHEMA_ARTICLES);
    if (db.Open() != DB_OPERATION_SUCCESS) {
        out() << "Cannot open " << fileName << ": " << db.GetLastError() << "\n";
        return 4;
    }
    G::dbArticles = &db;
    G::paymentSystem->Initialize(&db);
    out() << "Opened " << fileName << " (schema version " << db.GetSchemaVersion() << ")\n";

    // One row on the Article table; Insert replaces the row when its key already exists.
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    auto* row = new DBRow(db.GetTable(QStringLiteral("Article")));
    row->AppendField(QStringLiteral("id"), 1u);
    row->AppendField(QStringLiteral("plu_no"), 1001u);
    row->AppendField(QStringLiteral("art_name"), QStringLiteral("Ser żółty Gouda"));
    row->AppendField(QStringLiteral("unit_no"), 2);
    row->AppendField(QStringLiteral("main_barcode"), QStringLiteral("5901234123457"));
    row->AppendField(QStringLiteral("price"), 3499);
    rows->AppendRow(row);
    if (db.Insert(rows) != DB_OPERATION_SUCCESS) {
        out() << "Cannot store the article: " << db.GetLastError() << "\n";
        return 4;
    }
    out() << "Stored article PLU 1001.\n";

    ArticleSeeker seeker;
    if (!seeker.Initialize(&db)) {
        return 4;
    }
    Article article;
    out() << "FindPlu(1001) -> " << seeker.FindPlu(1001, article, false) << "\n";
    print(article);
    Article byName;
    out() << QStringLiteral("FindName(\"ser żółty%\") -> ")
          << seeker.FindName(QStringLiteral("ser żółty%"), byName) << "\n";
    print(byName);
    Article missing;
    out() << "FindPlu(9999) -> " << seeker.FindPlu(9999, missing, false) << " (3: not found)\n";
    out().flush();
    G::paymentSystem->Uninitialize();
    G::dbArticles = nullptr;
    return 0;
}

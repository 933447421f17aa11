#include "BenchCatalogue.h"

#include <sqlite3.h>

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <cstdio>

#include "DBManager.h"

namespace {

// Runs a statement of the build; reports a failure on standard error.
bool run(sqlite3* db, const char* sql) {
    char* error = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        std::fprintf(stderr, "building the catalogue: %s\n", error ? error : "?");
        sqlite3_free(error);
        return false;
    }
    return true;
}

void bindText(sqlite3_stmt* statement, int index, const QString& text) {
    const QByteArray utf8 = text.toUtf8();
    sqlite3_bind_text(statement, index, utf8.constData(), utf8.size(), SQLITE_TRANSIENT);
}

QString csvField(const QString& value) {
    if (!value.contains(QLatin1Char(',')) && !value.contains(QLatin1Char('"'))) {
        return value;
    }
    QString quoted = value;
    quoted.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

QString price(qint64 minorUnits) {
    return QStringLiteral("%1.%2")
        .arg(minorUnits / 100)
        .arg(minorUnits % 100, 2, 10, QLatin1Char('0'));
}

constexpr int gapEvery = 10;

}  // namespace

BenchCatalogue::BenchCatalogue(const QString& folder, int size)
    : folder(folder), size(size), generator(2026, gapEvery, size - size / 100) {
    QDir().mkpath(folder);
}

QString BenchCatalogue::Database() {
    // Named after the schema too, so that a catalogue cached by an older build is not reused.
    const QString path = QStringLiteral("%1/catalogue-%2-v%3.db")
                             .arg(folder)
                             .arg(size)
                             .arg(DBManager::LatestSchemaVersion(DBManager::SCHEMA_ARTICLES));
    return QFile::exists(path) || build(path, true) ? path : QString();
}

QString BenchCatalogue::EmptyDatabase() {
    const QString path = QStringLiteral("%1/empty-settings-v%2.db")
                             .arg(folder)
                             .arg(DBManager::LatestSchemaVersion(DBManager::SCHEMA_ARTICLES));
    return QFile::exists(path) || build(path, false) ? path : QString();
}

bool BenchCatalogue::build(const QString& path, bool withArticles) {
    const QString building = path + QStringLiteral(".building");
    QFile::remove(building);
    {
        DBManager schema(building, DBManager::SCHEMA_ARTICLES);
        if (schema.Open() != DB_OPERATION_SUCCESS) {
            return false;
        }
    }
    sqlite3* db = nullptr;
    sqlite3_open_v2(building.toUtf8().constData(), &db, SQLITE_OPEN_READWRITE, nullptr);
    bool ok = run(db, "BEGIN") &&
              run(db,
                  "INSERT INTO TaxRates VALUES (1,'A',2300),(2,'B',800),(3,'C',500),(4,'D',0),"
                  "(5,'E',65535),(6,'F',65535),(7,'G',61440)") &&
              run(db,
                  "INSERT INTO SpecialBarcodePrefixes VALUES "
                  "(1,'27',1),(2,'29',1),(6,'23',0),(7,'24',0)") &&
              run(db,
                  "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 99) "
                  "INSERT INTO Dept (dept_id, is_discount_blocked, is_order_printer) "
                  "SELECT i, i = 15 OR i >= 90, i <= 8 OR i >= 51 FROM n");
    sqlite3_stmt* article = nullptr;
    sqlite3_stmt* barcode = nullptr;
    sqlite3_prepare_v2(
        db,
        "INSERT INTO Article (id, plu_no, art_name, tax_rate_no, dept_no, quantity_precision, "
        "unit_no, main_barcode, price, is_pack, on_handy_list, scale_no) "
        "VALUES (?,?,?,?,?,?,?,?,?,?,?,?)",
        -1, &article, nullptr);
    sqlite3_prepare_v2(db,
                       "INSERT INTO ArticleBarcode (article_id, barcode, is_main) VALUES (?,?,?)",
                       -1, &barcode, nullptr);
    for (int index = 0; ok && withArticles && index < size; ++index) {
        const GeneratedArticle generated = generator.Generate(index);
        const Article& a = generated.article;
        sqlite3_bind_int64(article, 1, index + 1);
        sqlite3_bind_int64(article, 2, a.pluNo);
        bindText(article, 3, a.name);
        sqlite3_bind_int(article, 4, a.taxRateNo);
        sqlite3_bind_int(article, 5, a.deptNo);
        sqlite3_bind_int(article, 6, a.quantityPrecision);
        sqlite3_bind_int(article, 7, a.unitNo);
        bindText(article, 8, a.mainBarcode);
        sqlite3_bind_int64(article, 9, a.price);
        sqlite3_bind_int(article, 10, a.isPack);
        sqlite3_bind_int(article, 11, a.onHandyList);
        sqlite3_bind_int(article, 12, a.scaleNo);
        ok = sqlite3_step(article) == SQLITE_DONE;
        sqlite3_reset(article);
        QStringList codes = generated.extraBarcodes;
        codes.prepend(a.mainBarcode);
        for (int i = 0; ok && i < codes.size(); ++i) {
            sqlite3_bind_int64(barcode, 1, index + 1);
            bindText(barcode, 2, codes[i]);
            sqlite3_bind_int(barcode, 3, i == 0);
            ok = sqlite3_step(barcode) == SQLITE_DONE;
            sqlite3_reset(barcode);
        }
    }
    if (!ok) {
        std::fprintf(stderr, "building the catalogue: %s\n", sqlite3_errmsg(db));
    }
    sqlite3_finalize(article);
    sqlite3_finalize(barcode);
    // The search index as the library leaves it after a bulk write: up to date, nothing noted.
    ok = ok && run(db, "INSERT INTO ArticleSearch (ArticleSearch) VALUES ('rebuild')") &&
         run(db, "DELETE FROM ArticleSearchPending") && run(db, "COMMIT") &&
         run(db, "PRAGMA wal_checkpoint(TRUNCATE)");
    sqlite3_close(db);
    if (!ok) {
        QFile::remove(building);
        return false;
    }
    QFile::remove(building + QStringLiteral("-wal"));
    QFile::remove(building + QStringLiteral("-shm"));
    return QFile::rename(building, path);
}

QString BenchCatalogue::PriceList() {
    return writePriceList(QStringLiteral("%1/catalogue-%2.csv").arg(folder).arg(size), 0, size);
}

QString BenchCatalogue::Additions(int count) {
    return writePriceList(QStringLiteral("%1/additions-%2-%3.csv").arg(folder).arg(size).arg(count),
                          size, count);
}

QString BenchCatalogue::writePriceList(const QString& path, int first, int count) {
    if (QFile::exists(path)) {
        return path;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return QString();
    }
    file.write(
        "plu,name,price,tax,dept,unit,precision,barcode,extra_barcodes,blocked,pack,no_discounts,"
        "free_price,handy,scale,link_plu\r\n");
    for (int index = first; index < first + count; ++index) {
        const GeneratedArticle generated = generator.Generate(index);
        const Article& a = generated.article;
        const QStringList fields = {QString::number(a.pluNo),
                                    csvField(a.name),
                                    price(a.price),
                                    QString::number(a.taxRateNo),
                                    QString::number(a.deptNo),
                                    QString::number(a.unitNo),
                                    QString::number(a.quantityPrecision),
                                    a.mainBarcode,
                                    generated.extraBarcodes.join(QLatin1Char(' ')),
                                    QStringLiteral("0"),
                                    QString::number(a.isPack),
                                    QStringLiteral("0"),
                                    QStringLiteral("0"),
                                    QString::number(a.onHandyList),
                                    QString::number(a.scaleNo),
                                    QStringLiteral("0")};
        file.write((fields.join(QLatin1Char(',')) + QStringLiteral("\r\n")).toUtf8());
    }
    return file.commit() ? path : QString();
}

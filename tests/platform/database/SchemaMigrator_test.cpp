// A new file gets the whole schema of its kind, an older file is brought up to date, and a
// file the layer must not take is refused before a byte of it is written.

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>

#include "DatabaseFixture.h"

namespace {

QString schemaScript(const QString& name) {
    QFile file(QStringLiteral(ARTICLEMANAGER_SOURCE_DIR) +
               QStringLiteral("/platform/database/schema/articles/") + name);
    file.open(QIODevice::ReadOnly);
    return QString::fromUtf8(file.readAll());
}

}  // namespace

using SchemaMigrator = DatabaseFixture;

TEST_F(SchemaMigrator, NewArticleDatabaseHasEveryTableAtTheLatestVersion) {
    EXPECT_EQ(DBManager::STATE_OPEN, articles->GetState());
    EXPECT_EQ(DBManager::LatestSchemaVersion(DBManager::SCHEMA_ARTICLES),
              articles->GetSchemaVersion());
    EXPECT_EQ(articles->GetSchemaVersion(), Raw().Integer(QStringLiteral("PRAGMA user_version")));
    EXPECT_EQ(QStringLiteral("wal"), Raw().Text(QStringLiteral("PRAGMA journal_mode")));
    for (const char* table :
         {"Article", "ArticleBarcode", "Dept", "TaxRates", "SpecialBarcodePrefixes",
          "NotepadCategoryItem", "NotepadHandyListCategory", "Units"}) {
        EXPECT_NE(nullptr, articles->GetTable(QString::fromLatin1(table))) << table;
    }
    EXPECT_EQ(nullptr, articles->GetTable(QStringLiteral("ReceiptLineEvent")));
    EXPECT_NE(nullptr, receipts->GetTable(QStringLiteral("ReceiptLineEvent")));
    EXPECT_EQ(QStringList({"1|szt.", "2|kg", "3|l", "4|m", "5|op."}),
              Raw().Rows(QStringLiteral("SELECT unit_no, unit_name FROM Units ORDER BY 1")));
    // Every lookup the library makes has an index.
    const QStringList plans = Raw().Rows(
        QStringLiteral("EXPLAIN QUERY PLAN SELECT * FROM ArticleBarcode WHERE barcode = 'x'"));
    EXPECT_TRUE(plans.join(QString()).contains(QStringLiteral("USING INDEX")))
        << plans.join(QString()).toStdString();
}

TEST(SchemaMigratorFile, OlderFileIsMigratedAndKeepsItsRows) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("old.db"));
    {
        // A file as the first schema version left it, with one article.
        RawSqlite old(path);
        ASSERT_EQ(0, old.Exec(schemaScript(QStringLiteral("0001_tables.sql"))));
        old.Exec(QStringLiteral("PRAGMA user_version = 1; PRAGMA application_id = 1095582034"));
        old.Exec(QStringLiteral("INSERT INTO Article (plu_no, art_name) VALUES (7, 'Chleb')"));
    }
    LogCapture log;
    DBManager db(path, DBManager::SCHEMA_ARTICLES);
    ASSERT_EQ(DB_OPERATION_SUCCESS, db.Open());
    EXPECT_EQ(DBManager::LatestSchemaVersion(DBManager::SCHEMA_ARTICLES), db.GetSchemaVersion());
    RawSqlite check(path);
    EXPECT_EQ(QStringLiteral("Chleb"), check.Text(QStringLiteral("SELECT art_name FROM Article")));
    EXPECT_EQ(1, check.Integer(QStringLiteral(
                     "SELECT COUNT(*) FROM sqlite_master WHERE name = 'ArticleBarcode_barcode'")));
}

TEST(SchemaMigratorFile, RefusedFilesAreLeftByteForByte) {
    QTemporaryDir dir;
    LogCapture log;
    auto hash = [](const QString& path) {
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256);
    };
    auto made = [&](const QString& name, DBManager::eSchema schema, const QString& sql) {
        const QString path = dir.filePath(name);
        if (schema != DBManager::SCHEMA_NONE) {
            DBManager db(path, schema);
            EXPECT_EQ(DB_OPERATION_SUCCESS, db.Open());
        }
        if (!sql.isEmpty()) {
            EXPECT_EQ(0, RawSqlite(path).Exec(sql)) << sql.toStdString();
        }
        return path;
    };
    const QString garbage = dir.filePath(QStringLiteral("garbage.db"));
    {
        QFile file(garbage);
        file.open(QIODevice::WriteOnly);
        file.write(QByteArray(8192, 'x'));
    }
    // Another program's file may be in use, its journal in WAL with changes not yet in the
    // file: even reading it must not move them.
    const QString inUse =
        made(QStringLiteral("in-use.db"), DBManager::SCHEMA_NONE,
             QStringLiteral("PRAGMA journal_mode = WAL; PRAGMA application_id = 7; "
                            "CREATE TABLE Orders (id INTEGER PRIMARY KEY)"));
    RawSqlite otherProgram(inUse);
    otherProgram.Exec(QStringLiteral("INSERT INTO Orders VALUES (1)"));
    const QList<QPair<QString, QString>> files = {
        {garbage, QStringLiteral("file is not a database")},
        {made(QStringLiteral("newer.db"), DBManager::SCHEMA_ARTICLES,
              QStringLiteral("PRAGMA user_version = 999")),
         QStringLiteral("newer than this library supports")},
        {made(QStringLiteral("receipts.db"), DBManager::SCHEMA_RECEIPTS, QString()),
         QStringLiteral("another kind of database")},
        {made(QStringLiteral("other.db"), DBManager::SCHEMA_NONE,
              QStringLiteral("CREATE TABLE Article (id INTEGER PRIMARY KEY, name TEXT); "
                             "INSERT INTO Article VALUES (1, 'not ours')")),
         QStringLiteral("of another program")},
        {inUse, QStringLiteral("another kind of database")},
    };
    for (const auto& file : files) {
        const QByteArray before = hash(file.first);
        DBManager db(file.first, DBManager::SCHEMA_ARTICLES);
        EXPECT_NE(DB_OPERATION_SUCCESS, db.Open()) << file.first.toStdString();
        EXPECT_EQ(DBManager::STATE_FAILED, db.GetState());
        EXPECT_TRUE(log.Mentions(file.second)) << file.second.toStdString();
        db.Close();
        EXPECT_EQ(before, hash(file.first)) << file.first.toStdString() << " was changed";
    }
    EXPECT_EQ(QStringLiteral("1"), otherProgram.Text(QStringLiteral("SELECT id FROM Orders")));
}

// A new file gets the whole schema of its kind, an older file is brought up to date, a file the
// layer must not take is refused before a byte of it is written, and the table descriptions
// follow the live schema.

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>

#include "DatabaseFixture.h"

using SchemaMigrator = DatabaseFixture;

TEST_F(SchemaMigrator, NewArticleDatabaseHasEveryTableAtTheLatestVersion) {
    EXPECT_EQ(DBManager::LatestSchemaVersion(DBManager::SCHEMA_ARTICLES),
              articles->GetSchemaVersion());
    EXPECT_EQ(articles->GetSchemaVersion(), Raw().Integer("PRAGMA user_version"));
    for (const char* table :
         {"Article", "ArticleBarcode", "Dept", "TaxRates", "SpecialBarcodePrefixes",
          "NotepadCategoryItem", "NotepadHandyListCategory", "Units"}) {
        EXPECT_NE(nullptr, articles->GetTable(table)) << table;
    }
    EXPECT_EQ(nullptr, articles->GetTable("ReceiptLineEvent"));
    EXPECT_NE(nullptr, receipts->GetTable("ReceiptLineEvent"));
    EXPECT_EQ(QStringList({"1|szt.", "2|kg", "3|l", "4|m", "5|op."}),
              Raw().Rows("SELECT unit_no, unit_name FROM Units ORDER BY 1"));
    // Every lookup the library makes has an index.
    const QString plan =
        Raw().Rows("EXPLAIN QUERY PLAN SELECT * FROM ArticleBarcode WHERE barcode = 'x'").join("");
    EXPECT_TRUE(plan.contains("USING INDEX")) << plan.toStdString();
}

TEST_F(SchemaMigrator, TablesDescribeTheLiveSchema) {
    DBTable* article = articles->GetTable("Article");
    ASSERT_NE(nullptr, article);
    ASSERT_EQ(16, article->GetColumns().size());
    ASSERT_EQ(1, article->GetPrimaryKey().size());
    EXPECT_EQ("id", article->GetPrimaryKey().first()->GetName());
    const DBColumn* name = article->GetColumn("art_name");
    ASSERT_NE(nullptr, name);
    EXPECT_EQ(40, name->GetSize());
    EXPECT_TRUE(name->IsNotNull());
    EXPECT_EQ(nullptr, article->GetColumn("no_such_column"));
    // Tables made and dropped by another connection are seen; unchanged tables keep their
    // description, so pointers handed out stay valid.
    Raw().Exec("CREATE TABLE Extra (id INTEGER PRIMARY KEY, note TEXT)");
    DBTable* extra = articles->GetTable("Extra");
    ASSERT_NE(nullptr, extra);
    EXPECT_NE(nullptr, extra->GetColumn("note"));
    EXPECT_EQ(article, articles->GetTable("Article"));
    Raw().Exec("DROP TABLE Extra");
    EXPECT_EQ(nullptr, articles->GetTable("Extra"));
    EXPECT_EQ("note", extra->GetColumn("note")->GetName());
}

TEST(SchemaMigratorFile, OlderFileIsMigratedAndKeepsItsRows) {
    QTemporaryDir dir;
    const QString path = dir.filePath("old.db");
    {
        // A file as the first schema version left it, with one article.
        QFile script(ARTICLEMANAGER_SOURCE_DIR
                     "/platform/database/schema/articles/0001_tables.sql");
        ASSERT_TRUE(script.open(QIODevice::ReadOnly));
        RawSqlite old(path);
        ASSERT_EQ(0, old.Exec(QString::fromUtf8(script.readAll())));
        old.Exec("PRAGMA user_version = 1; PRAGMA application_id = 1095582034");
        old.Exec("INSERT INTO Article (plu_no, art_name) VALUES (7, 'Chleb')");
    }
    LogCapture log;
    DBManager db(path, DBManager::SCHEMA_ARTICLES);
    ASSERT_EQ(DB_OPERATION_SUCCESS, db.Open());
    EXPECT_EQ(DBManager::LatestSchemaVersion(DBManager::SCHEMA_ARTICLES), db.GetSchemaVersion());
    RawSqlite check(path);
    EXPECT_EQ("Chleb", check.Text("SELECT art_name FROM Article"));
    EXPECT_EQ(1, check.Integer(
                     "SELECT COUNT(*) FROM sqlite_master WHERE name = 'ArticleBarcode_barcode'"));
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
    const QString garbage = dir.filePath("garbage.db");
    {
        QFile file(garbage);
        file.open(QIODevice::WriteOnly);
        file.write(QByteArray(8192, 'x'));
    }
    // Another program's file may be in use, its journal in WAL with changes not yet in the
    // file: even reading it must not move them.
    const QString inUse = made("in-use.db", DBManager::SCHEMA_NONE,
                               "PRAGMA journal_mode = WAL; PRAGMA application_id = 7; "
                               "CREATE TABLE Orders (id INTEGER PRIMARY KEY)");
    RawSqlite otherProgram(inUse);
    otherProgram.Exec("INSERT INTO Orders VALUES (1)");
    const QList<QPair<QString, QString>> files = {
        {garbage, "file is not a database"},
        {made("newer.db", DBManager::SCHEMA_ARTICLES, "PRAGMA user_version = 999"),
         "newer than this library supports"},
        {made("receipts.db", DBManager::SCHEMA_RECEIPTS, QString()), "another kind of database"},
        {made("other.db", DBManager::SCHEMA_NONE,
              "CREATE TABLE Article (id INTEGER PRIMARY KEY, name TEXT); "
              "INSERT INTO Article VALUES (1, 'not ours')"),
         "of another program"},
        {inUse, "another kind of database"},
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
    EXPECT_EQ("1", otherProgram.Text("SELECT id FROM Orders"));
}

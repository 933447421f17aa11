// Opening, schema, live table descriptions, transactions and threads of the database layer.

#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <thread>
#include <vector>

#include "DBCloser.h"
#include "DatabaseFixture.h"
#include "Logger.h"

namespace {

QSharedPointer<DBData> oneRow(DBTable* table, const QList<QPair<QString, QVariant>>& fields) {
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    auto* row = new DBRow(table);
    for (const auto& field : fields) {
        row->AppendField(field.first, field.second);
    }
    data->AppendRow(row);
    return data;
}

QString schemaScript(const QString& name) {
    QFile file(QStringLiteral(ARTICLEMANAGER_SOURCE_DIR) +
               QStringLiteral("/platform/database/schema/articles/") + name);
    file.open(QIODevice::ReadOnly);
    return QString::fromUtf8(file.readAll());
}

}  // namespace

using DBManagerOpen = DatabaseFixture;

TEST_F(DBManagerOpen, NewArticleDatabaseHasEveryTableAtTheLatestVersion) {
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

TEST_F(DBManagerOpen, TablesDescribeTheLiveSchema) {
    DBTable* article = articles->GetTable(QStringLiteral("Article"));
    ASSERT_NE(nullptr, article);
    EXPECT_EQ(QStringLiteral("Article"), article->GetName());
    ASSERT_EQ(16, article->GetColumns().size());
    EXPECT_EQ(QStringLiteral("id"), article->GetColumns().first()->GetName());
    ASSERT_EQ(1, article->GetPrimaryKey().size());
    EXPECT_EQ(QStringLiteral("id"), article->GetPrimaryKey().first()->GetName());
    const DBColumn* name = article->GetColumn(QStringLiteral("art_name"));
    ASSERT_NE(nullptr, name);
    EXPECT_EQ(40, name->GetSize());
    EXPECT_TRUE(name->IsNotNull());
    EXPECT_EQ(article, name->GetTable());
    EXPECT_EQ(nullptr, article->GetColumn(QStringLiteral("no_such_column")));

    // Tables made and dropped by another connection are seen; unchanged tables keep their
    // description, so pointers handed out stay valid.
    Raw().Exec(QStringLiteral("CREATE TABLE Extra (id INTEGER PRIMARY KEY, note TEXT)"));
    DBTable* extra = articles->GetTable(QStringLiteral("Extra"));
    ASSERT_NE(nullptr, extra);
    EXPECT_NE(nullptr, extra->GetColumn(QStringLiteral("note")));
    EXPECT_EQ(article, articles->GetTable(QStringLiteral("Article")));
    Raw().Exec(QStringLiteral("DROP TABLE Extra"));
    EXPECT_EQ(nullptr, articles->GetTable(QStringLiteral("Extra")));
    EXPECT_EQ(QStringLiteral("note"), extra->GetColumn(QStringLiteral("note"))->GetName());
}

TEST(DBManagerFile, OlderFileIsMigratedAndKeepsItsRows) {
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

TEST(DBManagerFile, RefusesFilesItMustNotTouch) {
    QTemporaryDir dir;
    LogCapture log;

    const QString garbage = dir.filePath(QStringLiteral("garbage.db"));
    {
        QFile file(garbage);
        file.open(QIODevice::WriteOnly);
        file.write(QByteArray(8192, 'x'));
    }
    DBManager notADatabase(garbage, DBManager::SCHEMA_ARTICLES);
    EXPECT_NE(DB_OPERATION_SUCCESS, notADatabase.Open());
    EXPECT_EQ(DBManager::STATE_FAILED, notADatabase.GetState());
    EXPECT_TRUE(log.Mentions(QStringLiteral("file is not a database")));
    QFile file(garbage);
    file.open(QIODevice::ReadOnly);
    EXPECT_EQ(QByteArray(8192, 'x'), file.readAll()) << "the file was changed";

    const QString newer = dir.filePath(QStringLiteral("newer.db"));
    {
        DBManager db(newer, DBManager::SCHEMA_ARTICLES);
        ASSERT_EQ(DB_OPERATION_SUCCESS, db.Open());
    }
    RawSqlite(newer).Exec(QStringLiteral("PRAGMA user_version = 999"));
    DBManager fromTheFuture(newer, DBManager::SCHEMA_ARTICLES);
    EXPECT_NE(DB_OPERATION_SUCCESS, fromTheFuture.Open());
    EXPECT_TRUE(log.Mentions(QStringLiteral("newer than this library supports")));

    const QString receiptFile = dir.filePath(QStringLiteral("receipts.db"));
    {
        DBManager db(receiptFile, DBManager::SCHEMA_RECEIPTS);
        ASSERT_EQ(DB_OPERATION_SUCCESS, db.Open());
    }
    DBManager wrongKind(receiptFile, DBManager::SCHEMA_ARTICLES);
    EXPECT_NE(DB_OPERATION_SUCCESS, wrongKind.Open());
    EXPECT_TRUE(RawSqlite(receiptFile)
                    .Rows(QStringLiteral("SELECT name FROM sqlite_master WHERE name = 'Article'"))
                    .isEmpty());
}

TEST(DBManagerFile, OperationsOnAClosedDatabaseFailCleanly) {
    QTemporaryDir dir;
    LogCapture log;
    DBManager db(dir.filePath(QStringLiteral("a.db")), DBManager::SCHEMA_ARTICLES);
    EXPECT_EQ(DBManager::STATE_CREATED, db.GetState());
    unsigned long count = 99;
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, db.Count(QStringLiteral("Article"), count));
    EXPECT_EQ(99u, count);
    EXPECT_EQ(nullptr, db.GetTable(QStringLiteral("Article")));
    ASSERT_EQ(DB_OPERATION_SUCCESS, db.Open());
    db.Close();
    EXPECT_EQ(DBManager::STATE_CLOSED, db.GetState());
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, db.Execute(QStringLiteral("SELECT 1"), nullptr));
}

TEST_F(DBManagerOpen, CloserKeepsTheDatabaseOpenUntilItEnds) {
    {
        DBCloser closer(articles.get());
        articles->Close();
        EXPECT_EQ(DBManager::STATE_OPEN, articles->GetState());
        unsigned long count = 0;
        EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Count(QStringLiteral("Article"), count));
    }
    EXPECT_EQ(DBManager::STATE_CLOSED, articles->GetState());
    DBCloser onNothing(nullptr);  // allowed
}

TEST_F(DBManagerOpen, TransactionsCommitOrRollBackAsAWhole) {
    DBTable* table = articles->GetTable(QStringLiteral("Article"));
    auto add = [&](unsigned int plu) {
        return articles->Insert(
            oneRow(table, {{QStringLiteral("plu_no"), plu},
                           {QStringLiteral("art_name"), QStringLiteral("A%1").arg(plu)}}));
    };
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    EXPECT_TRUE(articles->IsInTransaction());
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->BeginTransaction());
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(1));
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(2));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->RollbackTransaction());
    EXPECT_EQ(0, Raw().Count(QStringLiteral("Article")));

    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(1));
    // A failing multi-row write inside the transaction undoes only itself.
    QSharedPointer<DBData> two = oneRow(
        table, {{QStringLiteral("plu_no"), 5u}, {QStringLiteral("art_name"), QStringLiteral("B")}});
    auto* duplicate = new DBRow(table);
    duplicate->AppendField(QStringLiteral("plu_no"), 1u);
    duplicate->AppendField(QStringLiteral("art_name"), QStringLiteral("C"));
    two->AppendRow(duplicate);
    EXPECT_EQ(DB_OPERATION_CONSTRAINT, articles->Insert(two));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->CommitTransaction());
    EXPECT_EQ(QStringList({"1"}), Raw().Rows(QStringLiteral("SELECT plu_no FROM Article")));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->CommitTransaction());

    articles->SetWriteOnlyInTransaction(true);
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, add(3));
    EXPECT_TRUE(log->Mentions(QStringLiteral("writes are allowed only inside a transaction")));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(3));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->CommitTransaction());
    articles->SetWriteOnlyInTransaction(false);
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(4));
    EXPECT_EQ(3, Raw().Count(QStringLiteral("Article")));
}

TEST_F(DBManagerOpen, AnotherThreadWaitsForAnOpenTransaction) {
    DBTable* table = articles->GetTable(QStringLiteral("Article"));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    std::atomic<bool> otherDone{false};
    std::thread other([&] {
        articles->Insert(oneRow(table, {{QStringLiteral("plu_no"), 2u},
                                        {QStringLiteral("art_name"), QStringLiteral("Other")}}));
        otherDone = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(otherDone.load());
    articles->Insert(oneRow(table, {{QStringLiteral("plu_no"), 1u},
                                    {QStringLiteral("art_name"), QStringLiteral("Mine")}}));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->RollbackTransaction());
    other.join();
    EXPECT_EQ(QStringList({"Other"}), Raw().Rows(QStringLiteral("SELECT art_name FROM Article")));
}

TEST_F(DBManagerOpen, ConcurrentCallsFromSeveralThreadsAllSucceed) {
    DBTable* table = articles->GetTable(QStringLiteral("Article"));
    constexpr int threads = 6;
    constexpr int perThread = 60;
    std::atomic<int> failures{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i) {
                const unsigned int plu = static_cast<unsigned int>(t * 1000 + i + 1);
                if (articles->Insert(oneRow(table, {{QStringLiteral("plu_no"), plu},
                                                    {QStringLiteral("art_name"),
                                                     QStringLiteral("T%1").arg(plu)}})) != 0) {
                    ++failures;
                }
                QSharedPointer<DBData> result;
                if (articles->Load(oneRow(table, {{QStringLiteral("plu_no"), plu}}),
                                   DBManager::LOAD_MODE_BY_KEY, result) != 0 ||
                    result->RowCount() != 1) {
                    ++failures;
                }
                DBDirectQueryResult direct;
                if (articles->Execute(QStringLiteral("SELECT COUNT(*) FROM Article"), &direct) !=
                    0) {
                    ++failures;
                }
            }
        });
    }
    for (auto& worker : workers) {
        worker.join();
    }
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(threads * perThread, Raw().Count(QStringLiteral("Article")));
}

TEST_F(DBManagerOpen, DataVersionMovesWithEveryChange) {
    const quint64 before = articles->GetDataVersion();
    QVariant ignored;
    articles->MaxValue(QStringLiteral("Article"), QStringLiteral("id"), QString(), ignored);
    EXPECT_EQ(before, articles->GetDataVersion());
    AddArticle(1, QStringLiteral("A"));
    const quint64 afterOwnWrite = articles->GetDataVersion();
    EXPECT_NE(before, afterOwnWrite);
    Raw().Exec(QStringLiteral("UPDATE Units SET unit_name = 'szt' WHERE unit_no = 1"));
    articles->MaxValue(QStringLiteral("Article"), QStringLiteral("id"), QString(), ignored);
    EXPECT_NE(afterOwnWrite, articles->GetDataVersion());
}

TEST_F(DBManagerOpen, TableVersionMovesOnlyWithItsOwnTable) {
    const QString units = QStringLiteral("Units");
    quint64 version = articles->GetTableVersion(units);
    auto moved = [&] {
        const quint64 now = articles->GetTableVersion(units);
        const bool changed = now != version;
        version = now;
        return changed;
    };
    // Inside a transaction (a price list import) other tables' writes leave it alone; a
    // commit may hold anything and moves it.
    ASSERT_EQ(0, articles->BeginTransaction());
    AddArticle(1, QStringLiteral("A"));
    EXPECT_FALSE(moved()) << "an article write";
    ASSERT_EQ(0, articles->CommitTransaction());
    moved();
    Raw().Exec(QStringLiteral("UPDATE Units SET unit_name = 'szt' WHERE unit_no = 1"));
    unsigned long count = 0;
    ASSERT_EQ(0, articles->Count(QStringLiteral("Article"), count));
    EXPECT_TRUE(moved()) << "another connection's commit, once this one has read";
    QSharedPointer<DBData> unit = QSharedPointer<DBData>::create();
    auto* row = new DBRow(articles->GetTable(units));
    row->AppendField(QStringLiteral("unit_no"), 9);
    row->AppendField(QStringLiteral("unit_name"), QStringLiteral("t"));
    unit->AppendRow(row);
    ASSERT_EQ(0, articles->Insert(unit));
    EXPECT_TRUE(moved()) << "an insert";
    ASSERT_EQ(0, articles->ClearTable(units));
    EXPECT_TRUE(moved()) << "a clear, which SQLite does without reporting rows";
    ASSERT_EQ(0, articles->Insert(unit));
    moved();
    ASSERT_EQ(0, articles->Execute(QStringLiteral("DELETE FROM Units"), nullptr));
    EXPECT_TRUE(moved()) << "an executed statement";
}

TEST_F(DBManagerOpen, ObserversSeeEveryExecutedText) {
    QStringList seen;
    const int id = articles->AddStatementObserver([&](const QString& sql) { seen.append(sql); });
    articles->Execute(QStringLiteral("SELECT 1"), nullptr);
    articles->Execute(QStringLiteral("SELECT nonsense FROM nowhere"), nullptr);
    unsigned long count = 0;
    articles->Count(QStringLiteral("Article"), count);  // not an Execute
    articles->RemoveStatementObserver(id);
    articles->Execute(QStringLiteral("SELECT 2"), nullptr);
    EXPECT_EQ(QStringList({"SELECT 1", "SELECT nonsense FROM nowhere"}), seen);
}

TEST_F(DBManagerOpen, FailuresAreLoggedWithSqliteText) {
    log->Clear();
    EXPECT_EQ(DB_OPERATION_ERROR, articles->ClearTable(QStringLiteral("NoSuchTable")));
    ASSERT_EQ(1, log->Entries().size());
    EXPECT_EQ(Logger::LOG_ERROR, log->Entries().first().level);
    EXPECT_TRUE(log->Entries().first().text.startsWith(QStringLiteral("DBManager::ClearTable()")));
    EXPECT_TRUE(log->Mentions(QStringLiteral("no such table: NoSuchTable")));
    EXPECT_TRUE(articles->GetLastError().contains(QStringLiteral("no such table")));
}

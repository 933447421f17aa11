// The versions that let callers keep caches of small tables without asking the database.

#include "DatabaseFixture.h"

using ChangeTracker = DatabaseFixture;

TEST_F(ChangeTracker, DataVersionMovesWithEveryChange) {
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

TEST_F(ChangeTracker, TableVersionMovesOnlyWithItsOwnTable) {
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

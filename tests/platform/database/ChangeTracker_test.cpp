// The versions that let callers keep caches of small tables without asking the database.

#include "DatabaseFixture.h"

using ChangeTracker = DatabaseFixture;

TEST_F(ChangeTracker, DataVersionMovesWithEveryChange) {
    const quint64 before = articles->GetDataVersion();
    QVariant ignored;
    articles->MaxValue("Article", "id", QString(), ignored);
    EXPECT_EQ(before, articles->GetDataVersion());
    AddArticle(1, "A");
    const quint64 afterOwnWrite = articles->GetDataVersion();
    EXPECT_NE(before, afterOwnWrite);
    Raw().Exec("UPDATE Units SET unit_name = 'szt' WHERE unit_no = 1");
    articles->MaxValue("Article", "id", QString(), ignored);
    EXPECT_NE(afterOwnWrite, articles->GetDataVersion());
}

TEST_F(ChangeTracker, TableVersionMovesOnlyWithItsOwnTable) {
    quint64 version = articles->GetTableVersion("Units");
    auto moved = [&] {
        const quint64 now = articles->GetTableVersion("Units");
        const bool changed = now != version;
        version = now;
        return changed;
    };
    // Inside a transaction (a price list import) other tables' writes leave it alone; a
    // commit may hold anything and moves it.
    ASSERT_EQ(0, articles->BeginTransaction());
    AddArticle(1, "A");
    EXPECT_FALSE(moved()) << "an article write";
    ASSERT_EQ(0, articles->CommitTransaction());
    moved();
    Raw().Exec("UPDATE Units SET unit_name = 'szt' WHERE unit_no = 1");
    unsigned long count = 0;
    ASSERT_EQ(0, articles->Count("Article", count));
    EXPECT_TRUE(moved()) << "another connection's commit, once this one has read";
    const auto unit = Rows(articles->GetTable("Units"), {{{"unit_no", 9}, {"unit_name", "t"}}});
    ASSERT_EQ(0, articles->Insert(unit));
    EXPECT_TRUE(moved()) << "an insert";
    ASSERT_EQ(0, articles->ClearTable("Units"));
    EXPECT_TRUE(moved()) << "a clear, which SQLite does without reporting rows";
    ASSERT_EQ(0, articles->Insert(unit));
    moved();
    ASSERT_EQ(0, articles->Execute("DELETE FROM Units", nullptr));
    EXPECT_TRUE(moved()) << "an executed statement";
}

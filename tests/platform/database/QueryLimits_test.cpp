// The budget of a query and the limits of every statement: nothing a query holds may keep the
// register waiting or take its memory.

#include "DatabaseFixture.h"

using QueryLimits = DatabaseFixture;

TEST_F(QueryLimits, OnlyQueriesHaveATimeLimit) {
    EXPECT_EQ(10000, articles->GetReadTimeLimit());
    articles->SetReadTimeLimit(1);
    // A write runs to its end however long it takes...
    ASSERT_EQ(0, articles->Execute("INSERT INTO NotepadCategoryItem (category_id, plu_no) "
                                   "WITH RECURSIVE c(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM "
                                   "c WHERE n < 50000) SELECT 1, n FROM c",
                                   nullptr));
    EXPECT_EQ(50000, Raw().Count("NotepadCategoryItem"));
    // ...a query is stopped, and the next one gets its own time.
    DBDirectQueryResult result;
    EXPECT_EQ(DB_OPERATION_ERROR, articles->Execute("SELECT count(*) FROM NotepadCategoryItem a, "
                                                    "NotepadCategoryItem b",
                                                    &result));
    EXPECT_TRUE(log->Mentions("ran longer than 1 ms and was stopped"));
    articles->SetReadTimeLimit(0);
    ASSERT_EQ(0, articles->Execute("SELECT count(*) FROM NotepadCategoryItem", &result));
    EXPECT_EQ(50000, result.GetValue(0, 0).toInt());
}

TEST_F(QueryLimits, NoQueryRunsPastItsBudgetOrGrowsPastItsLimits) {
    DBDirectQueryResult result;
    // One like() whose pattern backtracks over a long text works within one call, with no
    // virtual-machine step in between: it must stop itself.
    articles->SetReadTimeLimit(1);
    EXPECT_EQ(DB_OPERATION_ERROR,
              articles->Execute("SELECT like('%' || printf('%.*c', 8000, 'a') || "
                                "'b', printf('%.*c', 16000, 'a'))",
                                &result));
    EXPECT_TRUE(log->Mentions("ran longer than 1 ms and was stopped"));
    // A query whose working set grows without end is stopped long before its time is up.
    articles->SetReadTimeLimit(60000);
    EXPECT_EQ(DB_OPERATION_ERROR,
              articles->Execute("WITH RECURSIVE c(n) AS (SELECT 1 UNION SELECT n "
                                "+ 1 FROM c) SELECT count(*) FROM c",
                                &result));
    EXPECT_TRUE(log->Mentions("took more than 16 MiB and was stopped"));
    // So is one whose rows would take the register's memory.
    EXPECT_EQ(DB_OPERATION_ERROR,
              articles->Execute("WITH RECURSIVE c(n) AS (SELECT 1 UNION ALL SELECT "
                                "n + 1 FROM c) SELECT printf('%.*c', 16000, 'x') "
                                "FROM c",
                                &result));
    EXPECT_TRUE(log->Mentions("the query's result took more than 16 MiB"));
    // No statement may make a value far beyond anything a register stores, nor spend its time
    // counting one out.
    for (const char* sql : {"SELECT printf('%.*c', 1000000000, 'x')",
                            "SELECT format('%.99999c', 1)", "SELECT zeroblob(1000000000)",
                            "SELECT length(group_concat(printf('%.*c', 1000, 'x'))) FROM "
                            "(WITH RECURSIVE c(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM c "
                            "WHERE n < 100) SELECT n FROM c)"}) {
        EXPECT_EQ(DB_OPERATION_ERROR, articles->Execute(QString::fromLatin1(sql), &result)) << sql;
    }
    EXPECT_TRUE(log->Mentions("a printf() width or precision is over 16384"));
    EXPECT_TRUE(log->Mentions("string or blob too big"));
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->Execute("SELECT printf('%-6s|%5.2f|%*d', 'ab', 3.14159, 4, 7)", &result));
    EXPECT_EQ("ab    | 3.14|   7", result.GetValue(0, 0).toString());
}

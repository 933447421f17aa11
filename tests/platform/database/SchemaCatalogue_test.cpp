// Table descriptions follow the live schema, and the pointers handed out stay valid.

#include "DatabaseFixture.h"

using SchemaCatalogue = DatabaseFixture;

TEST_F(SchemaCatalogue, TablesDescribeTheLiveSchema) {
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

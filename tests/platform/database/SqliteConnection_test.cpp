// How every connection is set up: durable commits, and no statement reaching another file or
// the schema's own records.

#include <QFile>

#include "DatabaseFixture.h"

using SqliteConnection = DatabaseFixture;

TEST_F(SqliteConnection, CommitsAreDurableAndNoStatementReachesBeyondTheCatalogue) {
    DBDirectQueryResult result;
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->Execute(QStringLiteral("PRAGMA synchronous"), &result));
    EXPECT_EQ(2, result.GetValue(0, 0).toInt()) << "FULL: a commit survives a power cut";
    EXPECT_EQ(QStringLiteral("wal"), Raw().Text(QStringLiteral("PRAGMA journal_mode")));
    const QString other = dir.filePath(QStringLiteral("other.db"));
    EXPECT_NE(DB_OPERATION_SUCCESS,
              articles->Execute(QStringLiteral("ATTACH '%1' AS other").arg(other), nullptr));
    EXPECT_FALSE(QFile::exists(other));
    articles->Execute(QStringLiteral("PRAGMA writable_schema = ON"), nullptr);
    EXPECT_NE(DB_OPERATION_SUCCESS,
              articles->Execute(QStringLiteral("UPDATE sqlite_master SET sql = NULL"), nullptr));
    EXPECT_FALSE(Raw()
                     .Text(QStringLiteral("SELECT sql FROM sqlite_master WHERE name = 'Article'"))
                     .isEmpty());
}

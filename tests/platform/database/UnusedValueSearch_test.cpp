// The galloping search for the smallest unused value against the plain walk.

#include <random>

#include "DatabaseFixture.h"

using UnusedValueSearch = DatabaseFixture;

TEST_F(UnusedValueSearch, SmallestUnusedValueMatchesTheWalk) {
    std::mt19937 random(5);
    for (int round = 0; round < 20; ++round) {
        Raw().Exec("DELETE FROM Article");
        ASSERT_EQ(0, articles->BeginTransaction());
        const unsigned int count = 1 + random() % 300;
        for (unsigned int plu = 1; plu <= count; ++plu) {
            if (random() % 40 != 0) {
                AddArticle(plu, QStringLiteral("A%1").arg(plu));
            }
        }
        ASSERT_EQ(0, articles->CommitTransaction());
        QVariant fast;
        ASSERT_EQ(0, articles->MinUnusedValue("Article", "plu_no", fast));
        const qint64 walked = Raw().Integer(
            "SELECT CASE WHEN NOT EXISTS (SELECT 1 FROM Article WHERE plu_no = 1) THEN 1 ELSE "
            "(SELECT MIN(plu_no) + 1 FROM Article a WHERE NOT EXISTS "
            "(SELECT 1 FROM Article b WHERE b.plu_no = a.plu_no + 1)) END");
        EXPECT_EQ(walked, fast.toLongLong()) << "round " << round;
    }
}

// PLU navigation, ranges and counts on a catalogue with gaps in its PLUs.

#include "ArticleSeeker.h"
#include "DatabaseFixture.h"
#include "Logger.h"

namespace {

class ArticleSeekerNavigation : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        ASSERT_TRUE(seeker.Initialize(articles.get()));
    }

    // PLUs 30, 10, 20, 50, 40 stored in that order; 20 and 40 on the handy list.
    void fillCatalogue() {
        for (unsigned int plu : {30u, 10u, 20u, 50u, 40u}) {
            AddArticle(plu, QStringLiteral("Artykuł %1").arg(plu), QString(), plu * 10,
                       plu == 20 || plu == 40);
        }
    }

    static QList<unsigned int> plus(const QList<Article>& list) {
        QList<unsigned int> numbers;
        for (const Article& article : list) {
            numbers.append(article.pluNo);
        }
        return numbers;
    }

    ArticleSeeker seeker;
};

}  // namespace

TEST_F(ArticleSeekerNavigation, FirstAndLastPlu) {
    unsigned int plu = 99;
    EXPECT_EQ(0, seeker.FindFirstArtclePlu(plu, false));
    EXPECT_EQ(0u, plu) << "an empty table gives PLU 0";
    EXPECT_EQ(0, seeker.FindLastArticlePlu(plu, true));
    EXPECT_EQ(0u, plu);
    fillCatalogue();
    EXPECT_EQ(0, seeker.FindFirstArtclePlu(plu, true));
    EXPECT_EQ(10u, plu) << "the handy-list flag is not used";
    EXPECT_EQ(0, seeker.FindLastArticlePlu(plu, false));
    EXPECT_EQ(50u, plu);
}

TEST_F(ArticleSeekerNavigation, StepsToTheNextAndPreviousPlu) {
    fillCatalogue();
    unsigned int plu = 0;
    EXPECT_EQ(0, seeker.FindNextPlu(10, plu, false));
    EXPECT_EQ(20u, plu);
    EXPECT_EQ(0, seeker.FindNextPlu(21, plu, true));
    EXPECT_EQ(30u, plu);
    EXPECT_EQ(0, seeker.FindPrevPlu(40, plu, false));
    EXPECT_EQ(30u, plu);
    plu = 77;
    EXPECT_EQ(3, seeker.FindNextPlu(50, plu, false));
    EXPECT_EQ(3, seeker.FindPrevPlu(10, plu, false));
    EXPECT_EQ(77u, plu);
    EXPECT_TRUE(log->IsEmpty());
}

TEST_F(ArticleSeekerNavigation, PagesOfArticlesFromAPlu) {
    fillCatalogue();
    QList<Article> page;
    ASSERT_EQ(0, seeker.FindNextPlu(20, 2, page, false));
    EXPECT_EQ(QList<unsigned int>({20, 30}), plus(page));
    EXPECT_EQ(200, page.first().price);
    EXPECT_EQ(QStringLiteral("szt."), page.first().unitName);
    ASSERT_EQ(0, seeker.FindNextPlu(11, 0, page, false));
    EXPECT_EQ(QList<unsigned int>({20, 30, 40, 50}), plus(page)) << "count 0 means no limit";
    ASSERT_EQ(0, seeker.FindNextPlu(0, 0, page, true));
    EXPECT_EQ(QList<unsigned int>({20, 40}), plus(page));
    EXPECT_EQ(3, seeker.FindNextPlu(51, 10, page, false));
    EXPECT_TRUE(page.isEmpty());
}

TEST_F(ArticleSeekerNavigation, CountsAndListsRanges) {
    fillCatalogue();
    unsigned int count = 99;
    EXPECT_EQ(0, seeker.CountPluInRange(10, 30, count, false));
    EXPECT_EQ(3u, count);
    EXPECT_EQ(0, seeker.CountPluInRange(10, 50, count, true));
    EXPECT_EQ(2u, count);
    EXPECT_EQ(7, seeker.CountPluInRange(10, 5, count, false));
    EXPECT_EQ(0u, count);

    QList<ArticleBrief> briefs;
    ASSERT_EQ(0, seeker.FindPluInRange(15, 45, briefs, false));
    ASSERT_EQ(3, briefs.size());
    EXPECT_EQ(20u, briefs[0].pluNo);
    EXPECT_EQ(QStringLiteral("Artykuł 20"), briefs[0].name);
    EXPECT_EQ(30u, briefs[1].pluNo);
    EXPECT_EQ(1u, briefs[1].id);
    EXPECT_EQ(40u, briefs[2].pluNo);
    ASSERT_EQ(0, seeker.FindPluInRange(0, 100, briefs, true));
    EXPECT_EQ(2, briefs.size());
    EXPECT_EQ(3, seeker.FindPluInRange(10, 5, briefs, false));
    EXPECT_TRUE(briefs.isEmpty());
}

TEST_F(ArticleSeekerNavigation, BriefsComeSortedWhateverTheStorageOrder) {
    // Rows whose id order is the reverse of their PLU order.
    for (unsigned int plu = 200; plu >= 101; --plu) {
        AddArticle(plu, QStringLiteral("A%1").arg(plu));
    }
    QList<ArticleBrief> briefs;
    ASSERT_EQ(0, seeker.FindPluInRange(0, 1000, briefs, false));
    ASSERT_EQ(100, briefs.size());
    for (int i = 1; i < briefs.size(); ++i) {
        EXPECT_LT(briefs[i - 1].pluNo, briefs[i].pluNo);
    }
    ArticleBrief low{9, 1, QStringLiteral("x")};
    ArticleBrief high{1, 2, QStringLiteral("a")};
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
}

TEST_F(ArticleSeekerNavigation, FirstUnusedPluFillsTheLowestGap) {
    QVariant plu;
    ASSERT_EQ(0, seeker.FindFirstUnusedPlu(plu));
    EXPECT_EQ(1, plu.toInt());
    fillCatalogue();
    ASSERT_EQ(0, seeker.FindFirstUnusedPlu(plu));
    EXPECT_EQ(1, plu.toInt());
    for (unsigned int filler = 1; filler <= 9; ++filler) {
        AddArticle(filler, QStringLiteral("F%1").arg(filler));
    }
    ASSERT_EQ(0, seeker.FindFirstUnusedPlu(plu));
    EXPECT_EQ(11, plu.toInt());
}

TEST_F(ArticleSeekerNavigation, ErrorsAndMissingInitialisation) {
    ArticleSeeker fresh;
    unsigned int plu = 0;
    unsigned int count = 5;
    QList<Article> page;
    QList<ArticleBrief> briefs;
    QVariant unused;
    EXPECT_EQ(6, fresh.FindNextPlu(1, plu, false));
    EXPECT_EQ(6, fresh.FindPrevPlu(1, plu, false));
    EXPECT_EQ(6, fresh.FindNextPlu(1, 1, page, false));
    EXPECT_EQ(6, fresh.CountPluInRange(1, 2, count, false));
    EXPECT_EQ(5u, count);
    EXPECT_EQ(6, fresh.FindPluInRange(1, 2, briefs, false));
    EXPECT_EQ(6, fresh.FindFirstUnusedPlu(unused));
    EXPECT_EQ(6, fresh.FindFirstArtclePlu(plu, false)) << "refused rather than a crash";

    fillCatalogue();
    Raw().Exec(QStringLiteral("DROP TABLE Article"));
    log->Clear();
    EXPECT_EQ(4, seeker.FindFirstArtclePlu(plu, false));
    EXPECT_EQ(4, seeker.FindLastArticlePlu(plu, false));
    EXPECT_EQ(4, seeker.FindNextPlu(1, plu, false));
    EXPECT_EQ(4, seeker.FindPrevPlu(1, plu, false));
    EXPECT_EQ(4, seeker.FindNextPlu(1, 0, page, false));
    EXPECT_EQ(4, seeker.CountPluInRange(1, 2, count, false));
    EXPECT_EQ(4, seeker.FindPluInRange(1, 2, briefs, false));
    EXPECT_EQ(4, seeker.FindFirstUnusedPlu(unused));
    const QStringList expected = {
        "Article Seeker: SQL error when try to load first article plu",
        "Article Seeker: SQL error when try to load last article Plu",
        "Article Seeker: SQL error when try seek next article plu",
        "Article Seeker: SQL error when try seek prev article plu",
        "Article Seeker: SQL error when try to load article plus",
        "Article Seeker: SQL error when try to count articles in plu range.",
        "Article Seeker: SQL error when try to load articles",
        "Article Seeker: SQL error when try seek article with min unusued plu!"};
    EXPECT_EQ(expected, log->Texts().filter(QStringLiteral("Article Seeker")));
    for (const LogCapture::Entry& entry : log->Entries()) {
        EXPECT_EQ(Logger::LOG_ERROR, entry.level);
    }
}

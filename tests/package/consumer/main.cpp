// Opens a fresh catalogue as the register's application does, adds an article through
// G::articleManager and finds it again. Exit status 0 when everything answered as it should.
//   consumer FOLDER

#include <ArticleManager/ArticleEditor.h>
#include <ArticleManager/ArticleManager.h>
#include <ArticleManager/ArticleManagerVersion.h>
#include <ArticleManager/ArticleSeeker.h>
#include <ArticleManager/DBManager.h>
#include <ArticleManager/Globals.h>
#include <ArticleManager/SystemManager.h>

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        return 2;
    }
    const QString folder = QString::fromLocal8Bit(argv[1]);
    DBManager articles(folder + QStringLiteral("/articles.db"), DBManager::SCHEMA_ARTICLES);
    DBManager receipts(folder + QStringLiteral("/receipts.db"), DBManager::SCHEMA_RECEIPTS);
    if (articles.Open() != DB_OPERATION_SUCCESS || receipts.Open() != DB_OPERATION_SUCCESS) {
        return 4;
    }
    G::dbArticles = &articles;
    G::dbReceipt = &receipts;
    if (!SystemManager::Instance()->InitializeAll() || !G::articleManager) {
        return 5;
    }
    Article article;
    article.pluNo = 1001;
    article.name = QStringLiteral("Ser żółty Gouda");
    article.taxRateNo = 1;
    article.deptNo = 1;
    article.unitNo = 1;
    article.price = 3499;
    article.mainBarcode = QStringLiteral("5901234123457");
    Article found;
    const int added = G::articleManager->GetEditor()->AddRecord(article);
    const int seen = G::articleManager->GetSeeker()->FindPlu(1001, found, false);
    const bool stored = added == DB_OPERATION_SUCCESS && seen == 0 && found.pluNo == 1001 &&
                        found.name == article.name && found.mainBarcode == article.mainBarcode;
    std::printf("libArticleManager %s: added %d, found %d: %s\n", ARTICLEMANAGER_VERSION, added,
                seen, stored ? "stored and found PLU 1001" : "FAILED");
    SystemManager::Instance()->UninitializeAll();
    return stored ? 0 : 1;
}

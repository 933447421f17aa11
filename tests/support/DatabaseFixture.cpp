#include "DatabaseFixture.h"

#include "Globals.h"
#include "PaymentSystem.h"

void DatabaseFixture::SetUp() {
    ASSERT_TRUE(dir.isValid());
    log = std::make_unique<LogCapture>();
    articles = std::make_unique<DBManager>(ArticlesPath(), DBManager::SCHEMA_ARTICLES);
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->Open());
    receipts = std::make_unique<DBManager>(ReceiptsPath(), DBManager::SCHEMA_RECEIPTS);
    ASSERT_EQ(DB_OPERATION_SUCCESS, receipts->Open());
    G::dbArticles = articles.get();
    G::dbReceipt = receipts.get();
    ASSERT_TRUE(G::paymentSystem->Initialize(articles.get()));
}

void DatabaseFixture::TearDown() {
    G::paymentSystem->Uninitialize();
    G::dbArticles = nullptr;
    G::dbReceipt = nullptr;
    raw.reset();
    articles.reset();
    receipts.reset();
    log.reset();
}

RawSqlite& DatabaseFixture::Raw() {
    if (!raw) {
        raw = std::make_unique<RawSqlite>(ArticlesPath());
    }
    return *raw;
}

qint64 DatabaseFixture::AddArticle(unsigned int plu, const QString& name,
                                   const QString& mainBarcode, qint64 price, bool onHandyList,
                                   int unitNo) {
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    auto* row = new DBRow(articles->GetTable(QStringLiteral("Article")));
    row->AppendField(QStringLiteral("plu_no"), plu);
    row->AppendField(QStringLiteral("art_name"), name);
    row->AppendField(QStringLiteral("main_barcode"), mainBarcode);
    row->AppendField(QStringLiteral("price"), price);
    row->AppendField(QStringLiteral("on_handy_list"), onHandyList);
    row->AppendField(QStringLiteral("unit_no"), unitNo);
    rows->AppendRow(row);
    EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Insert(rows)) << name.toStdString();
    QVariant id;
    articles->MaxValue(QStringLiteral("Article"), QStringLiteral("id"), QString(), id);
    return id.toLongLong();
}

void DatabaseFixture::AddBarcode(qint64 articleId, const QString& barcode, bool isMain) {
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    auto* row = new DBRow(articles->GetTable(QStringLiteral("ArticleBarcode")));
    row->AppendField(QStringLiteral("article_id"), articleId);
    row->AppendField(QStringLiteral("barcode"), barcode);
    row->AppendField(QStringLiteral("is_main"), isMain);
    rows->AppendRow(row);
    EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Insert(rows));
}

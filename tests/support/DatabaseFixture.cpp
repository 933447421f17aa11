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

QSharedPointer<DBData> DatabaseFixture::Rows(const DBTable* table,
                                             const QList<QList<Field>>& rows) {
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    for (const QList<Field>& fields : rows) {
        auto* row = new DBRow(table);
        for (const Field& field : fields) {
            row->AppendField(field.first, field.second);
        }
        data->AppendRow(row);
    }
    return data;
}

QStringList DatabaseFixture::Column(const QSharedPointer<DBData>& data, const QString& column) {
    QStringList values;
    for (const DBRow* row : *data) {
        values.append(row->GetValue(column).toString());
    }
    return values;
}

QStringList DatabaseFixture::Column(const DBDirectQueryResult& result, int column) {
    QStringList values;
    for (int row = 0; row < result.RowCount(); ++row) {
        values.append(result.GetValue(row, column).toString());
    }
    return values;
}

qint64 DatabaseFixture::AddArticle(unsigned int plu, const QString& name,
                                   const QString& mainBarcode, qint64 price, bool onHandyList,
                                   int unitNo) {
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              articles->Insert(Rows(articles->GetTable(QStringLiteral("Article")),
                                    {{{QStringLiteral("plu_no"), plu},
                                      {QStringLiteral("art_name"), name},
                                      {QStringLiteral("main_barcode"), mainBarcode},
                                      {QStringLiteral("price"), price},
                                      {QStringLiteral("on_handy_list"), onHandyList},
                                      {QStringLiteral("unit_no"), unitNo}}})))
        << name.toStdString();
    QVariant id;
    articles->MaxValue(QStringLiteral("Article"), QStringLiteral("id"), QString(), id);
    return id.toLongLong();
}

void DatabaseFixture::AddBarcode(qint64 articleId, const QString& barcode, bool isMain) {
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              articles->Insert(Rows(articles->GetTable(QStringLiteral("ArticleBarcode")),
                                    {{{QStringLiteral("article_id"), articleId},
                                      {QStringLiteral("barcode"), barcode},
                                      {QStringLiteral("is_main"), isMain}}})));
}

void DatabaseFixture::AddLabelPrefixes() {
    Raw().Exec(
        QStringLiteral("INSERT INTO SpecialBarcodePrefixes VALUES "
                       "(1, '27', 1), (2, '29', 1), (6, '23', 0), (7, '24', 0)"));
}

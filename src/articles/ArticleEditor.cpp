#include "ArticleEditor.h"

#include "DBCloser.h"
#include "LibraryLog.h"
#include "TableSchema.h"

namespace {

namespace A = TableSchema::Article;

const QString msgNoDatabase =
    QStringLiteral("ArticleEditor construction FAILED! Can not open articles DB!");
const QString msgNoArticleTable =
    QStringLiteral("ArticleEditor construction FAILED! Can not find article table in DB!");
const QString msgNoSeeker =
    QStringLiteral("ArticleEditor construction FAILED! Article Seeker is not initialized yet!");
const QString msgInsertError =
    QStringLiteral("ArticleEditor: SQL error when try to insert article to the database!");
const QString msgUpdateError =
    QStringLiteral("ArticleEditor: SQL error when try to update article to the database!");
const QString msgDeleteError =
    QStringLiteral("ArticleEditor: SQL error when try to delete article from the database!");

}  // namespace

ArticleEditor::ArticleEditor()
    : initialized(false)
    , articleTable(nullptr)
    , db(nullptr)
    , seeker(nullptr)
    , barcodeRecognizer(new SpecialBarcodeRecognizer()) {}

ArticleEditor::~ArticleEditor() {
    delete barcodeRecognizer;
}

bool ArticleEditor::Initialize(DBManager* newDb, ArticleSeeker* newSeeker) {
    if (!newDb) {
        LogMessage(logLevelError, msgNoDatabase);
        return false;
    }
    DBCloser closer(newDb);
    db = newDb;
    articleTable = db->GetTable(A::table);
    if (!articleTable) {
        LogMessage(logLevelError, msgNoArticleTable);
        return false;
    }
    seeker = newSeeker;
    if (!seeker) {
        LogMessage(logLevelError, msgNoSeeker);
        return false;
    }
    initialized = true;
    return true;
}

bool ArticleEditor::Uninitialize() {
    initialized = false;
    articleTable = nullptr;
    db = nullptr;
    seeker = nullptr;
    return true;
}

bool ArticleEditor::IsRecordExist(const QString& name) {
    if (!initialized) {
        return false;
    }
    Article article;
    return seeker->FindName(name, article) == ArticleSeeker::RESULT_FOUND;
}

QSharedPointer<DBData> ArticleEditor::articleRow(const Article& article, bool withId) {
    QString mainBarcode;
    if (!barcodeRecognizer->getArticleBarcode(article.mainBarcode, mainBarcode)) {
        mainBarcode = article.mainBarcode;
    }
    auto* row = new DBRow(articleTable);
    if (withId) {
        row->AppendField(A::id, article.id);
    }
    row->AppendField(A::name, article.name);
    row->AppendField(A::pluNo, article.pluNo);
    row->AppendField(A::taxRateNo, static_cast<int>(article.taxRateNo));
    row->AppendField(A::deptNo, static_cast<int>(article.deptNo));
    row->AppendField(A::quantityPrecision, static_cast<int>(article.quantityPrecision));
    row->AppendField(A::unitNo, static_cast<int>(article.unitNo));
    row->AppendField(A::saleBlocked, article.saleBlocked);
    row->AppendField(A::mainBarcode, mainBarcode);
    row->AppendField(A::price, static_cast<qlonglong>(article.price));
    row->AppendField(A::isPack, article.isPack);
    row->AppendField(A::discSurBlock, article.discSurBlock);
    row->AppendField(A::freePriceAllow, article.freePriceAllow);
    row->AppendField(A::onHandyList, article.onHandyList);
    row->AppendField(A::scaleNo, static_cast<int>(article.scaleNo));
    row->AppendField(A::linkPluNo, article.linkPluNo);
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    data->AppendRow(row);
    return data;
}

eDBOperationResult ArticleEditor::AddRecord(Article& article) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    const eDBOperationResult result = db->Insert(articleRow(article, false));
    if (result != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgInsertError);
    }
    return result;
}

eDBOperationResult ArticleEditor::EditRecord(Article& article) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    const eDBOperationResult result = db->Update(articleRow(article, true));
    if (result != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgUpdateError);
    }
    return result;
}

eDBOperationResult ArticleEditor::DeleteRecord(Article& article) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    auto* row = new DBRow(articleTable);
    row->AppendField(A::id, article.id);
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    data->AppendRow(row);
    const eDBOperationResult result = db->Delete(data);
    if (result != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgDeleteError);
    }
    return result;
}

bool ArticleEditor::RemoveAllLinksToGivenArticle(unsigned int pluNo) {
    const QString statement = QStringLiteral("UPDATE ") + A::table +
                              QStringLiteral("             SET ") + A::linkPluNo +
                              QStringLiteral(" = 0                 WHERE ") + A::linkPluNo +
                              QStringLiteral(" == ") + QString::number(pluNo, 10);
    DBDirectQueryResult result;
    return db->Execute(statement, &result) != DB_OPERATION_SUCCESS;
}

#include "ArticleEditor.h"

#include <cmath>

#include "DBCloser.h"
#include "LibraryLog.h"
#include "SignalSystem.h"
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
const QString msgPriceError = QStringLiteral(
    "ArticleEditor: SQL error when try to update price of chosen article in the database!");
const QString msgPricesError = QStringLiteral(
    "ArticleEditor: SQL error when try to update prices of articles in the database!");
const QString msgRateRefused = QStringLiteral(
    "ArticleEditor: the exchange rate must be above 0 with at most 8 decimal places; no price "
    "was changed.");
const QString msgReceiptCountError = QStringLiteral(
    "ArticleEditor::RemoveAllArticles(): Error while getting count of receipt lines");
const QString msgClearError =
    QStringLiteral("ArticleEditor::RemoveAllArticles(): Error while clearing database table.");

const QString receiptLineTable = QStringLiteral("ReceiptLineEvent");
// Cleared by RemoveAllArticles, in this order.
const QString catalogueTables[] = {
    QStringLiteral("Article"),
    QStringLiteral("ArticleBarcode"),
    QStringLiteral("NotepadCategoryItem"),
    QStringLiteral("NotepadHandyListCategory"),
};

// The largest price a conversion may give, in minor units.
const QString priceCap = QStringLiteral("999999999");
// The most decimal places of an exchange rate: 10^(digits + 1) must fit the 32 bits the
// conversion's multiplier has, or every price would be rewritten by a wrong factor.
constexpr unsigned int maxRateDigits = 8;

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
    row->ReserveFields(17);
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

eDBOperationResult ArticleEditor::UpdateArticlePrice(unsigned int pluNo, const PriceValue& price) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    auto* keyRow = new DBRow(articleTable);
    keyRow->AppendField(A::pluNo, pluNo);
    auto* valueRow = new DBRow(articleTable);
    valueRow->AppendField(A::price, static_cast<qlonglong>(price.GetNumberValue()));
    QSharedPointer<DBData> key = QSharedPointer<DBData>::create();
    key->AppendRow(keyRow);
    QSharedPointer<DBData> values = QSharedPointer<DBData>::create();
    values->AppendRow(valueRow);
    if (db->Update(key, values) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgPriceError);
        return DB_OPERATION_ERROR;
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult ArticleEditor::ChangeAllArticlesPrices(const CurrencyExchangeRate& rate) {
    if (!db || !articleTable) {
        LogMessage(logLevelError, msgPricesError);
        return DB_OPERATION_ERROR;
    }
    // A rate of 0 would leave no price, a negative one negative prices.
    if (!rate.IsValid() || rate.GetNumberValue() <= 0 ||
        rate.GetPrecisionDigits() > maxRateDigits) {
        LogMessage(logLevelError, msgRateRefused);
        return DB_OPERATION_ERROR;
    }
    // M = 10^(d+1): the quotient carries one digit more, which "+ 5) / 10" rounds away.
    const int scale =
        static_cast<int>(std::pow(10.0, static_cast<double>(rate.GetPrecisionDigits()) + 1.0));
    const QString rounded = QStringLiteral("((CAST((") + A::price + QStringLiteral(" * ") +
                            QString::number(scale, 10) + QStringLiteral(" / ") +
                            QString::number(rate.GetNumberValue(), 10) +
                            QStringLiteral(") AS INTEGER) + 5)/10)");
    const QString statement = QStringLiteral("UPDATE ") + articleTable->GetName() +
                              QStringLiteral(" SET ") + A::price + QStringLiteral(" = CASE WHEN ") +
                              rounded + QStringLiteral(" >= ") + priceCap +
                              QStringLiteral(" THEN ") + priceCap + QStringLiteral(" ELSE ") +
                              rounded + QStringLiteral(" END");
    if (db->Execute(statement, nullptr) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgPricesError);
        return DB_OPERATION_ERROR;
    }
    return DB_OPERATION_SUCCESS;
}

int ArticleEditor::RemoveAllArticles() {
    unsigned long receiptLines = 0;
    if (!G::dbReceipt ||
        G::dbReceipt->Count(receiptLineTable, receiptLines) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgReceiptCountError);
        return DB_OPERATION_ERROR;
    }
    if (receiptLines != 0) {
        return DB_OPERATION_RECEIPTS_EXIST;
    }
    for (const QString& table : catalogueTables) {
        if (!db || db->ClearTable(table) != DB_OPERATION_SUCCESS) {
            LogMessage(logLevelError, msgClearError);
            return DB_OPERATION_ERROR;
        }
    }
    if (G::getSignals) {
        G::getSignals->Emit(SignalSystem::SIGNAL_ALL_ARTICLES_REMOVED, 1);
    }
    return DB_OPERATION_SUCCESS;
}

#include "ArticleSeeker.h"

#include <QHash>

#include "DBCloser.h"
#include "LibraryLog.h"
#include "PaymentSystem.h"
#include "QMutexGuard.h"
#include "TableSchema.h"

namespace {

namespace A = TableSchema::Article;
namespace B = TableSchema::ArticleBarcode;

const QString msgNoDatabase =
    QStringLiteral("ArticleSeeker construction FAILED! Can not open articles DB!");
const QString msgNoArticleTable =
    QStringLiteral("ArticleSeeker construction FAILED! Can not find article table in DB!");
const QString msgNoBarcodeTable =
    QStringLiteral("ArticleSeeker construction FAILED! Can not find article barcode table in DB!");
const QString msgFindPluError =
    QStringLiteral("Article Seeker: SQL error when try seek article by plu!");
const QString msgFindByIdError =
    QStringLiteral("Article Seeker: SQL error when try seek article by an ID!");
const QString msgFindBarcodeError =
    QStringLiteral("ArticleSeeker::FindBarcode(): SQL error when try to seek a barcode!");
const QString msgFindNameError =
    QStringLiteral("ArticleSeeker::FindName(): SQL error when try find an article by the name!");

// Position of each Article column in the record, in the order the row mapping compares them.
enum ArticleSlot {
    SlotId,
    SlotPluNo,
    SlotName,
    SlotTaxRateNo,
    SlotDeptNo,
    SlotQuantityPrecision,
    SlotUnitNo,
    SlotSaleBlocked,
    SlotMainBarcode,
    SlotPrice,
    SlotIsPack,
    SlotDiscSurBlock,
    SlotFreePriceAllow,
    SlotOnHandyList,
    SlotScaleNo,
    SlotLinkPluNo,
};

const QHash<QString, int>& articleSlots() {
    static const QHash<QString, int> columnSlots{
        {A::id, SlotId},
        {A::pluNo, SlotPluNo},
        {A::name, SlotName},
        {A::taxRateNo, SlotTaxRateNo},
        {A::deptNo, SlotDeptNo},
        {A::quantityPrecision, SlotQuantityPrecision},
        {A::unitNo, SlotUnitNo},
        {A::saleBlocked, SlotSaleBlocked},
        {A::mainBarcode, SlotMainBarcode},
        {A::price, SlotPrice},
        {A::isPack, SlotIsPack},
        {A::discSurBlock, SlotDiscSurBlock},
        {A::freePriceAllow, SlotFreePriceAllow},
        {A::onHandyList, SlotOnHandyList},
        {A::scaleNo, SlotScaleNo},
        {A::linkPluNo, SlotLinkPluNo},
    };
    return columnSlots;
}

void assignSlot(Article& article, int slot, const QVariant& value) {
    switch (slot) {
        case SlotId:
            article.id = value.toUInt();
            break;
        case SlotPluNo:
            article.pluNo = value.toUInt();
            break;
        case SlotName:
            article.name = value.toString();
            break;
        case SlotTaxRateNo:
            article.taxRateNo = static_cast<unsigned char>(value.toInt());
            break;
        case SlotDeptNo:
            article.deptNo = static_cast<unsigned char>(value.toInt());
            break;
        case SlotQuantityPrecision:
            article.quantityPrecision = static_cast<unsigned char>(value.toInt());
            break;
        case SlotUnitNo:
            article.unitNo = static_cast<unsigned char>(value.toInt());
            break;
        case SlotSaleBlocked:
            article.saleBlocked = value.toBool();
            break;
        case SlotMainBarcode:
            article.mainBarcode = value.toString();
            break;
        case SlotPrice:
            // The price column is read as 32 bits and widened.
            article.price = static_cast<qint64>(value.toUInt());
            break;
        case SlotIsPack:
            article.isPack = value.toBool();
            break;
        case SlotDiscSurBlock:
            article.discSurBlock = value.toBool();
            break;
        case SlotFreePriceAllow:
            article.freePriceAllow = value.toBool();
            break;
        case SlotOnHandyList:
            article.onHandyList = value.toBool();
            break;
        case SlotScaleNo:
            article.scaleNo = static_cast<unsigned char>(value.toInt());
            break;
        case SlotLinkPluNo:
            article.linkPluNo = value.toUInt();
            break;
        default:
            break;
    }
}

QString unitNameOf(unsigned int unitNo) {
    if (!G::paymentSystem) {
        return QString();
    }
    const QSharedPointer<Unit> unit = G::paymentSystem->GetUnitsDBManager()->GetUnit(unitNo);
    return unit ? unit->GetName() : QStringLiteral("");
}

QSharedPointer<DBData> singleRowQuery(DBRow* row) {
    QSharedPointer<DBData> query = QSharedPointer<DBData>::create();
    query->AppendRow(row);
    return query;
}

}  // namespace

ArticleSeeker::ArticleSeeker()
    : initialized(false), db(nullptr), articleTable(nullptr), barcodeTable(nullptr) {}

ArticleSeeker::~ArticleSeeker() = default;

bool ArticleSeeker::Initialize(DBManager* newDb) {
    QMutexGuard lock(&mutex);
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
    barcodeTable = db->GetTable(B::table);
    if (!barcodeTable) {
        LogMessage(logLevelError, msgNoBarcodeTable);
        return false;
    }
    initialized = true;
    return true;
}

bool ArticleSeeker::Uninitialize() {
    QMutexGuard lock(&mutex);
    initialized = false;
    db = nullptr;
    articleTable = nullptr;
    return true;
}

int ArticleSeeker::FindPlu(const unsigned int& pluNo, Article& article, bool onlyHandyList) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    return findArticle(A::pluNo, pluNo, article, onlyHandyList, msgFindPluError);
}

int ArticleSeeker::FindById(unsigned int id, Article& article, bool onlyHandyList) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    return findArticle(A::id, id, article, onlyHandyList, msgFindByIdError);
}

int ArticleSeeker::findArticle(const QString& column, const QVariant& key, Article& article,
                               bool onlyHandyList, const QString& errorMessage) {
    if (!initialized) {  // uninitialised while the call waited for the lock
        return RESULT_NOT_INITIALIZED;
    }
    auto* row = new DBRow(articleTable);
    row->AppendField(column, key);
    if (onlyHandyList) {
        row->AppendField(A::onHandyList, true);
    }
    QSharedPointer<DBData> result = QSharedPointer<DBData>::create();
    if (db->Load(singleRowQuery(row), DBManager::LOAD_MODE_BY_KEY, result, false, QString(), 0) !=
        DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, errorMessage);
        return RESULT_DB_ERROR;
    }
    if (result->IsEmpty()) {
        return RESULT_NOT_FOUND;
    }
    BuildArticleFromDbData(result->GetRow(0), &article);
    return RESULT_FOUND;
}

void ArticleSeeker::BuildArticleFromDbData(DBRow* row, Article* article) {
    if (!row || !article) {
        return;
    }
    const QHash<QString, int>& columnSlots = articleSlots();
    for (const DBField* field : row->GetFields()) {
        const auto slot = columnSlots.constFind(field->GetColumnName());
        if (slot != columnSlots.constEnd()) {
            assignSlot(*article, slot.value(), field->GetValue());
        }
    }
    article->unitName = unitNameOf(article->unitNo);
}

int ArticleSeeker::FindBarcode(const QString& barcode) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    auto* row = new DBRow(barcodeTable);
    row->AppendField(B::barcode, barcode);
    QSharedPointer<DBData> result = QSharedPointer<DBData>::create();
    if (db->Load(singleRowQuery(row), DBManager::LOAD_MODE_BY_KEY, result, false, QString(), 0) !=
        DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgFindBarcodeError);
        return RESULT_DB_ERROR;
    }
    switch (result->RowCount()) {
        case 0:
            return RESULT_NOT_FOUND;
        case 1:
            return RESULT_FOUND;
        default:
            return RESULT_AMBIGUOUS_BARCODE;
    }
}

int ArticleSeeker::FindName(const QString& name, Article& article) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    const QString sql = QStringLiteral("SELECT * FROM ") + articleTable->GetName() +
                        QStringLiteral(" WHERE ") + A::name + QStringLiteral(" like ") +
                        QLatin1Char('"') + name + QLatin1Char('"') + QLatin1Char(';');
    DBDirectQueryResult result;
    if (db->Execute(sql, &result) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgFindNameError);
        return RESULT_DB_ERROR;
    }
    if (result.RowCount() == 0) {
        return RESULT_NOT_FOUND;
    }
    QVector<DBField*> fields;
    const QVector<QString>& columns = result.GetColumnNames();
    for (int i = 0; i < columns.size(); ++i) {
        const DBColumn* column = articleTable->GetColumn(columns[i]);
        fields.append(column ? new DBField(column, result.GetValue(0, i))
                             : new DBField(columns[i], result.GetValue(0, i)));
    }
    DBRow row(articleTable, fields);
    BuildArticleFromDbData(&row, &article);
    return RESULT_FOUND;
}

#include "ArticleSeeker.h"

#include <QHash>
#include <algorithm>
#include <cstring>
#include <utility>

#include "ArticleBarcodeManager.h"
#include "ArticleManager.h"

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
const QString msgFirstPluError =
    QStringLiteral("Article Seeker: SQL error when try to load first article plu");
const QString msgLastPluError =
    QStringLiteral("Article Seeker: SQL error when try to load last article Plu");
const QString msgNextPluError =
    QStringLiteral("Article Seeker: SQL error when try seek next article plu");
const QString msgPrevPluError =
    QStringLiteral("Article Seeker: SQL error when try seek prev article plu");
const QString msgPageError =
    QStringLiteral("Article Seeker: SQL error when try to load article plus");
const QString msgCountError =
    QStringLiteral("Article Seeker: SQL error when try to count articles in plu range.");
const QString msgRangeError = QStringLiteral("Article Seeker: SQL error when try to load articles");
const QString msgUnusedError =
    QStringLiteral("Article Seeker: SQL error when try seek article with min unusued plu!");
const QString msgByBarcodeError =
    QStringLiteral("ArticleSeeker::FindArticleByBarcode(): Database execute select query error.");
const QString msgBarcodeAmbiguous = QStringLiteral(
    "ArticleSeeker::FindArticleByBarcode() Error: there is more than one article in database "
    "which has the same barcode.");
const QString msgPrefixError =
    QStringLiteral("Article Seeker: SQL error when try seek article by prefix name!");

// The incremental search lists at most this many articles of each kind.
constexpr int infixPassLimit = 100;

// The scan lookup's SELECT, in the order its values map to the Article fields, up to the
// quote that opens the searched barcode.
const QString byBarcodeHead =
    QStringLiteral(
        "SELECT a.id, plu_no, art_name, tax_rate_no, dept_no, quantity_precision, unit_no, "
        "sale_bloc, main_barcode, price, is_pack, disc_sur_block, free_price_allow, on_handy_list, "
        "scale_no, link_plu_no             FROM ") +
    A::table + QStringLiteral(" a, ") + B::table +
    QStringLiteral(" b                 WHERE a.id == b.") + B::articleId +
    QStringLiteral("                 AND b.") + B::barcode + QStringLiteral(" = \"");
const QString byBarcodeTail = QStringLiteral("\"");
const QString byBarcodeHandyTail = byBarcodeTail + QStringLiteral(" AND a.on_handy_list == 1");
// FindName's statement around the name, after the Article table's name.
const QString findNameTail = QStringLiteral("\";");

QString findNameHead(const DBTable* articleTable) {
    return QStringLiteral("SELECT * FROM ") + articleTable->GetName() + QStringLiteral(" WHERE ") +
           A::name + QStringLiteral(" like ") + QLatin1Char('"');
}

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

// The slot of an Article column name, -1 for other names. Picks by length first: this runs
// for every field of every row read.
int slotOf(const QString& name) {
    // Lengths are equal within each case below; the characters are compared in place.
    auto is = [&name](const QString& column) {
        return std::memcmp(name.constData(), column.constData(), sizeof(QChar) * name.size()) == 0;
    };
    switch (name.size()) {
        case 2:
            return is(A::id) ? SlotId : -1;
        case 5:
            return is(A::price) ? SlotPrice : -1;
        case 6:
            return is(A::pluNo) ? SlotPluNo : -1;
        case 7:
            return is(A::deptNo)   ? SlotDeptNo
                   : is(A::unitNo) ? SlotUnitNo
                   : is(A::isPack) ? SlotIsPack
                                   : -1;
        case 8:
            return is(A::name) ? SlotName : is(A::scaleNo) ? SlotScaleNo : -1;
        case 9:
            return is(A::saleBlocked) ? SlotSaleBlocked : -1;
        case 11:
            return is(A::taxRateNo) ? SlotTaxRateNo : is(A::linkPluNo) ? SlotLinkPluNo : -1;
        case 12:
            return is(A::mainBarcode) ? SlotMainBarcode : -1;
        case 13:
            return is(A::onHandyList) ? SlotOnHandyList : -1;
        case 14:
            return is(A::discSurBlock) ? SlotDiscSurBlock : -1;
        case 16:
            return is(A::freePriceAllow) ? SlotFreePriceAllow : -1;
        case 18:
            return is(A::quantityPrecision) ? SlotQuantityPrecision : -1;
        default:
            return -1;
    }
}

QString decimal(unsigned int value) {
    return QString::number(value, 10);
}

// The integer a column holds; rows from SQLite carry qlonglong, read in place.
qlonglong integerOf(const QVariant& value) {
    return value.userType() == QMetaType::LongLong
               ? *static_cast<const qlonglong*>(value.constData())
               : value.toLongLong();
}

QString textOf(const QVariant& value) {
    return value.userType() == QMetaType::QString ? *static_cast<const QString*>(value.constData())
                                                  : value.toString();
}

// An integer into its field, truncated to the field's width as QVariant's conversions do;
// false for the text fields, which QVariant turns into decimal text.
// Inlined everywhere: with the slot known when compiled (the scan's row) the switch goes away.
[[gnu::always_inline]] inline bool assignInteger(Article& article, int slot, qlonglong number) {
    switch (slot) {
        case SlotId:
            article.id = static_cast<unsigned int>(number);
            return true;
        case SlotPluNo:
            article.pluNo = static_cast<unsigned int>(number);
            return true;
        case SlotTaxRateNo:
            article.taxRateNo = static_cast<unsigned char>(number);
            return true;
        case SlotDeptNo:
            article.deptNo = static_cast<unsigned char>(number);
            return true;
        case SlotQuantityPrecision:
            article.quantityPrecision = static_cast<unsigned char>(number);
            return true;
        case SlotUnitNo:
            article.unitNo = static_cast<unsigned char>(number);
            return true;
        case SlotSaleBlocked:
            article.saleBlocked = number != 0;
            return true;
        case SlotPrice:
            article.price = static_cast<qint64>(static_cast<unsigned int>(number));
            return true;
        case SlotIsPack:
            article.isPack = number != 0;
            return true;
        case SlotDiscSurBlock:
            article.discSurBlock = number != 0;
            return true;
        case SlotFreePriceAllow:
            article.freePriceAllow = number != 0;
            return true;
        case SlotOnHandyList:
            article.onHandyList = number != 0;
            return true;
        case SlotScaleNo:
            article.scaleNo = static_cast<unsigned char>(number);
            return true;
        case SlotLinkPluNo:
            article.linkPluNo = static_cast<unsigned int>(number);
            return true;
        default:
            return false;
    }
}

void assignSlot(Article& article, int slot, const QVariant& value) {
    // The common case, without QVariant's conversions.
    if (value.userType() == QMetaType::LongLong && assignInteger(article, slot, integerOf(value))) {
        return;
    }
    switch (slot) {
        case SlotId:
            article.id = value.toUInt();
            break;
        case SlotPluNo:
            article.pluNo = value.toUInt();
            break;
        case SlotName:
            article.name = textOf(value);
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
            article.mainBarcode = textOf(value);
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
    QString name;
    if (G::paymentSystem && !G::paymentSystem->GetUnitsDBManager()->GetUnitName(unitNo, name)) {
        name = QStringLiteral("");
    }
    return name;
}

// Hands what a lookup read to the caller's article, which keeps its reserved texts: the texts
// are moved, not copied.
void takeRead(Article& article, Article& read) {
    read.reservedText1.swap(article.reservedText1);
    read.reservedText2.swap(article.reservedText2);
    read.reservedText3.swap(article.reservedText3);
    article = std::move(read);
}

// A column that holds no integer, or whose integer goes to a text field, into its field.
void readOtherColumn(const DBRowReader& row, Article& article, int column, int slot, bool text) {
    if (text && slot == SlotName) {
        article.name = row.Text(column);
    } else if (text && slot == SlotMainBarcode) {
        article.mainBarcode = row.Text(column);
    } else {
        assignSlot(article, slot, row.Value(column));
    }
}

// The scan's own SELECT list, each column's field known when compiled.
template <int... Slot>
void readInSlotOrder(const DBRowReader& row, Article& article, quint32 integers, quint32 texts,
                     const qint64* numbers, std::integer_sequence<int, Slot...>) {
    const auto read = [&](int slot) {
        if ((integers >> slot & 1u) == 0 || !assignInteger(article, slot, numbers[slot])) {
            readOtherColumn(row, article, slot, slot, (texts >> slot & 1u) != 0);
        }
    };
    (read(Slot), ...);
}

// Fills `article` from a row read in place, with the conversions of BuildArticleFromDbData:
// the field of each column is `fields`[column] (-1: none), or, when `fields` is null, its
// position in a SELECT list in slot order.
void readArticle(const DBRowReader& row, Article& article, const int* fields) {
    const int columns = row.ColumnCount();
    // The row's numbers in one call, their types (and the texts') asked with their values.
    constexpr int bulkColumns = 32;
    qint64 numbers[bulkColumns];
    quint32 texts = 0;
    const bool bulk = columns <= bulkColumns;
    const quint32 integers = bulk ? row.Integers(columns, numbers, &texts) : 0;
    if (!fields && columns == SlotLinkPluNo + 1) {
        readInSlotOrder(row, article, integers, texts, numbers,
                        std::make_integer_sequence<int, SlotLinkPluNo + 1>());
        return;
    }
    for (int i = 0; i < columns; ++i) {
        const int slot = fields ? fields[i] : (i <= SlotLinkPluNo ? i : -1);
        if (slot < 0) {
            continue;
        }
        qint64 number = 0;
        bool integer = false;
        bool text = false;
        if (bulk) {
            integer = (integers >> i & 1u) != 0;
            number = integer ? numbers[i] : 0;
            text = (texts >> i & 1u) != 0;
        } else {
            integer = row.Integer(i, number);
            text = !integer && row.Type(i) == DBRowReader::TYPE_TEXT;
        }
        if (!integer || !assignInteger(article, slot, number)) {
            readOtherColumn(row, article, i, slot, text);
        }
    }
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
    // The name and the scanned code go into these statements as they are: the database binds
    // them as one value, so that nothing in them can change what the statement does. FindName
    // reads the first row; the scan needs a second only to tell that there is one.
    db->DeclareStatementTemplate(findNameHead(articleTable), {findNameTail}, 1);
    db->DeclareStatementTemplate(byBarcodeHead, {byBarcodeTail, byBarcodeHandyTail}, 2);
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

const int* ArticleSeeker::slotsOf(const DBRowReader& row) {
    const int columns = row.ColumnCount();
    if (row.ColumnsId() != columnSlotsId || columnSlots.size() != columns) {
        columnSlots.resize(columns);
        for (int i = 0; i < columns; ++i) {
            columnSlots[i] = slotOf(row.ColumnName(i));
        }
        columnSlotsId = row.ColumnsId();
    }
    return columnSlots.constData();
}

int ArticleSeeker::findArticle(const QString& column, const QVariant& key, Article& article,
                               bool onlyHandyList, const QString& errorMessage) {
    if (!initialized) {  // uninitialised while the call waited for the lock
        return RESULT_NOT_INITIALIZED;
    }
    // Load's query by key, its first row read where it lies: no row is built or copied.
    static const QVariant onTheList(true);
    bool found = false;
    const DBRowHandler readFirst = [&](const DBRowReader& row) {
        readArticle(row, article, slotsOf(row));
        found = true;
        return false;
    };
    const eDBOperationResult rc =
        onlyHandyList ? db->LoadByKey(articleTable->GetName(),
                                      {{column, key}, {A::onHandyList, onTheList}}, readFirst)
                      : db->LoadByKey(articleTable->GetName(), {{column, key}}, readFirst);
    if (rc != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, errorMessage);
        return RESULT_DB_ERROR;
    }
    if (!found) {
        return RESULT_NOT_FOUND;
    }
    article.unitName = unitNameOf(article.unitNo);
    return RESULT_FOUND;
}

void ArticleSeeker::BuildArticleFromDbData(DBRow* row, Article* article) {
    if (!row || !article) {
        return;
    }
    for (const DBField* field : row->GetFields()) {
        const int slot = slotOf(field->GetColumnName());
        if (slot >= 0) {
            assignSlot(*article, slot, field->GetValue());
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
    // Two rows tell all there is to tell.
    int rows = 0;
    const QVariant key(barcode);
    if (db->LoadByKey(barcodeTable->GetName(), {{B::barcode, key}},
                      [&rows](const DBRowReader&) { return ++rows < 2; }) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgFindBarcodeError);
        return RESULT_DB_ERROR;
    }
    switch (rows) {
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
    const QString sql = findNameHead(articleTable) + name + findNameTail;
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

int ArticleSeeker::extremePlu(bool maximum, const QString& condition, QVariant& value) {
    return maximum ? db->MaxValue(articleTable->GetName(), A::pluNo, condition, value)
                   : db->MinValue(articleTable->GetName(), A::pluNo, condition, value);
}

int ArticleSeeker::FindFirstArtclePlu(unsigned int& pluNo, bool) {
    // Neither the flag test nor the lock: the database guards itself.
    DBManager* database = db;
    DBTable* table = articleTable;
    if (!database || !table) {
        return RESULT_NOT_INITIALIZED;
    }
    QVariant value;
    if (database->MinValue(table->GetName(), A::pluNo, QStringLiteral(""), value) !=
        DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgFirstPluError);
        return RESULT_DB_ERROR;
    }
    pluNo = value.toUInt();
    return RESULT_FOUND;
}

int ArticleSeeker::FindLastArticlePlu(unsigned int& pluNo, bool) {
    DBManager* database = db;
    DBTable* table = articleTable;
    if (!database || !table) {
        return RESULT_NOT_INITIALIZED;
    }
    QVariant value;
    if (database->MaxValue(table->GetName(), A::pluNo, QStringLiteral(""), value) !=
        DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgLastPluError);
        return RESULT_DB_ERROR;
    }
    pluNo = value.toUInt();
    return RESULT_FOUND;
}

int ArticleSeeker::FindNextPlu(const unsigned int& fromPlu, unsigned int& nextPlu, bool) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QVariant value;
    if (extremePlu(false, QStringLiteral("plu_no > ") + decimal(fromPlu), value) !=
        DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgNextPluError);
        return RESULT_DB_ERROR;
    }
    if (value.isNull()) {
        return RESULT_NOT_FOUND;
    }
    nextPlu = value.toUInt();
    return RESULT_FOUND;
}

int ArticleSeeker::FindPrevPlu(const unsigned int& fromPlu, unsigned int& prevPlu, bool) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QVariant value;
    if (extremePlu(true, QStringLiteral("plu_no < ") + decimal(fromPlu), value) !=
        DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgPrevPluError);
        return RESULT_DB_ERROR;
    }
    if (value.isNull()) {
        return RESULT_NOT_FOUND;
    }
    prevPlu = value.toUInt();
    return RESULT_FOUND;
}

int ArticleSeeker::FindNextPlu(const unsigned int& fromPlu, const unsigned int& count,
                               QList<Article>& articles, bool onlyHandyList) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QString condition = QStringLiteral("plu_no >= ") + decimal(fromPlu);
    if (onlyHandyList) {
        condition += QStringLiteral(" AND on_handy_list = 1 ");
    }
    if (count != 0) {
        condition += QStringLiteral(" LIMIT ") + decimal(count);
    }
    QStringList columns;
    for (const DBColumn* column : articleTable->GetColumns()) {
        columns.append(column->GetName());
    }
    // Read where the rows lie; the few units' names looked up once per page.
    QList<Article> page;
    QHash<unsigned int, QString> unitNames;
    const DBRowHandler append = [&](const DBRowReader& row) {
        Article article;
        readArticle(row, article, slotsOf(row));
        auto unit = unitNames.constFind(article.unitNo);
        if (unit == unitNames.constEnd()) {
            unit = unitNames.insert(article.unitNo, unitNameOf(article.unitNo));
        }
        article.unitName = *unit;
        page.append(article);
        return true;
    };
    if (db->Load(articleTable->GetName(), columns, condition, append) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgPageError);
        return RESULT_DB_ERROR;
    }
    articles.swap(page);
    return articles.isEmpty() ? RESULT_NOT_FOUND : RESULT_FOUND;
}

int ArticleSeeker::CountPluInRange(const unsigned int& fromPlu, const unsigned int& toPlu,
                                   unsigned int& count, bool onlyHandyList) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    count = 0;
    QString condition = A::pluNo + QStringLiteral(" >= ") + decimal(fromPlu);
    if (toPlu < fromPlu) {
        return RESULT_INVALID_RANGE;
    }
    condition += QStringLiteral(" AND ") + A::pluNo + QStringLiteral(" <= ") + decimal(toPlu);
    if (onlyHandyList) {
        condition += QStringLiteral(" AND ") + A::onHandyList + QStringLiteral(" = 1 ");
    }
    if (db->CountInRange(articleTable->GetName(), condition, count) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgCountError);
        return RESULT_DB_ERROR;
    }
    return RESULT_FOUND;
}

int ArticleSeeker::FindPluInRange(const unsigned int& fromPlu, const unsigned int& toPlu,
                                  QList<ArticleBrief>& briefs, bool onlyHandyList) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QString condition = QStringLiteral("plu_no >= ") + decimal(fromPlu) +
                        QStringLiteral(" AND plu_no <= ") + decimal(toPlu);
    if (onlyHandyList) {
        condition += QStringLiteral(" AND on_handy_list = 1 ");
    }
    // Read where the rows lie: a brief of the whole catalogue builds no row per article.
    QList<ArticleBrief> found;
    // The columns come in the order asked for: id, PLU, name; their types and the numbers in
    // one call per row.
    const DBRowHandler append = [&found](const DBRowReader& row) {
        qint64 numbers[3];
        quint32 texts = 0;
        const quint32 integers = row.Integers(3, numbers, &texts);
        auto number = [&](int column) {
            return (integers >> column & 1u) != 0 ? static_cast<unsigned int>(numbers[column])
                                                  : row.Value(column).toUInt();
        };
        // Filled where it lies in the list: no copy of the brief and its name per row.
        found.append(ArticleBrief());
        ArticleBrief& brief = found.last();
        brief.id = number(0);
        brief.pluNo = number(1);
        brief.name = (texts & 4u) != 0 ? row.Text(2) : row.Value(2).toString();
        return true;
    };
    if (db->Load(articleTable->GetName(), {A::id, A::pluNo, A::name}, condition, append) !=
        DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgRangeError);
        return RESULT_DB_ERROR;
    }
    briefs.swap(found);
    if (!std::is_sorted(briefs.cbegin(), briefs.cend())) {
        std::sort(briefs.begin(), briefs.end());
    }
    return briefs.isEmpty() ? RESULT_NOT_FOUND : RESULT_FOUND;
}

int ArticleSeeker::FindFirstUnusedPlu(QVariant& pluNo) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    if (db->MinUnusedValue(articleTable->GetName(), A::pluNo, pluNo) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgUnusedError);
        return RESULT_DB_ERROR;
    }
    return RESULT_FOUND;
}

int ArticleSeeker::FindArticleByBarcode(const QString& barcode, Article& article,
                                        bool onlyHandyList) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    // A scale label is looked up by the article barcode it carries, built on the stack.
    QStringView searched(barcode);
    QChar labelArticle[13];
    ArticleBarcodeManager* barcodes =
        G::articleManager ? G::articleManager->GetBarcodeManager() : nullptr;
    SpecialBarcodeRecognizer* labels = barcodes ? barcodes->GetSpecialBarcodeRecognizer() : nullptr;
    if (labels && labels->ArticleBarcodeOf(barcode, labelArticle)) {
        searched = QStringView(labelArticle, 13);
    }
    // The first row is read where it lies; a second one only tells that the code is shared.
    // Every one of the sixteen columns is assigned, so the row is read into a fresh article.
    int rows = 0;
    Article found;
    const DBRowHandler read = [&](const DBRowReader& row) {
        if (++rows == 1) {
            readArticle(row, found, nullptr);
        }
        return rows < 2;
    };
    if (db->Execute(byBarcodeHead, searched, onlyHandyList ? byBarcodeHandyTail : byBarcodeTail,
                    read) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgByBarcodeError);
        return RESULT_DB_ERROR;
    }
    if (rows == 0) {
        return RESULT_NOT_FOUND;
    }
    if (rows > 1) {
        LogMessage(logLevelError, msgBarcodeAmbiguous);
        return RESULT_AMBIGUOUS_BARCODE;
    }
    found.unitName = unitNameOf(found.unitNo);
    takeRead(article, found);
    return RESULT_FOUND;
}

int ArticleSeeker::FindNamePrefix(const QString& prefix, QVector<Article>& articles,
                                  bool onlyHandyList) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QVector<Article> found;
    const int result = findNameByPrefix(articleTable->GetName(), A::name, prefix, found, A::name);
    if (result != RESULT_FOUND) {
        return result;
    }
    // The handy-list filter applies to what the prefix found.
    int kept = 0;
    for (const Article& article : found) {
        if (!onlyHandyList || article.onHandyList) {
            articles.append(article);
            ++kept;
        }
    }
    return kept > 0 ? RESULT_FOUND : RESULT_NOT_FOUND;
}

int ArticleSeeker::FindNamePrefix(const QString& prefix, QVector<QString>& names,
                                  bool onlyHandyList) {
    QVector<Article> articles;
    const int result = FindNamePrefix(prefix, articles, onlyHandyList);
    for (const Article& article : articles) {
        names.append(article.name);
    }
    return result;
}

int ArticleSeeker::findNameByPrefix(const QString& table, const QString& column,
                                    const QString& prefix, QVector<Article>& articles,
                                    const QString& orderColumn) {
    QSharedPointer<DBData> result = QSharedPointer<DBData>::create();
    if (db->LoadPrefix(table, column, prefix, result, orderColumn, true) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgPrefixError);
        return RESULT_DB_ERROR;
    }
    for (DBRow* row : *result) {
        Article article;
        BuildArticleFromDbData(row, &article);
        articles.append(article);
    }
    return result->IsEmpty() ? RESULT_NOT_FOUND : RESULT_FOUND;
}

void ArticleSeeker::appendLikeMatches(const QString& column, const QString& pattern,
                                      QVector<Article>& articles) {
    auto* row = new DBRow(articleTable);
    row->AppendField(column, pattern);
    QSharedPointer<DBData> result = QSharedPointer<DBData>::create();
    const QString upperColumn = QStringLiteral("UPPER(") + column + QLatin1Char(')');
    // The incremental search is best effort: a pass the database cannot answer lists nothing
    // and is not reported (the database layer logs its own error).
    if (db->Load(singleRowQuery(row), DBManager::LOAD_MODE_BY_KEY, result, true, upperColumn,
                 infixPassLimit) != DB_OPERATION_SUCCESS) {
        return;
    }
    const int alreadyListed = articles.size();
    for (DBRow* found : *result) {
        Article article;
        BuildArticleFromDbData(found, &article);
        if (std::find(articles.cbegin(), articles.cbegin() + alreadyListed, article) ==
            articles.cbegin() + alreadyListed) {
            articles.append(article);
        }
    }
}

int ArticleSeeker::FindByGivenInfixAndColumn(const QString& infix, const QString& column,
                                             QVector<Article>& articles) {
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return RESULT_NOT_INITIALIZED;
    }
    articles.clear();
    // Prefix matches first, then the inner matches that are not listed yet.
    appendLikeMatches(column, infix + QLatin1Char('%'), articles);
    appendLikeMatches(column, QLatin1Char('%') + infix + QLatin1Char('%'), articles);
    return RESULT_FOUND;
}

int ArticleSeeker::FindByBarcodeInfix(const QString& infix, QVector<Article>& articles) {
    return FindByGivenInfixAndColumn(infix, A::mainBarcode, articles);
}

int ArticleSeeker::FindNameInfix(const QString& infix, QVector<Article>& articles) {
    return FindByGivenInfixAndColumn(infix, A::name, articles);
}

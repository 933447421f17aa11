#include "ArticleBarcodeManager.h"

#include <memory>

#include "DBCloser.h"
#include "DBTransaction.h"
#include "LibraryLog.h"
#include "TableSchema.h"

namespace {

namespace B = TableSchema::ArticleBarcode;

const QString msgNoDatabase =
    QStringLiteral("ArticleBarcodeManager construction FAILED! Can not open articles DB!");
const QString msgNoSeeker =
    QStringLiteral("ArticleBarcodeManager construction FAILED! Can not access article seeker!");
const QString msgNoBarcodeTable = QStringLiteral(
    "ArticleBarcodeManager construction FAILED! Can not find article barcode table in DB!");
const QString msgInsertError = QStringLiteral(
    "ArticleBarcodeManager: SQL error when try to insert article barcode to the database!");
const QString msgUpdateMainError = QStringLiteral(
    "ArticleBarcodeManager: SQL error when try to update main article barcode in the database!");
const QString msgUpdateAdditionalError = QStringLiteral(
    "ArticleBarcodeManager: SQL error when try to update additional article barcode in the "
    "database!");
const QString msgDeleteOneError = QStringLiteral(
    "ArticleBarcodeManager: SQL error when try to delete selected article barcode from the "
    "database!");
const QString msgDeleteArticleError = QStringLiteral(
    "ArticleBarcodeManager: SQL error when try to delete article barcodes from the database!");
const QString msgDeleteAllAdditionalError = QStringLiteral(
    "ArticleBarcodeManager: SQL error when try to delete all additional barcodes from the "
    "database!");
// A failed Load reports the insert message, word for word.
const QString& msgLoadError = msgInsertError;
const QString msgFindError =
    QStringLiteral("ArticleBarcodeManager Seeker: SQL error when try to find a barcode!");

// Fields of a LoadBarcode row the walk reads; a row with no more is malformed.
constexpr int minimumLoadedFields = 4;

QSharedPointer<DBData> dataOf(DBRow* row) {
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    data->AppendRow(row);
    return data;
}

// A barcode made only of "0" characters never counts as on file.
bool neverExists(const QString& barcode) {
    return barcode.count(QLatin1Char('0')) == barcode.size();
}

// Whether the barcode is on file, asked of the database itself: the seeker's mutex must not be
// taken while the database's lock is held, since a seeker thread takes them the other way round.
bool storedNow(DBManager* db, const DBTable* table, const QString& barcode) {
    // Load's statement, stopped at the first row: an import asks this for every barcode.
    const QVariant value(barcode);
    bool found = false;
    if (db->LoadByKey(table->GetName(), {{B::barcode, value}}, [&](const DBRowReader&) {
            found = true;
            return false;
        }) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgFindError);
        return true;  // as for the seeker's check, a failed lookup counts as taken
    }
    return found;
}

}  // namespace

ArticleBarcodeManager::ArticleBarcodeManager()
    : initialized(false)
    , barcodeTable(nullptr)
    , db(nullptr)
    , seeker(nullptr)
    , barcodeRecognizer(new SpecialBarcodeRecognizer()) {}

ArticleBarcodeManager::~ArticleBarcodeManager() {
    delete barcodeRecognizer;
}

bool ArticleBarcodeManager::Initialize(DBManager* newDb, ArticleSeeker* newSeeker) {
    if (!newDb) {
        LogMessage(logLevelError, msgNoDatabase);
        return false;
    }
    db = newDb;
    if (!newSeeker) {
        LogMessage(logLevelError, msgNoSeeker);
        return false;
    }
    seeker = newSeeker;
    DBCloser closer(db);
    barcodeTable = db->GetTable(B::table);
    if (!barcodeTable) {
        LogMessage(logLevelError, msgNoBarcodeTable);
        return false;
    }
    initialized = true;
    return true;
}

bool ArticleBarcodeManager::Uninitialize() {
    initialized = false;
    barcodeTable = nullptr;
    db = nullptr;
    seeker = nullptr;
    return true;
}

bool ArticleBarcodeManager::IsRecordExist(const QString& barcode) {
    if (!initialized) {
        return true;
    }
    if (neverExists(barcode)) {
        return false;
    }
    return seeker->FindBarcode(barcode) != ArticleSeeker::RESULT_NOT_FOUND;
}

QString ArticleBarcodeManager::normalised(const QString& barcode) const {
    QString out;
    return barcodeRecognizer->getArticleBarcode(barcode, out) ? out : barcode;
}

eDBOperationResult ArticleBarcodeManager::AddRecord(unsigned int articleId, const QString& barcode,
                                                    bool isMain) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    if (barcode.isEmpty()) {
        return DB_OPERATION_INVALID_ARGUMENT;
    }
    const QString text = normalised(barcode);
    // Inside the caller's transaction this thread holds the database's lock, which a seeker
    // thread takes after the seeker's mutex: asking the seeker then could deadlock, so the
    // database itself is asked.
    const bool inTransaction = db->IsInTransaction();
    if (inTransaction ? !neverExists(text) && storedNow(db, barcodeTable, text)
                      : IsRecordExist(text)) {
        return DB_OPERATION_ALREADY_EXISTS;
    }
    // Another process may add the same barcode between the check and the insert: the insert
    // goes in one write transaction with a second look, so the second of two racing writers
    // waits for the lock and then sees the first one's row. Inside the caller's transaction (begun
    // with the write lock), in write-only-in-transaction mode outside one (the insert is refused
    // anyway) and on a read-only file the insert goes as it is.
    std::unique_ptr<DBTransaction> transaction;
    if (!neverExists(text) && !inTransaction && !db->IsWriteOnlyInTransaction() &&
        !db->IsReadOnly()) {
        transaction = std::make_unique<DBTransaction>(db);
        if (transaction->Result() != DB_OPERATION_SUCCESS) {
            LogMessage(logLevelError, msgInsertError);
            return DB_OPERATION_ERROR;
        }
        if (storedNow(db, barcodeTable, text)) {
            return DB_OPERATION_ALREADY_EXISTS;
        }
    }
    auto* row = new DBRow(barcodeTable);
    row->AppendField(B::articleId, articleId);
    row->AppendField(B::barcode, text);
    row->AppendField(B::isMain, isMain);
    if (db->Insert(dataOf(row)) != DB_OPERATION_SUCCESS ||
        (transaction && transaction->Commit() != DB_OPERATION_SUCCESS)) {
        LogMessage(logLevelError, msgInsertError);
        return DB_OPERATION_ERROR;
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult ArticleBarcodeManager::AddRecord(Article& article, bool isMain) {
    if (initialized && (article.id == 0 || article.mainBarcode.isEmpty())) {
        return DB_OPERATION_INVALID_ARGUMENT;
    }
    return AddRecord(article.id, article.mainBarcode, isMain);
}

eDBOperationResult ArticleBarcodeManager::UpdateMainBarcode(unsigned int articleId,
                                                            const QString& barcode) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    auto* key = new DBRow(barcodeTable);
    key->AppendField(B::articleId, articleId);
    key->AppendField(B::isMain, 1);
    auto* values = new DBRow(barcodeTable);
    values->AppendField(B::barcode, normalised(barcode));
    if (db->Update(dataOf(key), dataOf(values)) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgUpdateMainError);
        return DB_OPERATION_ERROR;
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult ArticleBarcodeManager::UpdateAdditionalBarcode(unsigned int barcodeId,
                                                                  const QString& barcode) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    auto* key = new DBRow(barcodeTable);
    key->AppendField(B::id, barcodeId);
    key->AppendField(B::isMain, 0);
    auto* values = new DBRow(barcodeTable);
    values->AppendField(B::barcode, normalised(barcode));
    if (db->Update(dataOf(key), dataOf(values)) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgUpdateAdditionalError);
        return DB_OPERATION_ERROR;
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult ArticleBarcodeManager::DeleteRecord(const QString& barcode) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    auto* row = new DBRow(barcodeTable);
    row->AppendField(B::barcode, barcode);
    row->AppendField(B::isMain, 0);
    if (db->Delete(dataOf(row)) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgDeleteOneError);
        return DB_OPERATION_ERROR;
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult ArticleBarcodeManager::DeleteBarcodes(unsigned int articleId,
                                                         ArticleBarcodesDeleteMode mode) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    auto* row = new DBRow(barcodeTable);
    row->AppendField(B::articleId, articleId);
    if (mode != ALL_BARCODES) {
        row->AppendField(B::isMain, static_cast<int>(mode));
    }
    if (db->Delete(dataOf(row)) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgDeleteArticleError);
        return DB_OPERATION_ERROR;
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult ArticleBarcodeManager::DeleteBarcodes(Article& article,
                                                         ArticleBarcodesDeleteMode mode) {
    return DeleteBarcodes(article.id, mode);
}

eDBOperationResult ArticleBarcodeManager::DeleteAllAdditionalBarcodes() {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    auto* row = new DBRow(barcodeTable);
    row->AppendField(B::isMain, 0);
    if (db->Delete(dataOf(row)) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgDeleteAllAdditionalError);
        return DB_OPERATION_ERROR;
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult ArticleBarcodeManager::Load(ArticleBarcodes& barcodes) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    auto* key = new DBRow(barcodeTable);
    key->AppendField(B::articleId, barcodes.GetArticleId());
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    if (db->Load(dataOf(key), DBManager::LOAD_MODE_BY_EXAMPLE, rows, false, QString(), 0) !=
        DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgLoadError);
        return DB_OPERATION_ERROR;
    }
    for (const DBRow* row : *rows) {
        barcodes.GetBarcodes().append(
            new Barcode(row->GetValue(B::id).toUInt(), barcodes.GetArticleId(),
                        row->GetValue(B::barcode).toString(), row->GetValue(B::isMain).toBool()));
    }
    return DB_OPERATION_SUCCESS;
}

Barcode ArticleBarcodeManager::LoadBarcode(eDBOperationResult& result, unsigned int index) {
    if (!initialized) {
        return Barcode();
    }
    QString query =
        QStringLiteral("SELECT * FROM ") + B::table + QStringLiteral(" WHERE ") + B::isMain;
    query += index == 0 ? QStringLiteral(" = 0 LIMIT 1")
                        : QStringLiteral(" = 0 LIMIT 1 OFFSET ") + QString::number(index, 10);
    DBDirectQueryResult direct;
    if (db->Execute(query, &direct) != DB_OPERATION_SUCCESS) {
        result = DB_OPERATION_ERROR;
        return Barcode();
    }
    if (direct.RowCount() != 1) {
        result = DB_OPERATION_NOT_FOUND;
        return Barcode();
    }
    if (direct.GetRows().first().size() < minimumLoadedFields) {
        result = DB_OPERATION_ERROR;
        return Barcode();
    }
    auto value = [&direct](const QString& column) {
        return direct.GetValue(0, direct.ColumnIndex(column));
    };
    result = DB_OPERATION_SUCCESS;
    return Barcode(value(B::id).toUInt(), value(B::articleId).toUInt(),
                   value(B::barcode).toString(), value(B::isMain).toBool());
}

unsigned int ArticleBarcodeManager::GetBarcodeIndex(const QString& barcode) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    auto* key = new DBRow(barcodeTable);
    key->AppendField(B::barcode, barcode);
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    if (db->Load(dataOf(key), DBManager::LOAD_MODE_BY_KEY, rows, false, QString(), 0) !=
        DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgFindError);
        return 0;
    }
    return rows->IsEmpty() ? 0 : rows->GetRow(0)->GetValue(B::id).toUInt();
}

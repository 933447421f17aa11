#include "DeptDBManager.h"

#include "LibraryLog.h"
#include "QMutexGuard.h"
#include "TableSchema.h"

namespace {

namespace D = TableSchema::Dept;

const QString msgLoadError =
    QStringLiteral("DeptDBManager: SQL error when try to load depts data!");
const QString msgEmpty = QStringLiteral("DeptDBManager: Dept table is empty!");
const QString msgInsertError =
    QStringLiteral("DeptsDBManager: SQL error when try to insert dept to database!");
const QString msgClearError =
    QStringLiteral("DeptDBManager::ResetTable(): error while clearing table.");
const QString msgDefaultsError =
    QStringLiteral("DeptDBManager::ResetTable(): error while inserting default values.");

constexpr unsigned int deptCount = 99;
constexpr unsigned int defaultMaximum = 10000;

}  // namespace

DeptDBManager::DeptDBManager()
    : QObject(nullptr), firmwareInitializer(new DeptFirmwareInitializer()) {}

DeptDBManager::~DeptDBManager() {
    delete firmwareInitializer;
}

bool DeptDBManager::Initialize(DBManager* newDb) {
    if (!AbstractDatabaseTableManager::Initialize(newDb, D::table)) {
        return false;
    }
    return firmwareInitializer->Initialize();
}

bool DeptDBManager::Uninitialize() {
    return AbstractDatabaseTableManager::Uninitialize();
}

QSharedPointer<const Dept> DeptDBManager::GetDept(unsigned int deptId) {
    QMutexGuard lock(&mutex);
    if (deptId == 0 || deptId > static_cast<unsigned int>(depts.size())) {
        return {};
    }
    return depts.at(static_cast<int>(deptId - 1));
}

QList<QSharedPointer<const Dept>> DeptDBManager::GetDepts() {
    QMutexGuard lock(&mutex);
    return depts;
}

bool DeptDBManager::DoesDeptPermitsPriceModifications(const Article& article) {
    const QSharedPointer<const Dept> dept = GetDept(article.deptNo);
    return dept && !dept->isDiscountBlocked;
}

bool DeptDBManager::IsDeptForPrinterOrder(const Article& article) {
    const QSharedPointer<const Dept> dept = GetDept(article.deptNo);
    return dept && dept->isOrderPrinter;
}

bool DeptDBManager::IsDeptSpecial(const Article& article) {
    if (!initialized) {
        return true;
    }
    return firmwareInitializer->IsDeptSpecial(article.deptNo);
}

int DeptDBManager::AddOrUpdateRecord(QSharedPointer<const Dept> dept) {
    QMutexGuard lock(&mutex);
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    if (!dept) {
        return DB_OPERATION_INVALID_ARGUMENT;
    }
    auto* row = new DBRow(table);
    row->AppendField(D::id, dept->GetId());
    row->AppendField(D::name, dept->GetName());
    row->AppendField(D::isDiscountBlocked, dept->isDiscountBlocked);
    row->AppendField(D::isOrderPrinter, dept->isOrderPrinter);
    row->AppendField(D::maxDiscount, dept->GetMaxDiscount().GetNumberValue());
    row->AppendField(D::maxSurcharge, dept->GetMaxSurcharge().GetNumberValue());
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    data->AppendRow(row);
    // Insert replaces a department already stored under the same number.
    if (db->Insert(data) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgInsertError);
        return DB_OPERATION_ERROR;
    }
    const int reloaded = getRecordsFromDB();
    if (reloaded != DB_OPERATION_SUCCESS) {
        // The firmware's contract: a failed reload returns at once and leaves the lock held.
        lock.KeepLocked();
        return reloaded;
    }
    const int deptId = static_cast<int>(dept->GetId());
    lock.Unlock();
    emit deptChanged(deptId);
    return DB_OPERATION_SUCCESS;
}

bool DeptDBManager::ResetTable() {
    if (!db || db->ClearTable(D::table) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgClearError);
        return false;
    }
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    for (unsigned int n = 1; n <= deptCount; ++n) {
        auto* row = new DBRow(table);
        row->AppendField(D::id, static_cast<int>(n));
        row->AppendField(D::name, QStringLiteral(""));
        data->AppendRow(row);
    }
    if (db->Insert(data) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgDefaultsError);
        return false;
    }
    if (!firmwareInitializer->SetFirmwareFlags()) {
        return false;
    }
    return getRecordsFromDB() == DB_OPERATION_SUCCESS;
}

int DeptDBManager::getRecordsFromDB() {
    depts = QList<QSharedPointer<const Dept>>();
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    if (!db || db->LoadAll(tableName, data) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgLoadError);
        return DB_OPERATION_ERROR;
    }
    if (data->IsEmpty()) {
        LogMessage(logLevelNotice, msgEmpty);
        return DB_OPERATION_NOT_FOUND;
    }
    for (DBRow* row : *data) {
        depts.append(extractDept(row));
    }
    return DB_OPERATION_SUCCESS;
}

QSharedPointer<const Dept> DeptDBManager::extractDept(DBRow* row) {
    unsigned int number = 0;
    QString name;
    unsigned int maxDiscount = defaultMaximum;
    unsigned int maxSurcharge = defaultMaximum;
    bool discountBlocked = false;
    bool orderPrinter = false;
    if (row) {
        for (const DBField* field : row->GetFields()) {
            const QString& column = field->GetColumnName();
            if (column == D::id) {
                number = field->GetValue().toUInt();
            } else if (column == D::name) {
                name = field->GetValue().toString();
            } else if (column == D::isDiscountBlocked) {
                discountBlocked = field->GetValue().toBool();
            } else if (column == D::isOrderPrinter) {
                orderPrinter = field->GetValue().toBool();
            } else if (column == D::maxDiscount) {
                maxDiscount = field->GetValue().toUInt();
            } else if (column == D::maxSurcharge) {
                maxSurcharge = field->GetValue().toUInt();
            }
        }
    }
    return QSharedPointer<const Dept>(
        new Dept(number, name, maxDiscount, maxSurcharge, discountBlocked, orderPrinter));
}

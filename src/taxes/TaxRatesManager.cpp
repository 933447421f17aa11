#include "TaxRatesManager.h"

#include "LibraryLog.h"
#include "SignalSystem.h"
#include "TableSchema.h"

namespace {

namespace T = TableSchema::TaxRates;

const QString msgLoadError =
    QStringLiteral("TaxRatesManager: SQL error when try to load depts data!");
const QString msgEmpty = QStringLiteral("TaxRatesManager: Tax rates table is empty!");
const QString msgClearError =
    QStringLiteral("TaxRatesManager::ResetTable(): error while clearing table.");
const QString msgDefaultsError =
    QStringLiteral("TaxRatesManager::ResetTable(): error while inserting default values.");
const QString msgUpdateError =
    QStringLiteral("TaxRatesManager: SQL error when try to update counter data!");
// Glued to the table name in front: "TaxRatesDBManager initialization FAILED! ..."
const QString msgNoDatabase =
    QStringLiteral("DBManager initialization FAILED! Can not open articles DB!");
const QString msgNoTable = QStringLiteral("DBManager initialization FAILED! ");
const QString msgNoTableEnd = QStringLiteral(" inaccessible!");

const TaxRates defaultRates = {{2300, 800, 500, 0, 65535, 65535, 61440}, 2};
constexpr int rateCount = 7;
constexpr unsigned short unusedRate = 65535;

}  // namespace

TaxRatesManager::TaxRatesManager() = default;

TaxRatesManager::~TaxRatesManager() = default;

bool TaxRatesManager::Initialize() {
    const QString name = T::table;
    tableName = name;
    db = G::dbArticles;
    if (!db) {
        LogMessage(logLevelError, name + msgNoDatabase);
        return false;
    }
    table = db->GetTable(name);
    if (!table) {
        LogMessage(logLevelError, name + msgNoTable + name + msgNoTableEnd);
        return false;
    }
    const int loaded = getRecordsFromDB();
    if (loaded == DB_OPERATION_ERROR) {
        return false;
    }
    if (loaded == DB_OPERATION_NOT_FOUND) {
        taxRates.Fill(defaultRates);
        db->SetWriteOnlyInTransaction(false);
        // The defaults stand in memory whatever the database does with them.
        db->Insert(rowsOf(taxRates));
    }
    initialized = true;
    return true;
}

bool TaxRatesManager::Uninitialize() {
    initialized = false;
    taxRates.Clean();
    return true;
}

int TaxRatesManager::getRecordsFromDB() {
    taxRates.Clean();
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    if (!db || db->LoadAll(tableName, data) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgLoadError);
        return DB_OPERATION_ERROR;
    }
    if (data->IsEmpty()) {
        LogMessage(logLevelNotice, msgEmpty);
        return DB_OPERATION_NOT_FOUND;
    }
    for (const DBRow* row : *data) {
        unsigned int id = 0;
        QString name;
        unsigned short value = 0;
        for (const DBField* field : row->GetFields()) {
            const QString& column = field->GetColumnName();
            if (column == T::id) {
                id = field->GetValue().toUInt();
            } else if (column == T::name) {
                name = field->GetValue().toString();
            } else if (column == T::value) {
                value = static_cast<unsigned short>(field->GetValue().toUInt());
            }
        }
        taxRates.append(new TaxRate(id, name, value));
    }
    return DB_OPERATION_SUCCESS;
}

bool TaxRatesManager::ResetTable() {
    if (!db || db->ClearTable(T::table) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgClearError);
        return false;
    }
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    for (int n = 1; n <= rateCount; ++n) {
        auto* row = new DBRow(table);
        row->AppendField(T::id, n);
        row->AppendField(T::name, QString(QChar(64 + n)));
        row->AppendField(T::value, static_cast<int>(unusedRate));
        data->AppendRow(row);
    }
    if (db->Insert(data) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgDefaultsError);
        return false;
    }
    return getRecordsFromDB() == DB_OPERATION_SUCCESS;
}

QSharedPointer<DBData> TaxRatesManager::rowsOf(const TaxRatesList& list) const {
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    for (const TaxRate* rate : list) {
        auto* row = new DBRow(table);
        row->AppendField(T::id, rate->GetId());
        row->AppendField(T::name, rate->GetName());
        row->AppendField(T::value, static_cast<int>(rate->GetValue()));
        data->AppendRow(row);
    }
    return data;
}

int TaxRatesManager::UpdateRecord(const TaxRates& rates) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    TaxRatesList fresh;
    fresh.Fill(rates);
    // Changed unless every current record is one of the new list's objects, which only an
    // empty current list is.
    bool changed = false;
    for (TaxRate* current : taxRates) {
        if (!fresh.contains(current)) {
            changed = true;
            break;
        }
    }
    if (!changed) {
        fresh.Clean();
        return DB_OPERATION_SUCCESS;
    }
    db->SetWriteOnlyInTransaction(false);
    if (db->Update(rowsOf(fresh)) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgUpdateError);
        fresh.Clean();
        return DB_OPERATION_ERROR;
    }
    taxRates.swap(fresh);
    fresh.Clean();
    if (G::getSignals) {
        G::getSignals->Emit(SignalSystem::SIGNAL_TAX_RATES_CHANGED, 0);
    }
    return DB_OPERATION_SUCCESS;
}

TaxRate* TaxRatesManager::GetRecord(unsigned int id) {
    for (TaxRate* rate : taxRates) {
        if (rate->GetId() == id) {
            return rate;
        }
    }
    return nullptr;
}

TaxRate* TaxRatesManager::GetRecord(const QString& name) {
    for (TaxRate* rate : taxRates) {
        if (rate->GetName() == name) {
            return rate;
        }
    }
    return nullptr;
}

bool TaxRatesManager::IsSet(const QString& name) {
    const TaxRate* rate = GetRecord(name);
    return rate && !rate->IsReserved();
}

bool TaxRatesManager::IsRecordExist(const QString& name) {
    return initialized && GetRecord(name) != nullptr;
}

bool TaxRatesManager::DeleteRecord(const QString&) {
    return false;
}

bool TaxRatesManager::GetTaxRateASCIIChar(unsigned char id, char& out) {
    const TaxRate* rate = GetRecord(id);
    if (!rate || rate->GetName().size() != 1) {
        return false;
    }
    out = rate->GetName().toUtf8().at(0);
    return true;
}

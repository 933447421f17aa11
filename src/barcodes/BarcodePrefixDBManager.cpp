#include "BarcodePrefixDBManager.h"

#include "LibraryLog.h"

namespace {

const QString prefixTable = QStringLiteral("SpecialBarcodePrefixes");
const QString idColumn = QStringLiteral("id");
const QString prefixColumn = QStringLiteral("prefix");
const QString kindColumn = QStringLiteral("weight_or_price");
// The classification's statement around the prefix it is given.
const QString classifyHead =
    QStringLiteral("SELECT ") + kindColumn + QStringLiteral("             FROM ") + prefixTable +
    QStringLiteral("                 WHERE ") + prefixColumn + QStringLiteral(" == \"");
const QString classifyTail = QStringLiteral("\"");

const QString msgNoTable = QStringLiteral(
    "BarcodePrefixDBManager::Initialize()! Can not find special barcode prefixes table in "
    "database.");
const QString msgInsertError = QStringLiteral(
    "BarcodePrefixDBManager: SQL error when try to insert barcode prefix to database!");
const QString msgDeleteError = QStringLiteral(
    "BarcodePrefixDBManager::RemovePrefixEntry(): SQL error when deleting prefix entry.");
const QString msgClearError =
    QStringLiteral("BarcodePrefixDBManager::ResetTable(): error while clearing table.");
const QString msgLoadError =
    QStringLiteral("BarcodePrefixDBManager: SQL error when try to load barcode prefixes data!");

struct FactoryPrefix {
    unsigned int id;
    const char* prefix;
    SpecialBarcodeSubjectType type;
};

// The factory numbering leaves ids 3 to 5 free.
const FactoryPrefix factoryPrefixes[] = {
    {1, "27", SPECIAL_BARCODE_PRICE},
    {2, "29", SPECIAL_BARCODE_PRICE},
    {6, "23", SPECIAL_BARCODE_WEIGHT},
    {7, "24", SPECIAL_BARCODE_WEIGHT},
};

QSharedPointer<DBData> dataOf(DBRow* row) {
    QSharedPointer<DBData> data = QSharedPointer<DBData>::create();
    data->AppendRow(row);
    return data;
}

// Adds the kind field for kinds 0 and 1; any other kind is stored as no kind.
void appendKind(DBRow* row, SpecialBarcodeSubjectType type) {
    if (type == SPECIAL_BARCODE_PRICE) {
        row->AppendField(kindColumn, 1);
    } else if (type == SPECIAL_BARCODE_WEIGHT) {
        row->AppendField(kindColumn, 0);
    }
}

}  // namespace

BarcodePrefixDBManager::BarcodePrefixDBManager()
    : initialized(false), db(nullptr), table(nullptr) {}

BarcodePrefixDBManager::~BarcodePrefixDBManager() = default;

bool BarcodePrefixDBManager::Initialize(DBManager* newDb) {
    if (!newDb) {
        return false;
    }
    db = newDb;
    // The prefix goes into the classification as it is: the database binds it as one value.
    // Only the first row counts.
    db->DeclareStatementTemplate(classifyHead, {classifyTail}, 1);
    table = db->GetTable(prefixTable);
    if (!table) {
        LogMessage(logLevelError, msgNoTable);
        return false;
    }
    initialized = true;
    return true;
}

int BarcodePrefixDBManager::AddPrefix(unsigned int id, const QString& prefix,
                                      SpecialBarcodeSubjectType type) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    auto* row = new DBRow(table);
    row->AppendField(idColumn, id);
    row->AppendField(prefixColumn, prefix);
    appendKind(row, type);
    if (db->Insert(dataOf(row)) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgInsertError);
        return DB_OPERATION_ERROR;
    }
    return DB_OPERATION_SUCCESS;
}

int BarcodePrefixDBManager::AddPrefix(const SpecialBarcodePrefix& entry) {
    return AddPrefix(entry.GetId(), entry.GetPrefix(), entry.GetType());
}

int BarcodePrefixDBManager::RemovePrefixEntry(int id) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    auto* row = new DBRow(table);
    row->AppendField(idColumn, id);
    if (db->Delete(dataOf(row)) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgDeleteError);
        return DB_OPERATION_ERROR;
    }
    return DB_OPERATION_SUCCESS;
}

bool BarcodePrefixDBManager::ResetTable() {
    if (!db || db->ClearTable(prefixTable) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgClearError);
        return false;
    }
    for (const FactoryPrefix& factory : factoryPrefixes) {
        if (AddPrefix(factory.id, QString::fromLatin1(factory.prefix), factory.type) !=
            DB_OPERATION_SUCCESS) {
            return false;
        }
    }
    return true;
}

int BarcodePrefixDBManager::LoadPrefixesByType(const SpecialBarcodeSubjectType& type,
                                               QList<SpecialBarcodePrefix*>& out) {
    if (!initialized) {
        return DB_OPERATION_NOT_INITIALIZED;
    }
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    eDBOperationResult result;
    if (type == SPECIAL_BARCODE_NONE) {
        result = db->LoadAll(table->GetName(), rows);
    } else {
        auto* example = new DBRow(table);
        appendKind(example, type);
        result =
            db->Load(dataOf(example), DBManager::LOAD_MODE_BY_EXAMPLE, rows, false, QString(), 0);
    }
    if (result != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgLoadError);
        return DB_OPERATION_ERROR;
    }
    for (const DBRow* row : *rows) {
        out.append(new SpecialBarcodePrefix(
            row->GetValue(idColumn).toUInt(), row->GetValue(prefixColumn).toString(),
            row->GetValue(kindColumn).toBool() ? SPECIAL_BARCODE_PRICE : SPECIAL_BARCODE_WEIGHT));
    }
    return DB_OPERATION_SUCCESS;
}

bool BarcodePrefixDBManager::CheckSpecialBarcodeSubjectType(const QString& barcode,
                                                            SpecialBarcodeSubjectType& type) {
    const QString statement = classifyHead + barcode + classifyTail;
    DBDirectQueryResult result;
    if (!db || db->Execute(statement, &result) != DB_OPERATION_SUCCESS) {
        type = SPECIAL_BARCODE_NONE;
        return false;
    }
    if (result.IsEmpty() || result.RowCount() == 0) {
        type = SPECIAL_BARCODE_NONE;
        return true;
    }
    type = result.GetValue(0, 0).toBool() ? SPECIAL_BARCODE_PRICE : SPECIAL_BARCODE_WEIGHT;
    return true;
}

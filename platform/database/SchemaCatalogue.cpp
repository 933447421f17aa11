#include "SchemaCatalogue.h"

#include <sqlite3.h>

namespace {

bool sameColumns(const DBTable* table, const QVector<DBTable::ColumnInfo>& columns) {
    if (table->GetColumns().size() != columns.size()) {
        return false;
    }
    for (int i = 0; i < columns.size(); ++i) {
        const DBColumn* column = table->GetColumns()[i];
        if (column->GetName() != columns[i].name || column->GetType() != columns[i].declaredType ||
            column->IsNotNull() != columns[i].notNull ||
            column->GetDefaultValue() != columns[i].defaultValue ||
            column->GetPrimaryKeyPosition() != columns[i].primaryKeyPosition) {
            return false;
        }
    }
    return true;
}

QString textOf(sqlite3_stmt* statement, int column) {
    const unsigned char* value = sqlite3_column_text(statement, column);
    return value ? QString::fromUtf8(reinterpret_cast<const char*>(value)) : QString();
}

// Steps a statement made once for the whole refresh; finalised on every path.
struct OneOff {
    sqlite3_stmt* statement = nullptr;
    OneOff(sqlite3* connection, const char* sql) {
        if (sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr) != SQLITE_OK) {
            sqlite3_finalize(statement);
            statement = nullptr;
        }
    }
    ~OneOff() { sqlite3_finalize(statement); }
    OneOff(const OneOff&) = delete;
    OneOff& operator=(const OneOff&) = delete;
};

}  // namespace

bool SchemaCatalogue::Refresh(sqlite3* connection) {
    if (!versionQuery) {
        sqlite3_stmt* handle = nullptr;
        if (sqlite3_prepare_v3(connection, "PRAGMA schema_version", -1, SQLITE_PREPARE_PERSISTENT,
                               &handle, nullptr) != SQLITE_OK) {
            sqlite3_finalize(handle);
            return false;
        }
        versionQuery = std::make_unique<SqliteStatement>(handle, QString());
    }
    qint64 current = -1;
    if (sqlite3_step(versionQuery->Handle()) == SQLITE_ROW) {
        current = sqlite3_column_int64(versionQuery->Handle(), 0);
    }
    versionQuery->Reset();
    if (current < 0 || current == version) {
        return false;
    }
    OneOff list(connection,
                "SELECT name FROM sqlite_master WHERE type = 'table' AND "
                "substr(name, 1, 7) != 'sqlite_' ORDER BY name");
    OneOff info(connection,
                "SELECT name, type, \"notnull\", dflt_value, pk FROM pragma_table_info(?1)");
    if (!list.statement || !info.statement) {
        return false;
    }
    QHash<QString, DBTable*> fresh;
    while (sqlite3_step(list.statement) == SQLITE_ROW) {
        const QString name = textOf(list.statement, 0);
        const QByteArray utf8 = name.toUtf8();
        sqlite3_bind_text(info.statement, 1, utf8.constData(), utf8.size(), SQLITE_TRANSIENT);
        QVector<DBTable::ColumnInfo> columns;
        while (sqlite3_step(info.statement) == SQLITE_ROW) {
            columns.append(DBTable::ColumnInfo{textOf(info.statement, 0), textOf(info.statement, 1),
                                               sqlite3_column_int(info.statement, 2) != 0,
                                               textOf(info.statement, 3),
                                               sqlite3_column_int(info.statement, 4)});
        }
        sqlite3_reset(info.statement);
        DBTable* known = tables.value(name, nullptr);
        if (known && sameColumns(known, columns)) {
            fresh.insert(name, known);
        } else {
            described.push_back(std::make_unique<DBTable>(name, columns));
            fresh.insert(name, described.back().get());
        }
    }
    tables = fresh;
    version = current;
    describeIndexes(connection);
    return true;
}

void SchemaCatalogue::describeIndexes(sqlite3* connection) {
    leadingIndexColumns.clear();
    uniqueColumns.clear();
    noCaseColumns.clear();
    OneOff indexes(connection,
                   "SELECT l.\"unique\", (SELECT COUNT(*) FROM pragma_index_info(l.name)), "
                   "x.name, x.coll, l.partial "
                   "FROM pragma_index_list(?1) AS l, pragma_index_xinfo(l.name) AS x "
                   "WHERE x.seqno = 0");
    if (!indexes.statement) {
        return;
    }
    for (auto it = tables.cbegin(); it != tables.cend(); ++it) {
        const QByteArray name = it.key().toUtf8();
        sqlite3_bind_text(indexes.statement, 1, name.constData(), name.size(), SQLITE_TRANSIENT);
        while (sqlite3_step(indexes.statement) == SQLITE_ROW) {
            if (sqlite3_column_type(indexes.statement, 2) != SQLITE_TEXT) {
                continue;  // an index on an expression
            }
            const QString column = textOf(indexes.statement, 2);
            const QString collation = textOf(indexes.statement, 3);
            if (collation.compare(QLatin1String("NOCASE"), Qt::CaseInsensitive) == 0) {
                // Ordered otherwise than the column: good only for lookups ignoring case.
                if (sqlite3_column_int(indexes.statement, 4) == 0) {
                    noCaseColumns[it.key()].insert(column);
                }
                continue;
            }
            leadingIndexColumns[it.key()].insert(column);
            if (sqlite3_column_int(indexes.statement, 0) != 0 &&
                sqlite3_column_int(indexes.statement, 1) == 1) {
                uniqueColumns[it.key()].insert(column);
            }
        }
        sqlite3_reset(indexes.statement);
    }
}

DBTable* SchemaCatalogue::Find(const QString& name, bool ignoreCase) const {
    if (DBTable* table = tables.value(name, nullptr)) {
        return table;
    }
    if (ignoreCase) {
        for (auto it = tables.cbegin(); it != tables.cend(); ++it) {
            if (it.key().compare(name, Qt::CaseInsensitive) == 0) {
                return it.value();
            }
        }
    }
    return nullptr;
}

bool SchemaCatalogue::LeadsAnIndex(const QString& table, const QString& column) const {
    return leadingIndexColumns.value(table).contains(column);
}

bool SchemaCatalogue::HasUniqueIndex(const QString& table, const QString& column) const {
    return uniqueColumns.value(table).contains(column);
}

bool SchemaCatalogue::LeadsANoCaseIndex(const QString& table, const QString& column) const {
    return noCaseColumns.value(table).contains(column);
}

void SchemaCatalogue::Clear() {
    versionQuery.reset();
    tables.clear();
    leadingIndexColumns.clear();
    uniqueColumns.clear();
    noCaseColumns.clear();
    version = -1;
}

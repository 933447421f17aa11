#include "ChangeTracker.h"

#include <sqlite3.h>

void ChangeTracker::Attach(sqlite3* connection) {
    sqlite3_update_hook(connection, &ChangeTracker::onRowChange, this);
}

void ChangeTracker::onRowChange(void* tracker, int, const char*, const char* table, long long) {
    auto* self = static_cast<ChangeTracker*>(tracker);
    if (self->lastChangedCount && self->lastChangedTable == table) {
        ++*self->lastChangedCount;
        return;
    }
    self->lastChangedTable = table;
    self->lastChangedCount = &self->tableChanges[self->lastChangedTable];
    ++*self->lastChangedCount;
}

void ChangeTracker::CountTableWrite(const QString& table) {
    ++tableChanges[table.toStdString()];
}

quint64 ChangeTracker::TableVersion(sqlite3* connection, const QString& table) {
    // Asking the pager starts no transaction (a read transaction costs several file-lock
    // calls). Own writes inside an open transaction do not move it: the hook's counts cover
    // those.
    const auto pager = static_cast<unsigned int>(DataVersion(connection));
    if (pager != seenDataVersion) {
        seenDataVersion = pager;
        ++commitEpoch;
    }
    // A handful of tables, compared in place: this runs at every scan, where a conversion of
    // the name would cost an allocation.
    quint64 changes = unattributedWrites;
    for (const auto& own : tableChanges) {
        if (table == QLatin1String(own.first.data(), static_cast<int>(own.first.size()))) {
            changes += own.second;
            break;
        }
    }
    return (commitEpoch << 32) + (changes & 0xffffffffu);
}

quint64 ChangeTracker::DataVersion(sqlite3* connection) {
    unsigned int version = 0;
    // No name: the main database without a search of the attached ones' names.
    sqlite3_file_control(connection, nullptr, SQLITE_FCNTL_DATA_VERSION, &version);
    return version;
}

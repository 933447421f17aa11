#include "SqliteStatement.h"

#include <sqlite3.h>

#include <atomic>

#include "DBTable.h"
#include "Utf8.h"

#include <QDate>
#include <QDateTime>
#include <limits>

SqliteStatement::SqliteStatement(sqlite3_stmt* statement, const QString& text)
    : statement(statement), text(text) {}

SqliteStatement::~SqliteStatement() {
    sqlite3_finalize(statement);
}

bool SqliteStatement::IsReadOnly() const {
    return sqlite3_stmt_readonly(statement) != 0;
}

int SqliteStatement::BindAll(const QVector<QVariant>& values) {
    for (int i = 0; i < values.size(); ++i) {
        const int rc = Bind(i + 1, values[i]);
        if (rc != SQLITE_OK) {
            return rc;
        }
    }
    return SQLITE_OK;
}

int SqliteStatement::Bind(int index, const QVariant& value) {
    if (!value.isValid()) {
        return sqlite3_bind_null(statement, index);
    }
    switch (static_cast<QMetaType::Type>(value.userType())) {
        case QMetaType::Bool:
            return sqlite3_bind_int(statement, index, value.toBool() ? 1 : 0);
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::Short:
        case QMetaType::UShort:
        case QMetaType::Char:
        case QMetaType::SChar:
        case QMetaType::UChar:
        case QMetaType::Long:
        case QMetaType::ULong:
            return sqlite3_bind_int64(statement, index, value.toLongLong());
        case QMetaType::ULongLong: {
            const qulonglong number = value.toULongLong();
            if (number > static_cast<qulonglong>(std::numeric_limits<qint64>::max())) {
                const QByteArray digits = QByteArray::number(number);
                return sqlite3_bind_text(statement, index, digits.constData(), digits.size(),
                                         SQLITE_TRANSIENT);
            }
            return sqlite3_bind_int64(statement, index, static_cast<qint64>(number));
        }
        case QMetaType::Double:
        case QMetaType::Float:
            return sqlite3_bind_double(statement, index, value.toDouble());
        case QMetaType::QByteArray: {
            const QByteArray bytes = value.toByteArray();
            return sqlite3_bind_blob(statement, index, bytes.constData(), bytes.size(),
                                     SQLITE_TRANSIENT);
        }
        case QMetaType::QDateTime:
        case QMetaType::QDate:
        case QMetaType::QTime:
        case QMetaType::QString:
            return BindText(index, *static_cast<const QString*>(value.constData()));
        default: {
            if (!value.canConvert<QString>()) {
                return sqlite3_bind_null(statement, index);
            }
            // A null QString is still a text value: bind it as "" so NOT NULL columns accept it.
            const QByteArray utf8 = value.toString().toUtf8();
            return sqlite3_bind_text(statement, index, utf8.constData(), utf8.size(),
                                     SQLITE_TRANSIENT);
        }
    }
}

int SqliteStatement::BindText(int index, QStringView value) {
    // A scanned code or a typed name is encoded on the stack, with no copy of the text and no
    // allocation; a longer text, or one holding a lone surrogate, goes through Qt's encoder. A
    // null QString is still a text value, bound as "" so that NOT NULL columns take it.
    constexpr int shortText = 128;
    char utf8[3 * shortText];
    const int written = value.size() <= shortText ? Utf8::Encode(value, utf8) : -1;
    if (written >= 0) {
        return sqlite3_bind_text(statement, index, utf8, written, SQLITE_TRANSIENT);
    }
    const QByteArray bytes = value.toUtf8();
    return sqlite3_bind_text(statement, index, bytes.constData(), bytes.size(), SQLITE_TRANSIENT);
}

int SqliteStatement::BindUnowned(int index, const char* utf8, int bytes) {
    return sqlite3_bind_text(statement, index, utf8, bytes, SQLITE_STATIC);
}

void SqliteStatement::Reset() {
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
}

QVariant SqliteStatement::ColumnValue(int column) const {
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            return QVariant(static_cast<qlonglong>(sqlite3_column_int64(statement, column)));
        case SQLITE_FLOAT:
            return QVariant(sqlite3_column_double(statement, column));
        case SQLITE_TEXT:
            return QVariant(TextOf(statement, column));
        case SQLITE_BLOB: {
            const char* data = static_cast<const char*>(sqlite3_column_blob(statement, column));
            return QVariant(QByteArray(data, sqlite3_column_bytes(statement, column)));
        }
        case SQLITE_NULL:
        default:
            return QVariant();
    }
}

QString SqliteStatement::TextOf(sqlite3_stmt* statement, int column) {
    const char* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    return QString::fromUtf8(text, sqlite3_column_bytes(statement, column));
}

int SqliteStatement::ColumnCount() const {
    return sqlite3_column_count(statement);
}

QString SqliteStatement::ColumnName(int column) const {
    return QString::fromUtf8(sqlite3_column_name(statement, column));
}

const QVector<QString>& SqliteStatement::ColumnNames() {
    const int count = ColumnCount();
    // SQLite may recompile a statement after a schema change; "SELECT *" then has other columns.
    if (names.size() != count) {
        // Every name read again: a column added keeps the others' places but not their names.
        names = QVector<QString>(count);
        mappedTable = nullptr;
        namesId = 0;
    }
    if (namesId == 0) {
        for (int i = 0; i < count; ++i) {
            names[i] = ColumnName(i);
        }
        static std::atomic<quint64> lastNamesId{0};
        namesId = ++lastNamesId;
    }
    return names;
}

const QVector<const DBColumn*>& SqliteStatement::ColumnsOf(const DBTable* table) {
    const QVector<QString>& columnNames = ColumnNames();
    if (table != mappedTable || mappedColumns.size() != columnNames.size()) {
        mappedColumns.fill(nullptr, columnNames.size());
        if (table) {
            const QVector<const DBColumn*>& known = table->GetColumns();
            for (int i = 0; i < columnNames.size(); ++i) {
                mappedColumns[i] = (i < known.size() && known[i]->GetName() == columnNames[i])
                                       ? known[i]
                                       : table->GetColumn(columnNames[i]);
            }
        }
        mappedTable = table;
    }
    return mappedColumns;
}

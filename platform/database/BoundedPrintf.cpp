#include "BoundedPrintf.h"

#include <sqlite3.h>

#include <QByteArray>
#include <cstring>

#include "QueryLimits.h"

namespace {

constexpr int widest = QueryLimits::maxValueBytes;

// Whether every width and precision of `format` stays within `widest`. Written numbers are read
// as SQLite reads them, saturating instead of wrapping; "*" takes the next argument.
bool withinBounds(const char* format, int argc, sqlite3_value** argv) {
    int next = 1;
    auto fits = [](long long value) { return value >= -widest && value <= widest; };
    auto number = [&](const char*& p) {
        long long value = 0;
        if (*p == '*') {
            ++p;
            value = next < argc ? sqlite3_value_int64(argv[next++]) : 0;
        } else {
            while (*p >= '0' && *p <= '9') {
                value = value > widest ? value : value * 10 + (*p++ - '0');
            }
        }
        return value;
    };
    for (const char* p = format; p && *p;) {
        if (*p++ != '%') {
            continue;
        }
        if (*p == '%') {
            ++p;
            continue;
        }
        while (*p && std::strchr("-+ #0!,", *p)) {
            ++p;
        }
        if (!fits(number(p))) {
            return false;
        }
        if (*p == '.') {
            ++p;
            if (!fits(number(p))) {
                return false;
            }
        }
        while (*p == 'l') {
            ++p;
        }
        if (!*p) {
            break;
        }
        if (*p++ != 'n') {
            ++next;  // the conversion's own argument
        }
    }
    return true;
}

}  // namespace

BoundedPrintf::~BoundedPrintf() {
    for (sqlite3_stmt*& statement : statements) {
        sqlite3_finalize(statement);
    }
    sqlite3_close_v2(delegate);
}

int BoundedPrintf::Register(sqlite3* connection) {
    const int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
    int rc = SQLITE_OK;
    for (const char* name : {"printf", "format"}) {
        if (rc == SQLITE_OK) {
            rc = sqlite3_create_function_v2(connection, name, -1, flags, this, &BoundedPrintf::call,
                                            nullptr, nullptr, nullptr);
        }
    }
    return rc;
}

sqlite3_stmt* BoundedPrintf::formatter(int argc) {
    if (argc < 1 || argc > QueryLimits::maxFunctionArguments) {
        return nullptr;
    }
    if (!delegate) {
        if (sqlite3_open_v2(":memory:", &delegate, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                            nullptr) != SQLITE_OK) {
            sqlite3_close_v2(delegate);
            delegate = nullptr;
            return nullptr;
        }
        sqlite3_limit(delegate, SQLITE_LIMIT_LENGTH, QueryLimits::maxValueBytes);
    }
    if (!statements[argc]) {
        QByteArray sql = "SELECT printf(?";
        for (int i = 1; i < argc; ++i) {
            sql += ", ?";
        }
        sql += ')';
        sqlite3_prepare_v3(delegate, sql.constData(), -1, SQLITE_PREPARE_PERSISTENT,
                           &statements[argc], nullptr);
    }
    return statements[argc];
}

void BoundedPrintf::call(sqlite3_context* context, int argc, sqlite3_value** argv) {
    auto* self = static_cast<BoundedPrintf*>(sqlite3_user_data(context));
    if (argc < 1 || sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(context);
        return;
    }
    const char* format = reinterpret_cast<const char*>(sqlite3_value_text(argv[0]));
    if (!withinBounds(format, argc, argv)) {
        static const QByteArray tooWide =
            "a printf() width or precision is over " + QByteArray::number(widest);
        sqlite3_result_error(context, tooWide.constData(), tooWide.size());
        sqlite3_result_error_code(context, SQLITE_TOOBIG);
        return;
    }
    sqlite3_stmt* statement = self->formatter(argc);
    if (!statement) {
        sqlite3_result_error_code(context, SQLITE_ERROR);
        return;
    }
    for (int i = 0; i < argc; ++i) {
        sqlite3_bind_value(statement, i + 1, argv[i]);
    }
    const int rc = sqlite3_step(statement);
    if (rc == SQLITE_ROW) {
        sqlite3_result_value(context, sqlite3_column_value(statement, 0));
    } else {
        sqlite3_result_error(context, sqlite3_errmsg(self->delegate), -1);
        sqlite3_result_error_code(context, rc);
    }
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
}

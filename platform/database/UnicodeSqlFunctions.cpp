#include "UnicodeSqlFunctions.h"

#include <sqlite3.h>

#include "QueryLimits.h"
#include "UnicodeText.h"

namespace {

bool queryStopped(void* limits) {
    return static_cast<QueryLimits*>(limits)->Exceeded();
}

UnicodeText::StopCheck stopCheckOf(sqlite3_context* context) {
    UnicodeText::StopCheck check;
    check.stop = &queryStopped;
    check.context = sqlite3_user_data(context);
    check.every = QueryLimits::checkEveryUnits;
    return check;
}

void interrupted(sqlite3_context* context) {
    sqlite3_result_error(context, "interrupted", -1);
    sqlite3_result_error_code(context, SQLITE_INTERRUPT);
}

void deletePattern(void* pattern) {
    delete static_cast<UnicodeText::LikePattern*>(pattern);
}

// like(pattern, text [, escape]): the order SQLite uses for "text LIKE pattern".
void likeFunction(sqlite3_context* context, int argc, sqlite3_value** argv) {
    for (int i = 0; i < argc; ++i) {
        if (sqlite3_value_type(argv[i]) == SQLITE_NULL) {
            sqlite3_result_null(context);
            return;
        }
    }
    uint escape = 0;
    if (argc == 3) {
        const unsigned char* e = sqlite3_value_text(argv[2]);
        const int bytes = sqlite3_value_bytes(argv[2]);
        const unsigned char* p = e;
        if (!e || bytes == 0 || (UnicodeText::DecodeUtf8(p, e + bytes), p != e + bytes)) {
            sqlite3_result_error(context, "ESCAPE expression must be a single character", -1);
            return;
        }
        p = e;
        escape = UnicodeText::DecodeUtf8(p, e + bytes);
    }
    const UnicodeText::StopCheck check = stopCheckOf(context);
    bool stopped = false;
    const char* subject = reinterpret_cast<const char*>(sqlite3_value_text(argv[1]));
    const int subjectBytes = sqlite3_value_bytes(argv[1]);
    auto* pattern = static_cast<UnicodeText::LikePattern*>(sqlite3_get_auxdata(context, 0));
    bool matches = false;
    if (pattern) {
        matches = pattern->Matches(subject, subjectBytes, &check, &stopped);
    } else {
        const char* text = reinterpret_cast<const char*>(sqlite3_value_text(argv[0]));
        auto* compiled = new UnicodeText::LikePattern(text, sqlite3_value_bytes(argv[0]), escape);
        matches = compiled->Matches(subject, subjectBytes, &check, &stopped);
        // SQLite keeps the compiled pattern while the same pattern value is bound (or deletes it
        // at once when it cannot).
        sqlite3_set_auxdata(context, 0, compiled, deletePattern);
    }
    if (stopped) {
        interrupted(context);
        return;
    }
    sqlite3_result_int(context, matches ? 1 : 0);
}

template <QByteArray (*Convert)(const char*, int, const UnicodeText::StopCheck*, bool*)>
void caseFunction(sqlite3_context* context, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(context);
        return;
    }
    const char* text = reinterpret_cast<const char*>(sqlite3_value_text(argv[0]));
    const UnicodeText::StopCheck check = stopCheckOf(context);
    bool stopped = false;
    const QByteArray converted = Convert(text, sqlite3_value_bytes(argv[0]), &check, &stopped);
    if (stopped) {
        interrupted(context);
        return;
    }
    // A result longer than the connection allows fails the statement with SQLITE_TOOBIG.
    sqlite3_result_text(context, converted.constData(), converted.size(), SQLITE_TRANSIENT);
}

}  // namespace

int UnicodeSqlFunctions::Register(sqlite3* connection, QueryLimits* limits) {
    const int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
    int rc = sqlite3_create_function_v2(connection, "like", 2, flags, limits, likeFunction, nullptr,
                                        nullptr, nullptr);
    if (rc == SQLITE_OK) {
        rc = sqlite3_create_function_v2(connection, "like", 3, flags, limits, likeFunction, nullptr,
                                        nullptr, nullptr);
    }
    if (rc == SQLITE_OK) {
        rc = sqlite3_create_function_v2(connection, "upper", 1, flags, limits,
                                        caseFunction<&UnicodeText::Upper>, nullptr, nullptr,
                                        nullptr);
    }
    if (rc == SQLITE_OK) {
        rc = sqlite3_create_function_v2(connection, "lower", 1, flags, limits,
                                        caseFunction<&UnicodeText::Lower>, nullptr, nullptr,
                                        nullptr);
    }
    return rc;
}

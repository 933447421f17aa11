#include "UnicodeSqlFunctions.h"

#include <sqlite3.h>

#include "UnicodeText.h"

namespace {

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
    auto* pattern = static_cast<UnicodeText::LikePattern*>(sqlite3_get_auxdata(context, 0));
    if (!pattern) {
        const char* text = reinterpret_cast<const char*>(sqlite3_value_text(argv[0]));
        pattern = new UnicodeText::LikePattern(text, sqlite3_value_bytes(argv[0]), escape);
        // SQLite keeps the compiled pattern while the same pattern value is bound.
        sqlite3_set_auxdata(context, 0, pattern, deletePattern);
        pattern = static_cast<UnicodeText::LikePattern*>(sqlite3_get_auxdata(context, 0));
        if (!pattern) {  // not kept (e.g. out of memory): match once with a local copy
            UnicodeText::LikePattern local(text, sqlite3_value_bytes(argv[0]), escape);
            const char* subject = reinterpret_cast<const char*>(sqlite3_value_text(argv[1]));
            sqlite3_result_int(context, local.Matches(subject, sqlite3_value_bytes(argv[1])));
            return;
        }
    }
    const char* subject = reinterpret_cast<const char*>(sqlite3_value_text(argv[1]));
    sqlite3_result_int(context, pattern->Matches(subject, sqlite3_value_bytes(argv[1])) ? 1 : 0);
}

template <QByteArray (*Convert)(const char*, int)>
void caseFunction(sqlite3_context* context, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(context);
        return;
    }
    const char* text = reinterpret_cast<const char*>(sqlite3_value_text(argv[0]));
    const QByteArray converted = Convert(text, sqlite3_value_bytes(argv[0]));
    sqlite3_result_text(context, converted.constData(), converted.size(), SQLITE_TRANSIENT);
}

}  // namespace

int UnicodeSqlFunctions::Register(sqlite3* connection) {
    const int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
    int rc = sqlite3_create_function_v2(connection, "like", 2, flags, nullptr, likeFunction,
                                        nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK) {
        rc = sqlite3_create_function_v2(connection, "like", 3, flags, nullptr, likeFunction,
                                        nullptr, nullptr, nullptr);
    }
    if (rc == SQLITE_OK) {
        rc = sqlite3_create_function_v2(connection, "upper", 1, flags, nullptr,
                                        caseFunction<&UnicodeText::Upper>, nullptr, nullptr,
                                        nullptr);
    }
    if (rc == SQLITE_OK) {
        rc = sqlite3_create_function_v2(connection, "lower", 1, flags, nullptr,
                                        caseFunction<&UnicodeText::Lower>, nullptr, nullptr,
                                        nullptr);
    }
    return rc;
}

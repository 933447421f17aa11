// The raw baselines of the benchmark's process figures: a process that links SQLite alone and
// does, as tight C, what an articlectl command does.
//   raw_search DATABASE PATTERN          the two LIKE scans the incremental search stands for
//   raw_search DATABASE --scan CODE      one scanned code: label or not, then its article
//   raw_search DATABASE --export FILE    the catalogue as a CSV price list, in one joined read

#include <sqlite3.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

int search(sqlite3* db, const std::string& pattern) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(
        db, "SELECT * FROM Article WHERE art_name LIKE ? ORDER BY upper(art_name), id LIMIT 100",
        -1, &statement, nullptr);
    int rows = 0;
    for (const std::string& like : {pattern + "%", "%" + pattern + "%"}) {
        sqlite3_bind_text(statement, 1, like.c_str(), -1, SQLITE_TRANSIENT);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            ++rows;
        }
        sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
    std::printf("%d\n", rows);
    return 0;
}

char checkDigit(const std::string& digits) {
    int sum = 0;
    for (int i = 0; i < 12; ++i) {
        sum += (digits[static_cast<size_t>(i)] - '0') * (i % 2 ? 3 : 1);
    }
    return static_cast<char>('0' + (10 - sum % 10) % 10);
}

int scan(sqlite3* db, const std::string& scanned) {
    std::string code = scanned;
    if (scanned.size() == 13 && scanned.find_first_not_of("0123456789") == std::string::npos &&
        checkDigit(scanned) == scanned[12]) {
        sqlite3_stmt* prefixes = nullptr;
        sqlite3_prepare_v2(db, "SELECT prefix FROM SpecialBarcodePrefixes", -1, &prefixes, nullptr);
        while (sqlite3_step(prefixes) == SQLITE_ROW) {
            const char* prefix = reinterpret_cast<const char*>(sqlite3_column_text(prefixes, 0));
            if (prefix && *prefix && scanned.compare(0, std::strlen(prefix), prefix) == 0) {
                code = scanned.substr(0, 7) + "00000";
                code.push_back(checkDigit(code));
                break;
            }
        }
        sqlite3_finalize(prefixes);
    }
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db,
                       "SELECT a.* FROM Article a, ArticleBarcode b WHERE a.id == b.article_id "
                       "AND b.barcode = ?",
                       -1, &statement, nullptr);
    sqlite3_bind_text(statement, 1, code.c_str(), -1, SQLITE_TRANSIENT);
    int rows = 0;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        if (++rows == 1) {
            std::printf("%lld %s %lld\n", sqlite3_column_int64(statement, 1),
                        reinterpret_cast<const char*>(sqlite3_column_text(statement, 2)),
                        sqlite3_column_int64(statement, 9));
        }
    }
    sqlite3_finalize(statement);
    return rows == 1 ? 0 : 1;
}

// A field as CSV writes it: quoted when it holds a comma, a quote or a line break.
void writeField(std::FILE* out, const char* text) {
    if (!std::strpbrk(text, ",\"\r\n")) {
        std::fputs(text, out);
        return;
    }
    std::fputc('"', out);
    for (const char* c = text; *c; ++c) {
        if (*c == '"') {
            std::fputc('"', out);
        }
        std::fputc(*c, out);
    }
    std::fputc('"', out);
}

int exportCatalogue(sqlite3* db, const char* file) {
    std::FILE* out = std::fopen(file, "w");
    if (!out) {
        return 1;
    }
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(
        db,
        "SELECT plu_no, art_name, price, tax_rate_no, dept_no, unit_no, quantity_precision, "
        "main_barcode, (SELECT group_concat(barcode, ' ') FROM ArticleBarcode "
        "WHERE article_id = a.id AND is_main = 0), sale_bloc, is_pack, disc_sur_block, "
        "free_price_allow, on_handy_list, scale_no, link_plu_no FROM Article a ORDER BY plu_no",
        -1, &statement, nullptr);
    std::fputs(
        "plu,name,price,tax,dept,unit,precision,barcode,extra_barcodes,blocked,pack,"
        "no_discounts,free_price,handy,scale,link_plu\n",
        out);
    while (sqlite3_step(statement) == SQLITE_ROW) {
        const sqlite3_int64 price = sqlite3_column_int64(statement, 2);
        std::fprintf(out, "%lld,", sqlite3_column_int64(statement, 0));
        writeField(out, reinterpret_cast<const char*>(sqlite3_column_text(statement, 1)));
        std::fprintf(out, ",%lld.%02lld,%d,%d,%d,%d,", price / 100, price % 100,
                     sqlite3_column_int(statement, 3), sqlite3_column_int(statement, 4),
                     sqlite3_column_int(statement, 5), sqlite3_column_int(statement, 6));
        writeField(out, reinterpret_cast<const char*>(sqlite3_column_text(statement, 7)));
        std::fputc(',', out);
        const unsigned char* extras = sqlite3_column_text(statement, 8);
        writeField(out, extras ? reinterpret_cast<const char*>(extras) : "");
        for (int column = 9; column < 16; ++column) {
            std::fprintf(out, ",%lld", sqlite3_column_int64(statement, column));
        }
        std::fputc('\n', out);
    }
    const int rc = sqlite3_finalize(statement);
    return std::fclose(out) == 0 && rc == SQLITE_OK ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const bool command = argc == 4 && argv[2][0] == '-';
    if (argc != 3 && !command) {
        std::fprintf(stderr,
                     "usage: raw_search DATABASE (PATTERN | --scan CODE | --export FILE)\n");
        return 2;
    }
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(argv[1], &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        std::fprintf(stderr, "%s\n", sqlite3_errmsg(db));
        sqlite3_close(db);
        return 1;
    }
    int exit = 2;
    if (!command) {
        exit = search(db, argv[2]);
    } else if (std::strcmp(argv[2], "--scan") == 0) {
        exit = scan(db, argv[3]);
    } else if (std::strcmp(argv[2], "--export") == 0) {
        exit = exportCatalogue(db, argv[3]);
    }
    sqlite3_close(db);
    return exit;
}

// The raw baseline of the search's memory figure: a process that links SQLite alone and runs
// the two LIKE scans the incremental search stands for.
//   raw_search DATABASE PATTERN

#include <sqlite3.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: raw_search DATABASE PATTERN\n");
        return 2;
    }
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(argv[1], &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        std::fprintf(stderr, "%s\n", sqlite3_errmsg(db));
        sqlite3_close(db);
        return 1;
    }
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(
        db, "SELECT * FROM Article WHERE art_name LIKE ? ORDER BY upper(art_name), id LIMIT 100",
        -1, &statement, nullptr);
    const std::string pattern = argv[2];
    int rows = 0;
    for (const std::string& like : {pattern + "%", "%" + pattern + "%"}) {
        sqlite3_bind_text(statement, 1, like.c_str(), -1, SQLITE_TRANSIENT);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            ++rows;
        }
        sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    std::printf("%d\n", rows);
    return 0;
}

#pragma once

struct sqlite3;
class QueryLimits;

// Replaces SQLite's ASCII-only like(), upper() and lower() on a connection with versions that
// fold every Unicode letter, so that the statements the library builds ("UPPER(art_name)",
// "... like ...") work for Polish names. Only the connection changes, never the file: other
// programs can still open the database with plain SQLite.
class UnicodeSqlFunctions {
public:
    // `limits` is asked inside the functions' loops (one call of like() on long texts costs the
    // product of their lengths); a query over its budget fails with SQLITE_INTERRUPT. Returns an
    // SQLite result code.
    static int Register(sqlite3* connection, QueryLimits* limits);
};

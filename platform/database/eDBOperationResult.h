#pragma once

// Outcome of a database operation. 0 is success; callers that only need to know whether an
// operation worked compare with DB_OPERATION_SUCCESS. The other values are shared with the
// managers built on top of the database layer, which return them as plain integers.
enum eDBOperationResult {
    DB_OPERATION_SUCCESS = 0,
    // Refused because receipt lines still refer to the articles.
    DB_OPERATION_RECEIPTS_EXIST = 1,
    // The record (e.g. a barcode) already exists.
    DB_OPERATION_ALREADY_EXISTS = 2,
    // Nothing matched: no row, an empty table, or an update by key that found no record.
    DB_OPERATION_NOT_FOUND = 3,
    // SQLite reported an error (missing table, busy, I/O, a malformed statement, ...).
    DB_OPERATION_ERROR = 4,
    // A constraint of the schema (unique, not null, check) refused the write.
    DB_OPERATION_CONSTRAINT = 5,
    // The manager or database is not initialised / not open.
    DB_OPERATION_NOT_INITIALIZED = 6,
    // The request itself is unusable: null or empty data, an unknown column, a condition-less
    // delete or update, a reversed range, more than one statement in a text.
    DB_OPERATION_INVALID_ARGUMENT = 7,
    // More than one record matched where exactly one was expected.
    DB_OPERATION_AMBIGUOUS = 8,
};

#pragma once

#include "ArticleSeeker.h"
#include "eDBOperationResult.h"

// The tool's exit codes.
enum ExitCode {
    EXIT_DONE = 0,
    EXIT_NOT_FOUND = 1,
    EXIT_PROBLEMS = 1,  // check found problems
    EXIT_USAGE = 2,     // a usage error or bad input
    EXIT_REFUSED = 3,   // a duplicate, receipts exist, a conflicting record
    EXIT_DATABASE = 4,  // the database could not be read or written
};

// The exit code for a result of the library's seeker or editors.
inline int ExitCodeFor(int libraryResult) {
    switch (libraryResult) {
        case DB_OPERATION_SUCCESS:
            return EXIT_DONE;
        case ArticleSeeker::RESULT_NOT_FOUND:
            return EXIT_NOT_FOUND;
        case DB_OPERATION_RECEIPTS_EXIST:
        case DB_OPERATION_ALREADY_EXISTS:
        case DB_OPERATION_CONSTRAINT:
        case ArticleSeeker::RESULT_AMBIGUOUS_BARCODE:
            return EXIT_REFUSED;
        case ArticleSeeker::RESULT_INVALID_RANGE:
            return EXIT_USAGE;
        default:
            return EXIT_DATABASE;
    }
}

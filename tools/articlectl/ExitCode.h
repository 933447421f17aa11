#pragma once

// The tool's exit codes.
enum ExitCode {
    EXIT_DONE = 0,
    EXIT_NOT_FOUND = 1,
    EXIT_USAGE = 2,
    EXIT_REFUSED = 3,  // a duplicate, receipts exist, a conflicting record
    EXIT_DATABASE = 4,
};

// The exit code for a result of the library: 0 done, 3 not found, 1/2/5/8 refused, 7 invalid
// argument, anything else a database error.
inline int ExitCodeFor(int libraryResult) {
    switch (libraryResult) {
        case 0:
            return EXIT_DONE;
        case 3:
            return EXIT_NOT_FOUND;
        case 1:
        case 2:
        case 5:
        case 8:
            return EXIT_REFUSED;
        case 7:
            return EXIT_USAGE;
        default:
            return EXIT_DATABASE;
    }
}

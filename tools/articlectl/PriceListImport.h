#pragma once

#include <QString>

class QTextCodec;
class Tool;

// How `articlectl import` reads a price list and what it does with the articles on file.
struct ImportOptions {
    QString path;                 // the file as given; "-" reads standard input
    char separator = 0;           // ',' ';' '\t', or 0 to take it from the header line
    QTextCodec* codec = nullptr;  // null for UTF-8
    bool ignoreUnknown = false;   // skip unknown columns with a warning instead of refusing
    bool replace = false;         // a row replaces the whole article and all its barcodes
    bool dryRun = false;          // report what would happen, write nothing
    bool create = false;          // create a missing database
};

// Reads the price list a record at a time and applies it in one transaction, all rows or none:
// a row whose PLU is on file changes only the columns the file has (all of them with
// `replace`), a row that changes nothing is not written. Returns the exit code: 0 done, 2 bad
// rows or a bad file, 3 rows refused by the register (a barcode or name already used), 4 the
// database failed.
int ImportPriceList(Tool& tool, const ImportOptions& options);

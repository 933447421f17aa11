#include "Commands.h"
#include "Tool.h"

const QList<Command>& Tool::Commands() {
    static const QList<Command> commands = {
        {"init", "set up a new register's departments, tax rates and label prefixes", RunInit},
        {"add", "add an article", RunAdd},
        {"edit", "change an article", RunEdit},
        {"delete", "delete an article with its barcodes and the links to it", RunDelete},
        {"show", "show an article by PLU, id, name or barcode", RunShow},
        {"list", "list the articles of a PLU range", RunList},
        {"next", "the article after a PLU", RunNext},
        {"prev", "the article before a PLU", RunPrev},
        {"first-free-plu", "the lowest PLU no article uses", RunFirstFreePlu},
        {"count", "count the articles of a PLU range", RunCount},
        {"scan", "what the register does with a scanned code", RunScan},
        {"search", "the incremental search on names and barcodes", RunSearch},
        {"price", "set one price, or convert all prices to a new currency", RunPrice},
        {"barcode", "add, list, delete or walk barcodes", RunBarcode},
        {"dept", "list, show, set, reset or name departments", RunDept},
        {"tax", "list, set or reset tax rates", RunTax},
        {"prefix", "list, add, remove, reset or classify label prefixes", RunPrefix},
        {"import", "load a CSV price list (all rows or none)", RunImport},
        {"export", "write the catalogue as a CSV price list", RunExport},
        {"clear", "remove every article (refused while receipts exist)", RunClear},
        {"stats", "counts and sizes of the catalogue", RunStats},
        {"demo", "build a sample shop and run a short register session on it", RunDemo},
    };
    return commands;
}

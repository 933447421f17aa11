#include "BarcodeCommands.h"
#include "Commands.h"
#include "SettingsCommands.h"
#include "Tool.h"

// Every command: what it does, how it uses the database, and one example of its use. Groups
// name a table of subcommands instead of a runner.
const QList<Command>& Tool::Commands() {
    using A = Access;
    static const QList<Command> commands = {
        {"init", "set up a new register's departments, tax rates and label prefixes", RunInit,
         A::Create, nullptr, "--db shop.db init"},
        {"add", "add an article", RunAdd, A::Write, nullptr,
         "add --name \"Chleb wiejski\" --price 5.49 --barcode 5900000000015"},
        {"edit", "change an article", RunEdit, A::Write, nullptr, "edit 12345 --price 5.99"},
        {"delete", "delete an article with its barcodes and the links to it", RunDelete, A::Write,
         nullptr, "delete 12345"},
        {"show", "show an article by PLU, id, name or barcode", RunShow, A::Read, nullptr,
         "show --barcode 5900000000015"},
        {"list", "list the articles of a PLU range", RunList, A::Read, nullptr, "list 1 100"},
        {"next", "the article after a PLU", RunNext, A::Read, nullptr, "next 12345"},
        {"prev", "the article before a PLU", RunPrev, A::Read, nullptr, "prev 12345"},
        {"first-free-plu", "the lowest PLU no article uses", RunFirstFreePlu, A::Read, nullptr,
         "first-free-plu"},
        {"count", "count the articles of a PLU range", RunCount, A::Read, nullptr, "count 1 999"},
        {"scan", "what the register does with a scanned code", RunScan, A::Read, nullptr,
         "scan 2312345012500"},
        {"search", "the incremental search on names and barcodes", RunSearch, A::Read, nullptr,
         "search --fold zolty"},
        {"price", "set one price, or convert all prices to a new currency", nullptr, A::None,
         &PriceCommands()},
        {"barcode", "add, list, delete or walk barcodes", nullptr, A::None, &BarcodeCommands()},
        {"dept", "list, show, set, reset or name departments", nullptr, A::None, &DeptCommands()},
        {"tax", "list, set or reset tax rates", nullptr, A::None, &TaxCommands()},
        {"prefix", "list, add, remove, reset or classify label prefixes", nullptr, A::None,
         &PrefixCommands()},
        {"import", "load a CSV price list (all rows or none)", RunImport, A::Write, nullptr,
         "import --dry-run cennik.csv"},
        {"export", "write the catalogue as a CSV price list", RunExport, A::Read, nullptr,
         "export --excel cennik.csv"},
        {"clear", "remove every article (refused while receipts exist)", RunClear, A::Write,
         nullptr, "--receipts /var/register/receipts.db clear"},
        {"check", "check the file and the catalogue for damage, without changing them", RunCheck,
         A::None, nullptr, "check --json"},
        {"stats", "counts and sizes of the catalogue", RunStats, A::Read, nullptr, "stats --json"},
        {"backup", "copy the catalogue into FILE.backups/, or list the copies", RunBackup, A::Read,
         nullptr, "backup --list"},
        {"restore", "put a copy from FILE.backups/ back in place of the catalogue", RunRestore,
         A::None, nullptr, "restore shop.db.backups/shop.db.20261123-101500-000.db"},
        {"demo", "build a sample shop and run a short register session on it", RunDemo, A::Create,
         nullptr, "--db demo.db demo"},
    };
    return commands;
}

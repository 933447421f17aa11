#pragma once

#include <QString>
#include <QStringList>

// The columns of a CSV price list: the name export writes, the other names import takes (the
// register's own JSON keys and the Polish names back offices use), and what the column holds.
// This table is the only definition: import's header matching, export's header, the help and
// the README's table (`articlectl import --columns`) are all made from it.
//
// Header names are compared without case, blanks, underscores, hyphens, dots and Polish
// diacritics ("Kod kreskowy", "kod_kreskowy" and "KOD KRESKOWY" are one name). No name may stand
// for two columns, and none that back offices use for something else is taken: "kod" (often the
// back office's own article code), "waga" (often the weight), "cena netto" (the register sells
// at gross prices).
namespace PriceList {

enum Column {
    Plu,
    Name,
    Price,
    Tax,
    Dept,
    Unit,
    Precision,
    Barcode,
    ExtraBarcodes,
    Blocked,
    Pack,
    NoDiscounts,
    FreePrice,
    Handy,
    Scale,
    LinkPlu,
    ColumnCount,
};

struct ColumnInfo {
    Column column;
    const char* name;     // as export writes it
    const char* aliases;  // the other names import takes, UTF-8, separated by "|"
    const char* meaning;
};

inline constexpr ColumnInfo columns[ColumnCount] = {
    {Plu, "plu", "nr plu|numer plu|kod plu", "the PLU number; required"},
    {Name, "name", "nazwa|nazwa towaru|nazwa artykułu",
     "at most 40 characters; required for a new article"},
    {Price, "price", "cena|cena brutto|cena sprzedaży|cena sprzedaży brutto",
     "the gross price, e.g. `12.99` or `12,99`; required for a new article"},
    {Tax, "tax", "tax_rate|vat|stawka|stawka vat|ptu|stawka ptu",
     "rate 1-7 or A-G, in use (new articles: 1)"},
    {Dept, "dept", "dział|nr działu|numer działu", "department number (new articles: 1)"},
    {Unit, "unit", "jednostka|jednostka miary|jm",
     "unit number or name: 1 `szt.`, 2 `kg`, 3 `l`, 4 `m`, 5 `op.` (new articles: 1)"},
    {Precision, "precision", "quantity_precision|precyzja|miejsca po przecinku",
     "decimal places of quantities, 0-3"},
    {Barcode, "barcode", "main_barcode|kod kreskowy|ean|kod ean|gtin",
     "the main barcode; a scale label is stored as the article part it carries"},
    {ExtraBarcodes, "extra_barcodes", "kody dodatkowe|dodatkowe kody|dodatkowe kody kreskowe",
     "additional barcodes separated by blanks (all of the article's)"},
    {Blocked, "blocked", "sale_blocked|blokada|blokada sprzedaży", "sale blocked, 0/1"},
    {Pack, "pack", "opakowanie", "a pack, 0/1"},
    {NoDiscounts, "no_discounts", "discounts_blocked|bez rabatu|bez rabatów|blokada rabatu",
     "discounts and surcharges blocked, 0/1"},
    {FreePrice, "free_price", "cena otwarta|cena dowolna",
     "an open price may be typed at the till, 0/1"},
    {Handy, "handy", "handy_list|szybki dostęp|lista szybkiego dostępu",
     "on the quick-access list, 0/1"},
    {Scale, "scale", "nr wagi|numer wagi", "the scale number, 0-255"},
    {LinkPlu, "link_plu", "powiązany plu|plu powiązany", "the PLU of a linked article, 0 for none"},
};

// What a header name is compared as: lower case, without blanks, underscores, hyphens, dots and
// Polish diacritics.
QString Key(const QString& header);
// The column a header names, or -1.
int ColumnOf(const QString& header);
// The names export writes, in column order.
QStringList Names();
// The table of columns as Markdown, for `import --columns` and the README.
QString MarkdownTable();

}  // namespace PriceList

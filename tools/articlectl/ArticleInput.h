#pragma once

#include <QString>

#include "ArticleManager.h"
#include "DBManager.h"

// Reads article fields from text as people and price lists write them, checking each against
// what the register accepts. Every reader returns false with `error` saying what is wrong and
// what would be right; the output is left alone then.
class ArticleInput {
public:
    ArticleInput(ArticleManager& manager, DBManager& db);

    bool Plu(const QString& text, unsigned int& plu, QString& error) const;
    // Not empty, no control characters, at most the name column's size in characters (Unicode
    // code points); stored in Unicode NFC, so that one name typed two ways is one name.
    bool Name(const QString& text, QString& name, QString& error) const;
    // A decimal amount with at most two decimals, 0 to 9999999.99, with a decimal point or
    // comma ("12.99", "12,99"). Thousands separators are refused, not guessed ("1.299").
    bool Price(const QString& text, qint64& price, QString& error) const;
    // A rate number 1-7 or letter A-G of a rate that is in use.
    bool TaxRate(const QString& text, unsigned char& rate, QString& error) const;
    // A department number the register has.
    bool Dept(const QString& text, unsigned char& dept, QString& error) const;
    // A unit number or name the register has.
    bool Unit(const QString& text, unsigned char& unit, QString& error) const;
    // Decimal places of quantities, 0 to 3.
    bool Precision(const QString& text, unsigned char& precision, QString& error) const;
    // Printable ASCII without blanks or commas, within the barcode column's size. A code of 8,
    // 13 or 14 digits must carry its GS1 check digit; 12 digits are refused as an EAN-13 whose
    // leading zero a spreadsheet dropped. Spreadsheet numbers (5.9E+12) and the letters O, I, l
    // among digits are refused with what to do. Other codes (ABC-123, other lengths) pass.
    bool Barcode(const QString& text, QString& barcode, QString& error) const;
    // 0/1, yes/no, true/false.
    bool Flag(const QString& text, bool& flag, QString& error) const;
    // A scale number 0 to 255.
    bool Scale(const QString& text, unsigned char& scale, QString& error) const;
    // 0 (no link) or a PLU.
    bool LinkPlu(const QString& text, unsigned int& plu, QString& error) const;

    // The name and barcode columns' sizes.
    int NameSize() const { return nameSize; }
    int BarcodeSize() const { return barcodeSize; }

private:
    ArticleManager& manager;
    int nameSize;
    int barcodeSize;
};

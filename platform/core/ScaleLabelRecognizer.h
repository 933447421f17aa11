#pragma once

#include <QPair>
#include <QString>
#include <QStringView>
#include <QVector>
#include <mutex>

#include "ScaleLabelKind.h"
#include "VexCoreGlobal.h"

class DBManager;

// What an in-store label carries.
struct SpecialBarcodeReading {
    QString articleBarcode;  // the article's own barcode: 7 digits, "00000", check digit
    QString prefix;          // the stored prefix the label begins with
    SpecialBarcodeSubjectType type = SPECIAL_BARCODE_NONE;  // weight, price, or no kind
    unsigned int value = 0;  // grams for weight, minor currency units for price
};

// Recognises the in-store EAN-13 labels that scales print for weighed and priced goods (the
// GS1 variable-measure convention): 13 digits with a valid check digit, beginning with a prefix
// of the SpecialBarcodePrefixes table. The first 7 digits (prefix and item code) identify the
// article, the next 5 are the value.
//
// The prefixes are read from the article database and read again whenever it changed, so a
// prefix added or removed takes effect at the next scan. Thread-safe.
class VEXCORE_EXPORT SpecialBarcodeRecognizer {
public:
    // Uses the prefixes of G::dbArticles as it stands at each scan.
    SpecialBarcodeRecognizer();
    // Uses the prefixes of `db`.
    explicit SpecialBarcodeRecognizer(DBManager* db);
    ~SpecialBarcodeRecognizer();

    SpecialBarcodeRecognizer(const SpecialBarcodeRecognizer&) = delete;
    SpecialBarcodeRecognizer& operator=(const SpecialBarcodeRecognizer&) = delete;

    // True for a special label, with `out` set to the article barcode it carries: its first
    // 7 digits, "00000" and the recomputed check digit (itself a valid EAN-13, so normalising
    // it again gives the same text). False for any other code, `out` left alone.
    bool getArticleBarcode(QString scanned, QString& out);
    // The same, with the article barcode written to `out` (room for 13 characters) and nothing
    // allocated: every scan at the till comes through here.
    bool ArticleBarcodeOf(QStringView scanned, QChar* out);
    // True for a special label, with everything it carries; false (reading untouched) otherwise.
    bool Read(const QString& scanned, SpecialBarcodeReading& reading);

    // Whether `code` is 13 digits whose last is the EAN-13 check digit of the others.
    static bool IsValidEan13(const QString& code);
    // The EAN-13 check digit of 12 digits, or -1 when `digits` is not 12 digits.
    static int Ean13CheckDigit(const QString& digits);

private:
    using Prefix = QPair<QString, SpecialBarcodeSubjectType>;

    // Whether the valid EAN-13 at `code` begins with a prefix stored in the open database (read
    // again when it changed); the longest such prefix goes to `found` when given.
    bool findPrefix(const QChar* code, Prefix* found);
    // Reads the stored prefixes of `db` as they stand at `version`.
    void reload(DBManager* db, quint64 version);

    std::mutex mutex;
    DBManager* fixedDb;
    DBManager* loadedFrom = nullptr;
    quint64 loadedVersion = 0;
    QVector<Prefix> prefixes;  // longest first
};

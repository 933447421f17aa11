#include "ScaleLabelRecognizer.h"

#include <algorithm>

#include "DBManager.h"
#include "Globals.h"

namespace {

const QString prefixTable = QStringLiteral("SpecialBarcodePrefixes");
const QString prefixColumn = QStringLiteral("prefix");
const QString kindColumn = QStringLiteral("weight_or_price");

constexpr int ean13Length = 13;
constexpr int articlePartLength = 7;
constexpr int valueLength = 5;

bool allDigits(const QString& text) {
    for (const QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9')) {
            return false;
        }
    }
    return true;
}

}  // namespace

SpecialBarcodeRecognizer::SpecialBarcodeRecognizer() : fixedDb(nullptr) {}

SpecialBarcodeRecognizer::SpecialBarcodeRecognizer(DBManager* db) : fixedDb(db) {}

SpecialBarcodeRecognizer::~SpecialBarcodeRecognizer() = default;

namespace {

// The check digit of the 12 digits at `digits`.
int checkDigit(const QChar* digits) {
    int sum = 0;
    for (int i = 0; i < ean13Length - 1; ++i) {
        const int digit = digits[i].unicode() - '0';
        sum += (i % 2 == 0) ? digit : 3 * digit;
    }
    return (10 - sum % 10) % 10;
}

}  // namespace

int SpecialBarcodeRecognizer::Ean13CheckDigit(const QString& digits) {
    if (digits.size() != ean13Length - 1 || !allDigits(digits)) {
        return -1;
    }
    return checkDigit(digits.constData());
}

bool SpecialBarcodeRecognizer::IsValidEan13(const QString& code) {
    return code.size() == ean13Length && allDigits(code) &&
           code[ean13Length - 1] ==
               QLatin1Char(static_cast<char>('0' + checkDigit(code.constData())));
}

bool SpecialBarcodeRecognizer::getArticleBarcode(QString scanned, QString& out) {
    SpecialBarcodeReading reading;
    if (!Read(scanned, reading)) {
        return false;
    }
    out = reading.articleBarcode;
    return true;
}

bool SpecialBarcodeRecognizer::Read(const QString& scanned, SpecialBarcodeReading& reading) {
    if (!IsValidEan13(scanned)) {
        return false;
    }
    Prefix prefix;
    if (!findPrefix(scanned, prefix)) {
        return false;
    }
    // Built in place: every scan at the till comes through here.
    QString articleBarcode(ean13Length, QLatin1Char('0'));
    QChar* digits = articleBarcode.data();
    std::copy(scanned.constData(), scanned.constData() + articlePartLength, digits);
    digits[ean13Length - 1] = QLatin1Char(static_cast<char>('0' + checkDigit(digits)));
    unsigned int value = 0;
    for (int i = articlePartLength; i < articlePartLength + valueLength; ++i) {
        value = value * 10 + static_cast<unsigned int>(scanned[i].unicode() - '0');
    }
    reading.articleBarcode = articleBarcode;
    reading.prefix = prefix.first;
    reading.type = prefix.second;
    reading.value = value;
    return true;
}

bool SpecialBarcodeRecognizer::findPrefix(const QString& code, Prefix& found) {
    // Kept const: a loop over a shared vector that is not const would copy it.
    const QVector<Prefix> current = currentPrefixes();
    for (const Prefix& prefix : current) {
        if (code.startsWith(prefix.first)) {
            found = prefix;
            return true;
        }
    }
    return false;
}

QVector<SpecialBarcodeRecognizer::Prefix> SpecialBarcodeRecognizer::currentPrefixes() {
    // The database is asked without the recogniser's lock held: a thread holding the database
    // in a transaction may scan meanwhile.
    DBManager* db = fixedDb ? fixedDb : G::dbArticles;
    if (!db || !db->IsOpen()) {
        return {};
    }
    // The table's own version costs no database access: a prefix changed through this
    // database shows at the next scan, one changed through another connection once this one
    // has read since (every lookup does).
    const quint64 version = db->GetTableVersion(prefixTable);
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (db == loadedFrom && version == loadedVersion) {
            return prefixes;
        }
    }
    QVector<Prefix> fresh;
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    if (db->GetTable(prefixTable) && db->LoadAll(prefixTable, rows) == DB_OPERATION_SUCCESS) {
        for (const DBRow* row : *rows) {
            const QString prefix = row->GetValue(prefixColumn).toString();
            // Only digits can begin an EAN-13; an empty prefix would make every code special.
            if (prefix.isEmpty() || prefix.size() > ean13Length || !allDigits(prefix)) {
                continue;
            }
            const QVariant kind = row->GetValue(kindColumn);
            fresh.append(Prefix(prefix, kind.isNull() ? SPECIAL_BARCODE_NONE
                                                      : (kind.toBool() ? SPECIAL_BARCODE_PRICE
                                                                       : SPECIAL_BARCODE_WEIGHT)));
        }
    }
    std::stable_sort(fresh.begin(), fresh.end(), [](const Prefix& a, const Prefix& b) {
        return a.first.size() > b.first.size();
    });
    std::lock_guard<std::mutex> lock(mutex);
    prefixes = fresh;
    loadedFrom = db;
    loadedVersion = version;
    return fresh;
}

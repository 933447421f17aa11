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

bool allDigits(QStringView text) {
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

bool isValidEan13(QStringView code) {
    return code.size() == ean13Length && allDigits(code) &&
           code[ean13Length - 1] == QLatin1Char(static_cast<char>('0' + checkDigit(code.data())));
}

// The article barcode a label carries: its first 7 digits, a zero value, the check digit.
void writeArticleBarcode(const QChar* label, QChar* out) {
    std::copy(label, label + articlePartLength, out);
    std::fill(out + articlePartLength, out + articlePartLength + valueLength, QLatin1Char('0'));
    out[ean13Length - 1] = QLatin1Char(static_cast<char>('0' + checkDigit(out)));
}

}  // namespace

int SpecialBarcodeRecognizer::Ean13CheckDigit(const QString& digits) {
    if (digits.size() != ean13Length - 1 || !allDigits(digits)) {
        return -1;
    }
    return checkDigit(digits.constData());
}

bool SpecialBarcodeRecognizer::IsValidEan13(const QString& code) {
    return isValidEan13(code);
}

bool SpecialBarcodeRecognizer::getArticleBarcode(QString scanned, QString& out) {
    QChar code[ean13Length];
    if (!ArticleBarcodeOf(scanned, code)) {
        return false;
    }
    out = QString(code, ean13Length);
    return true;
}

bool SpecialBarcodeRecognizer::ArticleBarcodeOf(QStringView scanned, QChar* out) {
    if (!isValidEan13(scanned) || !findPrefix(scanned.data(), nullptr)) {
        return false;
    }
    writeArticleBarcode(scanned.data(), out);
    return true;
}

bool SpecialBarcodeRecognizer::Read(const QString& scanned, SpecialBarcodeReading& reading) {
    Prefix prefix;
    if (!isValidEan13(scanned) || !findPrefix(scanned.constData(), &prefix)) {
        return false;
    }
    QString articleBarcode(ean13Length, QLatin1Char('0'));
    writeArticleBarcode(scanned.constData(), articleBarcode.data());
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

bool SpecialBarcodeRecognizer::findPrefix(const QChar* code, Prefix* found) {
    // The database is asked without the recogniser's lock held: a thread holding the database
    // in a transaction may scan meanwhile.
    DBManager* db = fixedDb ? fixedDb : G::dbArticles;
    if (!db || !db->IsOpen()) {
        return false;
    }
    // The table's own version costs no database access: a prefix changed through this
    // database shows at the next scan, one changed through another connection once this one
    // has read since (every lookup does).
    const quint64 version = db->GetTableVersion(prefixTable);
    std::unique_lock<std::mutex> lock(mutex);
    if (db != loadedFrom || version != loadedVersion) {
        lock.unlock();
        reload(db, version);
        lock.lock();
    }
    // Matched in place under the lock: a copy of the list would cost every scan two atomic
    // operations more.
    for (const Prefix& prefix : prefixes) {
        if (std::equal(prefix.first.cbegin(), prefix.first.cend(), code)) {
            if (found) {
                *found = prefix;
            }
            return true;
        }
    }
    return false;
}

void SpecialBarcodeRecognizer::reload(DBManager* db, quint64 version) {
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
}

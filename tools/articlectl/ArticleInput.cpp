#include "ArticleInput.h"

#include <QRegularExpression>
#include <algorithm>

#include "Gs1.h"
#include "PaymentSystem.h"
#include "PriceValue.h"

namespace {

// The largest price the register can hold, in minor units (9999999.99).
constexpr qint64 maxPrice = 999999999;
constexpr int defaultNameSize = 40;
constexpr int defaultBarcodeSize = 20;
constexpr unsigned int maxPrecision = 3;
// Codes at least this long made of digits and look-alike letters are meant as digits.
constexpr int shortestGs1Code = 8;

bool isDigit(QChar c) {
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

// The digit a letter typed in a run of digits stands for (O for 0, I or l for 1), or 0.
char lookAlikeDigit(QChar c) {
    if (c == QLatin1Char('O') || c == QLatin1Char('o')) {
        return '0';
    }
    if (c == QLatin1Char('I') || c == QLatin1Char('l')) {
        return '1';
    }
    return 0;
}

// True when `code` holds O, o, I or l between two digits, or is all digits but for them and as
// long as a GS1 code; `digits` is then the code with those letters read as digits.
bool digitsWithLookAlikes(const QString& code, QString& digits) {
    QString mapped = code;
    bool between = false;
    bool found = false;
    bool allDigits = true;
    for (int i = 0; i < code.size(); ++i) {
        const char digit = lookAlikeDigit(code[i]);
        if (digit != 0) {
            found = true;
            mapped[i] = QLatin1Char(digit);
            between = between || (i > 0 && i + 1 < code.size() && isDigit(code[i - 1]) &&
                                  isDigit(code[i + 1]));
        } else if (!isDigit(code[i])) {
            allDigits = false;
        }
    }
    if (!found || !(between || (allDigits && code.size() >= shortestGs1Code))) {
        return false;
    }
    digits = mapped;
    return true;
}

bool unsignedNumber(const QString& text, qulonglong maximum, qulonglong& value) {
    bool ok = false;
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty() || trimmed.startsWith(QLatin1Char('+')) ||
        trimmed.startsWith(QLatin1Char('-'))) {
        return false;
    }
    value = trimmed.toULongLong(&ok, 10);
    return ok && value <= maximum;
}

int columnSize(DBManager& db, const QString& table, const QString& column, int fallback) {
    const DBTable* described = db.GetTable(table);
    const DBColumn* found = described ? described->GetColumn(column) : nullptr;
    return found && found->GetSize() > 0 ? found->GetSize() : fallback;
}

}  // namespace

ArticleInput::ArticleInput(ArticleManager& manager, DBManager& db)
    : manager(manager)
    , nameSize(
          columnSize(db, QStringLiteral("Article"), QStringLiteral("art_name"), defaultNameSize))
    , barcodeSize(columnSize(db, QStringLiteral("ArticleBarcode"), QStringLiteral("barcode"),
                             defaultBarcodeSize)) {}

bool ArticleInput::Plu(const QString& text, unsigned int& plu, QString& error) const {
    qulonglong value = 0;
    if (!unsignedNumber(text, 4294967295ull, value) || value == 0) {
        error = QStringLiteral("PLU '%1' is not a number from 1 to 4294967295").arg(text);
        return false;
    }
    plu = static_cast<unsigned int>(value);
    return true;
}

bool ArticleInput::Name(const QString& text, QString& name, QString& error) const {
    const QString trimmed = text.normalized(QString::NormalizationForm_C).trimmed();
    if (trimmed.isEmpty()) {
        error = QStringLiteral("the name is empty");
        return false;
    }
    for (const QChar c : trimmed) {
        if (c.category() == QChar::Other_Control) {
            error = QStringLiteral("the name holds a control character");
            return false;
        }
    }
    // Code points, not UTF-16 units: after NFC every letter of a Polish name is one, and an
    // emoji is one too. Grapheme clusters are not counted: a cluster has no bound on its code
    // points, so 40 of them would not bound what the register stores and prints.
    const int characters = trimmed.toUcs4().size();
    if (characters > nameSize) {
        error = QStringLiteral("the name has %1 characters; the register takes at most %2")
                    .arg(characters)
                    .arg(nameSize);
        return false;
    }
    name = trimmed;
    return true;
}

bool ArticleInput::Price(const QString& text, qint64& price, QString& error) const {
    const QString trimmed = text.trimmed();
    // A price list written with thousands separators ("1 299,00", "1.299,00", "1,299") has
    // no reading that is sure: refused, whichever way it might have been meant.
    static const QRegularExpression grouped(
        QStringLiteral("^[1-9][0-9]{0,2}([\\s.,\\x{a0}\\x{202f}'][0-9]{3})+([.,][0-9]*)?$|"
                       "^[0-9]+[\\s\\x{a0}\\x{202f}'][0-9]"));
    if (grouped.match(trimmed).hasMatch()) {
        error = QStringLiteral(
                    "price '%1' may hold a thousands separator: write it without one and with "
                    "at most two decimals after a point or comma, e.g. 1299.00 or 12,99")
                    .arg(text);
        return false;
    }
    const PriceValue value(trimmed);
    if (!value.IsValid() || value.GetNumberValue() < 0 || value.GetNumberValue() > maxPrice) {
        error = QStringLiteral(
                    "price '%1' is not an amount from 0 to 9999999.99 with at most two "
                    "decimals, e.g. 12.99 or 12,99")
                    .arg(text);
        return false;
    }
    price = value.GetNumberValue();
    return true;
}

bool ArticleInput::TaxRate(const QString& text, unsigned char& rate, QString& error) const {
    const QString trimmed = text.trimmed().toUpper();
    unsigned int id = 0;
    if (trimmed.size() == 1 && trimmed[0] >= QLatin1Char('A') && trimmed[0] <= QLatin1Char('G')) {
        id = static_cast<unsigned int>(trimmed[0].unicode() - 'A' + 1);
    } else {
        qulonglong number = 0;
        if (unsignedNumber(trimmed, 7, number)) {
            id = static_cast<unsigned int>(number);
        }
    }
    const ::TaxRate* found = id > 0 ? manager.GetTaxRatesManager()->GetRecord(id) : nullptr;
    if (!found) {
        error = QStringLiteral("tax rate '%1' is not one of 1-7 or A-G").arg(text);
        return false;
    }
    if (found->IsReserved()) {
        error = QStringLiteral(
                    "tax rate %1 is not in use; choose another or set it with "
                    "'articlectl tax set'")
                    .arg(found->GetName());
        return false;
    }
    rate = static_cast<unsigned char>(id);
    return true;
}

bool ArticleInput::Dept(const QString& text, unsigned char& dept, QString& error) const {
    qulonglong number = 0;
    if (!unsignedNumber(text, 255, number) || number == 0 ||
        !manager.GetDeptDBManager()->GetDept(static_cast<unsigned int>(number))) {
        error = manager.GetDeptDBManager()->GetDepts().isEmpty()
                    ? QStringLiteral(
                          "department '%1' does not exist: the register has no "
                          "departments yet ('articlectl init' makes them)")
                          .arg(text)
                    : QStringLiteral("department '%1' does not exist (1-%2)")
                          .arg(text)
                          .arg(manager.GetDeptDBManager()->GetDepts().size());
        return false;
    }
    dept = static_cast<unsigned char>(number);
    return true;
}

bool ArticleInput::Unit(const QString& text, unsigned char& unit, QString& error) const {
    UnitsDBManager* units = G::paymentSystem->GetUnitsDBManager();
    qulonglong number = 0;
    if (unsignedNumber(text, 255, number) && units->GetUnit(static_cast<unsigned int>(number))) {
        unit = static_cast<unsigned char>(number);
        return true;
    }
    QStringList known;
    for (const QSharedPointer<::Unit>& candidate : units->GetUnits()) {
        if (candidate->GetName().compare(text.trimmed(), Qt::CaseInsensitive) == 0) {
            unit = static_cast<unsigned char>(candidate->GetId());
            return true;
        }
        known.append(QStringLiteral("%1 %2").arg(candidate->GetId()).arg(candidate->GetName()));
    }
    error =
        QStringLiteral("unit '%1' is not one of: %2").arg(text, known.join(QStringLiteral(", ")));
    return false;
}

bool ArticleInput::Precision(const QString& text, unsigned char& precision, QString& error) const {
    qulonglong number = 0;
    if (!unsignedNumber(text, maxPrecision, number)) {
        error = QStringLiteral("quantity precision '%1' is not 0, 1, 2 or 3").arg(text);
        return false;
    }
    precision = static_cast<unsigned char>(number);
    return true;
}

bool ArticleInput::Barcode(const QString& text, QString& barcode, QString& error) const {
    const QString code = text.trimmed();
    if (code.isEmpty()) {
        error = QStringLiteral("the barcode is empty");
        return false;
    }
    // What a spreadsheet makes of a long number: 5.9E+12, or 5901234123457.00.
    static const QRegularExpression spreadsheetNumber(
        QStringLiteral("^[0-9]+([.,][0-9]*)?[eE][+-]?[0-9]+$|^[0-9]+[.,]0+$"));
    const auto numberMark = [](QChar c) {
        return c == QLatin1Char('.') || c == QLatin1Char(',') || c == QLatin1Char('e') ||
               c == QLatin1Char('E');
    };
    // Matched only when it can match: a price list checks a barcode on every row.
    if (std::any_of(code.begin(), code.end(), numberMark) &&
        spreadsheetNumber.match(code).hasMatch()) {
        error =
            QStringLiteral("barcode %1 looks like a spreadsheet number: format the column as text")
                .arg(code);
        return false;
    }
    if (std::any_of(code.begin(), code.end(), [](QChar c) { return c.isSpace(); })) {
        QString joined;
        for (const QChar c : code) {
            if (!c.isSpace()) {
                joined.append(c);
            }
        }
        error = QStringLiteral("barcode '%1' holds a blank: give it as one word, e.g. %2")
                    .arg(code, joined);
        return false;
    }
    QString digits;
    if (digitsWithLookAlikes(code, digits)) {
        int i = 0;
        while (code[i] == digits[i]) {
            ++i;
        }
        error = QStringLiteral("barcode %1 has the letter %2 among its digits: did you mean %3?")
                    .arg(code, code[i], digits);
        return false;
    }
    if (code.size() > barcodeSize) {
        error = QStringLiteral("barcode '%1' has %2 characters; the register takes at most %3")
                    .arg(code)
                    .arg(code.size())
                    .arg(barcodeSize);
        return false;
    }
    for (const QChar c : code) {
        if (c.unicode() <= ' ' || c.unicode() > '~' || c == QLatin1Char(',')) {
            error = QStringLiteral(
                        "barcode '%1' may hold only printable ASCII characters without "
                        "blanks or commas")
                        .arg(code);
            return false;
        }
    }
    if (Gs1::HasCheckDigit(code)) {
        const QChar expected = Gs1::CheckDigit(code.left(code.size() - 1));
        if (expected != code.back()) {
            error = QStringLiteral(
                        "barcode %1 has a wrong check digit: it should end in %2 (%3); check "
                        "the digits against the label")
                        .arg(code, QString(expected), code.left(code.size() - 1) + expected);
            return false;
        }
    }
    barcode = code;
    return true;
}

bool ArticleInput::Flag(const QString& text, bool& flag, QString& error) const {
    const QString value = text.trimmed().toLower();
    if (value == QLatin1String("1") || value == QLatin1String("yes") ||
        value == QLatin1String("true")) {
        flag = true;
        return true;
    }
    if (value == QLatin1String("0") || value == QLatin1String("no") ||
        value == QLatin1String("false")) {
        flag = false;
        return true;
    }
    error = QStringLiteral("'%1' is not 0/1, yes/no or true/false").arg(text);
    return false;
}

bool ArticleInput::Scale(const QString& text, unsigned char& scale, QString& error) const {
    qulonglong number = 0;
    if (!unsignedNumber(text, 255, number)) {
        error = QStringLiteral("scale '%1' is not a number from 0 to 255").arg(text);
        return false;
    }
    scale = static_cast<unsigned char>(number);
    return true;
}

bool ArticleInput::LinkPlu(const QString& text, unsigned int& plu, QString& error) const {
    qulonglong number = 0;
    if (!unsignedNumber(text, 4294967295ull, number)) {
        error = QStringLiteral("linked PLU '%1' is not 0 or a PLU").arg(text);
        return false;
    }
    plu = static_cast<unsigned int>(number);
    return true;
}

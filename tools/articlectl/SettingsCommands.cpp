// The register's settings tables: dept list|show|set|reset|names, tax list|set|reset and
// prefix list|add|remove|reset|classify.

#include "SettingsCommands.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <algorithm>

#include "ArticleInput.h"
#include "PercentValue.h"
#include "TablePrinter.h"

namespace {

constexpr unsigned int lastDept = 99;
constexpr qint64 fullPercent = 10000;
constexpr int longestPrefix = 7;
// RemovePrefixEntry takes an int: a larger entry number could be stored but never removed.
constexpr qulonglong lastPrefixEntry = 2147483647;

// A percentage such as "25", "12.5", "12,5" or "8 %" as hundredths (2500, 1250), 0 to 100 %.
bool readPercent(const QString& text, unsigned int& hundredths) {
    QString number = text.trimmed();
    if (number.endsWith(QLatin1Char('%'))) {
        number.chop(1);
    }
    const PercentValue value(number.trimmed());
    if (!value.IsValid() || value.GetPrecisionDigits() > PercentValue::defaultDigits) {
        return false;
    }
    qint64 scaled = value.GetNumberValue();
    for (unsigned int digits = value.GetPrecisionDigits(); digits < PercentValue::defaultDigits;
         ++digits) {
        scaled *= 10;
    }
    if (scaled < 0 || scaled > fullPercent) {
        return false;
    }
    hundredths = static_cast<unsigned int>(scaled);
    return true;
}

// Hundredths of a percent as the number JSON carries: 2500 is 25, 1250 is 12.5.
double percentNumber(qint64 hundredths) {
    return static_cast<double>(hundredths) / 100.0;
}

QString percentText(qint64 hundredths) {
    return PercentValue(hundredths).ToString() + QStringLiteral(" %");
}

QString yesNo(bool on) {
    return on ? QStringLiteral("yes") : QStringLiteral("no");
}

// Reads a department number 1-99.
bool readDeptNumber(Tool& tool, const QString& text, unsigned int& number, int& exit) {
    bool ok = false;
    number = text.trimmed().toUInt(&ok);
    if (!ok || number == 0 || number > lastDept) {
        exit = tool.Fail(EXIT_USAGE,
                         QStringLiteral("department '%1' is not a number from 1 to 99").arg(text));
        return false;
    }
    return true;
}

// --- dept ---------------------------------------------------------------------------------

QJsonObject deptJson(const Dept& dept) {
    return QJsonObject{
        {QStringLiteral("id"), static_cast<qint64>(dept.GetId())},
        {QStringLiteral("name"), dept.GetName()},
        {QStringLiteral("discounts_blocked"), dept.isDiscountBlocked},
        {QStringLiteral("order_printer"), dept.isOrderPrinter},
        {QStringLiteral("max_discount"), percentNumber(dept.GetMaxDiscount().GetNumberValue())},
        {QStringLiteral("max_surcharge"), percentNumber(dept.GetMaxSurcharge().GetNumberValue())}};
}

void printDeptTable(Tool& tool, const QList<QSharedPointer<const Dept>>& depts) {
    TablePrinter table({QStringLiteral("NO>"), QStringLiteral("NAME"),
                        QStringLiteral("NO DISCOUNTS"), QStringLiteral("ORDER PRINTER"),
                        QStringLiteral("MAX DISCOUNT>"), QStringLiteral("MAX SURCHARGE>")});
    for (const auto& dept : depts) {
        table.AddRow({QString::number(dept->GetId()), dept->GetName(),
                      yesNo(dept->isDiscountBlocked), yesNo(dept->isOrderPrinter),
                      percentText(dept->GetMaxDiscount().GetNumberValue()),
                      percentText(dept->GetMaxSurcharge().GetNumberValue())});
    }
    table.Print(tool.Out());
}

int deptList(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Lists the departments."));
    const int exit = tool.ParseCommand(parser, arguments, 0, 0, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    const QList<QSharedPointer<const Dept>> depts = tool.Articles().GetDeptDBManager()->GetDepts();
    if (tool.Json()) {
        QJsonArray list;
        for (const auto& dept : depts) {
            list.append(deptJson(*dept));
        }
        tool.PrintJson(QJsonObject{{QStringLiteral("count"), list.size()},
                                   {QStringLiteral("departments"), list}});
    } else {
        printDeptTable(tool, depts);
    }
    return depts.isEmpty() ? EXIT_NOT_FOUND : EXIT_DONE;
}

int deptShow(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Shows department N."));
    parser.addPositionalArgument(QStringLiteral("N"), QStringLiteral("The department, 1-99."));
    int exit = tool.ParseCommand(parser, arguments, 1, 1, true);
    if (exit >= 0) {
        return exit;
    }
    unsigned int number = 0;
    if (!readDeptNumber(tool, parser.positionalArguments().first(), number, exit)) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    const QSharedPointer<const Dept> dept = tool.Articles().GetDeptDBManager()->GetDept(number);
    if (!dept) {
        return tool.Fail(
            EXIT_NOT_FOUND, QStringLiteral("there is no department %1").arg(number),
            QStringLiteral("'articlectl init' or 'articlectl dept reset' makes departments"));
    }
    if (tool.Json()) {
        tool.PrintJson(deptJson(*dept));
    } else {
        printDeptTable(tool, {dept});
    }
    return EXIT_DONE;
}

int deptSet(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Sets the fields given of department N (1-99); the others stay."));
    parser.addPositionalArgument(QStringLiteral("N"), QStringLiteral("The department, 1-99."));
    const QCommandLineOption name(QStringLiteral("name"),
                                  QStringLiteral("The department's name, at most 40 characters."),
                                  QStringLiteral("TEXT"));
    const QCommandLineOption maxDiscount(
        QStringLiteral("max-discount"),
        QStringLiteral("The largest discount, 0 to 100 %, e.g. 25 or 12.5."),
        QStringLiteral("PERCENT"));
    const QCommandLineOption maxSurcharge(QStringLiteral("max-surcharge"),
                                          QStringLiteral("The largest surcharge, 0 to 100 %."),
                                          QStringLiteral("PERCENT"));
    const QCommandLineOption noDiscounts(
        QStringLiteral("no-discounts"),
        QStringLiteral("Prices of its articles may not be modified (yes/no)."),
        QStringLiteral("YES|NO"));
    const QCommandLineOption orderPrinter(
        QStringLiteral("order-printer"),
        QStringLiteral("Its articles go to the order printer (yes/no)."), QStringLiteral("YES|NO"));
    parser.addOptions({name, maxDiscount, maxSurcharge, noDiscounts, orderPrinter});
    int exit = tool.ParseCommand(parser, arguments, 1, 1, false);
    if (exit >= 0) {
        return exit;
    }
    unsigned int number = 0;
    if (!readDeptNumber(tool, parser.positionalArguments().first(), number, exit)) {
        return exit;
    }
    if (!parser.isSet(name) && !parser.isSet(maxDiscount) && !parser.isSet(maxSurcharge) &&
        !parser.isSet(noDiscounts) && !parser.isSet(orderPrinter)) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("'dept set' needs a field to set"),
                         QStringLiteral("see 'articlectl dept set --help'"));
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    DeptDBManager* depts = tool.Articles().GetDeptDBManager();
    const QSharedPointer<const Dept> current = depts->GetDept(number);
    QString deptName = current ? current->GetName() : QString();
    unsigned int discount =
        current ? static_cast<unsigned int>(current->GetMaxDiscount().GetNumberValue())
                : fullPercent;
    unsigned int surcharge =
        current ? static_cast<unsigned int>(current->GetMaxSurcharge().GetNumberValue())
                : fullPercent;
    bool blocked = current && current->isDiscountBlocked;
    bool printer = current && current->isOrderPrinter;
    ArticleInput input(tool.Articles(), tool.Database());
    QString error;
    if (parser.isSet(name) && !input.Name(parser.value(name), deptName, error)) {
        return tool.Fail(EXIT_USAGE, error);
    }
    for (const auto& limit :
         {qMakePair(&maxDiscount, &discount), qMakePair(&maxSurcharge, &surcharge)}) {
        if (parser.isSet(*limit.first) && !readPercent(parser.value(*limit.first), *limit.second)) {
            return tool.Fail(EXIT_USAGE,
                             QStringLiteral("--%1 '%2' is not a percentage from 0 to 100 with at "
                                            "most two decimals, e.g. 25 or 12.5")
                                 .arg(limit.first->names().first(), parser.value(*limit.first)));
        }
    }
    if ((parser.isSet(noDiscounts) && !input.Flag(parser.value(noDiscounts), blocked, error)) ||
        (parser.isSet(orderPrinter) && !input.Flag(parser.value(orderPrinter), printer, error))) {
        return tool.Fail(EXIT_USAGE, error);
    }
    const int result = depts->AddOrUpdateRecord(QSharedPointer<const Dept>::create(
        number, deptName, discount, surcharge, blocked, printer));
    if (result != 0) {
        return result == DB_OPERATION_ERROR
                   ? tool.DatabaseFailure(
                         QStringLiteral("department %1 could not be written").arg(number))
                   : tool.Fail(ExitCodeFor(result),
                               QStringLiteral("department %1 could not be written").arg(number));
    }
    tool.Out() << "Department " << number << " set.\n";
    return EXIT_DONE;
}

int deptReset(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Rebuilds the department table: 99 unnamed departments with the "
                       "firmware's flags and limits. The table before is backed up first."));
    const int exit = tool.ParseCommand(parser, arguments, 0, 0, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    if (!tool.BackUp()) {
        return EXIT_DATABASE;
    }
    DeptDBManager* depts = tool.Articles().GetDeptDBManager();
    // Cleared and filled again in one transaction: never left empty.
    const int result = tool.InTransaction([&]() -> int {
        return depts->ResetTable()
                   ? EXIT_DONE
                   : tool.DatabaseFailure(QStringLiteral("the departments could not be reset"));
    });
    if (result != EXIT_DONE) {
        return result;
    }
    tool.Out() << "Reset the departments: " << depts->GetDepts().size()
               << " with the firmware's flags.\n";
    return EXIT_DONE;
}

int deptNames(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Gives departments 1-16 the firmware's default names (\"Grupa towarowa N\")."));
    const int exit = tool.ParseCommand(parser, arguments, 0, 0, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    DeptDBManager* depts = tool.Articles().GetDeptDBManager();
    const int result = tool.InTransaction([&]() -> int {
        return depts->GetDeptFirmwareInitializer()->SetFirmwareDeptNamesInDatabase() &&
                       depts->getRecordsFromDB() == 0
                   ? EXIT_DONE
                   : tool.DatabaseFailure(QStringLiteral("the departments could not be named"));
    });
    if (result != EXIT_DONE) {
        return result;
    }
    tool.Out() << "Named departments 1-16.\n";
    return EXIT_DONE;
}

// --- tax ----------------------------------------------------------------------------------

// A tax rate value: a percentage such as "23" or "8.5", "exempt" or "unused".
bool readRateValue(const QString& text, unsigned short& value) {
    const QString word = text.trimmed().toLower();
    if (word == QLatin1String("exempt")) {
        value = TaxRate::exemptValue;
        return true;
    }
    if (word == QLatin1String("unused")) {
        value = TaxRate::reservedValue;
        return true;
    }
    unsigned int hundredths = 0;
    if (!readPercent(text, hundredths)) {
        return false;
    }
    value = static_cast<unsigned short>(hundredths);
    return true;
}

QString rateText(const TaxRate& rate) {
    if (rate.IsReserved()) {
        return QStringLiteral("unused");
    }
    if (rate.IsExempt()) {
        return QStringLiteral("exempt");
    }
    return percentText(rate.GetValue());
}

// How many articles use each tax rate, by rate number. The library has no count by rate, and a
// walk over the catalogue through the seeker reads every article: one read-only count instead.
bool articlesPerRate(Tool& tool, QMap<unsigned int, qint64>& counts) {
    DBDirectQueryResult result;
    if (tool.Database().Execute(
            QStringLiteral("SELECT tax_rate_no, count(*) FROM Article GROUP BY tax_rate_no"),
            &result) != DB_OPERATION_SUCCESS) {
        return false;
    }
    counts.clear();
    for (int row = 0; !result.IsEmpty() && row < result.RowCount(); ++row) {
        counts[result.GetValue(row, 0).toUInt()] = result.GetValue(row, 1).toLongLong();
    }
    return true;
}

// "1 article uses", "3 articles use".
QString articlesUse(qint64 count) {
    return count == 1 ? QStringLiteral("1 article uses")
                      : QStringLiteral("%1 articles use").arg(count);
}

int taxList(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Lists the seven tax rates and how many articles use each."));
    const int exit = tool.ParseCommand(parser, arguments, 0, 0, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    QMap<unsigned int, qint64> counts;
    if (!articlesPerRate(tool, counts)) {
        return tool.DatabaseFailure(QStringLiteral("the articles could not be counted"));
    }
    QJsonArray list;
    TablePrinter table({QStringLiteral("ID>"), QStringLiteral("RATE"), QStringLiteral("VALUE>"),
                        QStringLiteral("ARTICLES>")});
    for (const TaxRate* rate : tool.Articles().GetTaxRatesManager()->GetRecords()) {
        const bool percent = !rate->IsReserved() && !rate->IsExempt();
        list.append(
            QJsonObject{{QStringLiteral("id"), static_cast<qint64>(rate->GetId())},
                        {QStringLiteral("name"), rate->GetName()},
                        {QStringLiteral("percent"),
                         percent ? QJsonValue(percentNumber(rate->GetValue())) : QJsonValue()},
                        {QStringLiteral("exempt"), rate->IsExempt()},
                        {QStringLiteral("in_use"), !rate->IsReserved()},
                        {QStringLiteral("articles"), counts.value(rate->GetId())}});
        table.AddRow({QString::number(rate->GetId()), rate->GetName(), rateText(*rate),
                      QString::number(counts.value(rate->GetId()))});
    }
    if (tool.Json()) {
        tool.PrintJson(QJsonObject{{QStringLiteral("count"), list.size()},
                                   {QStringLiteral("tax_rates"), list}});
    } else {
        table.Print(tool.Out());
    }
    return EXIT_DONE;
}

int taxSet(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Sets tax rate RATE (1-7 or A-G) to VALUE: a percentage such as 23 or 8.5, 'exempt' or "
        "'unused', and says how many articles use it. A rate that articles use is not made "
        "unused."));
    parser.addPositionalArgument(QStringLiteral("RATE"), QStringLiteral("The rate, 1-7 or A-G."));
    parser.addPositionalArgument(QStringLiteral("VALUE"),
                                 QStringLiteral("A percentage, 'exempt' or 'unused'."));
    const int exit = tool.ParseCommand(parser, arguments, 2, 2, false);
    if (exit >= 0) {
        return exit;
    }
    const QString which = parser.positionalArguments()[0].trimmed().toUpper();
    const unsigned int id =
        which.size() == 1 && which[0] >= QLatin1Char('A') && which[0] <= QLatin1Char('G')
            ? static_cast<unsigned int>(which[0].unicode() - 'A' + 1)
            : which.toUInt();
    if (id < 1 || id > TaxRates::count) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("tax rate '%1' is not one of 1-7 or A-G")
                                         .arg(parser.positionalArguments()[0]));
    }
    unsigned short value = 0;
    if (!readRateValue(parser.positionalArguments()[1], value)) {
        return tool.Fail(
            EXIT_USAGE,
            QStringLiteral("'%1' is not a percentage from 0 to 100, 'exempt' or 'unused'")
                .arg(parser.positionalArguments()[1]));
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    TaxRatesManager* rates = tool.Articles().GetTaxRatesManager();
    QMap<unsigned int, qint64> counts;
    if (!articlesPerRate(tool, counts)) {
        return tool.DatabaseFailure(QStringLiteral("the articles could not be counted"));
    }
    const qint64 users = counts.value(id);
    const TaxRate* before = rates->GetRecord(id);
    const QString name =
        before ? before->GetName() : QString(QLatin1Char(static_cast<char>('A' + id - 1)));
    if (value == TaxRate::reservedValue && users > 0) {
        return tool.Fail(
            EXIT_REFUSED,
            QStringLiteral("tax rate %1 cannot be made unused: %2 it")
                .arg(name, articlesUse(users)),
            QStringLiteral("give them another rate first ('articlectl edit PLU --tax RATE')"));
    }
    TaxRates all{{TaxRate::reservedValue, TaxRate::reservedValue, TaxRate::reservedValue,
                  TaxRate::reservedValue, TaxRate::reservedValue, TaxRate::reservedValue,
                  TaxRate::reservedValue},
                 2};
    for (const TaxRate* rate : rates->GetRecords()) {
        if (rate->GetId() >= 1 && rate->GetId() <= TaxRates::count) {
            all.values[rate->GetId() - 1] = rate->GetValue();
        }
    }
    const QString was = before ? rateText(*before) : QStringLiteral("unused");
    all.values[id - 1] = value;
    const int result = rates->UpdateRecord(all);
    if (result != 0) {
        return result == DB_OPERATION_ERROR
                   ? tool.DatabaseFailure(QStringLiteral("the tax rates could not be written"))
                   : tool.Fail(ExitCodeFor(result),
                               QStringLiteral("the tax rates could not be written"));
    }
    tool.Out() << "Tax rate " << name << " set to " << rateText(TaxRate(id, name, value))
               << " (was " << was << "); " << articlesUse(users) << " it.\n";
    return EXIT_DONE;
}

int taxReset(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Resets the tax rates: A to G, none in use. Refused while articles use "
                       "a rate. The table before is backed up first."));
    const int exit = tool.ParseCommand(parser, arguments, 0, 0, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    QMap<unsigned int, qint64> counts;
    if (!articlesPerRate(tool, counts)) {
        return tool.DatabaseFailure(QStringLiteral("the articles could not be counted"));
    }
    qint64 users = 0;
    for (const qint64 count : counts) {
        users += count;
    }
    if (users > 0) {
        return tool.Fail(
            EXIT_REFUSED,
            QStringLiteral("the tax rates cannot be made unused: %1 them").arg(articlesUse(users)),
            QStringLiteral("set the rates one by one with 'articlectl tax set'"));
    }
    if (!tool.BackUp()) {
        return EXIT_DATABASE;
    }
    const int result = tool.InTransaction([&]() -> int {
        return tool.Articles().GetTaxRatesManager()->ResetTable()
                   ? EXIT_DONE
                   : tool.DatabaseFailure(QStringLiteral("the tax rates could not be reset"));
    });
    if (result != EXIT_DONE) {
        return result;
    }
    tool.Out() << "Reset the tax rates: A to G, none in use.\n";
    return EXIT_DONE;
}

// --- prefix -------------------------------------------------------------------------------

// A stored prefix entry with its kind as stored: the library's records read a missing kind
// as weight, so "no kind" is told from the entries the weight filter does not return.
struct PrefixEntry {
    unsigned int id;
    QString prefix;
    SpecialBarcodeSubjectType kind;
};

int loadPrefixes(BarcodePrefixDBManager& prefixes, QList<PrefixEntry>& entries) {
    QList<SpecialBarcodePrefix*> all;
    QList<SpecialBarcodePrefix*> weight;
    QList<SpecialBarcodePrefix*> price;
    int result = prefixes.LoadPrefixesByType(SPECIAL_BARCODE_NONE, all);
    if (result == 0) {
        result = prefixes.LoadPrefixesByType(SPECIAL_BARCODE_WEIGHT, weight);
    }
    if (result == 0) {
        result = prefixes.LoadPrefixesByType(SPECIAL_BARCODE_PRICE, price);
    }
    QMap<unsigned int, SpecialBarcodeSubjectType> kinds;
    for (const SpecialBarcodePrefix* entry : weight) {
        kinds[entry->GetId()] = SPECIAL_BARCODE_WEIGHT;
    }
    for (const SpecialBarcodePrefix* entry : price) {
        kinds[entry->GetId()] = SPECIAL_BARCODE_PRICE;
    }
    for (const SpecialBarcodePrefix* entry : all) {
        entries.append(PrefixEntry{entry->GetId(), entry->GetPrefix(),
                                   kinds.value(entry->GetId(), SPECIAL_BARCODE_NONE)});
    }
    qDeleteAll(all);
    qDeleteAll(weight);
    qDeleteAll(price);
    return result;
}

// weight, price or none (also 0, 1, 2, the stored numbers).
bool readKind(const QString& text, SpecialBarcodeSubjectType& kind) {
    const QString word = text.trimmed().toLower();
    if (word == QLatin1String("weight") || word == QLatin1String("0")) {
        kind = SPECIAL_BARCODE_WEIGHT;
    } else if (word == QLatin1String("price") || word == QLatin1String("1")) {
        kind = SPECIAL_BARCODE_PRICE;
    } else if (word == QLatin1String("none") || word == QLatin1String("2")) {
        kind = SPECIAL_BARCODE_NONE;
    } else {
        return false;
    }
    return true;
}

QString kindText(SpecialBarcodeSubjectType kind) {
    return kind == SPECIAL_BARCODE_WEIGHT  ? QStringLiteral("weight")
           : kind == SPECIAL_BARCODE_PRICE ? QStringLiteral("price")
                                           : QStringLiteral("none");
}

QJsonObject prefixJson(const PrefixEntry& entry) {
    return QJsonObject{{QStringLiteral("id"), static_cast<qint64>(entry.id)},
                       {QStringLiteral("prefix"), entry.prefix},
                       {QStringLiteral("kind"), kindText(entry.kind)}};
}

QString entryText(const PrefixEntry& entry) {
    return QStringLiteral("entry %1 (%2, %3)")
        .arg(entry.id)
        .arg(entry.prefix, kindText(entry.kind));
}

int prefixLoadFailure(Tool& tool, int result) {
    return result == DB_OPERATION_ERROR
               ? tool.DatabaseFailure(QStringLiteral("the prefixes could not be read"))
               : tool.Fail(ExitCodeFor(result), QStringLiteral("the prefixes could not be read"));
}

QCommandLineOption kindOption(const QString& description) {
    return QCommandLineOption(QStringLiteral("kind"), description, QStringLiteral("KIND"));
}

int prefixList(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Lists the prefixes of in-store labels: all, or those of one kind."));
    const QCommandLineOption kind = kindOption(QStringLiteral("weight, price or none."));
    parser.addOption(kind);
    const int exit = tool.ParseCommand(parser, arguments, 0, 0, true);
    if (exit >= 0) {
        return exit;
    }
    SpecialBarcodeSubjectType wanted = SPECIAL_BARCODE_NONE;
    if (parser.isSet(kind) && !readKind(parser.value(kind), wanted)) {
        return tool.Fail(
            EXIT_USAGE,
            QStringLiteral("kind '%1' is not weight, price or none").arg(parser.value(kind)));
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    QList<PrefixEntry> entries;
    const int result = loadPrefixes(*tool.Articles().GetBarcodePrefixDBManager(), entries);
    if (result != 0) {
        return prefixLoadFailure(tool, result);
    }
    QJsonArray list;
    TablePrinter table({QStringLiteral("ID>"), QStringLiteral("PREFIX"), QStringLiteral("KIND")});
    for (const PrefixEntry& entry : entries) {
        if (parser.isSet(kind) && entry.kind != wanted) {
            continue;
        }
        list.append(prefixJson(entry));
        table.AddRow({QString::number(entry.id), entry.prefix, kindText(entry.kind)});
    }
    if (tool.Json()) {
        tool.PrintJson(QJsonObject{{QStringLiteral("count"), list.size()},
                                   {QStringLiteral("prefixes"), list}});
    } else {
        table.Print(tool.Out());
    }
    return EXIT_DONE;
}

// The lowest entry number no entry uses.
unsigned int freeEntry(const QList<PrefixEntry>& entries) {
    unsigned int id = 1;
    for (bool taken = true; taken;) {
        taken = false;
        for (const PrefixEntry& entry : entries) {
            if (entry.id == id) {
                ++id;
                taken = true;
            }
        }
    }
    return id;
}

int prefixAdd(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Stores prefix entry ID: scale labels beginning with PREFIX carry a weight in grams "
        "(weight), a price in grosze (price) or no value (none). An existing entry is replaced "
        "only with --replace. A prefix that begins another, or that another begins, is stored "
        "only with --overlap: the register reads a code by the longest prefix it begins with."));
    parser.addPositionalArgument(QStringLiteral("ID"), QStringLiteral("The entry number."));
    parser.addPositionalArgument(QStringLiteral("PREFIX"),
                                 QStringLiteral("1 to 7 leading digits."));
    const QCommandLineOption kind = kindOption(QStringLiteral("weight, price or none."));
    const QCommandLineOption replace(QStringLiteral("replace"),
                                     QStringLiteral("Replace the entry ID if it exists."));
    const QCommandLineOption overlap(
        QStringLiteral("overlap"),
        QStringLiteral("Store a prefix that begins another one, or that another begins."));
    parser.addOptions({kind, replace, overlap});
    const int exit = tool.ParseCommand(parser, arguments, 2, 2, false);
    if (exit >= 0) {
        return exit;
    }
    bool ok = false;
    const qulonglong id = parser.positionalArguments()[0].toULongLong(&ok);
    if (!ok || id == 0 || id > lastPrefixEntry) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("entry '%1' is not a number from 1 to %2")
                                         .arg(parser.positionalArguments()[0])
                                         .arg(lastPrefixEntry));
    }
    const QString prefix = parser.positionalArguments()[1];
    bool digits = !prefix.isEmpty() && prefix.size() <= longestPrefix;
    for (const QChar c : prefix) {
        digits = digits && c >= QLatin1Char('0') && c <= QLatin1Char('9');
    }
    if (!digits) {
        return tool.Fail(EXIT_USAGE,
                         QStringLiteral("prefix '%1' is not 1 to 7 digits").arg(prefix));
    }
    SpecialBarcodeSubjectType type = SPECIAL_BARCODE_NONE;
    if (!parser.isSet(kind)) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("a prefix needs --kind weight, price or none"));
    }
    if (!readKind(parser.value(kind), type)) {
        return tool.Fail(
            EXIT_USAGE,
            QStringLiteral("kind '%1' is not weight, price or none").arg(parser.value(kind)));
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    BarcodePrefixDBManager* prefixes = tool.Articles().GetBarcodePrefixDBManager();
    return tool.InTransaction([&]() -> int {
        QList<PrefixEntry> entries;
        const int loaded = loadPrefixes(*prefixes, entries);
        if (loaded != 0) {
            return prefixLoadFailure(tool, loaded);
        }
        QString replaced;
        for (const PrefixEntry& entry : entries) {
            if (entry.id == id) {
                replaced = entryText(entry);
                if (!parser.isSet(replace)) {
                    return tool.Fail(
                        EXIT_REFUSED,
                        QStringLiteral("prefix %1 already exists").arg(entryText(entry)),
                        QStringLiteral("give --replace to replace it, or a free entry such as %1")
                            .arg(freeEntry(entries)));
                }
                continue;
            }
            // Two entries of one prefix: the classification reads only the first.
            if (entry.prefix == prefix) {
                return tool.Fail(
                    EXIT_REFUSED,
                    QStringLiteral("prefix %1 is already %2").arg(prefix, entryText(entry)),
                    QStringLiteral("change that entry: 'articlectl prefix add %1 %2 --kind %3 "
                                   "--replace'")
                        .arg(entry.id)
                        .arg(prefix, kindText(type)));
            }
            if ((entry.prefix.startsWith(prefix) || prefix.startsWith(entry.prefix)) &&
                !parser.isSet(overlap)) {
                const bool longer = prefix.size() > entry.prefix.size();
                return tool.Fail(
                    EXIT_REFUSED,
                    QStringLiteral("prefix %1 overlaps %2: the register reads a code by the "
                                   "longest prefix it begins with, so codes beginning %3 would "
                                   "be read by %4 and the other codes beginning %5 by %6")
                        .arg(
                            prefix, entryText(entry), longer ? prefix : entry.prefix,
                            longer ? QStringLiteral("the new entry") : QStringLiteral("that entry"),
                            longer ? entry.prefix : prefix,
                            longer ? QStringLiteral("that entry")
                                   : QStringLiteral("the new entry")),
                    QStringLiteral("give --overlap if that is meant"));
            }
        }
        const int result = prefixes->AddPrefix(static_cast<unsigned int>(id), prefix, type);
        if (result != 0) {
            return result == DB_OPERATION_ERROR
                       ? tool.DatabaseFailure(QStringLiteral("the prefix could not be stored"))
                       : tool.Fail(ExitCodeFor(result),
                                   QStringLiteral("the prefix could not be stored"));
        }
        tool.Out() << "Stored prefix entry " << id << ": " << prefix << " (" << kindText(type)
                   << ")";
        if (!replaced.isEmpty()) {
            tool.Out() << " in place of " << replaced;
        }
        tool.Out() << ".\n";
        return EXIT_DONE;
    });
}

int prefixRemove(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Removes prefix entry ID."));
    parser.addPositionalArgument(QStringLiteral("ID"), QStringLiteral("The entry number."));
    const int exit = tool.ParseCommand(parser, arguments, 1, 1, false);
    if (exit >= 0) {
        return exit;
    }
    bool ok = false;
    const qulonglong id = parser.positionalArguments().first().toULongLong(&ok);
    if (!ok || id > lastPrefixEntry) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("entry '%1' is not a number from 1 to %2")
                                         .arg(parser.positionalArguments().first())
                                         .arg(lastPrefixEntry));
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    BarcodePrefixDBManager* prefixes = tool.Articles().GetBarcodePrefixDBManager();
    return tool.InTransaction([&]() -> int {
        QList<PrefixEntry> entries;
        const int loaded = loadPrefixes(*prefixes, entries);
        if (loaded != 0) {
            return prefixLoadFailure(tool, loaded);
        }
        const auto found = std::find_if(entries.cbegin(), entries.cend(),
                                        [&](const PrefixEntry& entry) { return entry.id == id; });
        if (found == entries.cend()) {
            return tool.Fail(EXIT_NOT_FOUND, QStringLiteral("there is no prefix entry %1").arg(id),
                             QStringLiteral("'articlectl prefix list' shows the entries"));
        }
        const int result = prefixes->RemovePrefixEntry(static_cast<int>(id));
        if (result != 0) {
            return result == DB_OPERATION_ERROR
                       ? tool.DatabaseFailure(QStringLiteral("the prefix could not be removed"))
                       : tool.Fail(ExitCodeFor(result),
                                   QStringLiteral("the prefix could not be removed"));
        }
        tool.Out() << "Removed prefix " << entryText(*found) << ".\n";
        return EXIT_DONE;
    });
}

int prefixReset(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Restores the factory prefixes: 27, 29 price; 23, 24 weight. Every other entry goes; "
        "the table before is backed up first."));
    const int exit = tool.ParseCommand(parser, arguments, 0, 0, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    if (!tool.BackUp()) {
        return EXIT_DATABASE;
    }
    const int result = tool.InTransaction([&]() -> int {
        return tool.Articles().GetBarcodePrefixDBManager()->ResetTable()
                   ? EXIT_DONE
                   : tool.DatabaseFailure(QStringLiteral("the prefixes could not be reset"));
    });
    if (result == EXIT_DONE) {
        tool.Out() << "Restored the factory prefixes.\n";
    }
    return result;
}

int prefixClassify(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Tells which kind of label PREFIX marks, as the register asks it: the text is compared "
        "whole with the stored prefixes. Exit 1 when it is not one of them."));
    parser.addPositionalArgument(QStringLiteral("PREFIX"), QStringLiteral("The prefix, e.g. 27."));
    const int exit = tool.ParseCommand(parser, arguments, 1, 1, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    BarcodePrefixDBManager* prefixes = tool.Articles().GetBarcodePrefixDBManager();
    const QString prefix = parser.positionalArguments().first();
    SpecialBarcodeSubjectType type = SPECIAL_BARCODE_NONE;
    if (!prefixes->CheckSpecialBarcodeSubjectType(prefix, type)) {
        return tool.DatabaseFailure(QStringLiteral("the prefix could not be classified"));
    }
    QList<PrefixEntry> entries;
    const int loaded = loadPrefixes(*prefixes, entries);
    if (loaded != 0) {
        return prefixLoadFailure(tool, loaded);
    }
    // The register reads an entry of no kind as weight here; say what is stored.
    const auto found =
        std::find_if(entries.cbegin(), entries.cend(),
                     [&](const PrefixEntry& entry) { return entry.prefix == prefix; });
    if (found != entries.cend()) {
        type = found->kind;
    }
    if (tool.Json()) {
        QJsonObject object = prefixJson(PrefixEntry{0, prefix, type});
        object[QStringLiteral("id")] =
            found != entries.cend() ? QJsonValue(static_cast<qint64>(found->id)) : QJsonValue();
        tool.PrintJson(object);
    } else if (found != entries.cend()) {
        tool.Out() << prefix << ": " << kindText(type) << " (entry " << found->id << ")\n";
    } else {
        tool.Out() << prefix << ": none\n";
    }
    return found != entries.cend() ? EXIT_DONE : EXIT_NOT_FOUND;
}

}  // namespace

const QList<Command>& DeptCommands() {
    static const QList<Command> commands = {
        {"list", "list the departments", deptList, Access::Read, nullptr, "dept list --json"},
        {"show", "show one department", deptShow, Access::Read, nullptr, "dept show 5"},
        {"set", "set a department's name, limits and flags", deptSet, Access::Write, nullptr,
         "dept set 5 --name Napoje --max-discount 25"},
        {"reset", "rebuild the 99 departments with the firmware's flags", deptReset, Access::Write,
         nullptr, "dept reset"},
        {"names", "give departments 1-16 the firmware's names", deptNames, Access::Write, nullptr,
         "dept names"},
    };
    return commands;
}

const QList<Command>& TaxCommands() {
    static const QList<Command> commands = {
        {"list", "list the tax rates and how many articles use each", taxList, Access::Read,
         nullptr, "tax list"},
        {"set", "set one tax rate", taxSet, Access::Write, nullptr, "tax set E 12.5"},
        {"reset", "make every rate unused (refused while articles use one)", taxReset,
         Access::Write, nullptr, "tax reset"},
    };
    return commands;
}

const QList<Command>& PrefixCommands() {
    static const QList<Command> commands = {
        {"list", "list the label prefixes", prefixList, Access::Read, nullptr,
         "prefix list --kind weight"},
        {"add", "store a label prefix", prefixAdd, Access::Write, nullptr,
         "prefix add 3 21 --kind weight"},
        {"remove", "remove a label prefix entry", prefixRemove, Access::Write, nullptr,
         "prefix remove 3"},
        {"reset", "restore the factory prefixes", prefixReset, Access::Write, nullptr,
         "prefix reset"},
        {"classify", "which kind of label a prefix marks", prefixClassify, Access::Read, nullptr,
         "prefix classify 27"},
    };
    return commands;
}

// The register's settings tables: dept list|show|set|reset|names, tax list|set|reset and
// prefix list|add|remove|reset|classify.

#include <QJsonArray>
#include <QJsonObject>

#include "ArticleInput.h"
#include "Commands.h"
#include "PercentValue.h"
#include "TablePrinter.h"
#include "Tool.h"

namespace {

constexpr unsigned int lastDept = 99;
constexpr qint64 fullPercent = 10000;

// A percentage such as "25" or "12.5" as hundredths (2500, 1250), 0 to 100 %.
bool readPercent(const QString& text, unsigned int& hundredths) {
    PercentValue value(text);
    if (!value.IsValid() || value.GetPrecisionDigits() > PercentValue::defaultDigits) {
        return false;
    }
    qint64 number = value.GetNumberValue();
    for (unsigned int digits = value.GetPrecisionDigits(); digits < PercentValue::defaultDigits;
         ++digits) {
        number *= 10;
    }
    if (number < 0 || number > fullPercent) {
        return false;
    }
    hundredths = static_cast<unsigned int>(number);
    return true;
}

QString percent(qint64 hundredths) {
    return PercentValue(hundredths).ToString() + QStringLiteral(" %");
}

QJsonObject deptJson(const Dept& dept) {
    return QJsonObject{
        {QStringLiteral("id"), static_cast<qint64>(dept.GetId())},
        {QStringLiteral("name"), dept.GetName()},
        {QStringLiteral("discounts_blocked"), dept.isDiscountBlocked},
        {QStringLiteral("order_printer"), dept.isOrderPrinter},
        {QStringLiteral("max_discount"), percent(dept.GetMaxDiscount().GetNumberValue())},
        {QStringLiteral("max_surcharge"), percent(dept.GetMaxSurcharge().GetNumberValue())}};
}

void printDepts(Tool& tool, const QList<QSharedPointer<const Dept>>& depts) {
    if (tool.Json()) {
        QJsonArray list;
        for (const auto& dept : depts) {
            list.append(deptJson(*dept));
        }
        tool.PrintJson(list);
        return;
    }
    TablePrinter table({QStringLiteral("NO>"), QStringLiteral("NAME"),
                        QStringLiteral("NO DISCOUNTS"), QStringLiteral("ORDER PRINTER"),
                        QStringLiteral("MAX DISCOUNT>"), QStringLiteral("MAX SURCHARGE>")});
    for (const auto& dept : depts) {
        table.AddRow({QString::number(dept->GetId()), dept->GetName(),
                      dept->isDiscountBlocked ? QStringLiteral("yes") : QStringLiteral("no"),
                      dept->isOrderPrinter ? QStringLiteral("yes") : QStringLiteral("no"),
                      percent(dept->GetMaxDiscount().GetNumberValue()),
                      percent(dept->GetMaxSurcharge().GetNumberValue())});
    }
    table.Print(tool.Out());
}

int deptCommand(Tool& tool, const QString& sub, const QStringList& arguments) {
    QCommandLineParser parser;
    const QString command = QStringLiteral("dept ") + sub;
    const QCommandLineOption name(QStringLiteral("name"), QStringLiteral("The department's name."),
                                  QStringLiteral("TEXT"));
    const QCommandLineOption maxDiscount(QStringLiteral("max-discount"),
                                         QStringLiteral("The largest discount, in %."),
                                         QStringLiteral("PERCENT"));
    const QCommandLineOption maxSurcharge(QStringLiteral("max-surcharge"),
                                          QStringLiteral("The largest surcharge, in %."),
                                          QStringLiteral("PERCENT"));
    const QCommandLineOption noDiscounts(
        QStringLiteral("no-discounts"),
        QStringLiteral("Prices of its articles may not be modified (yes/no)."),
        QStringLiteral("YES|NO"));
    const QCommandLineOption orderPrinter(
        QStringLiteral("order-printer"),
        QStringLiteral("Its articles go to the order printer (yes/no)."), QStringLiteral("YES|NO"));
    int minimum = 0;
    int maximum = 0;
    bool read = false;
    if (sub == QLatin1String("list")) {
        parser.setApplicationDescription(QStringLiteral("Lists the departments."));
        read = true;
    } else if (sub == QLatin1String("show")) {
        parser.setApplicationDescription(QStringLiteral("Shows department N."));
        parser.addPositionalArgument(QStringLiteral("N"), QStringLiteral("The department number."));
        minimum = maximum = 1;
        read = true;
    } else if (sub == QLatin1String("set")) {
        parser.setApplicationDescription(
            QStringLiteral("Sets the fields given of department N (1-99)."));
        parser.addPositionalArgument(QStringLiteral("N"), QStringLiteral("The department number."));
        parser.addOptions({name, maxDiscount, maxSurcharge, noDiscounts, orderPrinter});
        minimum = maximum = 1;
    } else if (sub == QLatin1String("reset")) {
        parser.setApplicationDescription(
            QStringLiteral("Rebuilds the department table: 99 unnamed departments with the "
                           "firmware's flags and limits."));
    } else if (sub == QLatin1String("names")) {
        parser.setApplicationDescription(QStringLiteral(
            "Gives departments 1-16 the firmware's default names (\"Grupa towarowa N\")."));
    } else {
        return tool.Fail(EXIT_USAGE, QStringLiteral("'dept' needs list, show, set, reset or names"),
                         QStringLiteral("see 'articlectl --help'"));
    }
    int exit = tool.ParseCommand(parser, command, arguments, minimum, maximum, read);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    DeptDBManager* depts = tool.Articles().GetDeptDBManager();
    if (sub == QLatin1String("list")) {
        printDepts(tool, depts->GetDepts());
        return depts->GetDepts().isEmpty() ? EXIT_NOT_FOUND : EXIT_DONE;
    }
    if (sub == QLatin1String("reset")) {
        if (!depts->ResetTable()) {
            return tool.Fail(EXIT_DATABASE, QStringLiteral("the departments could not be reset"));
        }
        tool.Out() << "Reset the departments: " << depts->GetDepts().size()
                   << " with the firmware's flags.\n";
        return EXIT_DONE;
    }
    if (sub == QLatin1String("names")) {
        if (!depts->GetDeptFirmwareInitializer()->SetFirmwareDeptNamesInDatabase() ||
            depts->getRecordsFromDB() != 0) {
            return tool.Fail(EXIT_DATABASE, QStringLiteral("the departments could not be named"));
        }
        tool.Out() << "Named departments 1-16.\n";
        return EXIT_DONE;
    }
    bool ok = false;
    const unsigned int number = parser.positionalArguments().first().toUInt(&ok);
    if (!ok || number == 0 || number > lastDept) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("department '%1' is not a number from 1 to 99")
                                         .arg(parser.positionalArguments().first()));
    }
    const QSharedPointer<const Dept> current = depts->GetDept(number);
    if (sub == QLatin1String("show")) {
        if (!current) {
            return tool.Fail(
                EXIT_NOT_FOUND, QStringLiteral("there is no department %1").arg(number),
                QStringLiteral("'articlectl init' or 'articlectl dept reset' makes departments"));
        }
        printDepts(tool, {current});
        return EXIT_DONE;
    }
    // set
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
    if ((parser.isSet(maxDiscount) && !readPercent(parser.value(maxDiscount), discount)) ||
        (parser.isSet(maxSurcharge) && !readPercent(parser.value(maxSurcharge), surcharge))) {
        return tool.Fail(
            EXIT_USAGE,
            QStringLiteral("a limit must be a percentage from 0 to 100 with at most two decimals"));
    }
    if ((parser.isSet(noDiscounts) && !input.Flag(parser.value(noDiscounts), blocked, error)) ||
        (parser.isSet(orderPrinter) && !input.Flag(parser.value(orderPrinter), printer, error))) {
        return tool.Fail(EXIT_USAGE, error);
    }
    const int result = depts->AddOrUpdateRecord(QSharedPointer<const Dept>::create(
        number, deptName, discount, surcharge, blocked, printer));
    if (result != 0) {
        return tool.Fail(ExitCodeFor(result),
                         QStringLiteral("department %1 could not be written").arg(number));
    }
    tool.Out() << "Department " << number << " set.\n";
    return EXIT_DONE;
}

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
    return percent(rate.GetValue());
}

int taxCommand(Tool& tool, const QString& sub, const QStringList& arguments) {
    QCommandLineParser parser;
    int minimum = 0;
    bool read = false;
    if (sub == QLatin1String("list")) {
        parser.setApplicationDescription(QStringLiteral("Lists the seven tax rates."));
        read = true;
    } else if (sub == QLatin1String("set")) {
        parser.setApplicationDescription(
            QStringLiteral("Sets tax rate RATE (1-7 or A-G) to VALUE: a percentage such as 23 or "
                           "8.5, 'exempt' or 'unused'."));
        parser.addPositionalArgument(QStringLiteral("RATE"), QStringLiteral("The rate."));
        parser.addPositionalArgument(QStringLiteral("VALUE"), QStringLiteral("Its value."));
        minimum = 2;
    } else if (sub == QLatin1String("reset")) {
        parser.setApplicationDescription(
            QStringLiteral("Resets the tax rates: A to G, none in use."));
    } else {
        return tool.Fail(EXIT_USAGE, QStringLiteral("'tax' needs list, set or reset"),
                         QStringLiteral("see 'articlectl --help'"));
    }
    int exit =
        tool.ParseCommand(parser, QStringLiteral("tax ") + sub, arguments, minimum, minimum, read);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    TaxRatesManager* rates = tool.Articles().GetTaxRatesManager();
    if (sub == QLatin1String("list")) {
        QJsonArray list;
        TablePrinter table(
            {QStringLiteral("ID>"), QStringLiteral("RATE"), QStringLiteral("VALUE>")});
        for (const TaxRate* rate : rates->GetRecords()) {
            list.append(QJsonObject{{QStringLiteral("id"), static_cast<qint64>(rate->GetId())},
                                    {QStringLiteral("name"), rate->GetName()},
                                    {QStringLiteral("value"), rate->GetValue()},
                                    {QStringLiteral("text"), rateText(*rate)}});
            table.AddRow({QString::number(rate->GetId()), rate->GetName(), rateText(*rate)});
        }
        if (tool.Json()) {
            tool.PrintJson(list);
        } else {
            table.Print(tool.Out());
        }
        return EXIT_DONE;
    }
    if (sub == QLatin1String("reset")) {
        if (!rates->ResetTable()) {
            return tool.Fail(EXIT_DATABASE, QStringLiteral("the tax rates could not be reset"));
        }
        tool.Out() << "Reset the tax rates: A to G, none in use.\n";
        return EXIT_DONE;
    }
    const QString which = parser.positionalArguments()[0].trimmed().toUpper();
    unsigned int id =
        which.size() == 1 && which[0] >= QLatin1Char('A') && which[0] <= QLatin1Char('G')
            ? static_cast<unsigned int>(which[0].unicode() - 'A' + 1)
            : which.toUInt();
    unsigned short value = 0;
    if (id < 1 || id > TaxRates::count) {
        return tool.Fail(EXIT_USAGE,
                         QStringLiteral("tax rate '%1' is not one of 1-7 or A-G").arg(which));
    }
    if (!readRateValue(parser.positionalArguments()[1], value)) {
        return tool.Fail(
            EXIT_USAGE,
            QStringLiteral("'%1' is not a percentage from 0 to 100, 'exempt' or 'unused'")
                .arg(parser.positionalArguments()[1]));
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
    all.values[id - 1] = value;
    const int result = rates->UpdateRecord(all);
    if (result != 0) {
        return tool.Fail(ExitCodeFor(result), QStringLiteral("the tax rates could not be written"));
    }
    tool.Out() << "Tax rate " << QChar('A' + static_cast<int>(id) - 1) << " set to "
               << rateText(TaxRate(id, QString(), value)) << ".\n";
    return EXIT_DONE;
}

bool readKind(const QString& text, SpecialBarcodeSubjectType& kind) {
    const QString word = text.trimmed().toLower();
    if (word == QLatin1String("weight") || word == QLatin1String("0")) {
        kind = SPECIAL_BARCODE_WEIGHT;
    } else if (word == QLatin1String("price") || word == QLatin1String("1")) {
        kind = SPECIAL_BARCODE_PRICE;
    } else if (word == QLatin1String("none") || word == QLatin1String("all") ||
               word == QLatin1String("2")) {
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

int prefixCommand(Tool& tool, const QString& sub, const QStringList& arguments) {
    QCommandLineParser parser;
    const QCommandLineOption kindOption(
        QStringLiteral("kind"), QStringLiteral("weight, price or none."), QStringLiteral("KIND"));
    int minimum = 0;
    bool read = false;
    if (sub == QLatin1String("list")) {
        parser.setApplicationDescription(
            QStringLiteral("Lists the prefixes of in-store labels (all, or --kind)."));
        parser.addOption(kindOption);
        read = true;
    } else if (sub == QLatin1String("add")) {
        parser.setApplicationDescription(
            QStringLiteral("Stores prefix entry ID: PREFIX with --kind weight or price."));
        parser.addPositionalArgument(QStringLiteral("ID"), QStringLiteral("The entry number."));
        parser.addPositionalArgument(QStringLiteral("PREFIX"),
                                     QStringLiteral("The leading digits."));
        parser.addOption(kindOption);
        minimum = 2;
    } else if (sub == QLatin1String("remove")) {
        parser.setApplicationDescription(QStringLiteral("Removes prefix entry ID."));
        parser.addPositionalArgument(QStringLiteral("ID"), QStringLiteral("The entry number."));
        minimum = 1;
    } else if (sub == QLatin1String("reset")) {
        parser.setApplicationDescription(
            QStringLiteral("Restores the factory prefixes: 27, 29 price; 23, 24 weight."));
    } else if (sub == QLatin1String("classify")) {
        parser.setApplicationDescription(QStringLiteral("Tells which kind of label PREFIX marks."));
        parser.addPositionalArgument(QStringLiteral("PREFIX"),
                                     QStringLiteral("The prefix, e.g. 27."));
        minimum = 1;
        read = true;
    } else {
        return tool.Fail(EXIT_USAGE,
                         QStringLiteral("'prefix' needs list, add, remove, reset or classify"),
                         QStringLiteral("see 'articlectl --help'"));
    }
    int exit = tool.ParseCommand(parser, QStringLiteral("prefix ") + sub, arguments, minimum,
                                 minimum, read);
    if (exit >= 0) {
        return exit;
    }
    SpecialBarcodeSubjectType kind = SPECIAL_BARCODE_NONE;
    if (parser.isSet(kindOption) && !readKind(parser.value(kindOption), kind)) {
        return tool.Fail(
            EXIT_USAGE,
            QStringLiteral("kind '%1' is not weight, price or none").arg(parser.value(kindOption)));
    }
    if (sub == QLatin1String("add") && !parser.isSet(kindOption)) {
        return tool.Fail(EXIT_USAGE,
                         QStringLiteral("a prefix needs --kind weight or --kind price"));
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    BarcodePrefixDBManager* prefixes = tool.Articles().GetBarcodePrefixDBManager();
    if (sub == QLatin1String("list")) {
        QList<SpecialBarcodePrefix*> found;
        const int result = prefixes->LoadPrefixesByType(kind, found);
        if (result != 0) {
            return tool.Fail(ExitCodeFor(result), QStringLiteral("the prefixes could not be read"));
        }
        QJsonArray list;
        TablePrinter table(
            {QStringLiteral("ID>"), QStringLiteral("PREFIX"), QStringLiteral("KIND")});
        for (const SpecialBarcodePrefix* prefix : found) {
            list.append(QJsonObject{{QStringLiteral("id"), static_cast<qint64>(prefix->GetId())},
                                    {QStringLiteral("prefix"), prefix->GetPrefix()},
                                    {QStringLiteral("kind"), kindText(prefix->GetType())}});
            table.AddRow({QString::number(prefix->GetId()), prefix->GetPrefix(),
                          kindText(prefix->GetType())});
        }
        qDeleteAll(found);
        if (tool.Json()) {
            tool.PrintJson(list);
        } else {
            table.Print(tool.Out());
        }
        return EXIT_DONE;
    }
    if (sub == QLatin1String("reset")) {
        if (!prefixes->ResetTable()) {
            return tool.Fail(EXIT_DATABASE, QStringLiteral("the prefixes could not be reset"));
        }
        tool.Out() << "Restored the factory prefixes.\n";
        return EXIT_DONE;
    }
    if (sub == QLatin1String("classify")) {
        SpecialBarcodeSubjectType type = SPECIAL_BARCODE_NONE;
        const QString prefix = parser.positionalArguments().first();
        if (!prefixes->CheckSpecialBarcodeSubjectType(prefix, type)) {
            return tool.Fail(EXIT_DATABASE, QStringLiteral("the prefix could not be classified"));
        }
        if (tool.Json()) {
            tool.PrintJson(QJsonObject{{QStringLiteral("prefix"), prefix},
                                       {QStringLiteral("kind"), kindText(type)}});
        } else {
            tool.Out() << prefix << ": " << kindText(type) << "\n";
        }
        return type == SPECIAL_BARCODE_NONE ? EXIT_NOT_FOUND : EXIT_DONE;
    }
    bool ok = false;
    const unsigned int id = parser.positionalArguments().first().toUInt(&ok);
    if (!ok) {
        return tool.Fail(
            EXIT_USAGE,
            QStringLiteral("entry '%1' is not a number").arg(parser.positionalArguments().first()));
    }
    if (sub == QLatin1String("remove")) {
        const int result = prefixes->RemovePrefixEntry(static_cast<int>(id));
        if (result != 0) {
            return tool.Fail(ExitCodeFor(result),
                             QStringLiteral("the prefix could not be removed"));
        }
        tool.Out() << "Removed prefix entry " << id << ".\n";
        return EXIT_DONE;
    }
    const QString prefix = parser.positionalArguments()[1];
    bool digits = !prefix.isEmpty() && prefix.size() <= 7;
    for (const QChar c : prefix) {
        digits = digits && c >= QLatin1Char('0') && c <= QLatin1Char('9');
    }
    if (!digits) {
        return tool.Fail(EXIT_USAGE,
                         QStringLiteral("prefix '%1' must be 1 to 7 digits").arg(prefix));
    }
    const int result = prefixes->AddPrefix(id, prefix, kind);
    if (result != 0) {
        return tool.Fail(ExitCodeFor(result), QStringLiteral("the prefix could not be stored"));
    }
    tool.Out() << "Stored prefix entry " << id << ": " << prefix << " (" << kindText(kind)
               << ").\n";
    return EXIT_DONE;
}

}  // namespace

int RunDept(Tool& tool, const QStringList& arguments) {
    return deptCommand(tool, arguments.value(0), arguments.mid(1));
}

int RunTax(Tool& tool, const QStringList& arguments) {
    return taxCommand(tool, arguments.value(0), arguments.mid(1));
}

int RunPrefix(Tool& tool, const QStringList& arguments) {
    return prefixCommand(tool, arguments.value(0), arguments.mid(1));
}

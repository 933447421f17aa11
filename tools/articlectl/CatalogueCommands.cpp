// Whole-catalogue commands: init, clear and stats.

#include <QFileInfo>
#include <QJsonObject>
#include <QSet>
#include <utility>

#include "CatalogueWalk.h"
#include "Commands.h"
#include "Tool.h"

namespace {

const TaxRates newRegisterRates = {{2300, 800, 500, 0, 65535, 65535, 61440}, 2};

}  // namespace

int SetUpCatalogue(Tool& tool) {
    ArticleManager& manager = tool.Articles();
    DeptDBManager* depts = manager.GetDeptDBManager();
    if (!depts->ResetTable() ||
        !depts->GetDeptFirmwareInitializer()->SetFirmwareDeptNamesInDatabase() ||
        depts->getRecordsFromDB() != 0) {
        return tool.DatabaseFailure(QStringLiteral("the departments could not be set up"));
    }
    if (!manager.GetTaxRatesManager()->ResetTable() ||
        manager.GetTaxRatesManager()->UpdateRecord(newRegisterRates) != 0) {
        return tool.DatabaseFailure(QStringLiteral("the tax rates could not be set up"));
    }
    if (!manager.GetBarcodePrefixDBManager()->ResetTable()) {
        return tool.DatabaseFailure(QStringLiteral("the label prefixes could not be set up"));
    }
    return EXIT_DONE;
}

int RunInit(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Sets up a new register's catalogue: 99 departments with the firmware's flags and names, "
        "the tax rates (A 23 %, B 8 %, C 5 %, D 0 %, G exempt) and the factory label prefixes. "
        "Articles are kept. A catalogue that already holds departments, tax rates or articles is "
        "only set up again with --force, after a copy is kept in FILE.backups/."));
    const QCommandLineOption force(
        QStringLiteral("force"),
        QStringLiteral(
            "Reset the departments, tax rates and label prefixes of a catalogue in use."));
    parser.addOption(force);
    int exit = tool.ParseCommand(parser, arguments, 0, 0, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    if (tool.DatabaseExisted()) {
        QStringList held;
        for (const auto& [table, what] :
             {std::pair<const char*, const char*>{"Dept", "departments"},
              {"TaxRates", "tax rates"},
              {"Article", "articles"}}) {
            unsigned long count = 0;
            if (tool.Database().Count(QString::fromLatin1(table), count) != DB_OPERATION_SUCCESS) {
                return tool.DatabaseFailure(QStringLiteral("the catalogue could not be read"));
            }
            if (count > 0) {
                held.append(QStringLiteral("%1 %2").arg(count).arg(QLatin1String(what)));
            }
        }
        if (!held.isEmpty() && !parser.isSet(force)) {
            return tool.Fail(
                EXIT_REFUSED,
                QStringLiteral("refused: %1 is in use (%2); init would reset its departments, tax "
                               "rates and label prefixes")
                    .arg(tool.DatabasePath(), held.join(QStringLiteral(", "))),
                QStringLiteral("give --force to reset them; a copy is kept in %1.backups/ first")
                    .arg(tool.DatabasePath()));
        }
        if (!held.isEmpty() && !tool.BackUp()) {
            return EXIT_DATABASE;
        }
    }
    return tool.InTransaction([&]() -> int {
        const int result = SetUpCatalogue(tool);
        if (result == EXIT_DONE) {
            tool.Out() << "Set up " << tool.DatabasePath() << ": "
                       << tool.Articles().GetDeptDBManager()->GetDepts().size()
                       << " departments, tax rates A-G, label prefixes 27 29 (price) and 23 24 "
                          "(weight).\n";
        }
        return result;
    });
}

int RunClear(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Removes every article, barcode and quick-pick list, after a copy is kept in "
        "FILE.backups/. Refused while the receipt database holds receipt lines, which refer to "
        "articles, and when there is no receipt database to ask unless --no-receipts says the "
        "register has none."));
    const QCommandLineOption noReceipts(
        QStringLiteral("no-receipts"),
        QStringLiteral("The register keeps no receipt database: clear without asking one."));
    parser.addOption(noReceipts);
    int exit = tool.ParseCommand(parser, arguments, 0, 0, false);
    if (exit >= 0) {
        return exit;
    }
    if (parser.isSet(noReceipts)) {
        tool.AllowNoReceipts();
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    if (!parser.isSet(noReceipts) && !tool.HasReceipts()) {
        return tool.Fail(
            EXIT_REFUSED,
            QStringLiteral("refused: there is no receipt database at %1 to tell whether receipt "
                           "lines still refer to the articles")
                .arg(tool.ReceiptsPath()),
            QStringLiteral("give --receipts the register's receipt database, or --no-receipts "
                           "when the register keeps none"));
    }
    if (!tool.BackUp()) {
        return EXIT_DATABASE;
    }
    const int result = tool.Articles().GetEditor()->RemoveAllArticles();
    if (result == DB_OPERATION_RECEIPTS_EXIST) {
        return tool.Fail(
            EXIT_REFUSED,
            QStringLiteral("refused: the receipt database %1 still holds receipt lines, which "
                           "refer to the articles")
                .arg(tool.ReceiptsPath()),
            QStringLiteral("close the day's sales with the daily report so that the receipt "
                           "lines are archived, then clear again"));
    }
    if (result != 0) {
        return tool.DatabaseFailure(QStringLiteral("the catalogue could not be cleared"));
    }
    tool.Out() << "Removed every article, barcode and quick-pick list.\n";
    return EXIT_DONE;
}

int RunStats(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Counts and sizes of the catalogue."));
    int exit = tool.ParseCommand(parser, arguments, 0, 0, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    ArticleManager& manager = tool.Articles();
    qint64 articles = 0;
    qint64 barcodes = 0;
    QSet<int> deptsInUse;
    const bool complete = forEachArticle(manager, [&](const Article& article) {
        ++articles;
        deptsInUse.insert(article.deptNo);
        ArticleBarcodes list(article.id);
        manager.GetBarcodeManager()->Load(list);
        barcodes += list.GetBarcodes().size();
    });
    unsigned int largest = 0;
    if (!complete || manager.GetSeeker()->FindLastArticlePlu(largest, false) != 0 ||
        !manager.GetCurrentMaxPLUManager()->DetermineDigitsCountOfMaxPlu()) {
        return tool.Fail(EXIT_DATABASE, QStringLiteral("the catalogue could not be read"));
    }
    const int digits = manager.GetCurrentMaxPLUManager()->GetDigitsCountOfMaxPlu();
    qint64 bytes = 0;
    for (const QString& suffix : {QString(), QStringLiteral("-wal"), QStringLiteral("-shm")}) {
        bytes += QFileInfo(tool.DatabasePath() + suffix).size();
    }
    if (tool.Json()) {
        tool.PrintJson(QJsonObject{{QStringLiteral("articles"), articles},
                                   {QStringLiteral("barcodes"), barcodes},
                                   {QStringLiteral("departments_in_use"), deptsInUse.size()},
                                   {QStringLiteral("largest_plu"), static_cast<qint64>(largest)},
                                   {QStringLiteral("plu_digits"), digits},
                                   {QStringLiteral("file_bytes"), bytes}});
    } else {
        tool.Out() << "Articles:            " << articles << "\n"
                   << "Barcodes:            " << barcodes << "\n"
                   << "Departments in use:  " << deptsInUse.size() << "\n"
                   << "Largest PLU:         " << largest << " (" << digits << " digits)\n"
                   << "File size:           " << bytes << " bytes\n";
    }
    return EXIT_DONE;
}

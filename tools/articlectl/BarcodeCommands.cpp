// barcode add|list|delete|walk.

#include "BarcodeCommands.h"

#include <QJsonArray>
#include <QJsonObject>

#include "ArticleInput.h"
#include "ArticleView.h"
#include "Commands.h"
#include "TablePrinter.h"
#include "Tool.h"

namespace {

// Reads a PLU argument and finds its article.
bool articleOf(Tool& tool, const QString& text, Article& article, int& exit) {
    ArticleInput input(tool.Articles(), tool.Database());
    unsigned int plu = 0;
    QString error;
    if (!input.Plu(text, plu, error)) {
        exit = tool.Fail(EXIT_USAGE, error);
        return false;
    }
    const int found = tool.Articles().GetSeeker()->FindPlu(plu, article, false);
    if (found != 0) {
        exit = tool.Fail(ExitCodeFor(found), QStringLiteral("no article has PLU %1").arg(plu));
        return false;
    }
    return true;
}

int addBarcode(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Adds a barcode to the article of PLU (an additional one, or with --main its main one). "
        "A scale label is stored as the article barcode it carries."));
    parser.addPositionalArgument(QStringLiteral("PLU"), QStringLiteral("The article."));
    parser.addPositionalArgument(QStringLiteral("CODE"), QStringLiteral("The barcode."));
    const QCommandLineOption main(QStringLiteral("main"),
                                  QStringLiteral("Make it the main barcode."));
    parser.addOption(main);
    int exit = tool.ParseCommand(parser, arguments, 2, 2, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    Article article;
    if (!articleOf(tool, parser.positionalArguments()[0], article, exit)) {
        return exit;
    }
    ArticleInput input(tool.Articles(), tool.Database());
    QString code;
    QString error;
    if (!input.Barcode(parser.positionalArguments()[1], code, error)) {
        return tool.Fail(EXIT_USAGE, error);
    }
    return tool.InTransaction([&]() -> int {
        ArticleManager& manager = tool.Articles();
        if (parser.isSet(main)) {
            manager.GetBarcodeManager()->DeleteBarcodes(article, MAIN_BARCODE);
        }
        const int added =
            manager.GetBarcodeManager()->AddRecord(article.id, code, parser.isSet(main));
        if (added == DB_OPERATION_ALREADY_EXISTS) {
            return tool.Fail(EXIT_REFUSED,
                             QStringLiteral("barcode %1 is already on file").arg(code),
                             QStringLiteral("'articlectl scan %1' shows whose it is").arg(code));
        }
        if (added != 0) {
            return tool.Fail(ExitCodeFor(added), QStringLiteral("the barcode could not be added"));
        }
        if (parser.isSet(main)) {
            QString normalised = code;
            manager.GetBarcodeManager()->GetSpecialBarcodeRecognizer()->getArticleBarcode(
                code, normalised);
            article.mainBarcode = normalised;
            if (manager.GetEditor()->EditRecord(article) != 0) {
                return tool.Fail(EXIT_DATABASE,
                                 QStringLiteral("the main barcode could not be set"));
            }
        }
        tool.Out() << "Added " << (parser.isSet(main) ? "main" : "additional") << " barcode "
                   << code << " to " << ArticleView::Line(article) << "\n";
        return EXIT_DONE;
    });
}

int listBarcodes(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Lists the barcodes of the article of PLU."));
    parser.addPositionalArgument(QStringLiteral("PLU"), QStringLiteral("The article."));
    int exit = tool.ParseCommand(parser, arguments, 1, 1, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    Article article;
    if (!articleOf(tool, parser.positionalArguments()[0], article, exit)) {
        return exit;
    }
    ArticleBarcodes barcodes(article.id);
    const int result = tool.Articles().GetBarcodeManager()->Load(barcodes);
    if (result != 0) {
        return tool.Fail(ExitCodeFor(result), QStringLiteral("the barcodes could not be read"));
    }
    if (tool.Json()) {
        QJsonArray list;
        for (const Barcode* barcode : barcodes.GetBarcodes()) {
            list.append(ArticleView::Json(*barcode, article.pluNo));
        }
        tool.PrintJson(QJsonObject{{QStringLiteral("count"), list.size()},
                                   {QStringLiteral("barcodes"), list}});
    } else {
        TablePrinter table(
            {QStringLiteral("ID>"), QStringLiteral("BARCODE"), QStringLiteral("KIND")});
        for (const Barcode* barcode : barcodes.GetBarcodes()) {
            table.AddRow(
                {QString::number(barcode->GetId()), barcode->GetBarcode(),
                 barcode->IsMain() ? QStringLiteral("main") : QStringLiteral("additional")});
        }
        table.Print(tool.Out());
    }
    return barcodes.GetBarcodes().isEmpty() ? EXIT_NOT_FOUND : EXIT_DONE;
}

int deleteBarcode(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Deletes an additional barcode. A main barcode is changed with 'articlectl "
                       "edit PLU --barcode'."));
    parser.addPositionalArgument(QStringLiteral("CODE"), QStringLiteral("The barcode."));
    int exit = tool.ParseCommand(parser, arguments, 1, 1, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    const QString code = parser.positionalArguments().first();
    ArticleBarcodeManager* barcodes = tool.Articles().GetBarcodeManager();
    if (barcodes->GetBarcodeIndex(code) == 0) {
        return tool.Fail(EXIT_NOT_FOUND, QStringLiteral("no article has barcode %1").arg(code));
    }
    const eDBOperationResult result = barcodes->DeleteRecord(code);
    if (result != 0) {
        return tool.Fail(ExitCodeFor(result), QStringLiteral("the barcode could not be deleted"));
    }
    if (barcodes->GetBarcodeIndex(code) != 0) {
        return tool.Fail(EXIT_REFUSED, QStringLiteral("%1 is a main barcode and stays").arg(code),
                         QStringLiteral("change it with 'articlectl edit PLU --barcode NEW'"));
    }
    tool.Out() << "Deleted barcode " << code << "\n";
    return EXIT_DONE;
}

int walkBarcodes(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Lists every additional barcode of the catalogue, one by one."));
    int exit = tool.ParseCommand(parser, arguments, 0, 0, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    QJsonArray list;
    TablePrinter table({QStringLiteral("INDEX>"), QStringLiteral("PLU>"), QStringLiteral("BARCODE"),
                        QStringLiteral("NAME")});
    eDBOperationResult result = DB_OPERATION_SUCCESS;
    for (unsigned int index = 0;; ++index) {
        const Barcode barcode = tool.Articles().GetBarcodeManager()->LoadBarcode(result, index);
        if (result != DB_OPERATION_SUCCESS) {
            break;
        }
        Article article;
        tool.Articles().GetSeeker()->FindById(barcode.GetArticleId(), article, false);
        list.append(ArticleView::Json(barcode, article.pluNo));
        table.AddRow({QString::number(index), QString::number(article.pluNo), barcode.GetBarcode(),
                      article.name});
    }
    if (result != DB_OPERATION_NOT_FOUND) {
        return tool.Fail(ExitCodeFor(result), QStringLiteral("the walk over the barcodes failed"));
    }
    if (tool.Json()) {
        tool.PrintJson(QJsonObject{{QStringLiteral("count"), list.size()},
                                   {QStringLiteral("barcodes"), list}});
    } else {
        table.Print(tool.Out());
    }
    return EXIT_DONE;
}

}  // namespace

const QList<Command>& BarcodeCommands() {
    static const QList<Command> commands = {
        {"add", "add a barcode to an article (--main: as its main barcode)", addBarcode,
         Access::Write, nullptr, "barcode add 12345 5901234123457"},
        {"list", "list the barcodes of an article", listBarcodes, Access::Read, nullptr,
         "barcode list 12345 --json"},
        {"delete", "delete an additional barcode", deleteBarcode, Access::Write, nullptr,
         "barcode delete 5901234123457"},
        {"walk", "list every additional barcode of the catalogue", walkBarcodes, Access::Read,
         nullptr, "barcode walk"},
    };
    return commands;
}

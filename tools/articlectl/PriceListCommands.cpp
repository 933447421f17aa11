// The price-list commands: import and export.

#include <QFile>
#include <QSaveFile>
#include <QTextCodec>
#include <array>
#include <cstring>

#include "ArticleView.h"
#include "CatalogueWalk.h"
#include "CatalogueWriter.h"
#include "Commands.h"
#include "Csv.h"
#include "PriceListColumns.h"
#include "PriceListImport.h"
#include "Tool.h"

namespace {

// The separator named on the command line, or 0 when the name is none of them.
char separatorNamed(const QString& name) {
    const QString value = name.toLower();
    if (value == QLatin1String(",") || value == QLatin1String("comma")) {
        return ',';
    }
    if (value == QLatin1String(";") || value == QLatin1String("semicolon")) {
        return ';';
    }
    if (value == QLatin1String("\t") || value == QLatin1String("\\t") ||
        value == QLatin1String("tab")) {
        return '\t';
    }
    return 0;
}

// A codec for a named encoding whose bytes below 128 are ASCII, which the reader needs to find
// separators, quotes and line ends; null for UTF-8 or an unusable name.
bool codecNamed(const QString& name, QTextCodec*& codec) {
    codec = nullptr;
    const QString key = name.toLower().remove(QLatin1Char('-')).remove(QLatin1Char('_'));
    if (key == QLatin1String("utf8")) {
        return true;
    }
    codec = QTextCodec::codecForName(name.toLatin1());
    if (!codec || codec->mibEnum() == 106) {
        return codec != nullptr;  // 106: UTF-8 under another name
    }
    QByteArray ascii;
    for (int c = 1; c < 128; ++c) {
        ascii.append(static_cast<char>(c));
    }
    if (codec->toUnicode(ascii) != QString::fromLatin1(ascii)) {
        codec = nullptr;
        return false;
    }
    return true;
}

}  // namespace

int RunImport(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Loads a CSV price list, as spreadsheets and back offices write them: a header naming "
        "the columns in English or Polish (plu required; name and price for new articles; "
        "'--columns' lists them all), one row per article, separated by commas, semicolons or "
        "tabs, prices with a decimal point or comma. A row whose PLU is on file changes only "
        "the columns the file has, and an empty cell changes nothing; --replace rewrites the "
        "whole article and all its barcodes. "
        "Every row goes in or, when a row is bad, none does and each bad row is reported as "
        "FILE:LINE: reason."));
    parser.addPositionalArgument(QStringLiteral("FILE"),
                                 QStringLiteral("The CSV file; \"-\" reads standard input."));
    const QCommandLineOption separatorOption(
        QStringLiteral("separator"),
        QStringLiteral("The field separator: ',', ';' or tab (default: the one the header "
                       "uses)."),
        QStringLiteral("SEP"));
    const QCommandLineOption encodingOption(
        QStringLiteral("encoding"),
        QStringLiteral("The file's encoding when it is not UTF-8, e.g. windows-1250 or "
                       "iso-8859-2."),
        QStringLiteral("NAME"));
    const QCommandLineOption ignoreOption(
        QStringLiteral("ignore-unknown"),
        QStringLiteral("Skip columns the register has no field for (with a warning)."));
    const QCommandLineOption replaceOption(
        QStringLiteral("replace"),
        QStringLiteral("A row replaces the whole article and all its barcodes; columns the file "
                       "lacks take their defaults."));
    const QCommandLineOption dryRunOption(
        QStringLiteral("dry-run"),
        QStringLiteral("Print what would be added and changed (old and new values) and what "
                       "would be refused; write nothing."));
    const QCommandLineOption createOption(
        QStringLiteral("create"), QStringLiteral("Create the database when it does not exist."));
    const QCommandLineOption columnsOption(
        QStringLiteral("columns"),
        QStringLiteral("Print the columns with their English and Polish names and stop."));
    parser.addOptions({separatorOption, encodingOption, ignoreOption, replaceOption, dryRunOption,
                       createOption, columnsOption});
    int exit = tool.ParseCommand(parser, arguments, 0, 1, true);
    if (exit >= 0) {
        return exit;
    }
    if (parser.isSet(columnsOption)) {
        tool.Out() << PriceList::MarkdownTable();
        return EXIT_DONE;
    }
    if (parser.positionalArguments().isEmpty()) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("'import' needs more arguments"),
                         QStringLiteral("see 'articlectl import --help'"));
    }
    ImportOptions options;
    options.path = parser.positionalArguments().first();
    if (parser.isSet(separatorOption)) {
        options.separator = separatorNamed(parser.value(separatorOption));
        if (options.separator == 0) {
            return tool.Fail(
                EXIT_USAGE,
                QStringLiteral("unknown separator '%1'").arg(parser.value(separatorOption)),
                QStringLiteral("give --separator ',', ';' or tab"));
        }
    }
    if (parser.isSet(encodingOption) && !codecNamed(parser.value(encodingOption), options.codec)) {
        return tool.Fail(EXIT_USAGE,
                         QStringLiteral("cannot read text in the encoding '%1'")
                             .arg(parser.value(encodingOption)),
                         QStringLiteral("give --encoding utf-8, windows-1250 or iso-8859-2"));
    }
    options.ignoreUnknown = parser.isSet(ignoreOption);
    options.replace = parser.isSet(replaceOption);
    options.dryRun = parser.isSet(dryRunOption);
    options.create = parser.isSet(createOption);
    return ImportPriceList(tool, options);
}

namespace {

// A price as ArticleView::Price writes it ("-4.99"), with the given decimal point, without a
// string allocated or a format parsed per line.
std::array<char, 32> priceText(qint64 minorUnits, char decimalPoint) {
    quint64 magnitude =
        minorUnits < 0 ? 0 - static_cast<quint64>(minorUnits) : static_cast<quint64>(minorUnits);
    std::array<char, 32> text{};
    char* first = text.data() + text.size() - 1;  // the terminating NUL stays
    for (int digit = 0; digit < 3 || magnitude != 0; ++digit) {
        if (digit == 2) {
            *--first = decimalPoint;
        }
        *--first = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    }
    if (minorUnits < 0) {
        *--first = '-';
    }
    std::memmove(text.data(), first, static_cast<std::size_t>(text.data() + text.size() - first));
    return text;
}

}  // namespace

int RunExport(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Writes the catalogue as a UTF-8 CSV price list in PLU order, in the form import reads "
        "(\"-\" writes to standard output). --excel writes it as Polish Excel opens it."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The CSV file to write."));
    const QCommandLineOption excelOption(
        QStringLiteral("excel"),
        QStringLiteral("Semicolons, decimal commas and a UTF-8 byte order mark, for a "
                       "spreadsheet set to Polish."));
    parser.addOption(excelOption);
    int exit = tool.ParseCommand(parser, arguments, 1, 1, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    const bool excel = parser.isSet(excelOption);
    const QString path = parser.positionalArguments().first();
    const bool toStandardOutput = path == QLatin1String("-");
    QSaveFile saveFile(path);
    QFile standardOutput;
    QIODevice* device = nullptr;
    if (toStandardOutput) {
        tool.Out().flush();
        standardOutput.open(stdout, QIODevice::WriteOnly);
        device = &standardOutput;
    } else {
        if (!saveFile.open(QIODevice::WriteOnly)) {
            return tool.Fail(
                EXIT_USAGE,
                QStringLiteral("cannot write %1: %2").arg(path, saveFile.errorString()));
        }
        device = &saveFile;
    }
    if (excel) {
        device->write("\xEF\xBB\xBF");  // how Excel tells UTF-8 from the Windows code page
    }
    CsvWriter writer(device, excel ? ';' : ',');
    writer.Write(PriceList::Names());
    int count = 0;
    int unreadable = 0;
    CatalogueWriter catalogue(tool.Articles());
    QHash<unsigned int, QStringList> pageExtras;
    auto flag = [](bool value) { return value ? "1" : "0"; };
    const char decimalPoint = excel ? ',' : '.';
    const bool complete = forEachPage(tool.Articles(), [&](const QList<Article>& page) {
        // The additional barcodes of a whole page in one read, not one query per article.
        const bool readable = catalogue.ExtraBarcodes(page, pageExtras) == DB_OPERATION_SUCCESS;
        for (const Article& article : page) {
            ++count;
            if (!readable) {
                ++unreadable;
            }
            const auto extras = pageExtras.constFind(article.id);
            writer.Add(qint64{article.pluNo})
                .Add(article.name)
                .Add(priceText(article.price, decimalPoint).data())
                .Add(qint64{article.taxRateNo})
                .Add(qint64{article.deptNo})
                .Add(qint64{article.unitNo})
                .Add(qint64{article.quantityPrecision})
                .Add(article.mainBarcode)
                .Add(extras == pageExtras.constEnd() ? QString() : extras->join(QLatin1Char(' ')))
                .Add(flag(article.saleBlocked))
                .Add(flag(article.isPack))
                .Add(flag(article.discSurBlock))
                .Add(flag(article.freePriceAllow))
                .Add(flag(article.onHandyList))
                .Add(qint64{article.scaleNo})
                .Add(qint64{article.linkPluNo});
            writer.EndLine();
        }
    });
    writer.Flush();
    if (!complete || unreadable > 0) {
        return tool.DatabaseFailure(
            QStringLiteral("the catalogue could not be read; nothing was written"));
    }
    if (!toStandardOutput && !saveFile.commit()) {
        return tool.Fail(EXIT_USAGE,
                         QStringLiteral("cannot write %1: %2").arg(path, saveFile.errorString()));
    }
    if (!toStandardOutput) {
        tool.Out() << "Exported " << count << " articles to " << path << ".\n";
    }
    return EXIT_DONE;
}

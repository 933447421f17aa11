// The price-list commands: import and export.

#include <unistd.h>
#include <QFile>
#include <QHash>
#include <QSaveFile>
#include <cstdio>
#include <limits>

#include "ArticleInput.h"
#include "ArticleView.h"
#include "CatalogueWalk.h"
#include "CatalogueWriter.h"
#include "Commands.h"
#include "Csv.h"
#include "Tool.h"

namespace {

// The price list's columns, in the order export writes them.
const QStringList csvColumns = {
    QStringLiteral("plu"),        QStringLiteral("name"),    QStringLiteral("price"),
    QStringLiteral("tax"),        QStringLiteral("dept"),    QStringLiteral("unit"),
    QStringLiteral("precision"),  QStringLiteral("barcode"), QStringLiteral("extra_barcodes"),
    QStringLiteral("blocked"),    QStringLiteral("pack"),    QStringLiteral("no_discounts"),
    QStringLiteral("free_price"), QStringLiteral("handy"),   QStringLiteral("scale"),
    QStringLiteral("link_plu"),
};
const QStringList requiredColumns = {QStringLiteral("plu"), QStringLiteral("name"),
                                     QStringLiteral("price")};

// Draws "[#####.....]  42 %" on standard error while a long job runs on a terminal.
class ProgressBar {
public:
    explicit ProgressBar(const QString& label) : label(label), shown(isatty(fileno(stderr)) != 0) {}
    ~ProgressBar() { Done(); }
    void Show(double fraction) {
        const int percent = static_cast<int>(fraction * 100);
        if (!shown || percent == lastPercent) {
            return;
        }
        lastPercent = percent;
        const int filled = percent * barWidth / 100;
        std::fprintf(stderr, "\r%s [%s%s] %3d %%", label.toLocal8Bit().constData(),
                     QByteArray(filled, '#').constData(),
                     QByteArray(barWidth - filled, '.').constData(), percent);
        std::fflush(stderr);
    }
    void Done() {
        if (shown && lastPercent >= 0) {
            std::fprintf(stderr, "\n");
            lastPercent = -1;
        }
    }

private:
    static constexpr int barWidth = 40;
    QString label;
    bool shown;
    int lastPercent = -1;
};

// One price-list row read into an article, or what is wrong with it.
bool readRow(const ArticleInput& input, const QHash<QString, int>& columns,
             const QStringList& fields, Article& article, QStringList& extras, QString& error) {
    auto field = [&](const QString& name) {
        const int index = columns.value(name, -1);
        return index >= 0 ? fields.value(index).trimmed() : QString();
    };
    auto optional = [&](const QString& name, auto read) {
        const QString value = field(name);
        return value.isEmpty() || read(value);
    };
    if (fields.size() != columns.size()) {
        error = QStringLiteral("the row has %1 fields; the header names %2")
                    .arg(fields.size())
                    .arg(columns.size());
        return false;
    }
    article.taxRateNo = 1;
    article.deptNo = 1;
    article.unitNo = 1;
    const bool ok =
        input.Plu(field(QStringLiteral("plu")), article.pluNo, error) &&
        input.Name(field(QStringLiteral("name")), article.name, error) &&
        input.Price(field(QStringLiteral("price")), article.price, error) &&
        input.TaxRate(field(QStringLiteral("tax")).isEmpty() ? QStringLiteral("1")
                                                             : field(QStringLiteral("tax")),
                      article.taxRateNo, error) &&
        input.Dept(field(QStringLiteral("dept")).isEmpty() ? QStringLiteral("1")
                                                           : field(QStringLiteral("dept")),
                   article.deptNo, error) &&
        optional(QStringLiteral("unit"),
                 [&](const QString& v) { return input.Unit(v, article.unitNo, error); }) &&
        optional(QStringLiteral("precision"),
                 [&](const QString& v) {
                     return input.Precision(v, article.quantityPrecision, error);
                 }) &&
        optional(QStringLiteral("barcode"),
                 [&](const QString& v) { return input.Barcode(v, article.mainBarcode, error); }) &&
        optional(QStringLiteral("blocked"),
                 [&](const QString& v) { return input.Flag(v, article.saleBlocked, error); }) &&
        optional(QStringLiteral("pack"),
                 [&](const QString& v) { return input.Flag(v, article.isPack, error); }) &&
        optional(QStringLiteral("no_discounts"),
                 [&](const QString& v) { return input.Flag(v, article.discSurBlock, error); }) &&
        optional(QStringLiteral("free_price"),
                 [&](const QString& v) { return input.Flag(v, article.freePriceAllow, error); }) &&
        optional(QStringLiteral("handy"),
                 [&](const QString& v) { return input.Flag(v, article.onHandyList, error); }) &&
        optional(QStringLiteral("scale"),
                 [&](const QString& v) { return input.Scale(v, article.scaleNo, error); }) &&
        optional(QStringLiteral("link_plu"),
                 [&](const QString& v) { return input.LinkPlu(v, article.linkPluNo, error); });
    if (!ok) {
        return false;
    }
    for (const QString& code :
         field(QStringLiteral("extra_barcodes")).split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        QString barcode;
        if (!input.Barcode(code, barcode, error)) {
            return false;
        }
        extras.append(barcode);
    }
    return true;
}

}  // namespace

int RunImport(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Loads a UTF-8 CSV price list: a header naming the columns (plu, name and price required; "
        "tax, dept, unit, precision, barcode, extra_barcodes, blocked, pack, no_discounts, "
        "free_price, handy, scale, link_plu optional), one row per article. An article whose PLU "
        "is on file is replaced with its barcodes. Every row goes in or, when a row is bad, none "
        "does and each bad row is reported as FILE:LINE: reason."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The CSV file."));
    int exit = tool.ParseCommand(parser, QStringLiteral("import"), arguments, 1, 1, false);
    if (exit >= 0) {
        return exit;
    }
    const QString path = parser.positionalArguments().first();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return tool.Fail(EXIT_USAGE,
                         QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
    }
    const QByteArray content = file.readAll();
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    ArticleInput input(tool.Articles(), tool.Database());
    CsvReader reader(content);
    QStringList fields;
    int line = 0;
    QStringList problems;
    auto problem = [&](int at, const QString& reason) {
        problems.append(QStringLiteral("%1:%2: %3").arg(path).arg(at).arg(reason));
    };
    if (!reader.Next(fields, line)) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("%1 is empty").arg(path),
                         QStringLiteral("the first line names the columns: %1")
                             .arg(csvColumns.join(QLatin1Char(','))));
    }
    QHash<QString, int> columns;
    for (int i = 0; i < fields.size(); ++i) {
        const QString name = fields[i].trimmed().toLower();
        if (!csvColumns.contains(name)) {
            problem(line, QStringLiteral("unknown column '%1' (known: %2)")
                              .arg(fields[i], csvColumns.join(QLatin1Char(','))));
        } else if (columns.contains(name)) {
            problem(line, QStringLiteral("column '%1' appears twice").arg(name));
        }
        columns.insert(name, i);
    }
    for (const QString& required : requiredColumns) {
        if (!columns.contains(required)) {
            problem(line, QStringLiteral("the header lacks the '%1' column").arg(required));
        }
    }
    if (!problems.isEmpty()) {
        for (const QString& text : problems) {
            tool.Err() << text << "\n";
        }
        return tool.Fail(EXIT_USAGE, QStringLiteral("nothing was imported: the header is wrong"));
    }
    int rows = 0;
    int added = 0;
    int replaced = 0;
    int barcodes = 0;
    bool refused = false;
    const int result = tool.InTransaction([&]() -> int {
        CatalogueWriter writer(tool.Articles());
        QHash<unsigned int, int> lineOfPlu;
        // The articles on file, read once: a price list usually holds the whole catalogue.
        QHash<unsigned int, unsigned int> idOfPlu;
        QList<ArticleBrief> onFile;
        const int listed = tool.Articles().GetSeeker()->FindPluInRange(
            0, std::numeric_limits<unsigned int>::max(), onFile, false);
        if (listed != 0 && listed != 3) {
            return tool.Fail(EXIT_DATABASE, QStringLiteral("the catalogue could not be read"));
        }
        for (const ArticleBrief& brief : qAsConst(onFile)) {
            idOfPlu.insert(brief.pluNo, brief.id);
        }
        ProgressBar progress(QStringLiteral("importing"));
        while (reader.Next(fields, line)) {
            progress.Show(reader.Progress());
            if (fields.size() == 1 && fields.first().trimmed().isEmpty()) {
                continue;  // a blank line
            }
            ++rows;
            if (!reader.Error().isEmpty()) {
                problem(line, reader.Error());
                continue;
            }
            Article article;
            QStringList extras;
            QString error;
            if (!readRow(input, columns, fields, article, extras, error)) {
                problem(line, error);
                continue;
            }
            if (lineOfPlu.contains(article.pluNo)) {
                problem(line, QStringLiteral("PLU %1 is already on line %2")
                                  .arg(article.pluNo)
                                  .arg(lineOfPlu.value(article.pluNo)));
                continue;
            }
            lineOfPlu.insert(article.pluNo, line);
            if (!problems.isEmpty()) {
                continue;  // nothing will be kept: only look for more bad rows
            }
            const unsigned int storedId = idOfPlu.value(article.pluNo, 0);
            const bool known = storedId != 0;
            if (writer.Write(article, extras, CatalogueWriter::CreateOrReplace, error, storedId) !=
                0) {
                problem(line, error);
                refused = true;
                continue;
            }
            (known ? replaced : added) += 1;
            barcodes += (article.mainBarcode.isEmpty() ? 0 : 1) + extras.size();
        }
        progress.Done();
        return problems.isEmpty() ? EXIT_DONE : (refused ? EXIT_REFUSED : EXIT_USAGE);
    });
    if (!problems.isEmpty()) {
        for (const QString& text : problems) {
            tool.Err() << text << "\n";
        }
        return tool.Fail(result,
                         QStringLiteral("nothing was imported: %1 of %2 rows are bad")
                             .arg(problems.size())
                             .arg(rows),
                         QStringLiteral("correct the rows named above and import the file again"));
    }
    if (result != EXIT_DONE) {
        return result;
    }
    tool.Out() << "Imported " << rows << " articles from " << path << ": " << added << " added, "
               << replaced << " replaced, " << barcodes << " barcodes.\n";
    return EXIT_DONE;
}

int RunExport(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Writes the catalogue as a UTF-8 CSV price list in PLU order, in the form import reads "
        "(\"-\" writes to standard output)."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The CSV file to write."));
    int exit = tool.ParseCommand(parser, QStringLiteral("export"), arguments, 1, 1, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
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
    CsvWriter writer(device);
    writer.Write(csvColumns);
    int count = 0;
    auto flag = [](bool value) { return value ? QStringLiteral("1") : QStringLiteral("0"); };
    const bool complete = forEachArticle(tool.Articles(), [&](const Article& article) {
        ++count;
        writer.Write({QString::number(article.pluNo), article.name,
                      ArticleView::Price(article.price), QString::number(article.taxRateNo),
                      QString::number(article.deptNo), QString::number(article.unitNo),
                      QString::number(article.quantityPrecision), article.mainBarcode,
                      ArticleView::ExtraBarcodes(tool.Articles(), article).join(QLatin1Char(' ')),
                      flag(article.saleBlocked), flag(article.isPack), flag(article.discSurBlock),
                      flag(article.freePriceAllow), flag(article.onHandyList),
                      QString::number(article.scaleNo), QString::number(article.linkPluNo)});
    });
    if (!complete) {
        return tool.Fail(EXIT_DATABASE,
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

// Commands on single articles: add, edit, delete, show, list, next, prev, first-free-plu, count
// and scan.

#include <QJsonArray>
#include <QJsonObject>

#include "ArticleInput.h"
#include "ArticleView.h"
#include "CatalogueWalk.h"
#include "CatalogueWriter.h"
#include "Commands.h"
#include "Gs1.h"
#include "ScaleLabelPrefix.h"
#include "TablePrinter.h"
#include "Tool.h"

namespace {

constexpr unsigned int highestPlu = 4294967295u;
constexpr unsigned int gramsPerKilogram = 1000;
constexpr int ean13Length = 13;

// The options that set article fields, shared by add and edit.
struct ArticleOptions {
    QCommandLineOption plu{QStringLiteral("plu"), QStringLiteral("The PLU number."),
                           QStringLiteral("N")};
    QCommandLineOption name{QStringLiteral("name"), QStringLiteral("The name."),
                            QStringLiteral("TEXT")};
    QCommandLineOption price{QStringLiteral("price"), QStringLiteral("The price, e.g. 12.99."),
                             QStringLiteral("AMOUNT")};
    QCommandLineOption tax{QStringLiteral("tax"), QStringLiteral("The tax rate, 1-7 or A-G."),
                           QStringLiteral("RATE")};
    QCommandLineOption dept{QStringLiteral("dept"), QStringLiteral("The department number."),
                            QStringLiteral("N")};
    QCommandLineOption unit{QStringLiteral("unit"), QStringLiteral("The unit, by number or name."),
                            QStringLiteral("UNIT")};
    QCommandLineOption precision{QStringLiteral("precision"),
                                 QStringLiteral("Decimal places of quantities, 0-3."),
                                 QStringLiteral("N")};
    QCommandLineOption barcode{QStringLiteral("barcode"), QStringLiteral("The main barcode."),
                               QStringLiteral("CODE")};
    QCommandLineOption blocked{QStringLiteral("blocked"), QStringLiteral("Sale blocked (yes/no)."),
                               QStringLiteral("YES|NO")};
    QCommandLineOption pack{QStringLiteral("pack"), QStringLiteral("A pack (yes/no)."),
                            QStringLiteral("YES|NO")};
    QCommandLineOption noDiscounts{QStringLiteral("no-discounts"),
                                   QStringLiteral("Discounts and surcharges blocked (yes/no)."),
                                   QStringLiteral("YES|NO")};
    QCommandLineOption freePrice{QStringLiteral("free-price"),
                                 QStringLiteral("An open price may be typed in (yes/no)."),
                                 QStringLiteral("YES|NO")};
    QCommandLineOption handy{QStringLiteral("handy"), QStringLiteral("On the handy list (yes/no)."),
                             QStringLiteral("YES|NO")};
    QCommandLineOption scale{QStringLiteral("scale"), QStringLiteral("The scale number."),
                             QStringLiteral("N")};
    QCommandLineOption linkPlu{QStringLiteral("link-plu"),
                               QStringLiteral("The PLU of a linked article."), QStringLiteral("N")};

    void AddTo(QCommandLineParser& parser) const {
        parser.addOptions({plu, name, price, tax, dept, unit, precision, barcode, blocked, pack,
                           noDiscounts, freePrice, handy, scale, linkPlu});
    }

    // Applies the options given on the command line to `article`.
    bool Apply(const QCommandLineParser& parser, const ArticleInput& input, Article& article,
               QString& error) const {
        auto optional = [&](const QCommandLineOption& option, auto read) {
            return !parser.isSet(option) || read(parser.value(option));
        };
        return optional(plu,
                        [&](const QString& v) { return input.Plu(v, article.pluNo, error); }) &&
               optional(name,
                        [&](const QString& v) { return input.Name(v, article.name, error); }) &&
               optional(price,
                        [&](const QString& v) { return input.Price(v, article.price, error); }) &&
               optional(
                   tax,
                   [&](const QString& v) { return input.TaxRate(v, article.taxRateNo, error); }) &&
               optional(dept,
                        [&](const QString& v) { return input.Dept(v, article.deptNo, error); }) &&
               optional(unit,
                        [&](const QString& v) { return input.Unit(v, article.unitNo, error); }) &&
               optional(precision,
                        [&](const QString& v) {
                            return input.Precision(v, article.quantityPrecision, error);
                        }) &&
               optional(barcode,
                        [&](const QString& v) {
                            return input.Barcode(v, article.mainBarcode, error);
                        }) &&
               optional(
                   blocked,
                   [&](const QString& v) { return input.Flag(v, article.saleBlocked, error); }) &&
               optional(pack,
                        [&](const QString& v) { return input.Flag(v, article.isPack, error); }) &&
               optional(
                   noDiscounts,
                   [&](const QString& v) { return input.Flag(v, article.discSurBlock, error); }) &&
               optional(freePrice,
                        [&](const QString& v) {
                            return input.Flag(v, article.freePriceAllow, error);
                        }) &&
               optional(
                   handy,
                   [&](const QString& v) { return input.Flag(v, article.onHandyList, error); }) &&
               optional(scale,
                        [&](const QString& v) { return input.Scale(v, article.scaleNo, error); }) &&
               optional(linkPlu, [&](const QString& v) {
                   return input.LinkPlu(v, article.linkPluNo, error);
               });
    }
};

// Reads a PLU given as a command argument.
bool readPlu(Tool& tool, const ArticleInput& input, const QString& text, unsigned int& plu,
             int& exit) {
    QString error;
    if (!input.Plu(text, plu, error)) {
        exit = tool.Fail(EXIT_USAGE, error);
        return false;
    }
    return true;
}

// Finds the article of a PLU; prints why not and sets `exit` otherwise.
bool findPlu(Tool& tool, unsigned int plu, Article& article, int& exit) {
    const int result = tool.Articles().GetSeeker()->FindPlu(plu, article, false);
    if (result == 0) {
        return true;
    }
    exit = result == ArticleSeeker::RESULT_NOT_FOUND
               ? tool.Fail(EXIT_NOT_FOUND, QStringLiteral("no article has PLU %1").arg(plu),
                           QStringLiteral("'articlectl list' shows the PLUs in use"))
               : tool.Fail(ExitCodeFor(result),
                           QStringLiteral("PLU %1 could not be looked up").arg(plu));
    return false;
}

// The amount to pay for one scan: the label's price, the weight times the price per kilogram
// (rounded half up to a minor unit), or one piece.
qint64 amountToPay(const Article& article, bool special, const SpecialBarcodeReading& reading) {
    if (special && reading.type == SPECIAL_BARCODE_PRICE) {
        return reading.value;
    }
    if (special && reading.type == SPECIAL_BARCODE_WEIGHT) {
        return (article.price * reading.value + gramsPerKilogram / 2) / gramsPerKilogram;
    }
    return article.price;
}

// The longest label prefix on file that `code` begins with; empty when none does.
QString labelPrefixOf(Tool& tool, const QString& code) {
    QList<SpecialBarcodePrefix*> prefixes;
    QString longest;
    if (tool.Articles().GetBarcodePrefixDBManager()->LoadPrefixesByType(SPECIAL_BARCODE_NONE,
                                                                        prefixes) == 0) {
        for (const SpecialBarcodePrefix* prefix : prefixes) {
            if (!prefix->GetPrefix().isEmpty() && code.startsWith(prefix->GetPrefix()) &&
                prefix->GetPrefix().size() > longest.size()) {
                longest = prefix->GetPrefix();
            }
        }
    }
    qDeleteAll(prefixes);
    return longest;
}

QString kindName(SpecialBarcodeSubjectType type) {
    switch (type) {
        case SPECIAL_BARCODE_WEIGHT:
            return QStringLiteral("weight");
        case SPECIAL_BARCODE_PRICE:
            return QStringLiteral("price");
        default:
            return QStringLiteral("none");
    }
}

}  // namespace

int RunAdd(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Adds an article. Without --plu it gets the lowest free PLU; --name is required."));
    ArticleOptions options;
    options.AddTo(parser);
    const QCommandLineOption extra(QStringLiteral("extra-barcode"),
                                   QStringLiteral("An additional barcode (repeatable)."),
                                   QStringLiteral("CODE"));
    parser.addOption(extra);
    int exit = tool.ParseCommand(parser, arguments, 0, 0, false);
    if (exit >= 0) {
        return exit;
    }
    if (!parser.isSet(options.name)) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("an article needs a name"),
                         QStringLiteral("add --name \"Chleb wiejski\""));
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    ArticleInput input(tool.Articles(), tool.Database());
    Article article;
    article.taxRateNo = 1;
    article.deptNo = 1;
    article.unitNo = 1;
    QString error;
    QStringList extras;
    if (!parser.isSet(options.tax) &&
        !input.TaxRate(QStringLiteral("1"), article.taxRateNo, error)) {
        return tool.Fail(EXIT_USAGE, error, QStringLiteral("give --tax"));
    }
    if (!parser.isSet(options.dept) && !input.Dept(QStringLiteral("1"), article.deptNo, error)) {
        return tool.Fail(EXIT_USAGE, error, QStringLiteral("give --dept"));
    }
    if (!options.Apply(parser, input, article, error)) {
        return tool.Fail(EXIT_USAGE, error);
    }
    for (const QString& code : parser.values(extra)) {
        QString barcode;
        if (!input.Barcode(code, barcode, error)) {
            return tool.Fail(EXIT_USAGE, error);
        }
        extras.append(barcode);
    }
    if (!parser.isSet(options.plu)) {
        QVariant free;
        if (tool.Articles().GetSeeker()->FindFirstUnusedPlu(free) != 0) {
            return tool.Fail(EXIT_DATABASE, QStringLiteral("no free PLU could be found"));
        }
        article.pluNo = free.toUInt();
    }
    return tool.InTransaction([&]() -> int {
        CatalogueWriter writer(tool.Articles());
        const int result = writer.Write(article, extras, CatalogueWriter::CreateOnly, error);
        if (result != 0) {
            return tool.Fail(ExitCodeFor(result), error);
        }
        Article stored;
        tool.Articles().GetSeeker()->FindPlu(article.pluNo, stored, false);
        tool.Out() << "Added " << ArticleView::Line(stored) << " (id " << stored.id << ")\n";
        return EXIT_DONE;
    });
}

int RunEdit(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Changes the article of PLU; only the fields given change. --plu renumbers it."));
    parser.addPositionalArgument(QStringLiteral("PLU"), QStringLiteral("The article to change."));
    ArticleOptions options;
    options.AddTo(parser);
    int exit = tool.ParseCommand(parser, arguments, 1, 1, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    ArticleInput input(tool.Articles(), tool.Database());
    unsigned int plu = 0;
    Article article;
    if (!readPlu(tool, input, parser.positionalArguments().first(), plu, exit) ||
        !findPlu(tool, plu, article, exit)) {
        return exit;
    }
    const QString oldMain = article.mainBarcode;
    QString error;
    if (!options.Apply(parser, input, article, error)) {
        return tool.Fail(EXIT_USAGE, error);
    }
    Article other;
    if (article.pluNo != plu &&
        tool.Articles().GetSeeker()->FindPlu(article.pluNo, other, false) == 0) {
        return tool.Fail(
            EXIT_REFUSED,
            QStringLiteral("PLU %1 is already taken by \"%2\"").arg(article.pluNo).arg(other.name));
    }
    return tool.InTransaction([&]() -> int {
        ArticleManager& manager = tool.Articles();
        if (parser.isSet(options.barcode) && article.mainBarcode != oldMain) {
            manager.GetBarcodeManager()->DeleteBarcodes(article.id, MAIN_BARCODE);
            const int added =
                manager.GetBarcodeManager()->AddRecord(article.id, article.mainBarcode, true);
            if (added != 0) {
                return tool.Fail(
                    ExitCodeFor(added),
                    QStringLiteral("barcode %1 is already on file").arg(article.mainBarcode),
                    QStringLiteral("'articlectl scan %1' shows whose it is")
                        .arg(article.mainBarcode));
            }
        }
        const int result = manager.GetEditor()->EditRecord(article);
        if (result != 0) {
            return tool.Fail(
                ExitCodeFor(result),
                result == DB_OPERATION_CONSTRAINT
                    ? QStringLiteral("the name \"%1\" is already used").arg(article.name)
                    : QStringLiteral("PLU %1 could not be changed").arg(plu));
        }
        Article stored;
        manager.GetSeeker()->FindById(article.id, stored, false);
        tool.Out() << "Changed " << ArticleView::Line(stored) << "\n";
        return EXIT_DONE;
    });
}

int RunDelete(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Deletes the article of PLU, its barcodes, and other articles' links to it."));
    parser.addPositionalArgument(QStringLiteral("PLU"), QStringLiteral("The article to delete."));
    int exit = tool.ParseCommand(parser, arguments, 1, 1, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    ArticleInput input(tool.Articles(), tool.Database());
    unsigned int plu = 0;
    Article article;
    if (!readPlu(tool, input, parser.positionalArguments().first(), plu, exit) ||
        !findPlu(tool, plu, article, exit)) {
        return exit;
    }
    return tool.InTransaction([&]() -> int {
        ArticleManager& manager = tool.Articles();
        if (manager.GetBarcodeManager()->DeleteBarcodes(article, ALL_BARCODES) != 0 ||
            manager.GetEditor()->RemoveAllLinksToGivenArticle(plu) ||  // true means it failed
            manager.GetEditor()->DeleteRecord(article) != 0) {
            return tool.Fail(EXIT_DATABASE, QStringLiteral("PLU %1 could not be deleted").arg(plu));
        }
        tool.Out() << "Deleted " << ArticleView::Line(article) << "\n";
        return EXIT_DONE;
    });
}

int RunShow(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Shows an article: by PLU, or by what the option says."));
    parser.addPositionalArgument(QStringLiteral("KEY"),
                                 QStringLiteral("A PLU, or the id, name or barcode."));
    const QCommandLineOption byId(QStringLiteral("id"), QStringLiteral("KEY is the record id."));
    const QCommandLineOption byName(
        QStringLiteral("name"),
        QStringLiteral("KEY is the name (a pattern: % any text, _ any letter)."));
    const QCommandLineOption byBarcode(QStringLiteral("barcode"),
                                       QStringLiteral("KEY is a barcode."));
    parser.addOptions({byId, byName, byBarcode});
    int exit = tool.ParseCommand(parser, arguments, 1, 1, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    ArticleSeeker* seeker = tool.Articles().GetSeeker();
    ArticleInput input(tool.Articles(), tool.Database());
    const QString key = parser.positionalArguments().first();
    Article article;
    int result = 0;
    if (parser.isSet(byName)) {
        result = seeker->FindName(key.normalized(QString::NormalizationForm_C), article);
    } else if (parser.isSet(byBarcode)) {
        result = seeker->FindArticleByBarcode(key, article, false);
    } else {
        unsigned int number = 0;
        QString error;
        if (!input.Plu(key, number, error)) {
            return tool.Fail(EXIT_USAGE, error,
                             QStringLiteral("use --name or --barcode for other keys"));
        }
        result = parser.isSet(byId) ? seeker->FindById(number, article, false)
                                    : seeker->FindPlu(number, article, false);
    }
    if (result != 0) {
        return tool.Fail(ExitCodeFor(result),
                         result == ArticleSeeker::RESULT_NOT_FOUND
                             ? QStringLiteral("no article matches '%1'").arg(key)
                         : result == ArticleSeeker::RESULT_AMBIGUOUS_BARCODE
                             ? QStringLiteral("barcode %1 is on more than one article").arg(key)
                             : QStringLiteral("the lookup failed"));
    }
    const QStringList extras = ArticleView::ExtraBarcodes(tool.Articles(), article);
    if (tool.Json()) {
        tool.PrintJson(ArticleView::Json(article, extras));
    } else {
        ArticleView::PrintDetails(tool.Out(), tool.Articles(), article, extras);
    }
    return EXIT_DONE;
}

int RunList(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Lists the articles whose PLU lies in a range."));
    parser.addPositionalArgument(QStringLiteral("FROM"),
                                 QStringLiteral("The first PLU (default 1)."),
                                 QStringLiteral("[FROM"));
    parser.addPositionalArgument(QStringLiteral("TO"),
                                 QStringLiteral("The last PLU (default: all)."),
                                 QStringLiteral("[TO]]"));
    const QCommandLineOption handy(QStringLiteral("handy"),
                                   QStringLiteral("Only articles on the handy list."));
    parser.addOption(handy);
    int exit = tool.ParseCommand(parser, arguments, 0, 2, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    ArticleInput input(tool.Articles(), tool.Database());
    const QStringList range = parser.positionalArguments();
    unsigned int from = 1;
    unsigned int to = highestPlu;
    if ((range.size() > 0 && !readPlu(tool, input, range[0], from, exit)) ||
        (range.size() > 1 && !readPlu(tool, input, range[1], to, exit))) {
        return exit;
    }
    if (from > to) {
        return tool.Fail(EXIT_USAGE,
                         QStringLiteral("the range %1-%2 is reversed").arg(from).arg(to),
                         QStringLiteral("give the lower PLU first"));
    }
    // A page at a time: JSON is printed as it is read; the table needs every row for its
    // column widths.
    ArticleView::ExtraBarcodeReader extras(tool.Articles(), tool.Database());
    std::unique_ptr<ArticleView::JsonListPrinter> json;
    if (tool.Json()) {
        json =
            std::make_unique<ArticleView::JsonListPrinter>(tool.Out(), QStringLiteral("articles"));
    }
    QVector<Article> articles;
    int count = 0;
    QList<Article> page;
    for (unsigned int next = from;;) {
        const int result = tool.Articles().GetSeeker()->FindNextPlu(next, pageSize, page, false);
        if (result == ArticleSeeker::RESULT_NOT_FOUND) {
            break;
        }
        if (result != ArticleSeeker::RESULT_FOUND) {
            if (json) {
                json->Finish({{QStringLiteral("count"), count}});
            }
            return tool.Fail(ExitCodeFor(result),
                             QStringLiteral("the articles could not be listed"));
        }
        for (const Article& article : page) {
            if (article.pluNo > to || (parser.isSet(handy) && !article.onHandyList)) {
                continue;
            }
            ++count;
            if (json) {
                json->Add(ArticleView::Json(article, extras.Of(article)));
            } else {
                articles.append(article);
            }
        }
        if (page.last().pluNo >= to) {
            break;
        }
        next = page.last().pluNo + 1;
    }
    if (json) {
        json->Finish({{QStringLiteral("count"), count}});
    } else {
        ArticleView::PrintTable(tool.Out(), articles);
    }
    return count == 0 ? EXIT_NOT_FOUND : EXIT_DONE;
}

namespace {

int runStep(Tool& tool, const QStringList& arguments, bool forward) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        forward ? QStringLiteral("Shows the article with the next PLU above PLU.")
                : QStringLiteral("Shows the article with the next PLU below PLU."));
    parser.addPositionalArgument(QStringLiteral("PLU"), QStringLiteral("Where to start."));
    int exit = tool.ParseCommand(parser, arguments, 1, 1, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    ArticleInput input(tool.Articles(), tool.Database());
    unsigned int plu = 0;
    if (!readPlu(tool, input, parser.positionalArguments().first(), plu, exit)) {
        return exit;
    }
    unsigned int found = 0;
    ArticleSeeker* seeker = tool.Articles().GetSeeker();
    const int result =
        forward ? seeker->FindNextPlu(plu, found, false) : seeker->FindPrevPlu(plu, found, false);
    if (result != 0) {
        return tool.Fail(ExitCodeFor(result), result == ArticleSeeker::RESULT_NOT_FOUND
                                                  ? QStringLiteral("no article %1 PLU %2")
                                                        .arg(forward ? QStringLiteral("after")
                                                                     : QStringLiteral("before"))
                                                        .arg(plu)
                                                  : QStringLiteral("the lookup failed"));
    }
    Article article;
    if (!findPlu(tool, found, article, exit)) {
        return exit;
    }
    if (tool.Json()) {
        tool.PrintJson(
            ArticleView::Json(article, ArticleView::ExtraBarcodes(tool.Articles(), article)));
    } else {
        tool.Out() << ArticleView::Line(article) << "\n";
    }
    return EXIT_DONE;
}

}  // namespace

int RunNext(Tool& tool, const QStringList& arguments) {
    return runStep(tool, arguments, true);
}

int RunPrev(Tool& tool, const QStringList& arguments) {
    return runStep(tool, arguments, false);
}

int RunFirstFreePlu(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Prints the lowest PLU that no article uses."));
    int exit = tool.ParseCommand(parser, arguments, 0, 0, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    QVariant plu;
    const int result = tool.Articles().GetSeeker()->FindFirstUnusedPlu(plu);
    if (result != 0) {
        return tool.Fail(ExitCodeFor(result), QStringLiteral("the free PLU could not be found"));
    }
    if (tool.Json()) {
        tool.PrintJson(QJsonObject{{QStringLiteral("plu"), plu.toLongLong()}});
    } else {
        tool.Out() << plu.toLongLong() << "\n";
    }
    return EXIT_DONE;
}

int RunCount(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Counts the articles whose PLU lies in a range (default: all)."));
    parser.addPositionalArgument(QStringLiteral("FROM"), QStringLiteral("The first PLU."),
                                 QStringLiteral("[FROM"));
    parser.addPositionalArgument(QStringLiteral("TO"), QStringLiteral("The last PLU."),
                                 QStringLiteral("[TO]]"));
    const QCommandLineOption handy(QStringLiteral("handy"),
                                   QStringLiteral("Only articles on the handy list."));
    parser.addOption(handy);
    int exit = tool.ParseCommand(parser, arguments, 0, 2, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    ArticleInput input(tool.Articles(), tool.Database());
    const QStringList range = parser.positionalArguments();
    unsigned int from = 0;
    unsigned int to = highestPlu;
    if ((range.size() > 0 && !readPlu(tool, input, range[0], from, exit)) ||
        (range.size() > 1 && !readPlu(tool, input, range[1], to, exit))) {
        return exit;
    }
    unsigned int count = 0;
    const int result =
        tool.Articles().GetSeeker()->CountPluInRange(from, to, count, parser.isSet(handy));
    if (result == ArticleSeeker::RESULT_INVALID_RANGE) {
        return tool.Fail(EXIT_USAGE,
                         QStringLiteral("the range %1-%2 is reversed").arg(from).arg(to),
                         QStringLiteral("give the lower PLU first"));
    }
    if (result != 0) {
        return tool.Fail(ExitCodeFor(result), QStringLiteral("the articles could not be counted"));
    }
    if (tool.Json()) {
        tool.PrintJson(QJsonObject{{QStringLiteral("count"), static_cast<qint64>(count)}});
    } else {
        tool.Out() << count << "\n";
    }
    return EXIT_DONE;
}

int RunScan(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Does what the register does when CODE is scanned: recognises scale labels, finds the "
        "article and shows what to pay."));
    parser.addPositionalArgument(QStringLiteral("CODE"), QStringLiteral("The scanned code."));
    int exit = tool.ParseCommand(parser, arguments, 1, 1, true);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    const QString code = parser.positionalArguments().first();
    const bool checkDigitWrong = !Gs1::CheckDigitValid(code);
    const QString expectedDigit =
        checkDigitWrong ? QString(Gs1::CheckDigit(code.left(code.size() - 1))) : QString();
    // A label the scale misprinted or the scanner misread is not read as a label at all: the
    // register looks the whole code up as an ordinary barcode, and finds nothing or the wrong
    // article. Say so rather than "not found".
    const QString labelPrefix =
        checkDigitWrong && code.size() == ean13Length ? labelPrefixOf(tool, code) : QString();
    if (!labelPrefix.isEmpty()) {
        return tool.Fail(
            EXIT_USAGE,
            QStringLiteral("%1 begins with the label prefix %2 but its check digit is wrong "
                           "(%3, should be %4): the register does not read it as a scale label")
                .arg(code, labelPrefix, QString(code.back()), expectedDigit),
            QStringLiteral("scan the label again, or print a new one"));
    }
    SpecialBarcodeReading reading;
    const bool special =
        tool.Articles().GetBarcodeManager()->GetSpecialBarcodeRecognizer()->Read(code, reading);
    Article article;
    const int result = tool.Articles().GetSeeker()->FindArticleByBarcode(code, article, false);
    if (result == ArticleSeeker::RESULT_NOT_FOUND) {
        return tool.Fail(
            EXIT_NOT_FOUND,
            special
                ? QStringLiteral("scale label %1 names article barcode %2, which no article has")
                      .arg(code, reading.articleBarcode)
            : checkDigitWrong
                ? QStringLiteral("no article has barcode %1, whose check digit is wrong (should "
                                 "be %2): a misread?")
                      .arg(code, expectedDigit)
                : QStringLiteral("no article has barcode %1").arg(code),
            checkDigitWrong && !special
                ? QStringLiteral("scan it again")
                : QStringLiteral("add it with 'articlectl barcode add PLU %1'")
                      .arg(special ? reading.articleBarcode : code));
    }
    if (result == ArticleSeeker::RESULT_AMBIGUOUS_BARCODE) {
        return tool.Fail(
            EXIT_REFUSED, QStringLiteral("barcode %1 is on more than one article").arg(code),
            QStringLiteral("remove it from the wrong one with 'articlectl barcode delete'"));
    }
    if (result != ArticleSeeker::RESULT_FOUND) {
        return tool.Fail(ExitCodeFor(result), QStringLiteral("the lookup failed"));
    }
    const qint64 toPay = amountToPay(article, special, reading);
    if (tool.Json()) {
        QJsonValue label = QJsonValue::Null;
        if (special) {
            const bool weight = reading.type == SPECIAL_BARCODE_WEIGHT;
            const bool price = reading.type == SPECIAL_BARCODE_PRICE;
            label = QJsonObject{
                {QStringLiteral("prefix"), reading.prefix},
                {QStringLiteral("kind"), kindName(reading.type)},
                {QStringLiteral("article_barcode"), reading.articleBarcode},
                {QStringLiteral("value"), static_cast<qint64>(reading.value)},
                {QStringLiteral("weight_kg"),
                 weight ? QJsonValue(reading.value / 1000.0) : QJsonValue(QJsonValue::Null)},
                {QStringLiteral("price"),
                 price ? ArticleView::Money(reading.value) : QJsonValue(QJsonValue::Null)}};
        }
        tool.PrintJson(QJsonObject{
            {QStringLiteral("code"), code},
            {QStringLiteral("label"), label},
            {QStringLiteral("article"),
             ArticleView::Json(article, ArticleView::ExtraBarcodes(tool.Articles(), article))},
            {QStringLiteral("to_pay"), ArticleView::Money(toPay)}});
        return EXIT_DONE;
    }
    QTextStream& out = tool.Out();
    if (special && reading.type == SPECIAL_BARCODE_WEIGHT) {
        out << "Scale label: weight " << QString::number(reading.value / 1000.0, 'f', 3)
            << " kg (prefix " << reading.prefix << ", article " << reading.articleBarcode << ")\n";
    } else if (special && reading.type == SPECIAL_BARCODE_PRICE) {
        out << "Scale label: price " << ArticleView::Price(reading.value) << " (prefix "
            << reading.prefix << ", article " << reading.articleBarcode << ")\n";
    } else if (special) {
        out << "Store label: value " << reading.value << " (prefix " << reading.prefix
            << ", article " << reading.articleBarcode << ")\n";
    }
    out << ArticleView::Line(article) << "\n";
    if (article.saleBlocked) {
        out << "SALE BLOCKED: the register refuses this article\n";
    } else {
        out << "To pay: " << ArticleView::Price(toPay) << "\n";
    }
    return EXIT_DONE;
}

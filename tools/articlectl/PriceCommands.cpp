// price set PLU VALUE and price convert RATE.

#include <QJsonObject>
#include <cmath>
#include <limits>

#include "ArticleInput.h"
#include "ArticleView.h"
#include "Commands.h"
#include "CurrencyExchangeRate.h"
#include "PriceValue.h"
#include "Tool.h"

namespace {

constexpr qint64 priceCap = 999999999;
constexpr unsigned int maxRateDigits = 8;
constexpr unsigned int pageSize = 1000;

// What the library's conversion makes of one price (the same integer arithmetic).
qint64 converted(qint64 price, const CurrencyExchangeRate& rate) {
    const double power = std::pow(10.0, static_cast<double>(rate.GetPrecisionDigits()) + 1.0);
    const qint64 scale = power >= static_cast<double>(std::numeric_limits<int>::max())
                             ? std::numeric_limits<int>::max()
                             : static_cast<qint64>(power);
    const qint64 rounded = (price * scale / rate.GetNumberValue() + 5) / 10;
    return rounded >= priceCap ? priceCap : rounded;
}

int setPrice(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Sets the price of the article of PLU."));
    parser.addPositionalArgument(QStringLiteral("PLU"), QStringLiteral("The article."));
    parser.addPositionalArgument(QStringLiteral("VALUE"),
                                 QStringLiteral("The new price, e.g. 12.99."));
    int exit = tool.ParseCommand(parser, arguments, 2, 2, false);
    if (exit >= 0) {
        return exit;
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    ArticleInput input(tool.Articles(), tool.Database());
    unsigned int plu = 0;
    qint64 price = 0;
    QString error;
    if (!input.Plu(parser.positionalArguments()[0], plu, error) ||
        !input.Price(parser.positionalArguments()[1], price, error)) {
        return tool.Fail(EXIT_USAGE, error);
    }
    Article article;
    const int found = tool.Articles().GetSeeker()->FindPlu(plu, article, false);
    if (found != ArticleSeeker::RESULT_FOUND) {
        return tool.Fail(ExitCodeFor(found), QStringLiteral("no article has PLU %1").arg(plu));
    }
    const int result = tool.Articles().GetEditor()->UpdateArticlePrice(plu, PriceValue(price));
    if (result != 0) {
        return tool.Fail(ExitCodeFor(result), QStringLiteral("the price could not be changed"));
    }
    tool.Out() << "PLU " << plu << " " << article.name << ": " << ArticleView::Price(article.price)
               << " -> " << ArticleView::Price(price) << "\n";
    return EXIT_DONE;
}

int convertPrices(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Converts every price to a new currency: each price is divided by RATE (old currency "
        "units per new unit, e.g. 4.3210), rounded half up to the new minor unit, capped at "
        "9999999.99. All prices change or none."));
    parser.addPositionalArgument(QStringLiteral("RATE"),
                                 QStringLiteral("The exchange rate, e.g. 4.3210."));
    int exit = tool.ParseCommand(parser, arguments, 1, 1, true);
    if (exit >= 0) {
        return exit;
    }
    const CurrencyExchangeRate rate(parser.positionalArguments().first());
    if (!rate.IsValid() || rate.GetNumberValue() <= 0 ||
        rate.GetPrecisionDigits() > maxRateDigits) {
        return tool.Fail(
            EXIT_USAGE,
            QStringLiteral("rate '%1' is not a positive decimal number with at most %2 decimals")
                .arg(parser.positionalArguments().first())
                .arg(maxRateDigits));
    }
    if (!tool.StartLibrary() || !tool.BackUp()) {
        return EXIT_DATABASE;
    }
    qint64 articles = 0;
    qint64 changed = 0;
    const int result = tool.InTransaction([&]() -> int {
        // Count what the conversion will change, reading the catalogue page by page.
        ArticleSeeker* seeker = tool.Articles().GetSeeker();
        unsigned int from = 0;
        QList<Article> page;
        while (seeker->FindNextPlu(from, pageSize, page, false) == 0) {
            for (const Article& article : page) {
                ++articles;
                if (converted(article.price, rate) != article.price) {
                    ++changed;
                }
            }
            if (page.last().pluNo == std::numeric_limits<unsigned int>::max()) {
                break;
            }
            from = page.last().pluNo + 1;
        }
        const int conversion = tool.Articles().GetEditor()->ChangeAllArticlesPrices(rate);
        if (conversion != 0) {
            return tool.Fail(ExitCodeFor(conversion),
                             QStringLiteral("the prices could not be converted"),
                             QStringLiteral("nothing was changed; see the log"));
        }
        return EXIT_DONE;
    });
    if (result != EXIT_DONE) {
        return result;
    }
    if (tool.Json()) {
        tool.PrintJson(QJsonObject{{QStringLiteral("rate"), rate.ToString()},
                                   {QStringLiteral("articles"), articles},
                                   {QStringLiteral("changed"), changed}});
    } else {
        tool.Out() << "Converted the prices at rate " << rate.ToString() << ": " << changed
                   << " of " << articles << " articles changed.\n";
    }
    return EXIT_DONE;
}

}  // namespace

const QList<Command>& PriceCommands() {
    static const QList<Command> commands = {
        {"set", "set the price of one article", setPrice, Access::Write, nullptr,
         "price set 12345 5.49"},
        {"convert", "divide every price by an exchange rate (a change of currency)", convertPrices,
         Access::Write, nullptr, "price convert 4.3210"},
    };
    return commands;
}

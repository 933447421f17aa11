// demo: builds a sample shop in a fresh file and runs a short register session on it.

#include <QFileInfo>

#include "ArticleView.h"
#include "CatalogueGenerator.h"
#include "CatalogueWriter.h"
#include "Commands.h"
#include "ScaleLabelRecognizer.h"
#include "Tool.h"

namespace {

constexpr int defaultShopSize = 300;
const TaxRates shopRates = {{2300, 800, 500, 0, 65535, 65535, 61440}, 2};

// The label a scale prints for `article` (whose main barcode is a label's article part)
// carrying `value` grams or minor units.
QString scaleLabel(const Article& article, unsigned int value) {
    const QString twelve =
        article.mainBarcode.left(7) + QString::number(value).rightJustified(5, QLatin1Char('0'));
    return twelve + QString::number(SpecialBarcodeRecognizer::Ean13CheckDigit(twelve));
}

// One scan as the register shows it.
void scan(Tool& tool, const QString& code) {
    QTextStream& out = tool.Out();
    ArticleManager& manager = tool.Articles();
    out << "\n> scan " << code << "\n";
    SpecialBarcodeReading reading;
    const bool special =
        manager.GetBarcodeManager()->GetSpecialBarcodeRecognizer()->Read(code, reading);
    Article article;
    const int result = manager.GetSeeker()->FindArticleByBarcode(code, article, false);
    if (result != 0) {
        out << "  not found: the register asks for the PLU or a price\n";
        return;
    }
    qint64 toPay = article.price;
    if (special && reading.type == SPECIAL_BARCODE_WEIGHT) {
        out << "  scale label, weight " << QString::number(reading.value / 1000.0, 'f', 3)
            << " kg\n";
        toPay = (article.price * reading.value + 500) / 1000;
    } else if (special && reading.type == SPECIAL_BARCODE_PRICE) {
        out << "  scale label, price " << ArticleView::Price(reading.value) << "\n";
        toPay = reading.value;
    }
    out << "  " << ArticleView::Line(article) << "\n  to pay " << ArticleView::Price(toPay) << "\n";
}

}  // namespace

int RunDemo(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Builds a sample shop (Polish goods, weighed goods with scale labels, departments and tax "
        "rates) in a fresh database file and runs a short register session on it."));
    const QCommandLineOption sizeOption(QStringLiteral("articles"),
                                        QStringLiteral("How many articles (default 300)."),
                                        QStringLiteral("N"));
    parser.addOption(sizeOption);
    int exit = tool.ParseCommand(parser, arguments, 0, 0, false);
    if (exit >= 0) {
        return exit;
    }
    bool ok = true;
    const int size =
        parser.isSet(sizeOption) ? parser.value(sizeOption).toInt(&ok) : defaultShopSize;
    if (!ok || size < 10 || size > CatalogueGenerator::Capacity()) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("--articles takes a number from 10 to %1")
                                         .arg(CatalogueGenerator::Capacity()));
    }
    if (QFileInfo(tool.DatabasePath()).size() > 0) {
        return tool.Fail(EXIT_REFUSED,
                         QStringLiteral("the demo builds its shop in a new file, and %1 exists")
                             .arg(tool.DatabasePath()),
                         QStringLiteral("give --db the name of a file that does not exist yet"));
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    ArticleManager& manager = tool.Articles();
    const CatalogueGenerator generator;
    const QVector<GeneratedArticle> shop = generator.Batch(size);
    int weighed = 0;
    int barcodes = 0;
    const int built = tool.InTransaction([&]() -> int {
        DeptDBManager* depts = manager.GetDeptDBManager();
        if (!depts->ResetTable() || !manager.GetTaxRatesManager()->ResetTable() ||
            manager.GetTaxRatesManager()->UpdateRecord(shopRates) != 0 ||
            !manager.GetBarcodePrefixDBManager()->ResetTable()) {
            return tool.Fail(EXIT_DATABASE,
                             QStringLiteral("the shop's settings could not be written"));
        }
        for (const GeneratedDept& dept : CatalogueGenerator::Departments()) {
            const QSharedPointer<const Dept> current = depts->GetDept(dept.id);
            depts->AddOrUpdateRecord(QSharedPointer<const Dept>::create(
                dept.id, dept.name,
                static_cast<unsigned int>(current->GetMaxDiscount().GetNumberValue()),
                static_cast<unsigned int>(current->GetMaxSurcharge().GetNumberValue()),
                current->isDiscountBlocked, current->isOrderPrinter));
        }
        CatalogueWriter writer(manager);
        for (const GeneratedArticle& generated : shop) {
            QString error;
            if (writer.Write(generated.article, generated.extraBarcodes,
                             CatalogueWriter::CreateOnly, error) != 0) {
                return tool.Fail(
                    EXIT_DATABASE,
                    QStringLiteral("the sample shop could not be built: %1").arg(error));
            }
            weighed += generated.weighed ? 1 : 0;
            barcodes += 1 + generated.extraBarcodes.size();
        }
        return EXIT_DONE;
    });
    if (built != EXIT_DONE) {
        return built;
    }
    QTextStream& out = tool.Out();
    out << "Built a sample shop in " << tool.DatabasePath() << ": " << size << " articles ("
        << weighed << " weighed), " << barcodes << " barcodes, "
        << CatalogueGenerator::Departments().size()
        << " departments, tax rates A 23 %, B 8 %, C 5 %, D 0 %, G exempt.\n";
    out << "\nA short register session:\n";

    const GeneratedArticle& packaged = shop.first();
    const GeneratedArticle* byWeight = nullptr;
    const GeneratedArticle* byPrice = nullptr;
    const GeneratedArticle* withExtra = nullptr;
    for (const GeneratedArticle& generated : shop) {
        const bool priceLabel = generated.article.mainBarcode.startsWith(QStringLiteral("29"));
        if (generated.weighed && !priceLabel && !byWeight) {
            byWeight = &generated;
        } else if (generated.weighed && priceLabel && !byPrice) {
            byPrice = &generated;
        } else if (!generated.extraBarcodes.isEmpty() && !withExtra) {
            withExtra = &generated;
        }
    }
    scan(tool, packaged.article.mainBarcode);
    if (byWeight) {
        scan(tool, scaleLabel(byWeight->article, 1234));
    }
    if (byPrice) {
        scan(tool, scaleLabel(byPrice->article, 1999));
    }
    if (withExtra) {
        scan(tool, withExtra->extraBarcodes.first());
    }
    scan(tool, QStringLiteral("5909990000005"));

    // Typed in capitals, as a cashier might: the search folds Polish letters too.
    QString typed = QStringLiteral("CHLEB");
    for (const GeneratedArticle& generated : shop) {
        const QString noun = generated.article.name.section(QLatin1Char(' '), 0, 0);
        if (noun.toUtf8().size() != noun.size() && noun.size() > 3) {  // holds a Polish letter
            typed = noun.toUpper();
            break;
        }
    }
    out << "\n> search \"" << typed << "\"\n";
    QVector<Article> found;
    manager.GetSeeker()->FindNameInfix(typed, found);
    for (int i = 0; i < found.size() && i < 5; ++i) {
        out << "  " << ArticleView::Line(found[i]) << "\n";
    }
    out << "  (" << found.size() << " found"
        << (found.size() > 5 ? QStringLiteral(", the first 5 shown") : QString()) << ")\n";

    const Article& changed = packaged.article;
    const qint64 newPrice = changed.price + 100;
    out << "\n> price set " << changed.pluNo << " " << ArticleView::Price(newPrice) << "\n";
    if (manager.GetEditor()->UpdateArticlePrice(changed.pluNo, PriceValue(newPrice)) != 0) {
        return tool.Fail(EXIT_DATABASE, QStringLiteral("the price could not be changed"));
    }
    out << "  " << ArticleView::Price(changed.price) << " -> " << ArticleView::Price(newPrice)
        << "\n";
    scan(tool, changed.mainBarcode);
    out << "\nTry more: articlectl --db " << tool.DatabasePath()
        << QStringLiteral(" search kiełbasa\n");
    return EXIT_DONE;
}

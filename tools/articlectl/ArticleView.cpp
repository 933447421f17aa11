#include "ArticleView.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <climits>

#include "DBData.h"
#include "DBRow.h"
#include "TablePrinter.h"

namespace ArticleView {

namespace {

// Up to this many articles, their barcodes are read article by article; a longer list reads
// every additional barcode of the catalogue at once.
constexpr int barcodesReadOneByOne = 64;

}  // namespace

QString Price(qint64 minorUnits) {
    const quint64 magnitude =
        minorUnits < 0 ? 0 - static_cast<quint64>(minorUnits) : static_cast<quint64>(minorUnits);
    return QStringLiteral("%1%2.%3")
        .arg(minorUnits < 0 ? QStringLiteral("-") : QString())
        .arg(magnitude / 100)
        .arg(magnitude % 100, 2, 10, QLatin1Char('0'));
}

QJsonValue Money(qint64 minorUnits) {
    return static_cast<double>(minorUnits) / 100.0;
}

QStringList ExtraBarcodes(ArticleManager& manager, const Article& article) {
    QStringList extras;
    ArticleBarcodes barcodes(article.id);
    if (manager.GetBarcodeManager()->Load(barcodes) == DB_OPERATION_SUCCESS) {
        for (const Barcode* barcode : barcodes.GetBarcodes()) {
            if (!barcode->IsMain()) {
                extras.append(barcode->GetBarcode());
            }
        }
    }
    return extras;
}

ExtraBarcodeReader::ExtraBarcodeReader(ArticleManager& manager, DBManager& database)
    : manager(manager), database(database) {}

QStringList ExtraBarcodeReader::Of(const Article& article) {
    if (!readAll && ++readOneByOne > barcodesReadOneByOne) {
        readAll = true;
        QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
        // In row order, as an article's own barcodes are read.
        if (database.Load(QStringLiteral("ArticleBarcode"),
                          {QStringLiteral("article_id"), QStringLiteral("barcode")},
                          QStringLiteral("is_main = 0 ORDER BY id"),
                          rows) == DB_OPERATION_SUCCESS) {
            for (const DBRow* row : *rows) {
                all[row->GetValue(QStringLiteral("article_id")).toUInt()].append(
                    row->GetValue(QStringLiteral("barcode")).toString());
            }
        } else {
            all.clear();
            readAll = false;
            readOneByOne = INT_MIN;  // article by article after all
        }
    }
    return readAll ? all.value(article.id) : ExtraBarcodes(manager, article);
}

QJsonObject Json(const Article& article, const QStringList& extraBarcodes) {
    return QJsonObject{
        {QStringLiteral("id"), static_cast<qint64>(article.id)},
        {QStringLiteral("plu"), static_cast<qint64>(article.pluNo)},
        {QStringLiteral("name"), article.name},
        {QStringLiteral("price"), Money(article.price)},
        {QStringLiteral("tax_rate"), article.taxRateNo},
        {QStringLiteral("dept"), article.deptNo},
        {QStringLiteral("unit"), article.unitNo},
        {QStringLiteral("unit_name"), article.unitName},
        {QStringLiteral("quantity_precision"), article.quantityPrecision},
        {QStringLiteral("main_barcode"), article.mainBarcode},
        {QStringLiteral("extra_barcodes"), QJsonArray::fromStringList(extraBarcodes)},
        {QStringLiteral("sale_blocked"), article.saleBlocked},
        {QStringLiteral("pack"), article.isPack},
        {QStringLiteral("discounts_blocked"), article.discSurBlock},
        {QStringLiteral("free_price"), article.freePriceAllow},
        {QStringLiteral("handy_list"), article.onHandyList},
        {QStringLiteral("scale"), article.scaleNo},
        {QStringLiteral("link_plu"), static_cast<qint64>(article.linkPluNo)},
    };
}

QJsonObject Json(const Barcode& barcode, unsigned int plu) {
    return QJsonObject{{QStringLiteral("id"), static_cast<qint64>(barcode.GetId())},
                       {QStringLiteral("article_id"), static_cast<qint64>(barcode.GetArticleId())},
                       {QStringLiteral("plu"), static_cast<qint64>(plu)},
                       {QStringLiteral("barcode"), barcode.GetBarcode()},
                       {QStringLiteral("main"), barcode.IsMain()}};
}

JsonListPrinter::JsonListPrinter(QTextStream& out, const QString& listKey) : out(out) {
    out << "{\n    \"" << listKey << "\": [";
}

void JsonListPrinter::Add(const QJsonObject& item) {
    QByteArray text = QJsonDocument(item).toJson(QJsonDocument::Indented);
    text.chop(1);  // the last line break
    text.replace("\n", "\n        ");
    out << (first ? "\n        " : ",\n        ") << QString::fromUtf8(text);
    first = false;
}

void JsonListPrinter::Finish(const QJsonObject& after) {
    // The keys that follow the list, as QJsonDocument indents an object's members.
    QByteArray members = QJsonDocument(after).toJson(QJsonDocument::Indented);
    members = members.mid(2, members.size() - 4);  // without "{\n" and "}\n"
    out << "\n    ]" << (members.isEmpty() ? "\n" : ",\n") << QString::fromUtf8(members) << "}\n";
}

void PrintTable(QTextStream& out, const QVector<Article>& articles) {
    TablePrinter table({QStringLiteral("PLU>"), QStringLiteral("NAME"), QStringLiteral("PRICE>"),
                        QStringLiteral("UNIT"), QStringLiteral("BARCODE")});
    for (const Article& article : articles) {
        table.AddRow({QString::number(article.pluNo), article.name, Price(article.price),
                      article.unitName, article.mainBarcode});
    }
    table.Print(out);
}

QString Line(const Article& article) {
    return QStringLiteral("PLU %1  %2  %3 / %4")
        .arg(article.pluNo)
        .arg(article.name, Price(article.price), article.unitName);
}

void PrintDetails(QTextStream& out, ArticleManager& manager, const Article& article,
                  const QStringList& extraBarcodes) {
    const TaxRate* rate = manager.GetTaxRatesManager()->GetRecord(article.taxRateNo);
    const QSharedPointer<const Dept> dept = manager.GetDeptDBManager()->GetDept(article.deptNo);
    auto yesNo = [](bool flag) { return flag ? QStringLiteral("yes") : QStringLiteral("no"); };
    out << "PLU:               " << article.pluNo << "\n"
        << "Name:              " << article.name << "\n"
        << "Price:             " << Price(article.price) << " / " << article.unitName << "\n"
        << "Tax rate:          " << article.taxRateNo
        << (rate ? QStringLiteral(" (%1)").arg(rate->GetName()) : QString()) << "\n"
        << "Department:        " << article.deptNo
        << (dept && !dept->GetName().isEmpty() ? QStringLiteral(" (%1)").arg(dept->GetName())
                                               : QString())
        << "\n"
        << "Unit:              " << article.unitNo << " (" << article.unitName << ")\n"
        << "Quantity decimals: " << article.quantityPrecision << "\n"
        << "Main barcode:      " << article.mainBarcode << "\n"
        << "Other barcodes:    " << extraBarcodes.join(QLatin1Char(' ')) << "\n"
        << "Sale blocked:      " << yesNo(article.saleBlocked) << "\n"
        << "Pack:              " << yesNo(article.isPack) << "\n"
        << "Discounts blocked: " << yesNo(article.discSurBlock) << "\n"
        << "Free price:        " << yesNo(article.freePriceAllow) << "\n"
        << "Handy list:        " << yesNo(article.onHandyList) << "\n"
        << "Scale:             " << article.scaleNo << "\n"
        << "Linked PLU:        " << article.linkPluNo << "\n"
        << "Record id:         " << article.id << "\n";
}

}  // namespace ArticleView

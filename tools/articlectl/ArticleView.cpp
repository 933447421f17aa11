#include "ArticleView.h"

#include <QJsonArray>

namespace ArticleView {

QString Price(qint64 minorUnits) {
    const qint64 magnitude = minorUnits < 0 ? -minorUnits : minorUnits;
    return QStringLiteral("%1%2.%3")
        .arg(minorUnits < 0 ? QStringLiteral("-") : QString())
        .arg(magnitude / 100)
        .arg(magnitude % 100, 2, 10, QLatin1Char('0'));
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

QJsonObject Json(const Article& article, const QStringList& extraBarcodes) {
    return QJsonObject{
        {QStringLiteral("id"), static_cast<qint64>(article.id)},
        {QStringLiteral("plu"), static_cast<qint64>(article.pluNo)},
        {QStringLiteral("name"), article.name},
        {QStringLiteral("price"), Price(article.price)},
        {QStringLiteral("price_minor_units"), article.price},
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

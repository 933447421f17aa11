#pragma once

#include <QString>

// Names of the tables and columns the library reads and writes, each written once.
namespace TableSchema {

namespace Article {
inline const QString table = QStringLiteral("Article");
inline const QString id = QStringLiteral("id");
inline const QString pluNo = QStringLiteral("plu_no");
inline const QString name = QStringLiteral("art_name");
inline const QString taxRateNo = QStringLiteral("tax_rate_no");
inline const QString deptNo = QStringLiteral("dept_no");
inline const QString quantityPrecision = QStringLiteral("quantity_precision");
inline const QString unitNo = QStringLiteral("unit_no");
inline const QString saleBlocked = QStringLiteral("sale_bloc");
inline const QString mainBarcode = QStringLiteral("main_barcode");
inline const QString price = QStringLiteral("price");
inline const QString isPack = QStringLiteral("is_pack");
inline const QString discSurBlock = QStringLiteral("disc_sur_block");
inline const QString freePriceAllow = QStringLiteral("free_price_allow");
inline const QString onHandyList = QStringLiteral("on_handy_list");
inline const QString scaleNo = QStringLiteral("scale_no");
inline const QString linkPluNo = QStringLiteral("link_plu_no");
}  // namespace Article

namespace ArticleBarcode {
inline const QString table = QStringLiteral("ArticleBarcode");
inline const QString id = QStringLiteral("id");
inline const QString articleId = QStringLiteral("article_id");
inline const QString barcode = QStringLiteral("barcode");
inline const QString isMain = QStringLiteral("is_main");
}  // namespace ArticleBarcode

namespace Dept {
inline const QString table = QStringLiteral("Dept");
inline const QString id = QStringLiteral("dept_id");
inline const QString name = QStringLiteral("dept_name");
inline const QString isDiscountBlocked = QStringLiteral("is_discount_blocked");
inline const QString isOrderPrinter = QStringLiteral("is_order_printer");
inline const QString maxDiscount = QStringLiteral("max_discount");
inline const QString maxSurcharge = QStringLiteral("max_surcharge");
}  // namespace Dept

namespace TaxRates {
inline const QString table = QStringLiteral("TaxRates");
inline const QString id = QStringLiteral("tax_rate_id");
inline const QString name = QStringLiteral("tax_rate_name");
inline const QString value = QStringLiteral("tax_rate_val");
}  // namespace TaxRates

}  // namespace TableSchema

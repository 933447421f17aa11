#pragma once

#include <QString>
#include <QtGlobal>

// One row of the Article table: an item sold under a PLU number.
class Article {
public:
    unsigned int id = 0;                  // "id", the record key
    unsigned int pluNo = 0;               // "plu_no", the article's number at the till
    QString name;                         // "art_name"
    unsigned char taxRateNo = 0;          // "tax_rate_no"
    unsigned char deptNo = 0;             // "dept_no"
    unsigned char quantityPrecision = 0;  // "quantity_precision", decimal places of quantities
    unsigned char unitNo = 0;             // "unit_no", unit of measure
    bool saleBlocked = false;             // "sale_bloc", the article may not be sold
    QString mainBarcode;                  // "main_barcode"
    qint64 price = 0;                     // "price", in the currency's minor unit
    bool isPack = false;                  // "is_pack"
    bool discSurBlock = false;            // "disc_sur_block", discounts and surcharges blocked
    bool freePriceAllow = false;          // "free_price_allow", an open price may be typed in
    bool onHandyList = false;             // "on_handy_list", on the quick-access list
    unsigned char scaleNo = 0;            // "scale_no"
    unsigned int linkPluNo = 0;           // "link_plu_no", PLU of a linked article
    QString unitName;                     // name of unit unitNo, filled when the row is read
    QString reservedText1;                // kept for the application; never filled by this library
    QString reservedText2;
    QString reservedText3;

    // Compares the sixteen column fields; unitName and the reserved texts take no part.
    bool operator==(const Article& other) const {
        return id == other.id && pluNo == other.pluNo && name == other.name &&
               taxRateNo == other.taxRateNo && deptNo == other.deptNo &&
               quantityPrecision == other.quantityPrecision && unitNo == other.unitNo &&
               saleBlocked == other.saleBlocked && mainBarcode == other.mainBarcode &&
               price == other.price && isPack == other.isPack &&
               discSurBlock == other.discSurBlock && freePriceAllow == other.freePriceAllow &&
               onHandyList == other.onHandyList && scaleNo == other.scaleNo &&
               linkPluNo == other.linkPluNo;
    }
    bool operator!=(const Article& other) const { return !(*this == other); }
};

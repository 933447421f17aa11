#include "Barcode.h"

Barcode::Barcode() : articleId(0), isMain(false) {}

Barcode::Barcode(unsigned int id, unsigned int articleId, const QString& barcode, bool isMain)
    : AbstractDatabaseBasicRecord(id), articleId(articleId), barcode(barcode), isMain(isMain) {}

bool Barcode::operator==(const Barcode& other) const {
    return GetId() == other.GetId() && articleId == other.articleId && barcode == other.barcode &&
           isMain == other.isMain;
}

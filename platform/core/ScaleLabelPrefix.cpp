#include "ScaleLabelPrefix.h"

SpecialBarcodePrefix::SpecialBarcodePrefix(unsigned int id, const QString& prefix,
                                           SpecialBarcodeSubjectType type)
    : AbstractDatabaseBasicRecord(id), prefix(prefix), type(type) {}

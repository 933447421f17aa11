#pragma once

#include <QString>

#include "AbstractDatabaseBasicRecord.h"
#include "ScaleLabelKind.h"
#include "VexCoreGlobal.h"

// One row of the SpecialBarcodePrefixes table: a barcode prefix and the kind of value that
// barcodes beginning with it carry.
class VEXCORE_EXPORT SpecialBarcodePrefix : public AbstractDatabaseBasicRecord {
public:
    SpecialBarcodePrefix(unsigned int id, const QString& prefix, SpecialBarcodeSubjectType type);

    const QString& GetPrefix() const { return prefix; }
    SpecialBarcodeSubjectType GetType() const { return type; }

private:
    QString prefix;
    SpecialBarcodeSubjectType type;
};

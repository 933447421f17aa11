#pragma once

#include <QString>

#include "AbstractDatabaseBasicRecord.h"
#include "VexCoreGlobal.h"

// A unit of measure (pieces, kilogram, ...), one row of the Units table.
class VEXCORE_EXPORT Unit : public AbstractDatabaseBasicRecord {
public:
    Unit(unsigned int id, const QString& name);
    const QString& GetName() const { return name; }

private:
    QString name;
};

#include "Unit.h"

Unit::Unit(unsigned int id, const QString& name) : AbstractDatabaseBasicRecord(id), name(name) {}

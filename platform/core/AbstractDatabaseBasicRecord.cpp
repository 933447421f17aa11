#include "AbstractDatabaseBasicRecord.h"

AbstractDatabaseBasicRecord::AbstractDatabaseBasicRecord(unsigned int id) : id(id) {}

AbstractDatabaseBasicRecord::~AbstractDatabaseBasicRecord() = default;

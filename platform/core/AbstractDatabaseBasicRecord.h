#pragma once

#include "VexCoreGlobal.h"

// Base of the records kept in database tables: each has a numeric id.
class VEXCORE_EXPORT AbstractDatabaseBasicRecord {
public:
    explicit AbstractDatabaseBasicRecord(unsigned int id = 0);
    virtual ~AbstractDatabaseBasicRecord();

    unsigned int GetId() const { return id; }
    void SetId(unsigned int newId) { id = newId; }

protected:
    unsigned int id;
};

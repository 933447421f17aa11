#pragma once

#include <QString>

#include "AbstractDatabaseTableManager.h"
#include "ArticleManagerGlobal.h"
#include "DBManager.h"
#include "TaxRates.h"
#include "TaxRatesList.h"

// Keeps the register's seven tax rates: the TaxRates table of the article database and an
// in-memory list mirroring it. No lock of its own.
//
// Results: 0 done, 3 the table is empty, 4 database error, 6 not initialised.
class ARTICLEMANAGER_EXPORT TaxRatesManager : public AbstractDatabaseTableManager {
public:
    TaxRatesManager();
    // Frees the list container only; Uninitialize() frees the records.
    ~TaxRatesManager() override;

    using AbstractDatabaseTableManager::Initialize;
    // Binds the manager to G::dbArticles and loads the rates; an empty table gets the default
    // rates (2300, 800, 500, 0, 65535, 65535, 61440). False (logged) when there is no database
    // or table, or the table cannot be read.
    bool Initialize();
    // Empties the list; always true.
    bool Uninitialize() override;
    // Reloads the list: 0, 3 (empty table, logged at level 3) or 4.
    int getRecordsFromDB() override;
    // Rewrites the table as seven unused rates "A" to "G" (value 65535) and reloads.
    bool ResetTable() override;
    // Replaces every rate with those of `rates` and then calls the signal system's
    // tax-rates-changed callbacks with 0: 0 done (or nothing to replace), 4 the write failed
    // (the list is unchanged), 6 not initialised.
    int UpdateRecord(const TaxRates& rates);

    // The first rate with that id (or exactly that name), or null.
    TaxRate* GetRecord(unsigned int id);
    TaxRate* GetRecord(const QString& name);
    // Whether a rate of that name exists and is in use.
    bool IsSet(const QString& name);
    // Whether a rate of that name exists; false when not initialised.
    bool IsRecordExist(const QString& name);
    // Rates are never deleted one by one: does nothing and returns false.
    bool DeleteRecord(const QString& name);
    // The one-letter code of rate `id` for printing: false when there is no such rate or its
    // name is not one character.
    bool GetTaxRateASCIIChar(unsigned char id, char& out);

    // The rates as loaded, in table order.
    const TaxRatesList& GetRecords() const { return taxRates; }

private:
    // One row per rate of `list`, as Initialize and UpdateRecord write them.
    QSharedPointer<DBData> rowsOf(const TaxRatesList& list) const;

    TaxRatesList taxRates;
};

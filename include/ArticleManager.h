#pragma once

#include "ArticleBarcodeManager.h"
#include "ArticleEditor.h"
#include "ArticleManagerGlobal.h"
#include "ArticleSeeker.h"
#include "BarcodePrefixDBManager.h"
#include "CurrentMaxPLUManager.h"
#include "DBManager.h"
#include "DeptDBManager.h"
#include "SystemBase.h"
#include "TaxRatesManager.h"

// The one object through which the register reaches its article database (system 29). It owns
// the seven sub-managers, brings them up against one database in a fixed order, hands them
// out and tears them down. The library creates it at load time and publishes it as
// G::articleManager; XCLASS_gArticleManager initialises it with G::dbArticles.
//
// States: 1 constructed, 2 a system it needs is not ready, 3 initialised, 4 initialisation
// failed, 5 uninitialised.
class ARTICLEMANAGER_EXPORT ArticleManager : public SystemBase {
public:
    // Creates the sub-managers and initialises nothing (state 1, system 29).
    ArticleManager();
    // Tears down the sub-managers if Uninitialize has not.
    ~ArticleManager() override;

    ArticleManager(const ArticleManager&) = delete;
    ArticleManager& operator=(const ArticleManager&) = delete;

    // Initialises the seeker, editor, departments, tax rates, barcodes, prefixes and PLU width
    // in this order, stopping at the first failure (nothing rolled back). True when all succeed.
    bool Initialize(DBManager* db);
    // Uninitialises and deletes every sub-manager; the getters answer null afterwards. Call it
    // at most once. Always true.
    bool Uninitialize();

    // Each getter returns its sub-manager, or null after Uninitialize.
    ArticleEditor* GetEditor() { return editor; }
    ArticleSeeker* GetSeeker() { return seeker; }
    DeptDBManager* GetDeptDBManager() { return deptDBManager; }
    TaxRatesManager* GetTaxRatesManager() { return taxRatesManager; }
    ArticleBarcodeManager* GetBarcodeManager() { return barcodeManager; }
    BarcodePrefixDBManager* GetBarcodePrefixDBManager() { return barcodePrefixDBManager; }
    CurrentMaxPLUManager* GetCurrentMaxPLUManager() { return currentMaxPLUManager; }

private:
    ArticleEditor* editor;
    ArticleSeeker* seeker;
    DeptDBManager* deptDBManager;
    TaxRatesManager* taxRatesManager;
    ArticleBarcodeManager* barcodeManager;
    BarcodePrefixDBManager* barcodePrefixDBManager;
    CurrentMaxPLUManager* currentMaxPLUManager;
};

namespace G {
// The library's article manager, set when the library is loaded.
extern ARTICLEMANAGER_EXPORT ArticleManager* articleManager;
}  // namespace G

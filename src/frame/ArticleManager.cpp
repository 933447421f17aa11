#include "ArticleManager.h"

#include "DBCloser.h"
#include "LibraryLog.h"

namespace {

const QString msgNoDatabase =
    QStringLiteral("ArticleManager construction FAILED! DBManager inaccessible!");
const QString msgFailedSuffix = QStringLiteral(" initialization FAILED!");
const QString msgInitialized = QStringLiteral("ArticleManager initialized!");

// The systems the article manager needs: the application logger, the article database, the
// signal system and the payment system.
const SystemBase::SystemsNames neededSystems[] = {
    SystemBase::SYSTEM_APP_LOGGER,
    SystemBase::SYSTEM_ARTICLES_DB,
    SystemBase::SYSTEM_SIGNALS,
    SystemBase::SYSTEM_PAYMENT,
};

template <typename T>
void deleteAndClear(T*& pointer) {
    delete pointer;
    pointer = nullptr;
}

}  // namespace

ArticleManager::ArticleManager()
    : SystemBase(QStringLiteral("ArticleManager"), 0, STATE_CONSTRUCTED)
    , editor(nullptr)
    , seeker(nullptr)
    , deptDBManager(nullptr)
    , taxRatesManager(nullptr)
    , barcodeManager(nullptr)
    , barcodePrefixDBManager(nullptr)
    , currentMaxPLUManager(nullptr) {
    seeker = new ArticleSeeker();
    editor = new ArticleEditor();
    deptDBManager = new DeptDBManager();
    taxRatesManager = new TaxRatesManager();
    barcodeManager = new ArticleBarcodeManager();
    barcodePrefixDBManager = new BarcodePrefixDBManager();
    currentMaxPLUManager = new CurrentMaxPLUManager();
    SetSystemNumber(SYSTEM_ARTICLE_MANAGER);
    for (SystemsNames system : neededSystems) {
        AddDependency(system);
    }
}

ArticleManager::~ArticleManager() {
    // The sub-managers exist together until Uninitialize frees them together; tearing them down
    // the same way also frees the tax rate records, which their manager's destructor keeps.
    if (seeker) {
        Uninitialize();
    }
}

bool ArticleManager::Initialize(DBManager* db) {
    if (!db) {
        LogMessage(logLevelError, msgNoDatabase);
        return false;
    }
    DBCloser closer(db);
    if (!seeker->Initialize(db)) {
        LogMessage(logLevelError, QStringLiteral("ArticleSeeker") + msgFailedSuffix);
        return false;
    }
    if (!editor->Initialize(db, seeker)) {
        LogMessage(logLevelError, QStringLiteral("ArticleEditor") + msgFailedSuffix);
        return false;
    }
    if (!deptDBManager->Initialize(db)) {
        LogMessage(logLevelError, QStringLiteral("DeptDBManager") + msgFailedSuffix);
        return false;
    }
    if (!taxRatesManager->Initialize()) {
        LogMessage(logLevelError, QStringLiteral("TaxRatesManager") + msgFailedSuffix);
        return false;
    }
    if (!barcodeManager->Initialize(db, seeker)) {
        LogMessage(logLevelError, QStringLiteral("ArticleBarcodeManager") + msgFailedSuffix);
        return false;
    }
    if (!barcodePrefixDBManager->Initialize(db)) {
        LogMessage(logLevelError, QStringLiteral("BarcodePrefixDBManager") + msgFailedSuffix);
        return false;
    }
    // The last step reports its failure only through the result.
    if (!currentMaxPLUManager->Initialize(db)) {
        return false;
    }
    LogMessage(logLevelNotice, msgInitialized);
    return true;
}

bool ArticleManager::Uninitialize() {
    seeker->Uninitialize();
    editor->Uninitialize();
    deptDBManager->Uninitialize();
    static_cast<AbstractDatabaseTableManager*>(taxRatesManager)->Uninitialize();
    barcodeManager->Uninitialize();
    deleteAndClear(seeker);
    deleteAndClear(editor);
    deleteAndClear(deptDBManager);
    deleteAndClear(taxRatesManager);
    deleteAndClear(barcodeManager);
    deleteAndClear(barcodePrefixDBManager);
    deleteAndClear(currentMaxPLUManager);
    return true;
}

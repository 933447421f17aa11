#pragma once

#include "ArticleManager.h"
#include "ArticleManagerGlobal.h"
#include "SystemInitializer.h"

// Starts and stops the article manager for the SystemManager. The library registers one, for
// G::articleManager, when it is loaded.
class ARTICLEMANAGER_EXPORT XCLASS_gArticleManager : public SystemInitializer {
public:
    // Drives `manager`; initialises nothing yet.
    explicit XCLASS_gArticleManager(ArticleManager* manager);
    ~XCLASS_gArticleManager();

    // Initialises the manager with G::dbArticles once the logger, article database, signals and
    // payment system are ready. Returns and stores the state: 3 ready, 2 not yet, 4 failed.
    int Initialize() override;
    // Uninitialises the article manager; state 5.
    int Uninitialize() override;
};

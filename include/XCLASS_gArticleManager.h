#pragma once

#include "ArticleManager.h"
#include "ArticleManagerGlobal.h"
#include "SystemInitializer.h"

// Starts and stops the article manager for the SystemManager. The library registers one, for
// G::articleManager, when it is loaded.
class ARTICLEMANAGER_EXPORT XCLASS_gArticleManager : public SystemInitializer {
public:
    explicit XCLASS_gArticleManager(ArticleManager* manager);
    ~XCLASS_gArticleManager();

    // Initialises the article manager with G::dbArticles once the logger, the article
    // database, the signal system and the payment system are ready. Returns and stores the
    // new state: 2 something needed is not ready (nothing touched; try again later), 4 failed
    // (error text "Article Manager initialization FAILED!"), 3 ready.
    int Initialize() override;
    // Uninitialises the article manager; state 5.
    int Uninitialize() override;
};

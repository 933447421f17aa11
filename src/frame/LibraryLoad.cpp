// What happens when the library is loaded: the article manager is created and published, and
// its initializer is registered with the system manager. In this order, within this file.

#include "ArticleManager.h"
#include "SystemManager.h"
#include "XCLASS_gArticleManager.h"

namespace {

ArticleManager globalArticleManager;

ArticleManager* publish(ArticleManager& manager) {
    return &manager;
}

}  // namespace

namespace G {
ArticleManager* articleManager = publish(globalArticleManager);
}  // namespace G

namespace {

XCLASS_gArticleManager globalInitializer(&globalArticleManager);

// Registers at load; unregisters at unload so that the system manager never calls into an
// unloaded library.
struct Registration {
    Registration() { SystemManager::Instance()->RegisterSystemInitializer(&globalInitializer); }
    ~Registration() {
        SystemManager::Instance()->UnregisterSystemInitializer(&globalInitializer);
        G::articleManager = nullptr;
    }
};

Registration registration;

}  // namespace

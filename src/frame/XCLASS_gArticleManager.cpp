#include "XCLASS_gArticleManager.h"

#include "Globals.h"
#include "Logger.h"
#include "PaymentSystem.h"
#include "SignalSystem.h"

namespace {
const QString failureText = QStringLiteral("Article Manager initialization FAILED!");
}  // namespace

XCLASS_gArticleManager::XCLASS_gArticleManager(ArticleManager* manager)
    : SystemInitializer(manager) {}

XCLASS_gArticleManager::~XCLASS_gArticleManager() = default;

int XCLASS_gArticleManager::Initialize() {
    auto* manager = static_cast<ArticleManager*>(system);
    const bool dependenciesExist =
        G::appLogger && G::appLogger->GetState() == SystemBase::STATE_READY && G::dbArticles &&
        G::dbArticles->GetState() == SystemBase::STATE_READY && G::getSignals &&
        G::getSignals->GetState() == SystemBase::STATE_READY && G::paymentSystem;
    if (!dependenciesExist || G::paymentSystem->GetState() != SystemBase::STATE_READY) {
        manager->SetState(SystemBase::STATE_NOT_READY);
        return SystemBase::STATE_NOT_READY;
    }
    if (!manager->Initialize(G::dbArticles)) {
        manager->SetState(SystemBase::STATE_FAILED);
        manager->SetErrorText(failureText);
        return SystemBase::STATE_FAILED;
    }
    manager->SetState(SystemBase::STATE_READY);
    return SystemBase::STATE_READY;
}

int XCLASS_gArticleManager::Uninitialize() {
    auto* manager = static_cast<ArticleManager*>(system);
    manager->Uninitialize();
    manager->SetState(SystemBase::STATE_UNINITIALIZED);
    return SystemBase::STATE_UNINITIALIZED;
}

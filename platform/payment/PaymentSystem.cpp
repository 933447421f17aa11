#include "PaymentSystem.h"

PaymentSystem::PaymentSystem() : SystemBase(QStringLiteral("PaymentSystem"), 0, STATE_READY) {
    SetSystemNumber(SYSTEM_PAYMENT);
    AddDependency(SYSTEM_APP_LOGGER);
    AddDependency(SYSTEM_ARTICLES_DB);
}

PaymentSystem::~PaymentSystem() = default;

bool PaymentSystem::Initialize(DBManager* articles) {
    const bool ok = units.Initialize(articles);
    SetState(ok ? STATE_READY : STATE_FAILED);
    return ok;
}

void PaymentSystem::Uninitialize() {
    units.Uninitialize();
    SetState(STATE_UNINITIALIZED);
}

namespace {
PaymentSystem globalPaymentSystem;
}  // namespace

namespace G {
PaymentSystem* paymentSystem = &globalPaymentSystem;
}  // namespace G

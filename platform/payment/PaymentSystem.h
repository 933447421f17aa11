#pragma once

#include "PaymentSystemGlobal.h"
#include "SystemBase.h"
#include "UnitsDBManager.h"

class DBManager;

// The payment system (system 28). Of all it does on the device, this library provides what the
// article library needs: its state and its units of measure. It is ready from library load on,
// its units following G::dbArticles, so that no start-up step is needed before the article
// manager's.
class PAYMENTSYSTEM_EXPORT PaymentSystem : public SystemBase {
public:
    // Ready (state 3).
    PaymentSystem();
    ~PaymentSystem() override;

    // Binds the units to an article database and loads them; state 3 on success, 4 otherwise.
    bool Initialize(DBManager* articles);
    // State 5; the units are forgotten.
    void Uninitialize();

    // Never null.
    UnitsDBManager* GetUnitsDBManager() { return &units; }

private:
    UnitsDBManager units;
};

namespace G {
// The payment system; exists from library load on, ready.
extern PAYMENTSYSTEM_EXPORT PaymentSystem* paymentSystem;
}  // namespace G

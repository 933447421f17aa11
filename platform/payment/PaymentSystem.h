#pragma once

#include "PaymentSystemGlobal.h"
#include "SystemBase.h"
#include "UnitsDBManager.h"

class DBManager;

// The payment system (system 28). Of all it does on the device, this library provides what the
// article library needs: its state and its units of measure.
class PAYMENTSYSTEM_EXPORT PaymentSystem : public SystemBase {
public:
    // Constructed, state 1.
    PaymentSystem();
    ~PaymentSystem() override;

    // Loads the units of the article database; state 3 on success, 4 otherwise.
    bool Initialize(DBManager* articles);
    // State 5; the units are forgotten.
    void Uninitialize();

    // Never null; answers no unit until initialised.
    UnitsDBManager* GetUnitsDBManager() { return &units; }

private:
    UnitsDBManager units;
};

namespace G {
// The payment system; exists from library load on, in state 1 until initialised.
extern PAYMENTSYSTEM_EXPORT PaymentSystem* paymentSystem;
}  // namespace G

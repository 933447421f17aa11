#pragma once

#include "SystemBase.h"
#include "VexCoreGlobal.h"

// Brings one system up and down for the SystemManager. Each operation returns the system's new
// state, which it also stores in the system.
class VEXCORE_EXPORT SystemInitializer {
public:
    explicit SystemInitializer(SystemBase* system);

    SystemInitializer(const SystemInitializer&) = delete;
    SystemInitializer& operator=(const SystemInitializer&) = delete;

    // The default sets the driven system's state to 0 and returns 0.
    virtual int Initialize();
    // The default changes nothing and returns 0.
    virtual int Uninitialize();

    SystemBase* GetSystem() const { return system; }

protected:
    // Initializers are statics of the libraries that register them; nobody deletes one
    // through this base.
    ~SystemInitializer();

    SystemBase* system;
};

#pragma once

#include <QList>
#include <mutex>

#include "SystemInitializer.h"
#include "VexCoreGlobal.h"

// Starts and stops the device's systems. Libraries register one initializer per system when
// they are loaded; the application calls InitializeAll() once its databases are open.
class VEXCORE_EXPORT SystemManager {
public:
    // The one system manager of the process; exists from its first use until exit.
    static SystemManager* Instance();

    // Adds an initializer (not owned); registering one twice has no effect.
    void RegisterSystemInitializer(SystemInitializer* initializer);
    // Removes an initializer, e.g. when its library is unloaded.
    void UnregisterSystemInitializer(SystemInitializer* initializer);
    // The registered initializers, in registration order.
    QList<SystemInitializer*> GetSystemInitializers() const;

    // Initialises every registered system that is not ready yet, those a system depends on
    // first. A system that answers 2 (something it needs is not ready) is retried in the same
    // call as long as other systems make progress, and again at the next call. Failed (4) and
    // uninitialised (5) systems are not started again. True when every registered system is
    // ready (3).
    bool InitializeAll();
    // Uninitialises the ready and failed systems, dependants first.
    void UninitializeAll();

private:
    SystemManager();
    ~SystemManager();

    // The initializers ordered so that a system comes after those it depends on.
    QList<SystemInitializer*> inDependencyOrder() const;

    mutable std::recursive_mutex mutex;
    QList<SystemInitializer*> initializers;
};

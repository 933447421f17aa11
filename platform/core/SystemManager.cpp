#include "SystemManager.h"

#include <QSet>
#include <functional>

SystemManager* SystemManager::Instance() {
    static SystemManager instance;
    return &instance;
}

SystemManager::SystemManager() = default;

SystemManager::~SystemManager() = default;

void SystemManager::RegisterSystemInitializer(SystemInitializer* initializer) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (initializer && !initializers.contains(initializer)) {
        initializers.append(initializer);
    }
}

void SystemManager::UnregisterSystemInitializer(SystemInitializer* initializer) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    initializers.removeAll(initializer);
}

QList<SystemInitializer*> SystemManager::GetSystemInitializers() const {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    return initializers;
}

QList<SystemInitializer*> SystemManager::inDependencyOrder() const {
    // Depth-first over the dependencies among registered systems; a dependency on a system no
    // initializer drives (or a cycle) imposes no order.
    QList<SystemInitializer*> ordered;
    QSet<SystemInitializer*> visiting;
    std::function<void(SystemInitializer*)> visit = [&](SystemInitializer* initializer) {
        if (ordered.contains(initializer) || visiting.contains(initializer)) {
            return;
        }
        visiting.insert(initializer);
        const SystemBase* system = initializer->GetSystem();
        if (system) {
            for (SystemBase::SystemsNames needed : system->GetDependencies()) {
                for (SystemInitializer* other : initializers) {
                    if (other->GetSystem() && other->GetSystem()->GetSystemNumber() == needed) {
                        visit(other);
                    }
                }
            }
        }
        visiting.remove(initializer);
        ordered.append(initializer);
    };
    for (SystemInitializer* initializer : initializers) {
        visit(initializer);
    }
    return ordered;
}

bool SystemManager::InitializeAll() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    const QList<SystemInitializer*> ordered = inDependencyOrder();
    bool progress = true;
    while (progress) {
        progress = false;
        for (SystemInitializer* initializer : ordered) {
            const SystemBase* system = initializer->GetSystem();
            const int state = system ? system->GetState() : SystemBase::STATE_UNKNOWN;
            // An uninitialised system has torn down what it had: starting it again could only
            // use what is gone.
            if (state == SystemBase::STATE_READY || state == SystemBase::STATE_FAILED ||
                state == SystemBase::STATE_UNINITIALIZED) {
                continue;
            }
            if (initializer->Initialize() == SystemBase::STATE_READY) {
                progress = true;
            }
        }
    }
    for (SystemInitializer* initializer : ordered) {
        if (!initializer->GetSystem() ||
            initializer->GetSystem()->GetState() != SystemBase::STATE_READY) {
            return false;
        }
    }
    return true;
}

void SystemManager::UninitializeAll() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    const QList<SystemInitializer*> ordered = inDependencyOrder();
    for (auto it = ordered.crbegin(); it != ordered.crend(); ++it) {
        const SystemBase* system = (*it)->GetSystem();
        if (system && (system->GetState() == SystemBase::STATE_READY ||
                       system->GetState() == SystemBase::STATE_FAILED)) {
            (*it)->Uninitialize();
        }
    }
}

#include "SystemInitializer.h"

SystemInitializer::SystemInitializer(SystemBase* system) : system(system) {}

SystemInitializer::~SystemInitializer() = default;

int SystemInitializer::Initialize() {
    if (system) {
        system->SetState(SystemBase::STATE_UNKNOWN);
    }
    return SystemBase::STATE_UNKNOWN;
}

int SystemInitializer::Uninitialize() {
    return SystemBase::STATE_UNKNOWN;
}

#include "SystemBase.h"

SystemBase::SystemBase(const QString& name, int extra, int state)
    : systemNumber(SYSTEM_NONE), name(name), extra(extra), state(state) {}

SystemBase::~SystemBase() = default;

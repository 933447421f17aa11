#include "SignalSystem.h"

SignalSystem::SignalSystem() : SystemBase(QStringLiteral("SignalSystem"), 0, STATE_READY) {
    SetSystemNumber(SYSTEM_SIGNALS);
    AddDependency(SYSTEM_APP_LOGGER);
}

SignalSystem::~SignalSystem() = default;

namespace {

// A number cast to eSignal may lie outside the enumeration.
bool known(int signal, int count) {
    return signal >= 0 && signal < count;
}

}  // namespace

int SignalSystem::AddCallback(eSignal signal, const Callback& callback) {
    if (!callback || !known(signal, signalCount)) {
        return -1;
    }
    std::lock_guard<std::mutex> lock(mutex);
    lists[signal].append(callback);
    return lists[signal].size() - 1;
}

SignalSystem::CallbackList SignalSystem::GetCallbacks(eSignal signal) const {
    if (!known(signal, signalCount)) {
        return {};
    }
    std::lock_guard<std::mutex> lock(mutex);
    return lists[signal];
}

void SignalSystem::ClearCallbacks(eSignal signal) {
    if (!known(signal, signalCount)) {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex);
    lists[signal].clear();
}

void SignalSystem::Emit(eSignal signal, int value) const {
    // Called outside the lock, so that a callback may add callbacks or emit again.
    for (const Callback& callback : GetCallbacks(signal)) {
        callback(value);
    }
}

namespace {
SignalSystem globalSignalSystem;
}  // namespace

namespace G {
SignalSystem* getSignals = &globalSignalSystem;
}  // namespace G

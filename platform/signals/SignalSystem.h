#pragma once

#include <QList>
#include <functional>
#include <mutex>

#include "SignalSystemGlobal.h"
#include "SystemBase.h"

// The device's signal system (system 4): lists of callbacks, each taking one integer, that
// other parts of the register add to and that a library calls when something happened.
// Thread-safe.
class SIGNALSYSTEM_EXPORT SignalSystem : public SystemBase {
public:
    using Callback = std::function<void(int)>;
    using CallbackList = QList<Callback>;

    enum eSignal {
        // The tax rates were replaced (called with 0).
        SIGNAL_TAX_RATES_CHANGED = 0,
        // Every article was removed (called with 1).
        SIGNAL_ALL_ARTICLES_REMOVED = 1,
    };

    // Ready (state 3) with empty lists.
    SignalSystem();
    ~SignalSystem() override;

    // Appends a callback to a signal's list and returns its position; an empty callback is
    // refused (-1).
    int AddCallback(eSignal signal, const Callback& callback);
    // A copy of a signal's list, in the order the callbacks were added.
    CallbackList GetCallbacks(eSignal signal) const;
    void ClearCallbacks(eSignal signal);
    // Calls every callback of the list in order with `value`.
    void Emit(eSignal signal, int value) const;

private:
    static constexpr int signalCount = 2;
    mutable std::mutex mutex;
    CallbackList lists[signalCount];
};

namespace G {
// The signal system; exists from library load on, ready.
extern SIGNALSYSTEM_EXPORT SignalSystem* getSignals;
}  // namespace G

#pragma once

#include <QString>
#include <QVector>
#include <atomic>

#include "VexCoreGlobal.h"

// A numbered system of the device (logger, databases, signals, payment, article manager...)
// with a state, an error text and the systems it needs before it can start.
class VEXCORE_EXPORT SystemBase {
public:
    // System numbers. Only these are used by the systems built here.
    enum SystemsNames {
        SYSTEM_NONE = -1,
        SYSTEM_APP_LOGGER = 0,
        SYSTEM_SIGNALS = 4,
        SYSTEM_ARTICLES_DB = 5,
        SYSTEM_RECEIPTS_DB = 6,
        SYSTEM_PAYMENT = 28,
        SYSTEM_ARTICLE_MANAGER = 29,
    };

    // State values.
    enum eSystemState {
        STATE_UNKNOWN = 0,
        STATE_CONSTRUCTED = 1,
        STATE_NOT_READY = 2,  // a system it depends on is missing or not ready yet
        STATE_READY = 3,
        STATE_FAILED = 4,
        STATE_UNINITIALIZED = 5,
    };

    explicit SystemBase(const QString& name, int extra = 0, int state = STATE_CONSTRUCTED);
    virtual ~SystemBase();

    SystemBase(const SystemBase&) = delete;
    SystemBase& operator=(const SystemBase&) = delete;

    const QVector<SystemsNames>& GetDependencies() const { return dependencies; }
    SystemsNames GetSystemNumber() const { return systemNumber; }
    const QString& GetName() const { return name; }
    const QString& GetErrorText() const { return errorText; }
    int GetState() const { return state.load(); }

    void SetSystemNumber(SystemsNames number) { systemNumber = number; }
    void AddDependency(SystemsNames system) { dependencies.append(system); }
    void SetErrorText(const QString& text) { errorText = text; }
    void SetState(int newState) { state.store(newState); }

protected:
    QVector<SystemsNames> dependencies;
    SystemsNames systemNumber;
    QString name;
    QString errorText;
    int extra;
    std::atomic<int> state;
};

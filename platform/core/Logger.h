#pragma once

#include <QList>
#include <QPair>
#include <QSharedPointer>
#include <QString>
#include <mutex>

#include "LogAppender.h"
#include "SystemBase.h"
#include "VexCoreGlobal.h"

// The application logger (G::appLogger). Log() may be called from any thread: the logger
// serialises its output under its own mutex and hands each message to every appender whose
// threshold admits its level.
class VEXCORE_EXPORT Logger : public SystemBase {
public:
    enum eLogLevel {
        LOG_TRACE = 0,
        LOG_DEBUG = 1,
        LOG_INFO = 2,
        LOG_NOTICE = 3,  // progress and notices
        LOG_WARNING = 4,
        LOG_ERROR = 5,  // failures
    };

    // A ready logger (state 3) with no appenders.
    Logger();
    ~Logger() override;

    void Log(int level, const QString& text);

    void AddAppender(const QSharedPointer<LogAppender>& appender);
    void RemoveAppender(const QSharedPointer<LogAppender>& appender);
    void ClearAppenders();
    QList<QSharedPointer<LogAppender>> GetAppenders() const;

    // A name=value pair added to every formatted line (e.g. the register's serial number);
    // an empty value removes it.
    void SetVariable(const QString& name, const QString& value);

    // Appends the logger's variables to a message.
    void addVariableToLogString(QString& text) const;
    // Forms the line an appender writes: time, level and text.
    static void prepareLogText(const QString& text, QString& line, int level);

private:
    mutable std::mutex mutex;
    QList<QSharedPointer<LogAppender>> appenders;
    QList<QPair<QString, QString>> variables;
};

#include "Logger.h"

#include <QDateTime>

namespace {

constexpr int lineCapacity = 512;

const char* levelName(int level) {
    switch (level) {
        case Logger::LOG_TRACE:
            return "TRACE";
        case Logger::LOG_DEBUG:
            return "DEBUG";
        case Logger::LOG_INFO:
            return "INFO";
        case Logger::LOG_NOTICE:
            return "NOTICE";
        case Logger::LOG_WARNING:
            return "WARNING";
        case Logger::LOG_ERROR:
            return "ERROR";
        default:
            return "LEVEL";
    }
}

}  // namespace

Logger::Logger() : SystemBase(QStringLiteral("Logger"), 0, STATE_READY) {
    SetSystemNumber(SYSTEM_APP_LOGGER);
}

Logger::~Logger() = default;

void Logger::Log(int level, const QString& text) {
    std::lock_guard<std::mutex> lock(mutex);
    QString message = text;
    addVariableToLogString(message);
    QString line;
    line.reserve(lineCapacity);
    prepareLogText(message, line, level);
    for (const QSharedPointer<LogAppender>& appender : appenders) {
        if (appender->Admits(level)) {
            appender->Append(level, text, line);
        }
    }
}

void Logger::AddAppender(const QSharedPointer<LogAppender>& appender) {
    if (!appender) {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex);
    appenders.append(appender);
}

void Logger::RemoveAppender(const QSharedPointer<LogAppender>& appender) {
    std::lock_guard<std::mutex> lock(mutex);
    appenders.removeAll(appender);
}

void Logger::ClearAppenders() {
    std::lock_guard<std::mutex> lock(mutex);
    appenders.clear();
}

QList<QSharedPointer<LogAppender>> Logger::GetAppenders() const {
    std::lock_guard<std::mutex> lock(mutex);
    return appenders;
}

void Logger::SetVariable(const QString& name, const QString& value) {
    std::lock_guard<std::mutex> lock(mutex);
    for (int i = 0; i < variables.size(); ++i) {
        if (variables[i].first == name) {
            if (value.isEmpty()) {
                variables.removeAt(i);
            } else {
                variables[i].second = value;
            }
            return;
        }
    }
    if (!value.isEmpty()) {
        variables.append(qMakePair(name, value));
    }
}

void Logger::addVariableToLogString(QString& text) const {
    for (const auto& variable : variables) {
        text += QLatin1Char(' ') + variable.first + QLatin1Char('=') + variable.second;
    }
}

void Logger::prepareLogText(const QString& text, QString& line, int level) {
    line += QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
    line += QStringLiteral(" [");
    line += QLatin1String(levelName(level));
    line += QStringLiteral("] ");
    line += text;
}

#pragma once

#include <QString>

#include "Globals.h"
#include "Logger.h"

// Log levels the library uses.
constexpr int logLevelNotice = Logger::LOG_NOTICE;
constexpr int logLevelError = Logger::LOG_ERROR;

// Logs through the application logger, if there is one.
inline void LogMessage(int level, const QString& text) {
    if (G::appLogger) {
        G::appLogger->Log(level, text);
    }
}

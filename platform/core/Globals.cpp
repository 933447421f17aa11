#include "Globals.h"

#include <QSharedPointer>

#include "DBManager.h"
#include "Logger.h"
#include "StdErrLogAppender.h"

namespace G {
Logger* appLogger = nullptr;
DBManager* dbArticles = nullptr;
DBManager* dbReceipt = nullptr;
}  // namespace G

namespace {

// The database layer reports its failures through the application logger.
void logDatabaseMessage(int level, const QString& text) {
    if (G::appLogger) {
        G::appLogger->Log(level, text);
    }
}

// The logger that exists from library load until unload.
struct DefaultLogger {
    DefaultLogger() {
        logger.AddAppender(QSharedPointer<StdErrLogAppender>::create(Logger::LOG_ERROR));
        G::appLogger = &logger;
        DBManager::SetLogHandler(&logDatabaseMessage);
    }
    ~DefaultLogger() {
        DBManager::SetLogHandler(nullptr);
        if (G::appLogger == &logger) {
            G::appLogger = nullptr;
        }
    }
    Logger logger;
};

DefaultLogger defaultLogger;

}  // namespace

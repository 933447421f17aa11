#pragma once

#include "VexCoreGlobal.h"

class Logger;
class DBManager;

// The core library's globals, shared by every library of the device.
namespace G {
// The application logger; exists from library load on, ready (state 3), logging failures
// (level 5 and up) to standard error until the application configures its appenders.
extern VEXCORE_EXPORT Logger* appLogger;
// The open article and receipt databases; null until the application publishes them.
extern VEXCORE_EXPORT DBManager* dbArticles;
extern VEXCORE_EXPORT DBManager* dbReceipt;
}  // namespace G

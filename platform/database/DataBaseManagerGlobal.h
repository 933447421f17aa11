#pragma once

#include <QtGlobal>

// Marks the classes that libDataBaseManager exports; everything else stays hidden.
#if defined(DATABASEMANAGER_LIBRARY)
#define DATABASEMANAGER_EXPORT Q_DECL_EXPORT
#else
#define DATABASEMANAGER_EXPORT Q_DECL_IMPORT
#endif

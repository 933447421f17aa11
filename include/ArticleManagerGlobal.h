#pragma once

#include <QtGlobal>

// Marks the classes and globals that libArticleManager exports; everything else is hidden.
#if defined(ARTICLEMANAGER_LIBRARY)
#define ARTICLEMANAGER_EXPORT Q_DECL_EXPORT
#else
#define ARTICLEMANAGER_EXPORT Q_DECL_IMPORT
#endif

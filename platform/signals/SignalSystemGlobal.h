#pragma once

#include <QtGlobal>

// Marks the classes and globals that libSignalSystem exports.
#if defined(SIGNALSYSTEM_LIBRARY)
#define SIGNALSYSTEM_EXPORT Q_DECL_EXPORT
#else
#define SIGNALSYSTEM_EXPORT Q_DECL_IMPORT
#endif

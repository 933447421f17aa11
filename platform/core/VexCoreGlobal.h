#pragma once

#include <QtGlobal>

// Marks the classes and globals that libVexCoreMechanisms exports.
#if defined(VEXCORE_LIBRARY)
#define VEXCORE_EXPORT Q_DECL_EXPORT
#else
#define VEXCORE_EXPORT Q_DECL_IMPORT
#endif

#pragma once

#include <QtGlobal>

// Marks the classes and globals that libPaymentSystem exports.
#if defined(PAYMENTSYSTEM_LIBRARY)
#define PAYMENTSYSTEM_EXPORT Q_DECL_EXPORT
#else
#define PAYMENTSYSTEM_EXPORT Q_DECL_IMPORT
#endif

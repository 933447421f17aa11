#pragma once

#include <QList>

#include "Tool.h"

// The subcommands of barcode: add, list, delete and walk.
const QList<Command>& BarcodeCommands();

#pragma once

#include <QList>

#include "Tool.h"

// The subcommands of the register's settings tables: dept list|show|set|reset|names,
// tax list|set|reset and prefix list|add|remove|reset|classify.
const QList<Command>& DeptCommands();
const QList<Command>& TaxCommands();
const QList<Command>& PrefixCommands();

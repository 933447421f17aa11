#pragma once

#include <QStringList>

#include "Tool.h"

// The tool's commands; each parses its own arguments and returns the exit code.
int RunInit(Tool& tool, const QStringList& arguments);
int RunAdd(Tool& tool, const QStringList& arguments);
int RunEdit(Tool& tool, const QStringList& arguments);
int RunDelete(Tool& tool, const QStringList& arguments);
int RunShow(Tool& tool, const QStringList& arguments);
int RunList(Tool& tool, const QStringList& arguments);
int RunNext(Tool& tool, const QStringList& arguments);
int RunPrev(Tool& tool, const QStringList& arguments);
int RunFirstFreePlu(Tool& tool, const QStringList& arguments);
int RunCount(Tool& tool, const QStringList& arguments);
int RunScan(Tool& tool, const QStringList& arguments);
int RunSearch(Tool& tool, const QStringList& arguments);
int RunImport(Tool& tool, const QStringList& arguments);
int RunExport(Tool& tool, const QStringList& arguments);
int RunClear(Tool& tool, const QStringList& arguments);
int RunStats(Tool& tool, const QStringList& arguments);
int RunCheck(Tool& tool, const QStringList& arguments);
int RunDemo(Tool& tool, const QStringList& arguments);
// Sets up a new catalogue's departments, tax rates and label prefixes, as init does; call it
// inside a transaction. Returns the exit code.
int SetUpCatalogue(Tool& tool);

int RunBackup(Tool& tool, const QStringList& arguments);
int RunRestore(Tool& tool, const QStringList& arguments);

// The subcommands of the command groups.
const QList<Command>& PriceCommands();

// Starting the project's own programs as child processes.
//
// On a cross build the tests run under the build's emulator (qemu-user), which cannot exec a
// program of the other architecture by itself: every child goes through the same emulator.
// ARTICLEMANAGER_CHILD_LAUNCHER (a command, words split at spaces) overrides the launcher the
// build was configured with (empty on a native build). Children are started with fork and exec,
// not QProcess, whose clone-based start does not survive user-mode emulation.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// The launcher's words; empty when children run directly.
QStringList childLauncher();

// The full command line that runs `program` with `arguments` as a child. `environment` holds
// NAME=VALUE settings for the child; a preloaded module among them (LD_PRELOAD) is handed to the
// emulator's guest with -E, because the emulator itself must not load it.
QStringList childCommand(const QString& program, const QStringList& arguments,
                         QStringList* environment = nullptr);

struct ChildOutcome {
    int exit = -1;  // the exit status; -1 when it did not start, was killed or timed out
    QByteArray out;
    QByteArray err;
};

// Runs `command` (a program on PATH or a path, then its arguments) to its end: `input` on its
// standard input, `environment` (NAME=VALUE) added to this process's, in `folder` when given.
// Killed after `timeoutMs`.
ChildOutcome runChild(const QStringList& command, const QByteArray& input = QByteArray(),
                      const QStringList& environment = QStringList(),
                      const QString& folder = QString(), int timeoutMs = 120000);

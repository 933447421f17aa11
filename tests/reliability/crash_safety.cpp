// crash_safety: kills a process that keeps changing the catalogue, again and again, and checks
// after every kill that the database is whole, opens, starts the library, and holds every
// change the process reported.
//
// A worker process adds, edits and deletes articles and barcodes and changes prices through the
// library's public API, one call per change. Before each call it tells the parent what it is
// about to do; after the call returned success it says so. The parent kills it with SIGKILL
// after a random delay, then lets a verifier process open the file the way the register does
// and compare it with the parent's record: every reported change must be there, exactly; the
// one change in flight when the kill came may be there whole or not at all, never in part. The
// first kills land while a new file is still being created.
//
// Usage: crash_safety [--kills N] [--seconds S] [--seed SEED] [--dir FOLDER]
// Stops after N kills (default 200) or S seconds (default 600), whichever comes first. The
// seed fixes the changes and the delays before each kill, so a failure can be replayed with the
// same --seed (the moments the kills land still vary with the machine's speed). Exit status: 0
// nothing lost, 1 reported changes lost or the file damaged, 2 the worker or the harness failed.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <thread>

#include "CatalogueWorkload.h"

// How many of the kills hit a database that is being created.
constexpr int creationKills = 10;

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const Options options = parseOptions(
        "usage: crash_safety [--kills N] [--seconds S] [--seed SEED] [--dir FOLDER]", 200);
    const QString& folder = options.folder;
    auto round = [&](int number, Model& model, std::mt19937_64& random) {
        int delayMicroseconds = 0;
        if (number <= creationKills) {
            // The first kills land while a new file is being created: it must come out whole.
            for (const char* suffix : {"", "-wal", "-shm"}) {
                QFile::remove(
                    QDir(folder).filePath(QStringLiteral("articles.db") + QLatin1String(suffix)));
            }
            model = Model();
            delayMicroseconds = static_cast<int>(random() % 20000);
        } else {
            // Mostly while the worker is busy, sometimes while it is still opening the file.
            delayMicroseconds =
                static_cast<int>(random() % 8 == 0 ? random() % 15000 : 5000 + random() % 120000);
        }
        const quint64 seed = random();
        Round r;
        r.folder = folder;
        r.ended = runChild(
            [&](int out) {
                startWorker(folder, out);
                makeChanges(model, seed, out);
                _exit(0);
            },
            [&](pid_t worker, int) {
                std::this_thread::sleep_for(std::chrono::microseconds(delayMicroseconds));
                kill(worker, SIGKILL);
            });
        if (!WIFSIGNALED(r.ended.status) || WTERMSIG(r.ended.status) != SIGKILL) {
            r.failure = QStringLiteral("the worker ended by itself (status %1): %2")
                            .arg(r.ended.status)
                            .arg(QString::fromUtf8(r.ended.lines.value(r.ended.lines.size() - 1)));
        }
        return r;
    };
    return runRounds("kills", options, round, nullptr);
}

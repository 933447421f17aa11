// crash_safety: a worker process changes the catalogue through the library, telling the parent
// each change before the call and again once it succeeded, and is killed with SIGKILL after a
// random delay (the first kills while a new file is still being created). The verifier then
// finds every reported change in the file, exactly; the one in flight whole or not at all.
//
// Usage: crash_safety [--kills N] [--seconds S] [--seed SEED] [--dir FOLDER]
// Stops after N kills (default 200) or S seconds (default 600). The seed fixes the changes and
// the delays (the moments the kills land still vary with the machine's speed). Exit status as
// finish() in CatalogueWorkload.h says.

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

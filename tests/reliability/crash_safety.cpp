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
// same --seed (the moments the kills land still vary with the machine's speed).

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <chrono>
#include <cstdio>
#include <random>
#include <thread>

#include "ArticleManager.h"
#include "CatalogueWorkload.h"
#include "Globals.h"

namespace {

// ---- The worker --------------------------------------------------------------------------------

[[noreturn]] void work(const QString& folder, Model model, quint64 seed, int fd) {
    Library library;
    const QString error = library.Start(folder);
    if (!error.isEmpty()) {
        say(fd, "E " + error.toUtf8());
        _exit(2);
    }
    std::mt19937_64 random(seed);
    for (;;) {
        const Change change = choose(model, random);
        say(fd, "I " + change.Serialize());
        const int result = perform(*G::articleManager, change);
        if (result != 0) {
            say(fd, "F " + QByteArray::number(result));
            _exit(4);  // every change is chosen to succeed: a refusal is a fault
        }
        say(fd, "C");
        apply(model, change);
    }
}

// ---- The parent --------------------------------------------------------------------------------

// How many of the kills hit a database that is being created.
constexpr int creationKills = 10;

struct Options {
    int kills = 200;
    int seconds = 600;
    quint64 seed = 0;
    QString folder;
};

bool parse(const QStringList& arguments, Options& options) {
    options.seed = static_cast<quint64>(
        std::chrono::system_clock::now().time_since_epoch().count() % 1000000007);
    for (int i = 1; i < arguments.size(); ++i) {
        const QString& name = arguments[i];
        if (i + 1 >= arguments.size()) {
            return false;
        }
        const QString value = arguments[++i];
        if (name == QStringLiteral("--kills")) {
            options.kills = value.toInt();
        } else if (name == QStringLiteral("--seconds")) {
            options.seconds = value.toInt();
        } else if (name == QStringLiteral("--seed")) {
            options.seed = value.toULongLong();
        } else if (name == QStringLiteral("--dir")) {
            options.folder = value;
        } else {
            return false;
        }
    }
    return options.kills > 0 && options.seconds > 0;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    Options options;
    if (!parse(QCoreApplication::arguments(), options)) {
        std::fprintf(
            stderr, "usage: crash_safety [--kills N] [--seconds S] [--seed SEED] [--dir FOLDER]\n");
        return 2;
    }
    QString folder = options.folder;
    if (folder.isEmpty()) {
        QTemporaryDir temporary(QDir::temp().filePath(QStringLiteral("crash_safety-XXXXXX")));
        temporary.setAutoRemove(false);  // kept when a check fails
        folder = temporary.path();
    }
    QDir().mkpath(folder);
    std::printf("crash_safety: seed %llu, up to %d kills or %d s, in %s\n",
                static_cast<unsigned long long>(options.seed), options.kills, options.seconds,
                qPrintable(folder));
    std::fflush(stdout);

    std::mt19937_64 random(options.seed);
    Model model;
    int kills = 0;
    long long verified = 0;
    int inFlightApplied = 0;
    int inFlightLost = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds);
    QString failure;
    while (kills < options.kills && std::chrono::steady_clock::now() < deadline) {
        const quint64 workerSeed = random();
        int delayMicroseconds = 0;
        if (kills < creationKills) {
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
        int fd = -1;
        const pid_t worker = spawn(fd, [&](int out) { work(folder, model, workerSeed, out); });
        std::this_thread::sleep_for(std::chrono::microseconds(delayMicroseconds));
        kill(worker, SIGKILL);
        const QList<QByteArray> lines = readLines(fd);
        close(fd);
        int status = 0;
        waitpid(worker, &status, 0);
        ++kills;
        if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
            failure = QStringLiteral("the worker ended by itself (status %1): %2")
                          .arg(status)
                          .arg(QString::fromUtf8(lines.isEmpty() ? QByteArray() : lines.last()));
            break;
        }
        // Apply what was reported done; keep the change in flight aside.
        Change pending;
        bool inFlight = false;
        int done = 0;
        for (const QByteArray& line : lines) {
            if (line.startsWith("I ")) {
                if (!Change::Parse(line.mid(2), pending)) {
                    failure = QStringLiteral("garbled report: ") + QString::fromUtf8(line);
                }
                inFlight = true;
            } else if (line == "C" && inFlight) {
                apply(model, pending);
                inFlight = false;
                ++done;
            }
        }
        if (!failure.isEmpty()) {
            break;
        }
        const Verdict verdict = verifyFolder(
            folder, model, inFlight ? std::vector<Change>{pending} : std::vector<Change>{});
        if (verdict.held == 1) {
            apply(model, pending);
            ++inFlightApplied;
        } else if (verdict.held == 0) {
            inFlightLost += inFlight ? 1 : 0;
        } else {
            failure = QStringLiteral("after kill %1 (%2 changes reported since the last one): %3")
                          .arg(kills)
                          .arg(done)
                          .arg(verdict.why);
            break;
        }
        verified += done;
    }
    std::printf(
        "crash_safety: %d kills survived, %lld reported changes verified, %d articles at "
        "the end; the change in flight at a kill was kept whole %d times and not at all "
        "%d times\n",
        failure.isEmpty() ? kills : kills - 1, verified, static_cast<int>(model.articles.size()),
        inFlightApplied, inFlightLost);
    if (!failure.isEmpty()) {
        std::printf(
            "crash_safety: FAILED %s\ncrash_safety: the database is kept in %s; replay "
            "with --seed %llu\n",
            qPrintable(failure), qPrintable(folder), static_cast<unsigned long long>(options.seed));
        return 1;
    }
    if (options.folder.isEmpty()) {
        QDir(folder).removeRecursively();
    }
    return 0;
}

// power_loss: cuts the power under a process that keeps changing the catalogue, again and
// again, and checks after every cut that what the disk could hold then is whole, starts the
// library, and holds every change the process was told had succeeded.
//
// The worker makes its files through PowerCutVfs (see PowerCutVfs.h for what a cut leaves) and
// changes the catalogue through the library's public API, one change at a time, some of them
// several rows in one explicit transaction, some of them searches that fold the search index.
// At a random I/O the power goes off; the change in flight is not acknowledged. The worker then
// writes what the disk could hold into a fresh folder: every unsynced write lost, a random
// subset of them lost, or them torn at sector boundaries, in turn. A verifier process opens
// that folder as the register does and finds how many of the changes it holds; every
// acknowledged one must be there. The next cut starts from that folder, so recovery after a cut
// is itself cut; every 25th starts a new catalogue, so its creation is cut too.
//
// Usage: power_loss [--cuts N] [--seconds S] [--seed SEED] [--dir FOLDER] [--self-test]
// Stops after N cuts (default 300) or S seconds (default 600). --self-test makes syncs durable
// nothing once the library has started, so acknowledged changes must be lost; it reports how
// many. Exit status: 0 nothing lost, 1 acknowledged changes lost or a file damaged, 2 the
// harness itself failed.

#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <chrono>
#include <cstdio>
#include <random>

#include "ArticleManager.h"
#include "CatalogueWorkload.h"
#include "Globals.h"
#include "PowerCutVfs.h"

namespace {

// I/Os a worker makes before its cut at most, and changes it makes at most (then the power goes
// off after the last one).
constexpr unsigned long long cutWindow = 600;
constexpr int maxChanges = 150;
// Every this many cuts a new catalogue is started.
constexpr int freshEvery = 25;

const char* const kindNames[] = {"all unsynced writes lost", "some unsynced writes lost",
                                 "unsynced writes torn"};

[[noreturn]] void work(const QString& folder, const QString& images, Model model, quint64 seed,
                       PowerCutKind kind, bool selfTest, int fd) {
    std::mt19937_64 random(seed);
    if (power_cut_vfs_register() != 0) {
        say(fd, "E the VFS does not register");
        _exit(2);
    }
    if (!selfTest) {
        power_cut_vfs_arm(1 + random() % cutWindow);
    }
    Library library;
    const QString error = library.Start(folder);
    if (!error.isEmpty() && !power_cut_vfs_is_off()) {
        say(fd, "E " + error.toUtf8());
        _exit(2);
    }
    if (selfTest) {
        // The files exist durably; from here on a flush keeps nothing.
        power_cut_vfs_drop_syncs(1);
        power_cut_vfs_arm(power_cut_vfs_ios() + 1 + random() % cutWindow);
    }
    for (int i = 0; i < maxChanges && !power_cut_vfs_is_off(); ++i) {
        const Change change = choose(model, random);
        say(fd, "I " + change.Serialize());
        const int result = perform(*G::articleManager, change);
        if (result != 0) {
            if (power_cut_vfs_is_off()) {
                break;
            }
            say(fd, "E refused with " + QByteArray::number(result));
            _exit(2);  // every change is chosen to succeed: a refusal is a fault
        }
        say(fd, "C");
        apply(model, change);
    }
    power_cut_vfs_cut();
    if (power_cut_vfs_write_images(images.toUtf8().constData(), kind, random()) != 0) {
        say(fd, "E the images cannot be written");
        _exit(2);
    }
    say(fd, "X " + QByteArray::number(power_cut_vfs_ios()));
    _exit(0);  // nothing may close the library: the power is off
}

struct Options {
    int cuts = 300;
    int seconds = 600;
    quint64 seed = 0;
    QString folder;
    bool selfTest = false;
};

bool parse(const QStringList& arguments, Options& options) {
    options.seed = static_cast<quint64>(
        std::chrono::system_clock::now().time_since_epoch().count() % 1000000007);
    for (int i = 1; i < arguments.size(); ++i) {
        const QString& name = arguments[i];
        if (name == QStringLiteral("--self-test")) {
            options.selfTest = true;
            continue;
        }
        if (i + 1 >= arguments.size()) {
            return false;
        }
        const QString value = arguments[++i];
        if (name == QStringLiteral("--cuts")) {
            options.cuts = value.toInt();
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
    return options.cuts > 0 && options.seconds > 0;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    Options options;
    if (!parse(QCoreApplication::arguments(), options)) {
        std::fprintf(stderr,
                     "usage: power_loss [--cuts N] [--seconds S] [--seed SEED] [--dir FOLDER] "
                     "[--self-test]\n");
        return 2;
    }
    QString root = options.folder;
    if (root.isEmpty()) {
        QTemporaryDir temporary(QDir::temp().filePath(QStringLiteral("power_loss-XXXXXX")));
        temporary.setAutoRemove(false);  // kept when a check fails
        root = temporary.path();
    }
    const QString folder = QDir(root).filePath(QStringLiteral("catalogue"));
    const QString images = QDir(root).filePath(QStringLiteral("after-cut"));
    std::printf("power_loss: %sseed %llu, up to %d cuts or %d s, in %s\n",
                options.selfTest ? "self-test with syncs dropped, " : "",
                static_cast<unsigned long long>(options.seed), options.cuts, options.seconds,
                qPrintable(root));
    std::fflush(stdout);

    std::mt19937_64 random(options.seed);
    Model model;
    int cuts = 0;
    int perKind[3] = {0, 0, 0};
    long long verified = 0;
    long long lost = 0;
    int losingCuts = 0;
    int inFlightKept = 0;
    QString failure;
    QString firstLoss;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds);
    while (cuts < options.cuts && std::chrono::steady_clock::now() < deadline) {
        const auto kind = static_cast<PowerCutKind>(cuts % 3);
        if (options.selfTest || cuts % freshEvery == 0) {
            QDir(folder).removeRecursively();
            model = Model();
        }
        QDir().mkpath(folder);
        QDir(images).removeRecursively();
        QDir().mkpath(images);
        const quint64 workerSeed = random();
        int fd = -1;
        const pid_t worker = spawn(fd, [&](int out) {
            work(folder, images, model, workerSeed, kind, options.selfTest, out);
        });
        const QList<QByteArray> lines = readLines(fd);
        close(fd);
        int status = 0;
        waitpid(worker, &status, 0);
        ++cuts;
        ++perKind[kind];
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || lines.isEmpty() ||
            !lines.last().startsWith("X ")) {
            failure = QStringLiteral("the worker failed (status %1): %2")
                          .arg(status)
                          .arg(QString::fromUtf8(lines.isEmpty() ? QByteArray() : lines.last()));
            break;
        }
        std::vector<Change> changes;  // the acknowledged ones, then the one in flight
        int acknowledged = 0;
        for (const QByteArray& line : lines) {
            if (line.startsWith("I ")) {
                changes.emplace_back();
                if (!Change::Parse(line.mid(2), changes.back())) {
                    failure = QStringLiteral("garbled report: ") + QString::fromUtf8(line);
                }
            } else if (line == "C") {
                acknowledged = static_cast<int>(changes.size());
            }
        }
        if (!failure.isEmpty()) {
            break;
        }
        const Verdict verdict = verifyFolder(images, model, changes);
        const QString where =
            QStringLiteral("cut %1 (%2, at I/O %3, after %4 acknowledged changes)")
                .arg(cuts)
                .arg(QLatin1String(kindNames[kind]))
                .arg(QString::fromUtf8(lines.last().mid(2)))
                .arg(acknowledged);
        if (verdict.held < acknowledged) {
            const int missing = acknowledged - (verdict.held < 0 ? 0 : verdict.held);
            lost += missing;
            ++losingCuts;
            if (firstLoss.isEmpty()) {
                firstLoss = where + QStringLiteral(": ") +
                            (verdict.held < 0
                                 ? verdict.why
                                 : QStringLiteral("only the first %1 are there").arg(verdict.held));
            }
            if (!options.selfTest) {
                break;
            }
            continue;
        }
        for (int i = 0; i < verdict.held; ++i) {
            apply(model, changes[static_cast<size_t>(i)]);
        }
        inFlightKept += verdict.held > acknowledged ? 1 : 0;
        verified += acknowledged;
        QDir(folder).removeRecursively();
        QDir().rename(images, folder);
    }
    std::printf(
        "power_loss: %d cuts (%d all unsynced writes lost, %d some lost, %d torn), %lld "
        "acknowledged changes verified, %d articles at the end; the change in flight was kept "
        "%d times\n",
        cuts, perKind[0], perKind[1], perKind[2], verified, static_cast<int>(model.articles.size()),
        inFlightKept);
    if (!failure.isEmpty()) {
        std::printf("power_loss: HARNESS FAILED %s\n", qPrintable(failure));
        return 2;
    }
    if (lost > 0) {
        std::printf("power_loss: LOST %lld acknowledged changes in %d of %d cuts; first: %s\n",
                    lost, losingCuts, cuts, qPrintable(firstLoss));
        if (options.selfTest && options.folder.isEmpty()) {
            QDir(root).removeRecursively();  // the expected outcome: nothing to look into
        } else {
            std::printf("power_loss: the files are kept in %s; replay with --seed %llu%s\n",
                        qPrintable(root), static_cast<unsigned long long>(options.seed),
                        options.selfTest ? " --self-test" : "");
        }
        return 1;
    }
    if (options.folder.isEmpty()) {
        QDir(root).removeRecursively();
    }
    return 0;
}

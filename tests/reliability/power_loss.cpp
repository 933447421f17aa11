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
// is itself cut; every 25th starts a new catalogue, so its creation is cut too. Every 5th cut
// falls in an `articlectl import` of a price list instead, the tool put on the same VFS by
// LD_PRELOAD (PowerCutPreload.c): the import is acknowledged when the tool exits with 0.
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
#include <algorithm>

#include "CatalogueWorkload.h"
#include "PowerCutVfs.h"

// I/Os a worker makes before its cut at most, and changes it makes at most (then the power goes
// off after the last one).
constexpr unsigned long long cutWindow = 600;
constexpr int maxChanges = 150;
// Every this many cuts a new catalogue is started, and every importEvery-th cut is an import's.
constexpr int freshEvery = 25;
constexpr int importEvery = 5;

const char* const cutNames[] = {"all unsynced writes lost", "some unsynced writes lost",
                                "unsynced writes torn"};

bool off() {
    return power_cut_vfs_is_off() != 0;
}

[[noreturn]] void work(const QString& folder, const QString& images, const Model& model,
                       quint64 seed, PowerCutKind kind, bool selfTest, int fd) {
    std::mt19937_64 random(seed);
    if (power_cut_vfs_register() != 0) {
        say(fd, "E the VFS does not register");
        _exit(2);
    }
    if (!selfTest) {
        power_cut_vfs_arm(1 + random() % cutWindow);
    }
    startWorker(folder, fd, off);
    if (selfTest) {
        // The files exist durably; from here on a flush keeps nothing.
        power_cut_vfs_drop_syncs(1);
        power_cut_vfs_arm(power_cut_vfs_ios() + 1 + random() % cutWindow);
    }
    makeChanges(model, random(), fd, maxChanges, off);
    power_cut_vfs_cut();
    if (power_cut_vfs_write_images(images.toUtf8().constData(), kind, random()) != 0) {
        say(fd, "E the images cannot be written");
        _exit(2);
    }
    say(fd, "X " + QByteArray::number(power_cut_vfs_ios()));
    _exit(0);  // nothing may close the library: the power is off
}

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const Options options = parseOptions(
        "usage: power_loss [--cuts N] [--seconds S] [--seed SEED] [--dir FOLDER] [--self-test]",
        300);
    const QString& root = options.folder;
    const QString folder = QDir(root).filePath(QStringLiteral("catalogue"));
    const QString images = QDir(root).filePath(QStringLiteral("after-cut"));
    // The I/Os of a whole import, as the last one not cut made them; cuts fall among them.
    unsigned long long importWindow = 100;
    auto import = [&](int cut, const Model& model, std::mt19937_64& random, PowerCutKind kind) {
        Change change;
        change.kind = ImportPrices;
        change.plu = 1 + static_cast<unsigned int>(random() % model.nextPlu);  // some new, some not
        change.text = QStringLiteral("Cennik %1 nr %2").arg(cut).arg(model.serial);
        change.price = 1 + static_cast<qint64>(random() % 100000);
        const unsigned long long at = 1 + random() % importWindow;
        QByteArray report;
        const int status =
            runImport(QDir(folder).filePath(QStringLiteral("articles.db")), change,
                      onPowerCutVfs({QStringLiteral("POWER_CUT_IMAGES=") + images,
                                     QStringLiteral("POWER_CUT_AT=%1").arg(at),
                                     QStringLiteral("POWER_CUT_KIND=%1").arg(kind),
                                     QStringLiteral("POWER_CUT_SEED=%1").arg(random())}),
                      &report);
        Round r;
        r.folder = images;
        r.label = QStringLiteral("articlectl import, ") + QLatin1String(cutNames[kind]);
        r.ended.lines << "I " + change.Serialize();
        const unsigned long long ios = report.split(' ').value(0).toULongLong();
        if (status == 0) {
            r.ended.lines << "C";
            importWindow = ios + ios / 10;
        }
        // Cut, the tool reports a database failure; anything else is not the cut's doing.
        if (report.isEmpty() || (status != 0 && status != 4)) {
            r.failure = QStringLiteral("articlectl ended with %1, the VFS reported '%2'")
                            .arg(status)
                            .arg(QString::fromUtf8(report));
        }
        r.where = QStringLiteral(" (%1, at I/O %2 of an import)").arg(r.label).arg(ios);
        return r;
    };
    auto round = [&](int cut, Model& model, std::mt19937_64& random) {
        const auto kind = static_cast<PowerCutKind>((cut - 1) % 3);
        if (options.selfTest || (cut - 1) % freshEvery == 0) {
            QDir(folder).removeRecursively();
            model = Model();
        }
        QDir().mkpath(folder);
        QDir(images).removeRecursively();
        QDir().mkpath(images);
        if (!options.selfTest && cut % importEvery == 0) {
            return import(cut, model, random, kind);
        }
        const quint64 seed = random();
        Round r;
        r.folder = images;
        r.label = QLatin1String(cutNames[kind]);
        r.ended = runChild(
            [&](int out) { work(folder, images, model, seed, kind, options.selfTest, out); });
        const QByteArray last = r.ended.lines.value(r.ended.lines.size() - 1);
        if (!WIFEXITED(r.ended.status) || WEXITSTATUS(r.ended.status) != 0 ||
            !last.startsWith("X ")) {
            r.failure = QStringLiteral("the worker failed (status %1): %2")
                            .arg(r.ended.status)
                            .arg(QString::fromUtf8(last));
        }
        r.where = QStringLiteral(" (%1, at I/O %2)")
                      .arg(QLatin1String(cutNames[kind]), QString::fromUtf8(last.mid(2)));
        return r;
    };
    return runRounds("cuts", options, round, [&] {
        QDir(folder).removeRecursively();
        QDir().rename(images, folder);
    });
}

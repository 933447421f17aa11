// power_loss: cuts the power under a worker that changes the catalogue through PowerCutVfs (see
// PowerCutVfs.h for what a cut leaves), some changes several rows in one transaction, some
// searches that fold the search index. The worker then writes what the disk could hold into a
// fresh folder: every unsynced write lost, a random subset lost, or torn at sectors, in turn.
// Every acknowledged change must be there. The next cut starts from that folder, so recovery is
// cut too; every 25th starts a new catalogue, so creation is; every 5th falls in an `articlectl
// import` on the same VFS (PowerCutPreload.c), acknowledged when the tool exits with 0.
//
// Usage: power_loss [--cuts N] [--seconds S] [--seed SEED] [--dir FOLDER] [--self-test]
// Stops after N cuts (default 300) or S seconds (default 600). --self-test makes syncs keep
// nothing once the library has started, so acknowledged changes must be found lost. Exit status
// as finish() in CatalogueWorkload.h says.

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
    auto round = [&](int cut, Model& model, std::mt19937_64& random) {
        const auto kind = static_cast<PowerCutKind>((cut - 1) % 3);
        if (options.selfTest || (cut - 1) % freshEvery == 0) {
            QDir(folder).removeRecursively();
            model = Model();
        }
        QDir().mkpath(folder);
        QDir(images).removeRecursively();
        QDir().mkpath(images);
        const bool import = !options.selfTest && cut % importEvery == 0;
        Round r;
        r.folder = images;
        r.label = QString::fromLatin1(import ? "articlectl import, " : "") + cutNames[kind];
        QByteArray last;  // "IOS ..." from the worker or the tool
        bool failed = false;
        if (import) {
            const Change change{ImportPrices,
                                1 + static_cast<unsigned int>(random() % model.nextPlu),
                                QStringLiteral("Cennik %1 nr %2").arg(cut).arg(model.serial),
                                {},
                                1 + static_cast<qint64>(random() % 100000)};
            const unsigned long long at = 1 + random() % importWindow;
            r.ended.status =
                runImport(QDir(folder).filePath(QStringLiteral("articles.db")), change,
                          onPowerCutVfs({QStringLiteral("POWER_CUT_IMAGES=") + images,
                                         QStringLiteral("POWER_CUT_AT=%1").arg(at),
                                         QStringLiteral("POWER_CUT_KIND=%1").arg(kind),
                                         QStringLiteral("POWER_CUT_SEED=%1").arg(random())}),
                          &last);
            r.ended.lines << "I " + change.Serialize();
            if (r.ended.status == 0) {
                r.ended.lines << "C";
                const unsigned long long ios = last.split(' ').value(0).toULongLong();
                importWindow = ios + ios / 10;
            }
            // Cut, the tool reports a database failure; anything else is not the cut's doing.
            failed = last.isEmpty() || (r.ended.status != 0 && r.ended.status != 4);
        } else {
            const quint64 seed = random();
            r.ended = runChild(
                [&](int out) { work(folder, images, model, seed, kind, options.selfTest, out); });
            last = r.ended.lines.value(r.ended.lines.size() - 1);
            failed = r.ended.status != 0 || !last.startsWith("X ");
            last = last.mid(2);
        }
        if (failed) {
            r.failure = QStringLiteral("the %1 failed (status %2): %3")
                            .arg(import ? "import" : "worker")
                            .arg(r.ended.status)
                            .arg(QString::fromUtf8(last));
        }
        r.where = QStringLiteral(" (%1, at I/O %2)")
                      .arg(r.label, QString::fromUtf8(last.split(' ').value(0)));
        return r;
    };
    return runRounds("cuts", options, round, [&] {
        QDir(folder).removeRecursively();
        QDir().rename(images, folder);
    });
}

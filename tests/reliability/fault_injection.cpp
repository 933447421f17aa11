// fault_injection: fails single I/Os (PowerCutVfs, see IoFault) under each kind of write the
// library makes and under an `articlectl import` on the same VFS (PowerCutPreload.c). A clean run
// of each operation on a copy of a small catalogue counts its writes, syncs, reads and locks;
// then, for each of them (or an even sample), the operation runs again on a fresh copy with that
// one I/O failing once, and:
//   - it returned non-zero and did not throw, or returned 0 and its change is stored (SQLite
//     absorbed the fault, e.g. in a checkpoint after the commit);
//   - while its process still holds the database, and again after a reboot, the verifier finds
//     the file whole with either nothing or exactly the change;
//   - once the disk works again, the same operation in the same process succeeds, and the change
//     is stored exactly once.
//
// Usage: fault_injection [--max N] [--self-test]
// --max N: at most N faults of each kind per operation (default 8, at least 2; the first and last
// I/O always among them). --self-test makes a write report success and drop its data, so changes
// must be found lost or damaged. Exit status as finish() in CatalogueWorkload.h says.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <cstdio>
#include <set>

#include "ArticleManager.h"
#include "CatalogueWorkload.h"
#include "Globals.h"
#include "PowerCutVfs.h"

namespace {

// The catalogue every case starts from, and one of each kind of write the register makes.
const std::vector<Change> base = {
    {AddArticle, 1, QStringLiteral("Chleb razowy"), ean13("200", 1), 350},
    {AddArticle, 2, QStringLiteral("Mleko"), ean13("200", 2), 289},
    {AddArticle, 3, QStringLiteral("Jabłka luz"), {}, 499},
    {AddArticle, 4, QStringLiteral("Torba"), {}, 100},
    {AddBarcode, 1, ean13("200", 3), {}, 0, true},
    {AddBarcode, 1, ean13("200", 4), {}, 0, false},
    {AddBarcode, 2, ean13("200", 5), {}, 0, true}};
const std::vector<Change> operations = {
    {AddArticle, 10, QStringLiteral("Ser żółty"), ean13("200", 6), 1299},
    {EditArticle, 2, QStringLiteral("Mleko 2%"), {}, 420, true},
    {SetPrice, 3, {}, {}, 999},
    {AddBarcode, 2, ean13("200", 7), {}, 0, false},
    {DeleteBarcodes, 1, {}, {}},
    {DeleteArticle, 4, {}, {}},
    {ConvertPrices, 0, {}, {}, 0, true},
    {AddArticles, 20, QStringLiteral("Zestaw"), {}, 100},
    {SetDept, 2, QStringLiteral("Pieczywo"), {}},
    {SetTaxRates, 0, {}, {}, 2200},
    {SetPrefix, 10, QStringLiteral("28"), {}, 0, true},
    {ImportPrices, 3, QStringLiteral("Cennik"), {}, 1500}};

struct FaultKind {
    IoClass ioClass;
    IoFault fault;
    const char* name;
};

const FaultKind faultKinds[] = {
    {IO_WRITE, IO_FAULT_ERROR, "write EIO"},   {IO_WRITE, IO_FAULT_FULL, "write disk full"},
    {IO_WRITE, IO_FAULT_SHORT, "short write"}, {IO_SYNC, IO_FAULT_ERROR, "fsync EIO"},
    {IO_READ, IO_FAULT_ERROR, "read EIO"},     {IO_READ, IO_FAULT_SHORT, "short read"},
    {IO_LOCK, IO_FAULT_ERROR, "lock IOERR"},   {IO_LOCK, IO_FAULT_BUSY, "lock BUSY"},
};
const FaultKind lie = {IO_WRITE, IO_FAULT_LIE, "write dropped, success reported"};

// Makes the change in a started library, or through articlectl (on the VFS with `environment`
// when given); the result, or -2 when it threw.
int attempt(const QString& folder, const Change& c, const QStringList& environment = {},
            QByteArray* report = nullptr) {
    try {
        return c.kind == ImportPrices
                   ? runImport(QDir(folder).filePath(QStringLiteral("articles.db")), c, environment,
                               report)
                   : perform(*G::articleManager, c);
    } catch (...) {
        return -2;
    }
}

// The case's process: makes the change with the `n`-th I/O of the kind failing (0: none), in the
// library it starts on `folder` or in articlectl, and reports "R RESULT HIT WRITES SYNCS READS
// LOCKS". Then it stops, holding the database as the register would, until the parent has
// looked; a failed change is retried with the disk working ("S RESULT").
[[noreturn]] void runCase(const QString& folder, const Change& c, const FaultKind& kind,
                          unsigned long long n, int out) {
    QList<QByteArray> counts;  // IOS HIT WRITES SYNCS READS LOCKS
    int first = 0;
    if (c.kind == ImportPrices) {
        QByteArray report;
        first = attempt(folder, c,
                        onPowerCutVfs({QStringLiteral("POWER_CUT_FAULT=%1 %2 %3")
                                           .arg(kind.ioClass)
                                           .arg(n)
                                           .arg(kind.fault)}),
                        &report);
        counts = report.split(' ');
    } else {
        startWorker(folder, out);
        unsigned long long before[4];
        for (int i = 0; i < 4; ++i) {
            before[i] = power_cut_vfs_count(static_cast<IoClass>(i));
        }
        power_cut_vfs_fault(kind.ioClass, n, kind.fault);
        first = attempt(folder, c);
        counts << QByteArray() << QByteArray::number(power_cut_vfs_fault_hit());
        power_cut_vfs_fault(kind.ioClass, 0, kind.fault);
        for (int i = 0; i < 4; ++i) {
            counts << QByteArray::number(power_cut_vfs_count(static_cast<IoClass>(i)) - before[i]);
        }
    }
    say(out, "R " + QByteArray::number(first) + ' ' + counts.mid(1).join(' '));
    raise(SIGSTOP);
    if (first != 0 && c.kind == SetDept) {
        // A failed reload leaves the department manager locked, by design, until the register
        // starts again: a new process retries.
        say(out, "S restart");
    } else {
        say(out, "S " + QByteArray::number(first == 0 ? 0 : attempt(folder, c)));
    }
    _exit(0);  // as a crash would: what is committed must be on disk already
}

bool copyFolder(const QString& from, const QString& to) {
    QDir(to).removeRecursively();
    QDir().mkpath(to);
    for (const QString& name : QDir(from).entryList(QDir::Files)) {
        if (!name.endsWith(QStringLiteral("-shm")) &&
            !QFile::copy(QDir(from).filePath(name), QDir(to).filePath(name))) {
            return false;
        }
    }
    return true;
}

struct Outcome {
    QString failure;  // empty when every check held
    int result = 0;
    bool hit = false;
    bool failedYetStored = false;
    bool backAfterReboot = false;  // refused, but stored once the WAL index is rebuilt
    unsigned long long counts[4] = {0, 0, 0, 0};
};

// Checks what the stopped case process reported and left on disk.
void checkFault(Outcome& outcome, const QByteArray& reported, const QString& folder,
                const Model& model, const Change& c, const FaultKind& kind) {
    const QList<QByteArray> parts = reported.split(' ');
    if (parts.size() != 7 || parts[0] != "R") {
        outcome.failure = QStringLiteral("the case process failed: ") + QString::fromUtf8(reported);
        return;
    }
    outcome.result = parts[1].toInt();
    outcome.hit = parts[2] == "1";
    for (int i = 0; i < 4; ++i) {
        outcome.counts[i] = parts[3 + i].toULongLong();
    }
    // A change made twice (prices converted once) matches neither state: the verifier says so.
    const Verdict during = verifyFolder(folder, model, {c});
    if (outcome.result == -2) {
        outcome.failure = QStringLiteral("the operation threw");
    } else if (c.kind == ImportPrices && outcome.result != 0 && outcome.result != 4) {
        // The disk failed: a database failure, never the rows' fault, never a crash.
        outcome.failure = QStringLiteral("articlectl ended with %1").arg(outcome.result);
    } else if (during.held < 0) {
        outcome.failure = QStringLiteral("after the fault: ") + during.why;
    } else if (outcome.result == 0 && during.held != 1) {
        outcome.failure =
            QStringLiteral("reported success, but %1 changes are stored").arg(during.held);
    }
    outcome.failedYetStored = outcome.result != 0 && during.held == 1;
    // After a reboot the WAL index is rebuilt from the WAL file alone: a refused commit whose
    // frames reached the file must not come back then.
    const QString rebooted = folder + QStringLiteral("-rebooted");
    const Verdict reboot =
        copyFolder(folder, rebooted) ? verifyFolder(rebooted, model, {c}) : Verdict();
    if (outcome.failure.isEmpty() && reboot.held < 0) {
        outcome.failure = QStringLiteral("after the fault and a reboot: ") + reboot.why;
    } else if (kind.ioClass == IO_SYNC && outcome.result != 0 && reboot.held == 1) {
        // The commit's frames reached the file, only their flush failed: whether they last is
        // unknown, and a rebuilt index finds them. Nothing acknowledged is lost; counted.
        outcome.backAfterReboot = true;
    } else if (outcome.failure.isEmpty() && reboot.held != during.held) {
        outcome.failure = QStringLiteral("%1 changes are stored, %2 after a reboot")
                              .arg(during.held)
                              .arg(reboot.held);
    }
}

Outcome runOne(const QString& base, const QString& folder, const Model& model, const Change& c,
               const FaultKind& kind, unsigned long long n) {
    Outcome outcome;
    if (!copyFolder(base, folder)) {
        outcome.failure = QStringLiteral("harness: the catalogue cannot be copied");
        return outcome;
    }
    const auto stopped = [&](pid_t pid, int fd) {
        const QByteArray reported = readLine(fd);
        int status = 0;
        if (waitpid(pid, &status, WUNTRACED) != pid || !WIFSTOPPED(status)) {
            outcome.failure =
                QStringLiteral("the case process failed: ") + QString::fromUtf8(reported);
            return;
        }
        checkFault(outcome, reported, folder, model, c, kind);
        kill(pid, SIGCONT);
    };
    Ended ended = runChild([&](int out) { runCase(folder, c, kind, n, out); }, stopped);
    if (ended.lines.value(0) == "S restart") {
        ended = runChild([&](int out) {
            startWorker(folder, out);
            say(out, "S " + QByteArray::number(attempt(folder, c)));
            _exit(0);
        });
    }
    const QByteArray retried = ended.lines.value(ended.lines.size() - 1);
    if (!outcome.failure.isEmpty()) {
        return outcome;
    }
    const int again = retried.startsWith("S ") ? retried.mid(2).toInt() : -3;
    const Verdict after = verifyFolder(folder, model, {c});
    if (after.held < 0) {
        outcome.failure = QStringLiteral("after the retry: ") + after.why;
    } else if (after.held != 1) {
        outcome.failure = QStringLiteral("after the retry (result %1) %2 changes are stored")
                              .arg(again)
                              .arg(after.held);
    } else if (again != 0 && !outcome.failedYetStored) {
        outcome.failure = QStringLiteral("the retry failed with %1").arg(again);
    }
    return outcome;
}

// Up to `most` of 1..count, evenly spread, the first and the last always among them.
std::set<unsigned long long> sample(unsigned long long count, unsigned long long most) {
    std::set<unsigned long long> picked;
    for (unsigned long long i = 0; i < std::min(count, most); ++i) {
        picked.insert(count <= most ? i + 1 : 1 + i * (count - 1) / (most - 1));
    }
    return picked;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const Options options = parseOptions("usage: fault_injection [--max N] [--self-test]", 8);
    const auto most = static_cast<unsigned long long>(options.runs);
    const QString baseFolder = QDir(options.folder).filePath(QStringLiteral("base"));
    const QString folder = QDir(options.folder).filePath(QStringLiteral("case"));
    // The starting catalogue.
    QDir().mkpath(baseFolder);
    const Ended built = runChild([&](int out) {
        startWorker(baseFolder, out);
        for (const Change& c : base) {
            say(out, perform(*G::articleManager, c) == 0 ? "C" : "E a change was refused");
        }
        _exit(0);
    });
    Model model;
    for (const Change& c : base) {
        apply(model, c);
    }
    if (most < 2 || power_cut_vfs_register() != 0 ||
        built.lines.count("C") != static_cast<int>(base.size())) {
        return finish(options,
                      QStringLiteral("--max below 2, the VFS does not register or the catalogue "
                                     "cannot be built: ") +
                          QString::fromUtf8(built.lines.join(' ')),
                      {});
    }

    const std::vector<FaultKind> kinds =
        options.selfTest ? std::vector<FaultKind>{lie}
                         : std::vector<FaultKind>(std::begin(faultKinds), std::end(faultKinds));
    int cases = 0;
    int failures = 0;
    for (const Change& operation : operations) {
        const char* name = kindNames[operation.kind];
        // A clean run counts the I/Os of each kind the operation makes.
        const Outcome clean = runOne(baseFolder, folder, model, operation, kinds[0], 0);
        if (!clean.failure.isEmpty() || clean.result != 0) {
            return finish(options,
                          QStringLiteral("%1 without a fault: %2 %3")
                              .arg(QLatin1String(name))
                              .arg(clean.result)
                              .arg(clean.failure),
                          {});
        }
        std::printf("%s: %llu writes, %llu syncs, %llu reads, %llu locks\n", name,
                    clean.counts[IO_WRITE], clean.counts[IO_SYNC], clean.counts[IO_READ],
                    clean.counts[IO_LOCK]);
        for (const FaultKind& kind : kinds) {
            int injected = 0;
            int absorbed = 0;
            int storedAnyway = 0;
            int afterReboot = 0;
            std::set<int> results;
            for (const unsigned long long n : sample(clean.counts[kind.ioClass], most)) {
                const Outcome outcome = runOne(baseFolder, folder, model, operation, kind, n);
                ++cases;
                if (!outcome.hit) {
                    continue;  // the I/Os ran differently this time: nothing failed
                }
                ++injected;
                absorbed += outcome.result == 0 ? 1 : 0;
                if (outcome.result != 0) {
                    results.insert(outcome.result);
                }
                storedAnyway += outcome.failedYetStored ? 1 : 0;
                afterReboot += outcome.backAfterReboot ? 1 : 0;
                if (!outcome.failure.isEmpty()) {
                    ++failures;
                    std::printf("  FAILED %s at %s %llu: %s\n", name, kind.name, n,
                                qPrintable(outcome.failure));
                }
            }
            QStringList codes;
            for (const int r : results) {
                codes << QString::number(r);
            }
            std::printf(
                "  %-18s %2d injected: %2d refused (result %s), %2d absorbed, %d refused yet "
                "stored, %d refused yet stored after a reboot\n",
                kind.name, injected, injected - absorbed, qPrintable(codes.join(QLatin1Char('/'))),
                absorbed, storedAnyway, afterReboot);
            std::fflush(stdout);
        }
    }
    std::printf("fault_injection: %d cases, %d failed\n", cases, failures);
    return finish(options, {},
                  failures == 0 ? QString() : QStringLiteral("FAILED %1 cases").arg(failures));
}

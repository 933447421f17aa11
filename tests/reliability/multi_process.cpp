// multi_process: library processes (writing alone and in BeginTransaction blocks, some rolled
// back) and drivers running articlectl (edit, price set, import, show, scan, search, barcode add)
// change and read six PLUs of one file at once, with a few shared names and the same barcodes, so
// that they collide. Every call is recorded with its question, its answer and its start and end
// on CLOCK_MONOTONIC, and checked afterwards by History against what the others did, in real
// time. Besides: of the processes adding a barcode in one tenth of a second (all add the same one)
// at most one may succeed; no barcode is on two articles; a search finds every article; the file
// at the end is whole and its lookups agree; every call is answered within the busy timeout plus
// 2 s (articlectl 3 s); a write refused as busy (a conflict: counted) waited the busy timeout
// first, and a read is never refused so.
//
// Usage: multi_process [--processes N] [--seconds S] [--seed SEED] [--dir FOLDER] [--self-test]
// N library processes (default 3) and 2 articlectl drivers (through the child launcher) for S
// seconds (default 600). --self-test makes the library processes lie (a rolled-back transaction
// and a refused barcode acknowledged, some reads answering an earlier read): the checks must find
// it. Exit status as finish() in CatalogueWorkload.h says.

#include <fcntl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include "ArticleManager.h"
#include "ArticleSeeker.h"
#include "CatalogueWorkload.h"
#include "ChildLauncher.h"
#include "DBManager.h"
#include "Globals.h"
#include "History.h"
#include "SqliteConnection.h"

namespace {

constexpr unsigned int pool = 6;  // the PLUs every process works on
constexpr int toolDrivers = 2;
constexpr qint64 ms = 1000000;
constexpr qint64 busyNs = SqliteConnection::busyTimeoutMs * ms;
constexpr qint64 libraryBoundMs = SqliteConnection::busyTimeoutMs + 2000;  // plus the work
constexpr qint64 toolBoundMs = libraryBoundMs + 1000;  // plus articlectl's start and end
constexpr qint64 slotNs = 100 * ms;  // adds within one slot contend for the same barcode
const QString searched = QStringLiteral("Towar");  // in every name

qint64 now() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec * 1000000000LL + t.tv_nsec;
}

QString slotBarcode(qint64 at) {
    return ean13("591", static_cast<quint64>(at / slotNs));
}

// One call as its process recorded it. An item is TYPE KEY:VALUE: p/n a price/name written to
// PLU KEY, P/N one read, b barcode KEY added to PLU VALUE, s barcode KEY scanned to PLU VALUE
// (0 none, -1 more than one), e an error text.
struct Call {
    int process = 0;
    QByteArray kind{};
    qint64 start = 0;
    qint64 end = 0;
    char outcome = 'A';  // A acknowledged, R refused, B busy (a conflict), F failed otherwise
    QList<QByteArray> items{};

    void Add(char type, const QVariant& key, const QVariant& value) {
        items << type + key.toString().toUtf8() + ':' +
                     value.toString().toUtf8().toPercentEncoding();
    }
    // Sets the outcome: done, refused (a duplicate), or why it failed.
    void End(bool done, bool refused, const QString& error) {
        end = now();
        const bool busy =
            error.contains(QStringLiteral("locked")) || error.contains(QStringLiteral("busy"));
        outcome = done ? 'A' : busy ? 'B' : refused ? 'R' : 'F';
        if (outcome == 'B' || outcome == 'F') {
            Add('e', 0, error);
        }
    }
    bool Writes() const {
        return std::any_of(items.cbegin(), items.cend(),
                           [](const QByteArray& i) { return QByteArray("pnb").contains(i[0]); });
    }
    QByteArray Serialize() const {
        return QByteArray::number(process) + ' ' + kind + ' ' + QByteArray::number(start) + ' ' +
               QByteArray::number(end) + ' ' + outcome + ' ' + items.join(' ');
    }
    bool Parse(const QByteArray& line) {
        items = line.trimmed().split(' ');
        if (items.size() < 5 || items[4].size() != 1) {
            return false;
        }
        process = items[0].toInt();
        kind = items[1];
        start = items[2].toLongLong();
        end = items[3].toLongLong();
        outcome = items[4][0];
        items = items.mid(5);
        return std::all_of(items.cbegin(), items.cend(),
                           [](const QByteArray& i) { return i.indexOf(':') > 1; });
    }
    QString Describe() const {
        return QStringLiteral("process %1 %2 [%3 ms] %4")
            .arg(process)
            .arg(QString::fromUtf8(kind))
            .arg((end - start) / ms)
            .arg(QString::fromUtf8(QByteArray::fromPercentEncoding(items.join(' '))));
    }
};

QByteArray key(const QByteArray& item) {
    return item.mid(1, item.indexOf(':') - 1);
}
QByteArray value(const QByteArray& item) {
    return QByteArray::fromPercentEncoding(item.mid(item.indexOf(':') + 1));
}

// ---- The writers -------------------------------------------------------------------------------

struct Writer {
    int process;
    std::mt19937_64 random;
    int sequence = 0;

    unsigned int Plu() { return 1 + random() % pool; }
    qint64 Price() { return process * 1000000LL + ++sequence; }
    // A unique name, or now and then one every process uses, which another article may hold.
    QString Name() {
        return random() % 8 == 0
                   ? QStringLiteral("%1 wspólny %2").arg(searched).arg(random() % 3)
                   : QStringLiteral("%1 p%2 s%3").arg(searched).arg(process).arg(++sequence);
    }
};

// Through the library: a new price, or (half of the time) a new name and price.
int write(ArticleManager& manager, Writer& writer, Call& call) {
    Change change{SetPrice, writer.Plu(), {}, {}, writer.Price()};
    call.Add('p', change.plu, change.price);
    if (writer.random() % 2 == 1) {
        change.kind = EditArticle;
        change.text = writer.Name();
        call.Add('n', change.plu, change.text);
    }
    return perform(manager, change);
}

void addArticles(Call& call, const QVector<Article>& articles) {
    for (const Article& a : articles) {
        call.Add('N', a.pluNo, a.name);
        call.Add('P', a.pluNo, a.price);
    }
}

[[noreturn]] void libraryProcess(const QString& folder, Writer writer, qint64 deadline, bool lie,
                                 int fd) {
    Call call{writer.process, "Start", now()};  // the register starts while others work
    const QString why = startLibrary(folder);
    call.End(why.isEmpty(), false, why);
    say(fd, call.Serialize());
    std::map<unsigned int, QList<QByteArray>> answered;  // the last answer for each PLU
    while (why.isEmpty() && now() < deadline) {
        ArticleManager& manager = *G::articleManager;
        call = Call{writer.process, "", now()};
        const int roll = static_cast<int>(writer.random() % 100);
        const unsigned int plu = writer.Plu();
        Article article;
        int result = 0;
        if (roll < 25) {
            call.kind = "FindPlu";
            result = manager.GetSeeker()->FindPlu(plu, article, false);
            addArticles(call, result == 0 ? QVector<Article>{article} : QVector<Article>());
            if (lie && writer.random() % 4 == 0 && answered.count(plu) != 0) {
                call.items = answered[plu];
            }
            answered[plu] = call.items;
        } else if (roll < 45) {
            call.kind = "write";
            result = write(manager, writer, call);
        } else if (roll < 62) {
            // Several writes: all of them, or (refused, or now and then rolled back) none.
            call.kind = "transaction";
            result = G::dbArticles->BeginTransaction();
            const bool began = result == 0;
            for (int i = 2 + writer.random() % 3; i > 0 && result == 0; --i) {
                result = write(manager, writer, call);
            }
            if (began && (result != 0 || writer.random() % 5 == 0)) {
                const QString error = result == 0 ? QString() : G::dbArticles->GetLastError();
                G::dbArticles->RollbackTransaction();
                call.End(result == 0 && lie, result == 0 || result == 2 || result == 5, error);
            } else if (began) {
                result = G::dbArticles->CommitTransaction();
            }
        } else if (roll < 77) {
            call.kind = "AddBarcode";
            const QString code = slotBarcode(call.start);
            call.Add('b', code, plu);
            result = perform(manager, Change{AddBarcode, plu, code, {}, 0, false});
            result = lie && result == DB_OPERATION_ALREADY_EXISTS ? 0 : result;
        } else if (roll < 90) {
            call.kind = "FindArticleByBarcode";
            const QString code =
                slotBarcode(call.start - static_cast<qint64>(writer.random() % 2) * slotNs);
            result = manager.GetSeeker()->FindArticleByBarcode(code, article, false);
            call.Add('s', code,
                     result == 0   ? static_cast<int>(article.pluNo)
                     : result == 8 ? -1
                                   : 0);
            result = result == 3 || result == 8 ? 0 : result;
        } else {
            call.kind = "FindNameInfix";
            QVector<Article> found;
            result = manager.GetSeeker()->FindNameInfix(searched, found);
            addArticles(call, found);
        }
        if (call.end == 0) {
            const bool refused =
                result == DB_OPERATION_ALREADY_EXISTS || result == DB_OPERATION_CONSTRAINT;
            call.End(result == 0, refused, result == 0 ? QString() : G::dbArticles->GetLastError());
        }
        say(fd, call.Serialize());
        usleep(static_cast<useconds_t>(writer.random() % 2000));  // a busy till, not a loop
    }
    _exit(0);
}

// ---- The articlectl drivers --------------------------------------------------------------------

QString money(qint64 price) {
    return QStringLiteral("%1.%2").arg(price / 100).arg(price % 100, 2, 10, QLatin1Char('0'));
}

void addArticle(Call& call, const QJsonValue& article) {
    call.Add('N', article["plu"].toInt(), article["name"].toString());
    call.Add('P', article["plu"].toInt(), qRound64(article["price"].toDouble() * 100));
}

[[noreturn]] void toolDriver(const QString& tool, const QString& folder, Writer writer,
                             qint64 deadline, int fd) {
    const QString base = QDir(folder).filePath(QStringLiteral("tool-%1.").arg(writer.process));
    while (now() < deadline) {
        Call call{writer.process};
        const int roll = static_cast<int>(writer.random() % 100);
        const QString plu = QString::number(writer.Plu());
        QStringList arguments{"--db", QDir(folder).filePath("articles.db")};
        if (roll < 18) {
            arguments << "show"
                      << "--json" << plu;
        } else if (roll < 33) {
            const QString name = writer.Name();
            const qint64 price = writer.Price();
            call.Add('n', plu, name);
            call.Add('p', plu, price);
            arguments << "edit" << plu << "--name" << name << "--price" << money(price);
        } else if (roll < 46) {
            const qint64 price = writer.Price();
            call.Add('p', plu, price);
            arguments << "price"
                      << "set" << plu << money(price);
        } else if (roll < 60) {
            // A price list of a few rows: all of them or none.
            QByteArray text = "plu;nazwa;cena\n";
            for (unsigned int p = writer.Plu(), n = 2 + writer.random() % 2; n > 0 && p <= pool;
                 --n, p += 1 + writer.random() % 2) {
                const QString name = writer.Name();
                const qint64 price = writer.Price();
                call.Add('n', p, name);
                call.Add('p', p, price);
                text += QStringLiteral("%1;%2;%3\n").arg(p).arg(name, money(price)).toUtf8();
            }
            QFile file(base + "csv");
            if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size()) {
                say(fd, "E cannot write " + file.fileName().toUtf8());
                _exit(2);
            }
            arguments << "import" << file.fileName();
        } else if (roll < 74) {
            arguments << "scan"
                      << "--json"
                      << slotBarcode(now() - static_cast<qint64>(writer.random() % 2) * slotNs);
        } else if (roll < 86) {
            arguments << "search"
                      << "--json" << searched;
        } else {
            const QString code = slotBarcode(now());
            call.Add('b', code, plu);
            arguments << "barcode"
                      << "add" << plu << code;
        }
        call.kind = "articlectl-" + arguments[2].toUtf8();
        call.start = now();
        const ChildOutcome run = runChild(childCommand(tool, arguments));
        const int exit = run.exit;
        const QJsonObject json = QJsonDocument::fromJson(run.out).object();
        const bool scan = call.kind == "articlectl-scan";
        call.End(exit == 0 || (scan && (exit == 1 || exit == 3)), exit == 3,
                 QString::fromUtf8(run.err).trimmed());
        if (scan && call.outcome == 'A') {
            call.Add('s', arguments[4],
                     exit == 0   ? json["article"]["plu"].toInt()
                     : exit == 1 ? 0
                                 : -1);
        } else if (exit == 0 && call.kind == "articlectl-show") {
            addArticle(call, json);
        } else if (exit == 0 && call.kind == "articlectl-search") {
            for (const QJsonValue& article : json["articles"].toArray()) {
                addArticle(call, article);
            }
        }
        say(fd, call.Serialize());
    }
    _exit(0);
}

// ---- The checks --------------------------------------------------------------------------------

// The field an item writes or reads: "price 3", "name 3", "barcode CODE" (the PLU holding it).
QString fieldOf(const QByteArray& item) {
    const char type = static_cast<char>(std::tolower(item[0]));
    return QStringLiteral("%1 %2").arg(type == 'p'   ? "price"
                                       : type == 'n' ? "name"
                                                     : "barcode",
                                       QString::fromUtf8(key(item)));
}

// Feeds the calls and the end state to the history; the articles a search listed twice. Adds
// never replace a barcode, so at most one add of each may be acknowledged.
int check(History& history, const std::vector<Call>& calls, const QStringList& stored,
          const QString& why) {
    std::map<QByteArray, const Call*> added;  // barcode: its acknowledged add
    for (const Call& call : calls) {
        const auto fail = [&](const char* kind) {
            history.Fail(QString::fromLatin1(kind), call.Describe());
        };
        if (call.end - call.start >
            (call.kind.startsWith("articlectl") ? toolBoundMs : libraryBoundMs) * ms) {
            fail("a call answered after the bound");
        }
        if (call.outcome == 'F') {
            fail("a call failed other than busy");
        }
        if (call.outcome == 'B' && (!call.Writes() || call.end - call.start < busyNs)) {
            fail("a read refused as busy, or a write before the busy timeout");
        }
        for (const QByteArray& item : call.items) {
            if (item[0] == 'b' || item[0] == 's') {
                history.Initial(fieldOf(item), QStringLiteral("0"));
            }
            const auto first = added.find(key(item));
            if (item[0] == 'b' && call.outcome == 'A' && first != added.end()) {
                history.Fail(QStringLiteral("a barcode added to two articles"),
                             first->second->Describe() + QStringLiteral(" and ") + call.Describe());
            } else if (item[0] == 'b' && call.outcome == 'A') {
                added.emplace(key(item), &call);
            }
            if (QByteArray("pnb").contains(item[0])) {
                history.End(history.Begin(fieldOf(item), QString::fromUtf8(value(item)),
                                          call.Describe(), call.start),
                            call.outcome == 'A' ? History::Acknowledged : History::Refused,
                            call.end);
            }
        }
    }
    int listedTwice = 0;
    for (const Call& call : calls) {
        QList<QByteArray> found;  // the PLUs a search listed
        for (const QByteArray& item : call.items) {
            found << (item[0] == 'N' ? key(item) : QByteArray());
            if (item[0] == 's' && value(item).toInt() < 0) {
                history.Fail(QStringLiteral("a barcode is on two articles"), call.Describe());
            } else if (QByteArray("PNs").contains(item[0])) {
                history.Check({fieldOf(item), QString::fromUtf8(value(item)), call.Describe(),
                               call.start, call.end});
            }
        }
        found.removeAll(QByteArray());
        const std::set<QByteArray> plus(found.cbegin(), found.cend());
        const bool search = call.kind == "FindNameInfix" || call.kind == "articlectl-search";
        if (search && call.outcome == 'A' && plus.size() != pool) {
            history.Fail(QStringLiteral("a search misses an article"), call.Describe());
        }
        // Its two passes (prefix, then inner matches, an article not listed again when equal)
        // read at different moments: an article changed between them is listed twice.
        listedTwice += found.size() - static_cast<int>(plus.size());
    }
    std::map<QByteArray, QStringList> held;  // barcode: the PLUs it is on at the end
    for (const auto& code : added) {
        held[code.first];
    }
    if (!why.isEmpty()) {
        history.Fail(QStringLiteral("the file at the end is not right"), why);
    }
    for (const QString& line : stored) {  // "PLU n | name | price | ...", "barcode C | PLU n | ..."
        const QStringList parts = line.split(QStringLiteral(" | "));
        const QByteArray plu = parts.value(0).section(' ', 1).toUtf8();
        if (line.startsWith(QStringLiteral("barcode "))) {
            held[plu] << parts.value(1).mid(4);
        } else if (line.startsWith(QStringLiteral("PLU ")) && plu.toUInt() <= pool) {
            history.CheckEnd(fieldOf('n' + plu + ':'), parts.value(1));
            history.CheckEnd(fieldOf('p' + plu + ':'), parts.value(2));
        }
    }
    for (const auto& [code, plus] : held) {
        const QString field = fieldOf('b' + code + ':');
        if (plus.size() > 1) {
            history.Fail(QStringLiteral("a barcode is on two articles"),
                         field + QStringLiteral(" at the end"));
        }
        history.Initial(field, QStringLiteral("0"));
        history.CheckEnd(field, plus.isEmpty() ? QStringLiteral("0") : plus.join(' '));
    }
    return listedTwice;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const Options options = parseOptions(
        "usage: multi_process [--processes N] [--seconds S] [--seed SEED] [--dir FOLDER] "
        "[--self-test]",
        3);
    const QString& folder = options.folder;
    QDir dir(folder);
    for (const QString& name :
         dir.entryList({"articles.db*", "receipts.db*", "calls-*", "tool-*"})) {
        QFile::remove(dir.filePath(name));
        QDir(dir.filePath(name)).removeRecursively();
    }
    std::printf(
        "multi_process: %sseed %llu, %d library processes and %d articlectl drivers for %d s, in "
        "%s\n",
        options.selfTest ? "self-test, " : "", static_cast<unsigned long long>(options.seed),
        options.runs, toolDrivers, options.seconds, qPrintable(folder));
    std::fflush(stdout);
    const QString tool = QStringLiteral(ARTICLECTL_PATH);
    QString failure;
    if (runChild(childCommand(tool, {"--db", dir.filePath("articles.db"), "init"})).exit != 0) {
        failure = QStringLiteral("articlectl init failed");
    }
    // Process 0 makes the articles everyone works on.
    const Ended setUp = runChild([&](int out) {
        const QString why = startLibrary(folder);
        for (unsigned int plu = 1; plu <= pool && why.isEmpty(); ++plu) {
            const QString name = QStringLiteral("%1 p0 s%2").arg(searched).arg(plu);
            Call call{0, "AddRecord", now()};
            call.Add('n', plu, name);
            call.Add('p', plu, plu);
            const int result = perform(*G::articleManager, Change{AddArticle, plu, name, {}, plu});
            call.End(result == 0, false, G::dbArticles->GetLastError());
            say(out, call.Serialize());
        }
        _exit(why.isEmpty() ? 0 : 2);
    });
    std::mt19937_64 random(options.seed);
    const qint64 deadline = now() + options.seconds * 1000 * ms;
    std::vector<pid_t> pids;
    for (int process = 1; process <= options.runs + toolDrivers; ++process) {
        const Writer writer{process, std::mt19937_64(random())};
        const int fd = open(
            QFile::encodeName(dir.filePath(QStringLiteral("calls-%1").arg(process))).constData(),
            O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        const pid_t pid = fd < 0 || !failure.isEmpty() ? -1 : fork();
        if (pid == 0 && process <= options.runs) {
            libraryProcess(folder, writer, deadline, options.selfTest, fd);
        } else if (pid == 0) {
            toolDriver(tool, folder, writer, deadline, fd);
        }
        close(fd);
        pids.push_back(pid);
    }
    QList<QByteArray> lines = setUp.lines;
    if (setUp.status != 0 || setUp.lines.size() != static_cast<int>(pool)) {
        failure = QStringLiteral("the articles were not made");
    }
    for (size_t i = 0; i < pids.size(); ++i) {
        int status = -1;
        if (pids[i] < 0 || waitpid(pids[i], &status, 0) != pids[i] || status != 0) {
            failure = QStringLiteral("process %1 failed (status %2)").arg(i + 1).arg(status);
        }
        QFile file(dir.filePath(QStringLiteral("calls-%1").arg(i + 1)));
        file.open(QIODevice::ReadOnly);
        lines += file.readAll().split('\n');
    }
    std::vector<Call> calls;
    for (const QByteArray& line : lines) {
        Call call;
        if (line.startsWith("E ") || (!line.isEmpty() && !call.Parse(line))) {
            failure = QString::fromUtf8(line);
        } else if (!line.isEmpty()) {
            calls.push_back(call);
        }
    }
    if (!failure.isEmpty()) {
        return finish(options, failure, {});
    }
    QString why;
    const QStringList stored = readStored(folder, why);
    History history;
    const int listedTwice = check(history, calls, stored, why);
    const QStringList failures = history.Report();
    const auto found = history.Finish();
    const auto stale = found.find(QStringLiteral("a stale answer"));

    std::map<QByteArray, int> kinds;
    int acknowledged = 0;
    int conflicts = 0;
    int refused = 0;
    int toolRuns = 0;
    const Call* longest = &calls.front();
    for (const Call& call : calls) {
        ++kinds[call.kind];
        conflicts += call.outcome == 'B' ? 1 : 0;
        refused += call.outcome == 'R' ? 1 : 0;
        toolRuns += call.kind.startsWith("articlectl") ? 1 : 0;
        longest = call.end - call.start > longest->end - longest->start ? &call : longest;
        for (const QByteArray& item : call.items) {
            acknowledged += call.outcome == 'A' && QByteArray("pnb").contains(item[0]) ? 1 : 0;
        }
    }
    QStringList byKind;
    for (const auto& [kind, count] : kinds) {
        byKind << QStringLiteral("%1 %2").arg(QString::fromUtf8(kind)).arg(count);
    }
    std::printf(
        "multi_process: %d processes (%d library, %d articlectl and its %d drivers, set-up and "
        "reader), %zu operations (%s), %d acknowledged writes, %d refused or rolled back, %d "
        "conflicts, %d stale reads, %d articles listed twice by a search, longest wait %lld ms "
        "(%s) of at most %lld ms (articlectl %lld ms)\n",
        options.runs + toolRuns + 1 + toolDrivers + 2, options.runs, toolRuns + 1, toolDrivers,
        calls.size(), qPrintable(byKind.join(QStringLiteral(", "))), acknowledged, refused,
        conflicts, stale == found.end() ? 0 : static_cast<int>(stale->second.size()), listedTwice,
        (longest->end - longest->start) / ms, qPrintable(longest->Describe()), libraryBoundMs,
        toolBoundMs);
    for (const QString& line : failures) {
        std::printf("  %s\n", qPrintable(line));
    }
    return finish(
        options, {},
        failures.empty() ? QString() : QStringLiteral("FAILED %1 checks").arg(failures.size()));
}

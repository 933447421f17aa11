// Eight threads share one article database through the library for a bounded time, as the
// register's sale screen, its programming screen and the back-office link do: they add, edit,
// reprice and delete the same PLUs, put the same barcode texts on different articles, write the
// same departments and the tax rates, and group writes in transactions that they commit or roll
// back. Every write is recorded with the moment it started and the moment it was acknowledged,
// on one sequence that reads take their moments from too; every read is checked against that
// record as it is made, and the stored state once more at the end. A watchdog fails the run when
// the threads stop making progress (a deadlock).
//
// ARTICLEMANAGER_STRESS_SECONDS sets how long the threads run (default 3).

#include <gtest/gtest.h>

#include <QHash>
#include <QMap>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>

#include "ArticleBarcodeManager.h"
#include "ArticleBarcodes.h"
#include "ArticleEditor.h"
#include "ArticleManager.h"
#include "ArticleSeeker.h"
#include "DatabaseFixture.h"
#include "DeptDBManager.h"
#include "PriceValue.h"
#include "ScaleLabelRecognizer.h"
#include "SystemManager.h"
#include "TaxRatesManager.h"

namespace {

QString operator""_q(const char* text, size_t size) {
    return QString::fromUtf8(text, static_cast<int>(size));
}

constexpr int threadCount = 8;
// Few enough that the threads keep meeting on the same rows.
constexpr unsigned int pluCount = 24;
constexpr int barcodeCount = 16;
constexpr unsigned int deptCount = 3;
// Rate i of the rates write t is t * 7 + i, which must stay below 65535 (not in use).
constexpr int maxRatesWrite = 9000;
// Without progress for this long the threads are taken to be deadlocked.
constexpr auto stallLimit = std::chrono::seconds(60);
const QString absent = "-"_q;

int runSeconds() {
    const char* value = std::getenv("ARTICLEMANAGER_STRESS_SECONDS");
    const int seconds = value ? std::atoi(value) : 0;
    return seconds > 0 ? seconds : 3;
}

QString barcodeText(int n) {
    const QString digits = "5907700%1"_q.arg(n, 5, 10, QLatin1Char('0'));
    return digits + QString::number(SpecialBarcodeRecognizer::Ean13CheckDigit(digits));
}

QString field(const char* what, const QVariant& which) {
    return QString::fromLatin1(what) + QLatin1Char(' ') + which.toString();
}

// Every write made, field by field ("name 7", "price 7", "barcode X" holding an article id,
// "dept 2", "rates"), each with its start and its acknowledgement on one sequence.
class History {
public:
    enum Fate { Running, Acknowledged, Refused, RolledBack };
    struct Read {
        QString field, value, who;
        quint64 start, end;
    };

    quint64 Now() { return ++clock; }
    // Records a write about to be made. `certain` false: its acknowledgement does not say that
    // it changed anything (a price set for a PLU that may just have been deleted), so it
    // overwrites nothing.
    size_t Begin(const QString& field, const QString& value, const QString& who,
                 bool certain = true) {
        std::lock_guard<std::mutex> lock(mutex);
        writes.push_back({value, who, Now(), never, Running, certain});
        byField[field].push_back(writes.size() - 1);
        return writes.size() - 1;
    }
    void End(size_t write, Fate fate) {
        const quint64 now = Now();
        std::lock_guard<std::mutex> lock(mutex);
        writes[write].fate = fate;
        writes[write].end = fate == Acknowledged ? now : never;
    }
    void Initial(const QString& field, const QString& value) {
        End(Begin(field, value, "set-up"_q), Acknowledged);
    }
    // What is wrong with the read; empty when nothing is. A read that only a write not yet
    // ended explains is judged again by Finish, once every write has ended.
    QString Check(const Read& read, bool last = false) {
        std::lock_guard<std::mutex> lock(mutex);
        bool unsure = false;
        const QString why = judge(read, unsure);
        if (unsure && !last) {
            deferred.push_back(read);
        }
        return unsure && last ? read.who + ": a write never ended"_q : why;
    }
    QStringList Finish() {
        QStringList problems;
        for (const Read& read : std::vector<Read>(std::move(deferred))) {
            problems.append(Check(read, true));
        }
        problems.removeAll(QString());
        return problems;
    }

private:
    static constexpr quint64 never = ~0ULL;
    struct Write {
        QString value, who;
        quint64 start, end;
        Fate fate;
        bool certain;
    };

    // Legal: the value of a write that started before the read ended, was neither refused nor
    // rolled back, and was not overwritten by a write acknowledged before the read started that
    // itself started after the value's write was acknowledged.
    QString judge(const Read& read, bool& unsure) {
        const std::vector<size_t>& list = byField[read.field];
        QString why = "never written"_q;
        for (auto it = list.rbegin(); it != list.rend(); ++it) {
            const Write& w = writes[*it];
            if (w.value != read.value) {
                continue;
            } else if (w.fate == Refused || w.fate == RolledBack) {
                why = "written by %1, %2"_q.arg(w.who,
                                                w.fate == Refused ? "refused"_q : "rolled back"_q);
            } else if (w.start > read.end) {
                why = "written by %1 only after the read ended"_q.arg(w.who);
            } else if (const Write* later = overwriting(list, w.end, read.start)) {
                why = "written by %1, overwritten by %2 with %3 before the read began"_q.arg(
                    w.who, later->who, later->value);
            } else if (w.fate == Running) {
                unsure = true;
            } else {
                unsure = false;
                return QString();
            }
        }
        return unsure ? QString()
                      : "%1 read %2 as %3: %4"_q.arg(read.who, read.field, read.value, why);
    }
    // A certain write acknowledged before `before` that started after `after`.
    const Write* overwriting(const std::vector<size_t>& list, quint64 after, quint64 before) const {
        auto it = std::upper_bound(list.begin(), list.end(), after,
                                   [this](quint64 t, size_t w) { return t < writes[w].start; });
        for (; it != list.end() && writes[*it].start < before; ++it) {
            const Write& u = writes[*it];
            if (u.fate == Acknowledged && u.certain && u.end < before) {
                return &u;
            }
        }
        return nullptr;
    }

    std::mutex mutex;
    std::atomic<quint64> clock{0};
    std::vector<Write> writes;  // in order of start
    QHash<QString, std::vector<size_t>> byField;
    std::vector<Read> deferred;
};

// What the threads share besides the library.
struct Shared {
    History history;
    // TaxRatesManager keeps no lock of its own: its callers serialise their calls, as the
    // register does. The database's copy of the rates is read without this lock.
    std::mutex taxLock;
    int ratesWrites = 0;
    std::atomic<long long> progress{0};
};

enum Count { Operations, Acknowledgements, Conflicts, Commits, Rollbacks, Reads, countKinds };

class Worker {
public:
    Worker(int number, ArticleManager& manager, Shared& shared)
        : number(number), manager(manager), shared(shared), random(number * 7919u + 17u) {}

    void Run(std::chrono::steady_clock::time_point until) {
        // Operations and their weights.
        static const std::vector<std::pair<int, void (Worker::*)()>> steps = {
            {40, &Worker::write},    {14, &Worker::transaction}, {18, &Worker::scan},
            {5, &Worker::writeDept}, {12, &Worker::readDept},    {2, &Worker::writeRates},
            {9, &Worker::readRates}};
        while (std::chrono::steady_clock::now() < until && problems.size() < 10) {
            int roll = static_cast<int>(random() % 100);
            auto step = steps.begin();
            for (; roll >= step->first; ++step) {
                roll -= step->first;
            }
            (this->*step->second)();
            ++counts[Operations];
            ++shared.progress;
        }
    }

    const int number;
    QStringList problems;
    long long counts[countKinds] = {};
    std::atomic<const char*> current{"starting"};

private:
    QString who() const {
        return "thread %1 %2%3"_q.arg(number).arg(QString::fromUtf8(current.load()),
                                                  pending ? " in a transaction"_q : QString());
    }
    void fail(const QString& problem) { problems.append(who() + ": "_q + problem); }
    // Whether the call answered 0 or `other`; a failure otherwise.
    bool answered(int result, int other = 0) {
        if (result != 0 && result != other) {
            fail("answered %1"_q.arg(result));
        }
        return result == 0 || result == other;
    }
    // Records a write this thread is about to make.
    void begin(const QString& name, const QString& value, bool certain = true) {
        begun.append(shared.history.Begin(name, value, who(), certain));
    }
    // Ends the writes begun by the call's result: 0 acknowledged (inside a transaction: pending
    // until it ends), `conflict` refused because another thread got there first, anything else
    // refused and wrong.
    void settle(int result, int conflict = -1) {
        if (pending && result == 0) {
            *pending += begun;
        } else {
            for (size_t write : begun) {
                shared.history.End(write, result == 0 ? History::Acknowledged : History::Refused);
            }
            ++counts[result == 0 ? Acknowledgements : Conflicts];
            answered(result, conflict);
        }
        begun.clear();
    }
    void check(const QString& name, const QString& value, quint64 start, quint64 end) {
        ++counts[Reads];
        const QString why = shared.history.Check({name, value, who(), start, end});
        if (!why.isEmpty()) {
            problems.append(why);
        }
    }
    void checkArticle(unsigned int plu, const Article* article, quint64 start, quint64 end) {
        check(field("name", plu), article ? article->name : absent, start, end);
        check(field("price", plu), article ? QString::number(article->price) : absent, start, end);
    }

    // Half the time the barcode the other threads are likeliest to be using at this moment.
    QString anyBarcode() {
        const quint64 n = random() % 2 ? random() : static_cast<quint64>(shared.progress / 64);
        return barcodeText(static_cast<int>(n % barcodeCount));
    }

    // The id of the article with that PLU, 0 when there is none: alone through the seeker, its
    // read checked; inside this thread's transaction from the database itself, since the
    // seeker's mutex must not be taken while the database's lock is held.
    unsigned int idOf(unsigned int plu) {
        const bool inTransaction = pending != nullptr;
        Article article;
        QSharedPointer<DBData> rows;
        const quint64 start = shared.history.Now();
        const int result = inTransaction ? G::dbArticles->Load("Article"_q, {"id"_q},
                                                               "plu_no = %1"_q.arg(plu), rows)
                                         : manager.GetSeeker()->FindPlu(plu, article, false);
        if (!answered(result, inTransaction ? 0 : 3)) {
            return 0;
        } else if (inTransaction) {
            return rows->IsEmpty() ? 0 : rows->GetRow(0)->GetValue("id"_q).toUInt();
        }
        checkArticle(plu, result == 0 ? &article : nullptr, start, shared.history.Now());
        return article.id;
    }

    // One write to an article or a barcode of a PLU, alone or inside this thread's transaction.
    void write() {
        current = "looking a PLU up";
        Article article;
        article.pluNo = static_cast<unsigned int>(random() % pluCount + 1);
        article.id = idOf(article.pluNo);
        article.name = "PLU %1 wątek %2 zapis %3"_q.arg(article.pluNo).arg(number).arg(++serial);
        article.price = number * 10000000LL + serial;  // unique, as the name
        article.unitNo = 1;
        const QString name = field("name", article.pluNo), price = field("price", article.pluNo);
        const QString barcode = anyBarcode();
        ArticleEditor* editor = manager.GetEditor();
        ArticleBarcodeManager* barcodes = manager.GetBarcodeManager();
        switch (article.id == 0 ? 0 : random() % (pending ? 6 : 5) + 1) {
            case 0:
                current = "adding";
                begin(name, article.name);
                begin(price, QString::number(article.price));
                return settle(editor->AddRecord(article), pending ? -1 : DB_OPERATION_CONSTRAINT);
            case 1:
                current = "editing";
                begin(name, article.name);
                begin(price, QString::number(article.price));
                return settle(editor->EditRecord(article), pending ? -1 : DB_OPERATION_NOT_FOUND);
            case 2:
                current = "repricing";
                begin(price, QString::number(article.price), pending != nullptr);
                return settle(editor->UpdateArticlePrice(article.pluNo, PriceValue(article.price)),
                              -1);
            case 3:
            case 4:
                current = "adding a barcode";
                begin(field("barcode", barcode), QString::number(article.id));
                return settle(barcodes->AddRecord(article.id, barcode, false),
                              DB_OPERATION_ALREADY_EXISTS);
            case 5:
                current = "deleting a barcode";
                begin(field("barcode", barcode), "0"_q);
                return settle(barcodes->DeleteRecord(barcode), -1);
        }
        // Deleted only inside a transaction, where the barcodes loaded are all it has.
        current = "deleting";
        ArticleBarcodes loaded(article.id);
        answered(barcodes->Load(loaded));
        begin(name, absent);
        begin(price, absent);
        for (const Barcode* loadedBarcode : loaded.GetBarcodes()) {
            begin(field("barcode", loadedBarcode->GetBarcode()), "0"_q);
        }
        const int result = barcodes->DeleteBarcodes(article, ALL_BARCODES);
        settle(result == 0 ? editor->DeleteRecord(article) : result, -1);
    }

    // Two to four writes in one transaction, committed or rolled back.
    void transaction() {
        current = "opening a transaction";
        if (G::dbArticles->BeginTransaction() != 0) {
            return fail("no transaction"_q);
        }
        QList<size_t> writes;
        pending = &writes;
        for (int n = static_cast<int>(random() % 3) + 2; n > 0; --n) {
            write();
        }
        pending = nullptr;
        const bool commit = random() % 3 != 0;
        current = commit ? "committing" : "rolling back";
        const int result =
            commit ? G::dbArticles->CommitTransaction() : G::dbArticles->RollbackTransaction();
        for (size_t write : writes) {
            shared.history.End(write,
                               commit && result == 0 ? History::Acknowledged : History::RolledBack);
        }
        ++counts[commit ? Commits : Rollbacks];
        counts[Acknowledgements] += commit && answered(result);
    }

    void scan() {
        current = "scanning";
        const QString barcode = anyBarcode();
        Article article;
        const quint64 start = shared.history.Now();
        const int result = manager.GetSeeker()->FindArticleByBarcode(barcode, article, false);
        const int stored = manager.GetSeeker()->FindBarcode(barcode);
        const quint64 end = shared.history.Now();
        if (result == 0) {
            check(field("barcode", barcode), QString::number(article.id), start, end);
            checkArticle(article.pluNo, &article, start, end);
        } else if (result == 8 || stored == 8) {
            fail("%1 is on more than one article"_q.arg(barcode));
        } else if (answered(result, 3)) {
            answered(stored, 3);
        }
    }
    void writeDept() {
        current = "writing a department";
        const unsigned int dept = static_cast<unsigned int>(random() % deptCount + 1);
        const QString name = "Dział %1 wątek %2/%3"_q.arg(dept).arg(number).arg(++serial);
        begin(field("dept", dept), name);
        settle(manager.GetDeptDBManager()->AddOrUpdateRecord(
            QSharedPointer<const Dept>(new Dept(dept, name, 5000, 5000, serial % 2, false))));
    }
    void readDept() {
        current = "reading a department";
        const unsigned int dept = static_cast<unsigned int>(random() % deptCount + 1);
        const quint64 start = shared.history.Now();
        const QSharedPointer<const Dept> read = manager.GetDeptDBManager()->GetDept(dept);
        const QList<QSharedPointer<const Dept>> all = manager.GetDeptDBManager()->GetDepts();
        const quint64 end = shared.history.Now();
        if (!read || all.size() != 99) {
            return fail("department %1 is missing"_q.arg(dept));
        }
        check(field("dept", dept), read->GetName(), start, end);
        check(field("dept", dept), all[static_cast<int>(dept) - 1]->GetName(), start, end);
    }

    // The seven rates of one write are its value: a read of some of one write and some of
    // another reads a value never written.
    void writeRates() {
        current = "writing the tax rates";
        std::lock_guard<std::mutex> lock(shared.taxLock);
        const int write = ++shared.ratesWrites;
        TaxRates rates{{}, 2};
        QStringList values;
        for (int i = 0; i < TaxRates::count; ++i) {
            rates.values[i] = static_cast<quint16>(write * TaxRates::count + i);
            values.append(QString::number(rates.values[i]));
        }
        if (write <= maxRatesWrite) {
            begin("rates"_q, values.join(' '));
            settle(manager.GetTaxRatesManager()->UpdateRecord(rates));
        }
    }
    // Read from the database without the lock.
    void readRates() {
        current = "reading the tax rates";
        QSharedPointer<DBData> rows;
        const quint64 start = shared.history.Now();
        const int result = G::dbArticles->LoadAll("TaxRates"_q, rows);
        const quint64 end = shared.history.Now();
        QStringList values;
        for (const DBRow* row : *rows) {
            values.append(row->GetValue("tax_rate_val"_q).toString());
        }
        if (answered(result)) {
            check("rates"_q, values.join(' '), start, end);
        }
    }

    ArticleManager& manager;
    Shared& shared;
    std::mt19937_64 random;
    int serial = 0;
    QList<size_t> begun;               // writes begun for the call about to be made
    QList<size_t>* pending = nullptr;  // in a transaction: its acknowledged writes
};

class ConcurrentStress : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        ASSERT_TRUE(SystemManager::Instance()->InitializeAll());
        manager = G::articleManager;
        ASSERT_EQ(SystemBase::STATE_READY, manager->GetState());
        ASSERT_TRUE(manager->GetDeptDBManager()->ResetTable());
        ASSERT_EQ(0, manager->GetTaxRatesManager()->UpdateRecord({{0, 1, 2, 3, 4, 5, 6}, 2}));
        for (unsigned int plu = 1; plu <= pluCount; ++plu) {
            shared.history.Initial(field("name", plu), absent);
            shared.history.Initial(field("price", plu), absent);
        }
        for (int n = 0; n < barcodeCount; ++n) {
            shared.history.Initial(field("barcode", barcodeText(n)), "0"_q);
        }
        for (unsigned int dept = 1; dept <= deptCount; ++dept) {
            shared.history.Initial(field("dept", dept), QString());
        }
        shared.history.Initial("rates"_q, "0 1 2 3 4 5 6"_q);
    }
    void TearDown() override {
        SystemManager::Instance()->UninitializeAll();
        DatabaseFixture::TearDown();
    }

    // The stored state against what the history allows once every write has ended.
    void CheckStored() {
        const quint64 now = shared.history.Now();
        const auto stored = [&](const QString& name, const QString& value) {
            const QString why = shared.history.Check({name, value, "the end"_q, now, now});
            EXPECT_TRUE(why.isEmpty()) << why.toStdString();
        };
        for (unsigned int plu = 1; plu <= pluCount; ++plu) {
            const QStringList row =
                Raw().Rows("SELECT art_name, price FROM Article WHERE plu_no = %1"_q.arg(plu));
            stored(field("name", plu), row.isEmpty() ? absent : row[0].section('|', 0, 0));
            stored(field("price", plu), row.isEmpty() ? absent : row[0].section('|', 1));
        }
        // A barcode on two articles reads as both ids, a value never written.
        QMap<QString, QString> holders;
        for (
            const QString& row : Raw().Rows(
                "SELECT barcode, group_concat(article_id, ' ') FROM ArticleBarcode GROUP BY 1"_q)) {
            holders.insert(row.section('|', 0, 0), row.section('|', 1));
        }
        for (int n = 0; n < barcodeCount; ++n) {
            stored(field("barcode", barcodeText(n)), holders.value(barcodeText(n), "0"_q));
        }
        for (unsigned int dept = 1; dept <= deptCount; ++dept) {
            stored(field("dept", dept), manager->GetDeptDBManager()->GetDept(dept)->GetName());
            stored(field("dept", dept),
                   Raw().Text("SELECT dept_name FROM Dept WHERE dept_id = %1"_q.arg(dept)));
        }
        stored("rates"_q,
               Raw().Rows("SELECT tax_rate_val FROM TaxRates ORDER BY tax_rate_id"_q).join(' '));
        for (const QString& problem : shared.history.Finish()) {
            ADD_FAILURE() << problem.toStdString();
        }
        EXPECT_EQ("ok"_q, Raw().Text("PRAGMA integrity_check"_q));
    }

    ArticleManager* manager = nullptr;
    Shared shared;
};

}  // namespace

// The checker itself sees a wrong read: an overwritten value, a rolled-back one (also when it
// was read while its transaction was open), one written after the read ended, one never written.
TEST(ConcurrentStressHistory, ReportsReadsNoWriteExplains) {
    History history;
    const QString f = "f"_q;
    history.Initial(f, "a"_q);
    const size_t b = history.Begin(f, "b"_q, "w2"_q);
    const size_t c = history.Begin(f, "c"_q, "w3"_q);
    const quint64 during = history.Now();
    EXPECT_EQ(QString(), history.Check({f, "c"_q, "r"_q, during, during}));
    history.End(b, History::Acknowledged);
    history.End(c, History::RolledBack);
    const quint64 start = history.Now();
    const quint64 end = history.Now();
    history.Begin(f, "d"_q, "w4"_q);
    EXPECT_EQ(QString(), history.Check({f, "b"_q, "r"_q, start, end}));
    for (const QString& wrong : {"a"_q, "c"_q, "d"_q, "e"_q}) {
        EXPECT_NE(QString(), history.Check({f, wrong, "r"_q, start, end})) << wrong.toStdString();
    }
    EXPECT_EQ(1, history.Finish().size());
}

TEST_F(ConcurrentStress, EightThreadsReadOnlyWhatWasWrittenWithoutDeadlock) {
    const int seconds = runSeconds();
    std::vector<std::unique_ptr<Worker>> workers;
    for (int t = 0; t < threadCount; ++t) {
        workers.push_back(std::make_unique<Worker>(t, *manager, shared));
    }
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::atomic<int> finished{0};
    std::vector<std::thread> threads;
    for (auto& worker : workers) {
        threads.emplace_back([&worker, until, &finished] {
            worker->Run(until);
            ++finished;
        });
    }
    // The watchdog.
    long long seen = -1;
    for (auto since = std::chrono::steady_clock::now(); finished < threadCount;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (shared.progress.load() != seen) {
            seen = shared.progress.load();
            since = std::chrono::steady_clock::now();
        } else if (std::chrono::steady_clock::now() - since > stallLimit) {
            std::fprintf(stderr, "deadlock: no thread made progress for %lld s\n",
                         static_cast<long long>(stallLimit.count()));
            for (const auto& worker : workers) {
                std::fprintf(stderr, "  thread %d: %s\n", worker->number, worker->current.load());
            }
            std::abort();
        }
    }
    for (auto& thread : threads) {
        thread.join();
    }

    long long total[countKinds] = {};
    for (auto& worker : workers) {
        for (const QString& problem : worker->problems) {
            ADD_FAILURE() << problem.toStdString();
        }
        EXPECT_GT(worker->counts[Acknowledgements], 0) << "thread " << worker->number;
        for (int kind = 0; kind < countKinds; ++kind) {
            total[kind] += worker->counts[kind];
        }
    }
    CheckStored();
    std::printf(
        "%d threads, %d s: %lld operations, %lld writes acknowledged (%lld of them "
        "transactions, %lld more rolled back), %lld refused (conflicts), %lld reads "
        "checked\n",
        threadCount, seconds, total[Operations], total[Acknowledgements], total[Commits],
        total[Rollbacks], total[Conflicts], total[Reads]);
}

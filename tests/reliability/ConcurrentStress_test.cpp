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

#include <QMap>
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
#include "History.h"
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
        while (std::chrono::steady_clock::now() < until && history.Failures() < 10) {
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
    long long counts[countKinds] = {};
    std::atomic<const char*> current{"starting"};

private:
    QString who() const {
        return "thread %1 %2%3"_q.arg(number).arg(QString::fromUtf8(current.load()),
                                                  pending ? " in a transaction"_q : QString());
    }
    void fail(const char* kind, const QString& what) {
        history.Fail(QString::fromLatin1(kind), who() + ": "_q + what);
    }
    // Whether the call answered 0 or `other`; a failure otherwise.
    bool answered(int result, int other = 0) {
        if (result != 0 && result != other) {
            fail("a call failed", "answered %1"_q.arg(result));
        }
        return result == 0 || result == other;
    }
    // Records a write this thread is about to make.
    void begin(const QString& name, const QString& value, bool certain = true) {
        begun.append(history.Begin(name, value, who(), history.Now(), certain));
    }
    // Ends the writes begun by the call's result: 0 acknowledged (inside a transaction: pending
    // until it ends), `conflict` refused because another thread got there first, anything else
    // refused and wrong.
    void settle(int result, int conflict = -1) {
        if (pending && result == 0) {
            *pending += begun;
        } else {
            for (size_t write : begun) {
                history.End(write, result == 0 ? History::Acknowledged : History::Refused,
                            history.Now());
            }
            ++counts[result == 0 ? Acknowledgements : Conflicts];
            answered(result, conflict);
        }
        begun.clear();
    }
    void check(const QString& name, const QString& value, qint64 start, qint64 end) {
        ++counts[Reads];
        history.Check({name, value, who(), start, end});
    }
    void checkArticle(unsigned int plu, const Article* article, qint64 start, qint64 end) {
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
        const qint64 start = history.Now();
        const int result = inTransaction ? G::dbArticles->Load("Article"_q, {"id"_q},
                                                               "plu_no = %1"_q.arg(plu), rows)
                                         : manager.GetSeeker()->FindPlu(plu, article, false);
        if (!answered(result, inTransaction ? 0 : 3)) {
            return 0;
        } else if (inTransaction) {
            return rows->IsEmpty() ? 0 : rows->GetRow(0)->GetValue("id"_q).toUInt();
        }
        checkArticle(plu, result == 0 ? &article : nullptr, start, history.Now());
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
        const QString barcode = anyBarcode(), id = QString::number(article.id);
        ArticleEditor* editor = manager.GetEditor();
        ArticleBarcodeManager* barcodes = manager.GetBarcodeManager();
        const int op = article.id == 0 ? 0 : random() % (pending ? 6 : 5) + 1;
        if (op <= 1) {
            current = op == 0 ? "adding" : "editing";
            begin(name, article.name);
            begin(price, QString::number(article.price));
            const int refusal = op == 0 ? DB_OPERATION_CONSTRAINT : DB_OPERATION_NOT_FOUND;
            return settle(op == 0 ? editor->AddRecord(article) : editor->EditRecord(article),
                          pending ? -1 : refusal);
        } else if (op == 2) {
            current = "repricing";
            begin(price, QString::number(article.price), pending != nullptr);
            return settle(editor->UpdateArticlePrice(article.pluNo, PriceValue(article.price)));
        } else if (op <= 5) {
            const bool add = op < 5;
            current = add ? "adding a barcode" : "deleting a barcode";
            begin(field("barcode", barcode), add ? id : "0"_q);
            return settle(add ? barcodes->AddRecord(article.id, barcode, false)
                              : barcodes->DeleteRecord(barcode),
                          add ? DB_OPERATION_ALREADY_EXISTS : -1);
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
        settle(result == 0 ? editor->DeleteRecord(article) : result);
    }

    // Two to four writes in one transaction, committed or rolled back.
    void transaction() {
        current = "opening a transaction";
        if (G::dbArticles->BeginTransaction() != 0) {
            return fail("a call failed", "no transaction"_q);
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
            history.End(write, commit && result == 0 ? History::Acknowledged : History::RolledBack,
                        history.Now());
        }
        ++counts[commit ? Commits : Rollbacks];
        counts[Acknowledgements] += commit && answered(result);
    }

    void scan() {
        current = "scanning";
        const QString barcode = anyBarcode();
        Article article;
        const qint64 start = history.Now();
        const int result = manager.GetSeeker()->FindArticleByBarcode(barcode, article, false);
        const int stored = manager.GetSeeker()->FindBarcode(barcode);
        const qint64 end = history.Now();
        if (result == 0) {
            check(field("barcode", barcode), QString::number(article.id), start, end);
            checkArticle(article.pluNo, &article, start, end);
        } else if (result == 8 || stored == 8) {
            fail("a barcode is on two articles", barcode);
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
        const qint64 start = history.Now();
        const QSharedPointer<const Dept> read = manager.GetDeptDBManager()->GetDept(dept);
        const QList<QSharedPointer<const Dept>> all = manager.GetDeptDBManager()->GetDepts();
        const qint64 end = history.Now();
        if (!read || all.size() != 99) {
            return fail("a department is missing", QString::number(dept));
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
        const qint64 start = history.Now();
        const int result = G::dbArticles->LoadAll("TaxRates"_q, rows);
        const qint64 end = history.Now();
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
    History& history = shared.history;
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
            history.Initial(field("name", plu), absent);
            history.Initial(field("price", plu), absent);
        }
        for (int n = 0; n < barcodeCount; ++n) {
            history.Initial(field("barcode", barcodeText(n)), "0"_q);
        }
        for (unsigned int dept = 1; dept <= deptCount; ++dept) {
            history.Initial(field("dept", dept), QString());
        }
        history.Initial("rates"_q, "0 1 2 3 4 5 6"_q);
    }
    void TearDown() override {
        SystemManager::Instance()->UninitializeAll();
        DatabaseFixture::TearDown();
    }

    // The stored state against what the history allows once every write has ended.
    void CheckStored() {
        for (unsigned int plu = 1; plu <= pluCount; ++plu) {
            const QStringList row =
                Raw().Rows("SELECT art_name, price FROM Article WHERE plu_no = %1"_q.arg(plu));
            history.CheckEnd(field("name", plu),
                             row.isEmpty() ? absent : row[0].section('|', 0, 0));
            history.CheckEnd(field("price", plu), row.isEmpty() ? absent : row[0].section('|', 1));
        }
        QMap<QString, QString> holders;
        for (
            const QString& row : Raw().Rows(
                "SELECT barcode, group_concat(article_id, ' ') FROM ArticleBarcode GROUP BY 1"_q)) {
            holders.insert(row.section('|', 0, 0), row.section('|', 1));
        }
        for (int n = 0; n < barcodeCount; ++n) {
            const QString holder = holders.value(barcodeText(n), "0"_q);
            if (holder.contains(' ')) {
                history.Fail("a barcode is on two articles"_q, "at the end: "_q + barcodeText(n));
            }
            history.CheckEnd(field("barcode", barcodeText(n)), holder);
        }
        for (unsigned int dept = 1; dept <= deptCount; ++dept) {
            history.CheckEnd(field("dept", dept),
                             manager->GetDeptDBManager()->GetDept(dept)->GetName());
            history.CheckEnd(
                field("dept", dept),
                Raw().Text("SELECT dept_name FROM Dept WHERE dept_id = %1"_q.arg(dept)));
        }
        history.CheckEnd(
            "rates"_q,
            Raw().Rows("SELECT tax_rate_val FROM TaxRates ORDER BY tax_rate_id"_q).join(' '));
        for (const QString& problem : history.Report()) {
            ADD_FAILURE() << problem.toStdString();
        }
        EXPECT_EQ("ok"_q, Raw().Text("PRAGMA integrity_check"_q));
    }

    ArticleManager* manager = nullptr;
    Shared shared;
    History& history = shared.history;
};

}  // namespace

// The checker itself sees a wrong read: an overwritten value, a rolled-back one (also when it
// was read while its transaction was open), one written after the read ended, one never
// written, and a final state that lost an acknowledged write.
TEST(ConcurrentStressHistory, ReportsReadsNoWriteExplains) {
    History history;
    const QString f = "f"_q;
    history.Initial(f, "a"_q);
    const size_t b = history.Begin(f, "b"_q, "w2"_q, history.Now());
    const size_t c = history.Begin(f, "c"_q, "w3"_q, history.Now());
    const qint64 during = history.Now();
    history.Check({f, "c"_q, "r"_q, during, during});
    history.End(b, History::Acknowledged, history.Now());
    history.End(c, History::RolledBack, history.Now());
    const qint64 start = history.Now();
    const qint64 end = history.Now();
    history.End(history.Begin(f, "d"_q, "w4"_q, history.Now()), History::Acknowledged,
                history.Now());
    history.Check({f, "b"_q, "r"_q, start, end});
    EXPECT_EQ(0, history.Failures());
    for (const QString& wrong : {"a"_q, "c"_q, "d"_q, "e"_q}) {
        history.Check({f, wrong, "r"_q, start, end});
    }
    history.CheckEnd(f, "b"_q);
    EXPECT_EQ(5, history.Failures());
    EXPECT_EQ(4u, history.Finish().size());  // stale, not acknowledged, not begun, lost
    EXPECT_EQ(6, history.Failures());
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
    long long total[countKinds] = {};
    for (auto& worker : workers) {
        threads[static_cast<size_t>(worker->number)].join();
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

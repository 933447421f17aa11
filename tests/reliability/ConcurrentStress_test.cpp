// Eight threads use one article database through the library at once, as the register's sale
// screen, its programming screen and the back-office link do, for a bounded time. Each thread
// owns a PLU range and a department, so it knows exactly what its own articles must look like at
// every moment and at the end; it reads everyone else's too. A watchdog fails the run when the
// threads stop making progress (a deadlock).
//
// ARTICLEMANAGER_STRESS_SECONDS sets how long the threads run (default 3).

#include <gtest/gtest.h>

#include <QMap>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>

#include "ArticleBarcodeManager.h"
#include "ArticleBarcodes.h"
#include "ArticleEditor.h"
#include "ArticleManager.h"
#include "ArticleSeeker.h"
#include "BarcodePrefixDBManager.h"
#include "CurrentMaxPLUManager.h"
#include "DatabaseFixture.h"
#include "DeptDBManager.h"
#include "PriceValue.h"
#include "ScaleLabelRecognizer.h"
#include "SystemManager.h"
#include "TaxRatesManager.h"

namespace {

constexpr int threadCount = 8;
constexpr unsigned int pluRange = 100000;
// Without progress for this long the threads are taken to be deadlocked.
constexpr auto stallLimit = std::chrono::seconds(120);

int runSeconds() {
    const char* value = std::getenv("ARTICLEMANAGER_STRESS_SECONDS");
    const int seconds = value ? std::atoi(value) : 0;
    return seconds > 0 ? seconds : 3;
}

// What one thread knows about its own articles.
struct OwnArticle {
    unsigned int id = 0;
    QString name;
    qint64 price = 0;
    bool handy = false;
    QMap<QString, bool> barcodes;  // text, is_main
};

class Worker {
public:
    Worker(int number, ArticleManager& manager, std::atomic<long long>& progress)
        : number(number)
        , manager(manager)
        , progress(progress)
        , random(static_cast<quint64>(number) * 7919u + 17u)
        , firstPlu(static_cast<unsigned int>(number + 1) * pluRange)
        , dept(static_cast<unsigned int>(10 + number)) {}

    void Run(std::chrono::steady_clock::time_point until) {
        while (std::chrono::steady_clock::now() < until && problems.size() < 10) {
            step();
            ++operations;
            ++progress;
        }
    }

    // Compares the thread's articles with what the library reads now.
    void CheckAll() {
        QList<Article> stored;
        const int result = manager.GetSeeker()->FindNextPlu(firstPlu, 0, stored, false);
        int mine = 0;
        for (const Article& article : stored) {
            if (article.pluNo >= firstPlu + pluRange) {
                break;
            }
            ++mine;
            checkArticle(article.pluNo);
        }
        if (mine != own.size() || (result != 0 && !own.isEmpty())) {
            fail(QStringLiteral("%1 articles stored, %2 expected (result %3)")
                     .arg(mine)
                     .arg(own.size())
                     .arg(result));
        }
        const QSharedPointer<const Dept> storedDept = manager.GetDeptDBManager()->GetDept(dept);
        if (!deptName.isEmpty() && (!storedDept || storedDept->GetName() != deptName)) {
            fail(QStringLiteral("department %1 is not %2").arg(dept).arg(deptName));
        }
    }

    const int number;
    QStringList problems;
    long long operations = 0;
    long long writes = 0;
    std::atomic<const char*> current{"starting"};

private:
    void fail(const QString& problem) {
        problems.append(QStringLiteral("thread %1 during %2: %3")
                            .arg(number)
                            .arg(QString::fromLatin1(current.load()), problem));
    }

    unsigned int anyOwnPlu() {
        auto it = own.begin();
        std::advance(it, static_cast<int>(random() % static_cast<unsigned int>(own.size())));
        return it.key();
    }

    QString nextBarcode() {
        const QString digits =
            QStringLiteral("59%1%2").arg(number).arg(++serial, 9, 10, QLatin1Char('0'));
        return digits + QString::number(SpecialBarcodeRecognizer::Ean13CheckDigit(digits));
    }

    void step() {
        const int roll = static_cast<int>(random() % 100);
        if (own.size() < 3 || (roll < 12 && own.size() < 60)) {
            add();
        } else if (roll < 20) {
            edit(anyOwnPlu());
        } else if (roll < 27) {
            setPrice(anyOwnPlu());
        } else if (roll < 34) {
            addBarcode(anyOwnPlu());
        } else if (roll < 38) {
            deleteBarcode(anyOwnPlu());
        } else if (roll < 42) {
            remove(anyOwnPlu());
        } else if (roll < 62) {
            checkArticle(anyOwnPlu());
        } else if (roll < 70) {
            readOthers();
        } else if (roll < 76) {
            writeDept();
        } else if (roll < 88) {
            readDeptsAndRates();
        } else {
            countAndNavigate();
        }
    }

    void add() {
        current = "adding an article";
        Article article;
        article.pluNo = firstPlu + nextPlu++;
        article.name = QStringLiteral("Wątek %1 artykuł %2").arg(number).arg(++serial);
        article.price = static_cast<qint64>(random() % 100000);
        article.taxRateNo = 1;
        article.deptNo = static_cast<unsigned char>(dept);
        article.unitNo = 1;
        article.mainBarcode = nextBarcode();
        if (manager.GetEditor()->AddRecord(article) != 0) {
            return fail(QStringLiteral("PLU %1 was not added").arg(article.pluNo));
        }
        ++writes;
        Article stored;
        if (manager.GetSeeker()->FindPlu(article.pluNo, stored, false) != 0) {
            return fail(
                QStringLiteral("PLU %1 is not found after it was added").arg(article.pluNo));
        }
        OwnArticle& entry = own[article.pluNo];
        entry.id = stored.id;
        entry.name = article.name;
        entry.price = article.price;
        current = "adding a main barcode";
        if (manager.GetBarcodeManager()->AddRecord(stored.id, article.mainBarcode, true) != 0) {
            return fail(
                QStringLiteral("the main barcode of PLU %1 was refused").arg(article.pluNo));
        }
        ++writes;
        entry.barcodes.insert(article.mainBarcode, true);
    }

    void edit(unsigned int plu) {
        current = "editing an article";
        Article article;
        if (manager.GetSeeker()->FindPlu(plu, article, false) != 0) {
            return fail(QStringLiteral("PLU %1 is not found").arg(plu));
        }
        article.name = QStringLiteral("Wątek %1 zmieniony %2").arg(number).arg(++serial);
        article.price = static_cast<qint64>(random() % 100000);
        article.onHandyList = !article.onHandyList;
        if (manager.GetEditor()->EditRecord(article) != 0) {
            return fail(QStringLiteral("PLU %1 was not edited").arg(plu));
        }
        ++writes;
        OwnArticle& entry = own[plu];
        entry.name = article.name;
        entry.price = article.price;
        entry.handy = article.onHandyList;
    }

    void setPrice(unsigned int plu) {
        current = "setting a price";
        const qint64 price = static_cast<qint64>(random() % 1000000);
        if (manager.GetEditor()->UpdateArticlePrice(plu, PriceValue(price)) != 0) {
            return fail(QStringLiteral("the price of PLU %1 was not set").arg(plu));
        }
        ++writes;
        own[plu].price = price;
    }

    void addBarcode(unsigned int plu) {
        current = "adding a barcode";
        const QString barcode = nextBarcode();
        if (manager.GetBarcodeManager()->AddRecord(own[plu].id, barcode, false) != 0) {
            return fail(QStringLiteral("barcode %1 was refused").arg(barcode));
        }
        ++writes;
        own[plu].barcodes.insert(barcode, false);
    }

    void deleteBarcode(unsigned int plu) {
        current = "deleting a barcode";
        QMap<QString, bool>& barcodes = own[plu].barcodes;
        for (auto it = barcodes.begin(); it != barcodes.end(); ++it) {
            if (!it.value()) {
                if (manager.GetBarcodeManager()->DeleteRecord(it.key()) != 0) {
                    return fail(QStringLiteral("barcode %1 was not deleted").arg(it.key()));
                }
                ++writes;
                barcodes.erase(it);
                return;
            }
        }
    }

    void remove(unsigned int plu) {
        current = "deleting an article";
        Article article;
        article.id = own[plu].id;
        if (manager.GetBarcodeManager()->DeleteBarcodes(article, ALL_BARCODES) != 0 ||
            manager.GetEditor()->DeleteRecord(article) != 0) {
            return fail(QStringLiteral("PLU %1 was not deleted").arg(plu));
        }
        writes += 2;
        own.remove(plu);
        Article gone;
        if (manager.GetSeeker()->FindPlu(plu, gone, false) != 3) {
            fail(QStringLiteral("PLU %1 is still found").arg(plu));
        }
    }

    void checkArticle(unsigned int plu) {
        current = "checking an article";
        const OwnArticle& expected = own[plu];
        Article article;
        if (manager.GetSeeker()->FindPlu(plu, article, false) != 0 || article.id != expected.id ||
            article.name != expected.name || article.price != expected.price ||
            article.onHandyList != expected.handy || article.unitName != QStringLiteral("szt.")) {
            return fail(QStringLiteral("PLU %1 reads as (%2, %3) instead of (%4, %5)")
                            .arg(plu)
                            .arg(article.name)
                            .arg(article.price)
                            .arg(expected.name)
                            .arg(expected.price));
        }
        ArticleBarcodes barcodes(expected.id);
        if (manager.GetBarcodeManager()->Load(barcodes) != 0) {
            return fail(QStringLiteral("the barcodes of PLU %1 do not load").arg(plu));
        }
        QMap<QString, bool> stored;
        for (const Barcode* barcode : barcodes.GetBarcodes()) {
            stored.insert(barcode->GetBarcode(), barcode->IsMain());
        }
        if (stored != expected.barcodes) {
            return fail(QStringLiteral("PLU %1 has barcodes %2 instead of %3")
                            .arg(plu)
                            .arg(QStringList(stored.keys()).join(QLatin1Char(' ')),
                                 QStringList(expected.barcodes.keys()).join(QLatin1Char(' '))));
        }
        for (auto it = expected.barcodes.cbegin(); it != expected.barcodes.cend(); ++it) {
            Article scanned;
            if (manager.GetSeeker()->FindArticleByBarcode(it.key(), scanned, false) != 0 ||
                scanned.pluNo != plu) {
                return fail(
                    QStringLiteral("barcode %1 does not scan to PLU %2").arg(it.key()).arg(plu));
            }
            if (!manager.GetBarcodeManager()->IsRecordExist(it.key())) {
                return fail(QStringLiteral("barcode %1 is not known").arg(it.key()));
            }
        }
        QVector<Article> found;
        if (manager.GetSeeker()->FindNameInfix(expected.name, found) != 0 ||
            std::none_of(found.cbegin(), found.cend(),
                         [plu](const Article& a) { return a.pluNo == plu; })) {
            return fail(QStringLiteral("the search does not find %1").arg(expected.name));
        }
        if (!manager.GetEditor()->IsRecordExist(expected.name)) {
            return fail(QStringLiteral("the name %1 is not taken").arg(expected.name));
        }
    }

    void readOthers() {
        current = "reading other threads' articles";
        const unsigned int other = static_cast<unsigned int>(random() % threadCount + 1) * pluRange;
        QList<ArticleBrief> briefs;
        const int range =
            manager.GetSeeker()->FindPluInRange(other, other + pluRange - 1, briefs, false);
        QVector<Article> named;
        const int prefix =
            manager.GetSeeker()->FindNamePrefix(QStringLiteral("wątek"), named, false);
        QVector<Article> infix;
        const int search = manager.GetSeeker()->FindNameInfix(QStringLiteral("artykuł 1"), infix);
        if ((range != 0 && range != 3) || (prefix != 0 && prefix != 3) || search != 0) {
            fail(QStringLiteral("reads answered %1, %2, %3").arg(range).arg(prefix).arg(search));
        }
        for (const Article& article : named) {
            if (!article.name.startsWith(QStringLiteral("Wątek"))) {
                return fail(QStringLiteral("the prefix search listed %1").arg(article.name));
            }
        }
    }

    void writeDept() {
        current = "writing a department";
        deptName = QStringLiteral("Dział %1/%2").arg(number).arg(++serial);
        const QSharedPointer<const Dept> written(
            new Dept(dept, deptName, 5000, 5000, (serial % 2) == 0, false));
        if (manager.GetDeptDBManager()->AddOrUpdateRecord(written) != 0) {
            fail(QStringLiteral("department %1 was not written").arg(dept));
        }
        ++writes;
    }

    void readDeptsAndRates() {
        current = "reading departments and tax rates";
        DeptDBManager* depts = manager.GetDeptDBManager();
        const unsigned int any = static_cast<unsigned int>(random() % 99 + 1);
        const QSharedPointer<const Dept> read = depts->GetDept(any);
        if (!read || read->GetId() != any) {
            return fail(QStringLiteral("department %1 is not there").arg(any));
        }
        Article article;
        article.deptNo = static_cast<unsigned char>(dept);
        depts->DoesDeptPermitsPriceModifications(article);
        depts->IsDeptForPrinterOrder(article);
        depts->IsDeptSpecial(article);
        if (depts->GetDepts().size() != 99) {
            return fail(QStringLiteral("%1 departments").arg(depts->GetDepts().size()));
        }
        TaxRatesManager* rates = manager.GetTaxRatesManager();
        char letter = 0;
        if (!rates->GetRecord(1) || !rates->IsSet(QStringLiteral("A")) ||
            !rates->GetTaxRateASCIIChar(2, letter) || letter != 'B') {
            fail(QStringLiteral("the tax rates read wrong"));
        }
    }

    void countAndNavigate() {
        current = "counting and navigating";
        unsigned int count = 0;
        if (manager.GetSeeker()->CountPluInRange(firstPlu, firstPlu + pluRange - 1, count, false) !=
                0 ||
            count != static_cast<unsigned int>(own.size())) {
            return fail(
                QStringLiteral("%1 articles counted, %2 expected").arg(count).arg(own.size()));
        }
        unsigned int first = 0;
        unsigned int last = 0;
        unsigned int next = 0;
        if (manager.GetSeeker()->FindFirstArtclePlu(first, false) != 0 ||
            manager.GetSeeker()->FindLastArticlePlu(last, false) != 0 || first > last ||
            manager.GetSeeker()->FindNextPlu(firstPlu - 1, next, false) != 0 ||
            next != own.firstKey()) {
            return fail(QStringLiteral("navigation: first %1, last %2, next %3 instead of %4")
                            .arg(first)
                            .arg(last)
                            .arg(next)
                            .arg(own.firstKey()));
        }
        QVariant unused;
        if (manager.GetSeeker()->FindFirstUnusedPlu(unused) != 0) {
            fail(QStringLiteral("no first unused PLU"));
        }
        manager.GetCurrentMaxPLUManager()->GetDigitsCountOfMaxPlu();
        QList<SpecialBarcodePrefix*> prefixes;
        if (manager.GetBarcodePrefixDBManager()->LoadPrefixesByType(SPECIAL_BARCODE_NONE,
                                                                    prefixes) != 0 ||
            prefixes.size() != 4) {
            fail(QStringLiteral("%1 label prefixes").arg(prefixes.size()));
        }
        qDeleteAll(prefixes);
    }

    ArticleManager& manager;
    std::atomic<long long>& progress;
    std::mt19937_64 random;
    const unsigned int firstPlu;
    const unsigned int dept;
    unsigned int nextPlu = 1;
    int serial = 0;
    QString deptName;
    QMap<unsigned int, OwnArticle> own;
};

class ConcurrentStress : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        ASSERT_TRUE(SystemManager::Instance()->InitializeAll());
        manager = G::articleManager;
        ASSERT_EQ(SystemBase::STATE_READY, manager->GetState());
        ASSERT_TRUE(manager->GetDeptDBManager()->ResetTable());
        ASSERT_TRUE(manager->GetBarcodePrefixDBManager()->ResetTable());
        ASSERT_EQ(0, manager->GetTaxRatesManager()->UpdateRecord(
                         {{2300, 800, 500, 0, 65535, 65535, 0}, 2}));
    }
    void TearDown() override {
        SystemManager::Instance()->UninitializeAll();
        DatabaseFixture::TearDown();
    }

    ArticleManager* manager = nullptr;
};

}  // namespace

TEST_F(ConcurrentStress, EightThreadsKeepTheirOwnArticlesExactWithoutDeadlock) {
    const int seconds = runSeconds();
    std::atomic<long long> progress{0};
    std::vector<std::unique_ptr<Worker>> workers;
    for (int t = 0; t < threadCount; ++t) {
        workers.push_back(std::make_unique<Worker>(t, *manager, progress));
    }
    std::atomic<bool> done{false};
    std::thread watchdog([&] {
        long long seen = -1;
        auto since = std::chrono::steady_clock::now();
        while (!done) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            if (progress.load() != seen) {
                seen = progress.load();
                since = std::chrono::steady_clock::now();
            } else if (std::chrono::steady_clock::now() - since > stallLimit) {
                std::fprintf(stderr, "deadlock: no thread made progress for %lld s\n",
                             static_cast<long long>(stallLimit.count()));
                for (const auto& worker : workers) {
                    std::fprintf(stderr, "  thread %d: %s, %lld operations\n", worker->number,
                                 worker->current.load(), worker->operations);
                }
                std::abort();
            }
        }
    });
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::vector<std::thread> threads;
    for (auto& worker : workers) {
        threads.emplace_back([&worker, until] { worker->Run(until); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    done = true;
    watchdog.join();

    long long operations = 0;
    long long writes = 0;
    for (auto& worker : workers) {
        worker->CheckAll();
        for (const QString& problem : worker->problems) {
            ADD_FAILURE() << problem.toStdString();
        }
        EXPECT_GT(worker->writes, 0) << "thread " << worker->number << " wrote nothing";
        operations += worker->operations;
        writes += worker->writes;
    }
    EXPECT_EQ(QStringLiteral("ok"), Raw().Text(QStringLiteral("PRAGMA integrity_check")));
    std::printf("%d threads, %d s: %lld operations (%lld writes), each thread's articles exact\n",
                threadCount, seconds, operations, writes);
}

// The library's hot operations against raw SQLite on the same generated catalogue, in one run.
//
//   article_bench --size=N [--data=DIR] [--articlectl=PATH] [--infix=TEXT] [--common=TEXT]
//                 [Google Benchmark options]
//
// Each "lib/X" benchmark calls the library the way the register does; "raw/X" does the same
// work through the SQLite C API with a statement prepared once. The table at the end prints
// the medians, their ratio and whether each target holds.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ArticleBarcodeManager.h"
#include "ArticleManager.h"
#include "Barcode.h"
#include "BenchCatalogue.h"
#include "ChildLauncher.h"
#include "Globals.h"
#include "Logger.h"
#include "RatioReporter.h"
#include "SystemManager.h"
#include "XCLASS_gArticleManager.h"

namespace {

struct Setup {
    int size = 2000;
    QString data = QStringLiteral("bench-data");
    QString articlectl;
    std::unique_ptr<BenchCatalogue> catalogue;
    QString database;
    std::unique_ptr<DBManager> articles;
    std::unique_ptr<DBManager> receipts;
    QTemporaryDir scratch;
    sqlite3* raw = nullptr;
    std::vector<unsigned int> plus;      // PLUs to look up
    std::vector<QString> barcodes;       // main barcodes of packaged goods
    std::vector<QString> labels;         // scale labels of weighed goods
    std::vector<QString> labelArticles;  // the article barcodes those labels carry
    std::vector<QString> names;          // exact names, in the case the cashier types them
    QString nameInfix;                   // a rare piece of one name
    QString commonInfix;                 // words that hundreds of names share
    QString barcodeInfix;                // a rare piece of one barcode
    QString namePrefix;                  // a rare beginning of a name
    QString twoLetters;                  // a pattern too short for the trigram index
    QString oneLetter;
    int extraBarcodes = 0;  // additional barcodes, the rows of a LoadBarcode walk
};

Setup setup;

constexpr int lookupSamples = 4096;

QString ean13(const QString& twelve) {
    return twelve + QString::number(SpecialBarcodeRecognizer::Ean13CheckDigit(twelve));
}

// Picks the samples the lookups cycle through, spread over the catalogue.
void pickSamples() {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> index(0, setup.size - 1);
    const CatalogueGenerator& generator = setup.catalogue->Generator();
    for (int i = 0; i < lookupSamples; ++i) {
        const GeneratedArticle article = generator.Generate(index(random));
        setup.plus.push_back(article.article.pluNo);
        setup.names.push_back(i % 2 ? article.article.name.toUpper() : article.article.name);
        if (article.weighed) {
            setup.labels.push_back(
                ean13(article.article.mainBarcode.left(7) +
                      QString::number(100 + i % 900).rightJustified(5, QLatin1Char('0'))));
            setup.labelArticles.push_back(article.article.mainBarcode);
        } else {
            setup.barcodes.push_back(article.article.mainBarcode);
        }
    }
    for (int i = 0; setup.labels.empty() && i < setup.size; ++i) {
        const GeneratedArticle article = generator.Generate(i);
        if (article.weighed) {
            setup.labels.push_back(
                ean13(article.article.mainBarcode.left(7) + QStringLiteral("01234")));
            setup.labelArticles.push_back(article.article.mainBarcode);
        }
    }
    // Rare patterns, as a cashier narrows a search down to one article: the end of the name, the
    // name short of its last letters, and the distinctive middle of the barcode.
    const GeneratedArticle rare = generator.Generate(index(random));
    const QString name = rare.article.name;
    setup.nameInfix = name.right(16).trimmed();
    setup.commonInfix = name.mid(name.indexOf(QLatin1Char(' ')) + 1, 16).trimmed();
    setup.namePrefix = name.left(name.size() - 2).trimmed();
    setup.barcodeInfix = rare.article.mainBarcode.mid(5, 7);
    setup.twoLetters = setup.commonInfix.mid(1, 2);
    setup.oneLetter = QStringLiteral("M");
    sqlite3_stmt* count = nullptr;
    sqlite3_prepare_v2(setup.raw, "SELECT COUNT(*) FROM ArticleBarcode WHERE is_main = 0", -1,
                       &count, nullptr);
    if (count && sqlite3_step(count) == SQLITE_ROW) {
        setup.extraBarcodes = sqlite3_column_int(count, 0);
    }
    sqlite3_finalize(count);
}

// Every column of an Article row by position and type, as tight C reads it into a record.
struct RawArticle {
    qint64 id, plu, price, link;
    int tax, dept, precision, unit, blocked, pack, noDiscounts, freePrice, handy, scale;
    std::string name;
    std::string barcode;
};

void readText(sqlite3_stmt* statement, int column, std::string& text) {
    text.assign(reinterpret_cast<const char*>(sqlite3_column_text(statement, column)),
                sqlite3_column_bytes(statement, column));
}

void readRow(sqlite3_stmt* statement, RawArticle& a) {
    a.id = sqlite3_column_int64(statement, 0);
    a.plu = sqlite3_column_int64(statement, 1);
    readText(statement, 2, a.name);
    a.tax = sqlite3_column_int(statement, 3);
    a.dept = sqlite3_column_int(statement, 4);
    a.precision = sqlite3_column_int(statement, 5);
    a.unit = sqlite3_column_int(statement, 6);
    a.blocked = sqlite3_column_int(statement, 7);
    readText(statement, 8, a.barcode);
    a.price = sqlite3_column_int64(statement, 9);
    a.pack = sqlite3_column_int(statement, 10);
    a.noDiscounts = sqlite3_column_int(statement, 11);
    a.freePrice = sqlite3_column_int(statement, 12);
    a.handy = sqlite3_column_int(statement, 13);
    a.scale = sqlite3_column_int(statement, 14);
    a.link = sqlite3_column_int64(statement, 15);
}

sqlite3_stmt* prepareRaw(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(setup.raw, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) !=
        SQLITE_OK) {
        std::fprintf(stderr, "raw statement: %s\n", sqlite3_errmsg(setup.raw));
    }
    return statement;
}

void bindText(sqlite3_stmt* statement, int index, const QString& text) {
    const QByteArray utf8 = text.toUtf8();
    sqlite3_bind_text(statement, index, utf8.constData(), utf8.size(), SQLITE_TRANSIENT);
}

// Runs a prepared statement to its end, reading each row.
int drain(sqlite3_stmt* statement) {
    int rows = 0;
    RawArticle article;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        readRow(statement, article);
        ++rows;
    }
    sqlite3_reset(statement);
    return rows;
}

// --- lookups ---------------------------------------------------------------------------------

void LibFindPlu(benchmark::State& state) {
    ArticleSeeker* seeker = G::articleManager->GetSeeker();
    size_t i = 0;
    for (auto _ : state) {
        Article article;
        benchmark::DoNotOptimize(
            seeker->FindPlu(setup.plus[i++ % setup.plus.size()], article, false));
    }
}

void RawFindPlu(benchmark::State& state) {
    sqlite3_stmt* statement = prepareRaw("SELECT * FROM Article WHERE plu_no = ?");
    size_t i = 0;
    for (auto _ : state) {
        sqlite3_bind_int64(statement, 1, setup.plus[i++ % setup.plus.size()]);
        benchmark::DoNotOptimize(drain(statement));
    }
    sqlite3_finalize(statement);
}

void LibFindArticleByBarcode(benchmark::State& state, const std::vector<QString>* codes) {
    ArticleSeeker* seeker = G::articleManager->GetSeeker();
    size_t i = 0;
    for (auto _ : state) {
        Article article;
        benchmark::DoNotOptimize(
            seeker->FindArticleByBarcode((*codes)[i++ % codes->size()], article, false));
    }
}

// What a register must work out for every scan, as tight C does it: whether the code is a scale
// label (13 digits, a valid check digit, a prefix of the SpecialBarcodePrefixes table, read
// again whenever the file changed) and, if so, the article code it carries: its first seven
// digits, a zero value and the check digit.
class RawLabelReader {
public:
    // The code to look up for `scanned`: the label's article code, or `scanned` itself.
    const std::string& codeOf(sqlite3* db, const std::string& scanned) {
        refresh(db);
        if (scanned.size() != 13 || !allDigits(scanned) || checkDigit(scanned) != scanned[12]) {
            return scanned;
        }
        for (const std::string& prefix : prefixes) {
            if (scanned.compare(0, prefix.size(), prefix) == 0) {
                code.assign(scanned, 0, 7);
                code.append("00000");
                code.push_back(checkDigit(code));
                return code;
            }
        }
        return scanned;
    }

private:
    static bool allDigits(const std::string& text) {
        return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    }
    static char checkDigit(const std::string& digits) {
        int sum = 0;
        for (int i = 0; i < 12; ++i) {
            sum += (digits[static_cast<size_t>(i)] - '0') * (i % 2 ? 3 : 1);
        }
        return static_cast<char>('0' + (10 - sum % 10) % 10);
    }
    void refresh(sqlite3* db) {
        unsigned int now = 0;
        sqlite3_file_control(db, "main", SQLITE_FCNTL_DATA_VERSION, &now);
        if (loaded && now == version) {
            return;
        }
        prefixes.clear();
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(db, "SELECT prefix FROM SpecialBarcodePrefixes", -1, &statement,
                           nullptr);
        while (statement && sqlite3_step(statement) == SQLITE_ROW) {
            const char* prefix = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
            if (prefix && *prefix) {
                prefixes.emplace_back(prefix);
            }
        }
        sqlite3_finalize(statement);
        loaded = true;
        version = now;
    }

    std::vector<std::string> prefixes;
    std::string code;
    unsigned int version = 0;
    bool loaded = false;
};

// The article code a scale label carries, for the start-up check against the generator.
std::string articleCodeOfLabel(sqlite3* db, const std::string& label) {
    RawLabelReader reader;
    return reader.codeOf(db, label);
}

void RawFindArticleByBarcode(benchmark::State& state, const std::vector<QString>* codes) {
    sqlite3_stmt* statement = prepareRaw(
        "SELECT a.id, plu_no, art_name, tax_rate_no, dept_no, quantity_precision, unit_no, "
        "sale_bloc, "
        "main_barcode, price, is_pack, disc_sur_block, free_price_allow, on_handy_list, scale_no, "
        "link_plu_no "
        "FROM Article a, ArticleBarcode b WHERE a.id == b.article_id AND b.barcode = ?");
    std::vector<std::string> texts;
    for (const QString& code : *codes) {
        texts.push_back(code.toStdString());
    }
    // Every scan is read as the library reads it: a scale label or not, parsed in the loop.
    RawLabelReader labels;
    size_t i = 0;
    for (auto _ : state) {
        const std::string& key = labels.codeOf(setup.raw, texts[i++ % texts.size()]);
        sqlite3_bind_text(statement, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
        benchmark::DoNotOptimize(drain(statement));
    }
    sqlite3_finalize(statement);
}

// --- searches ----------------------------------------------------------------------------------

// An exact name, as ArticleEditor checks before every add.
void LibFindName(benchmark::State& state) {
    ArticleSeeker* seeker = G::articleManager->GetSeeker();
    size_t i = 0;
    for (auto _ : state) {
        Article article;
        benchmark::DoNotOptimize(seeker->FindName(setup.names[i++ % setup.names.size()], article));
    }
}

// The floor: one seek on the index of names ignoring case.
void RawFindName(benchmark::State& state) {
    sqlite3_stmt* statement =
        prepareRaw("SELECT * FROM Article WHERE art_name = ? COLLATE NOCASE LIMIT 1");
    size_t i = 0;
    for (auto _ : state) {
        bindText(statement, 1, setup.names[i++ % setup.names.size()]);
        benchmark::DoNotOptimize(drain(statement));
    }
    sqlite3_finalize(statement);
}

// The search a cashier makes right after an article was renamed (here by another connection,
// as the back office would): it brings the search index up to date first.
void LibFirstSearchAfterEdit(benchmark::State& state) {
    sqlite3_stmt* rename = prepareRaw("UPDATE Article SET art_name = ? WHERE plu_no = ?");
    const Article renamed = setup.catalogue->Generator().Generate(setup.size / 2).article;
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        bindText(rename, 1, renamed.name + (round++ % 2 ? QStringLiteral(" *") : QString()));
        sqlite3_bind_int64(rename, 2, renamed.pluNo);
        sqlite3_step(rename);
        sqlite3_reset(rename);
        state.ResumeTiming();
        QVector<Article> found;
        benchmark::DoNotOptimize(
            G::articleManager->GetSeeker()->FindNameInfix(setup.nameInfix, found));
    }
    sqlite3_finalize(rename);
}

void LibFindNameInfix(benchmark::State& state) {
    for (auto _ : state) {
        QVector<Article> found;
        benchmark::DoNotOptimize(
            G::articleManager->GetSeeker()->FindNameInfix(setup.nameInfix, found));
    }
}

void LibFindCommonNameInfix(benchmark::State& state) {
    for (auto _ : state) {
        QVector<Article> found;
        benchmark::DoNotOptimize(
            G::articleManager->GetSeeker()->FindNameInfix(setup.commonInfix, found));
    }
}

// Patterns too short for the trigram index, against SQLite's own LIKE scans.
void LibFindShortInfix(benchmark::State& state, const QString* infix) {
    for (auto _ : state) {
        QVector<Article> found;
        benchmark::DoNotOptimize(G::articleManager->GetSeeker()->FindNameInfix(*infix, found));
    }
}

void LibFindByBarcodeInfix(benchmark::State& state) {
    for (auto _ : state) {
        QVector<Article> found;
        benchmark::DoNotOptimize(
            G::articleManager->GetSeeker()->FindByBarcodeInfix(setup.barcodeInfix, found));
    }
}

// The two LIKE scans the incremental search replaces.
void RawInfix(benchmark::State& state, const char* column, const QString* infix) {
    const std::string sql = std::string("SELECT * FROM Article WHERE ") + column +
                            " LIKE ? ORDER BY upper(" + column + "), id LIMIT 100";
    sqlite3_stmt* statement = prepareRaw(sql.c_str());
    for (auto _ : state) {
        bindText(statement, 1, *infix + QLatin1Char('%'));
        int rows = drain(statement);
        bindText(statement, 1, QLatin1Char('%') + *infix + QLatin1Char('%'));
        rows += drain(statement);
        benchmark::DoNotOptimize(rows);
    }
    sqlite3_finalize(statement);
}

void LibFindNamePrefix(benchmark::State& state) {
    for (auto _ : state) {
        QVector<Article> found;
        benchmark::DoNotOptimize(
            G::articleManager->GetSeeker()->FindNamePrefix(setup.namePrefix, found, false));
    }
}

void RawFindNamePrefix(benchmark::State& state) {
    sqlite3_stmt* statement =
        prepareRaw("SELECT * FROM Article WHERE art_name LIKE ? ORDER BY art_name");
    for (auto _ : state) {
        bindText(statement, 1, setup.namePrefix + QLatin1Char('%'));
        benchmark::DoNotOptimize(drain(statement));
    }
    sqlite3_finalize(statement);
}

void LibFindFirstUnusedPlu(benchmark::State& state) {
    for (auto _ : state) {
        QVariant plu;
        benchmark::DoNotOptimize(G::articleManager->GetSeeker()->FindFirstUnusedPlu(plu));
    }
}

// The naive walk: every PLU whose successor is missing.
void RawFindFirstUnusedPlu(benchmark::State& state) {
    sqlite3_stmt* statement = prepareRaw(
        "SELECT MIN(a.plu_no) + 1 FROM Article a WHERE NOT EXISTS "
        "(SELECT 1 FROM Article b WHERE b.plu_no = a.plu_no + 1)");
    for (auto _ : state) {
        benchmark::DoNotOptimize(drain(statement));
    }
    sqlite3_finalize(statement);
}

// --- bulk work -----------------------------------------------------------------------------------

// A rate of 1: every price is rewritten with its own value, so runs can repeat.
// Every additional barcode, by position, as `articlectl barcode walk` reads them.
void LibLoadBarcodeWalk(benchmark::State& state) {
    ArticleBarcodeManager* barcodes = G::articleManager->GetBarcodeManager();
    for (auto _ : state) {
        eDBOperationResult result = DB_OPERATION_SUCCESS;
        unsigned int index = 0;
        while (barcodes->LoadBarcode(result, index), result == DB_OPERATION_SUCCESS) {
            ++index;
        }
        state.counters["barcodes"] = index;
    }
}

// The same rows through one cursor.
void RawBarcodeCursor(benchmark::State& state) {
    sqlite3_stmt* statement = prepareRaw("SELECT * FROM ArticleBarcode WHERE is_main = 0");
    for (auto _ : state) {
        int rows = 0;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            benchmark::DoNotOptimize(sqlite3_column_int64(statement, 0));
            benchmark::DoNotOptimize(sqlite3_column_int64(statement, 1));
            benchmark::DoNotOptimize(sqlite3_column_text(statement, 2));
            benchmark::DoNotOptimize(sqlite3_column_int(statement, 3));
            ++rows;
        }
        sqlite3_reset(statement);
        state.counters["barcodes"] = rows;
    }
    sqlite3_finalize(statement);
}

void LibChangeAllArticlesPrices(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(G::articleManager->GetEditor()->ChangeAllArticlesPrices(
            CurrencyExchangeRate(10000, 4)));
    }
}

void RawChangeAllArticlesPrices(benchmark::State& state) {
    sqlite3_stmt* statement = prepareRaw(
        "UPDATE Article SET price = CASE WHEN ((CAST((price * 100000 / 10000) AS INTEGER) + 5)/10) "
        ">= 999999999 "
        "THEN 999999999 ELSE ((CAST((price * 100000 / 10000) AS INTEGER) + 5)/10) END");
    for (auto _ : state) {
        benchmark::DoNotOptimize(sqlite3_step(statement));
        sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
}

void LibStartUp(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        auto manager = std::make_unique<ArticleManager>();
        XCLASS_gArticleManager initializer(manager.get());
        state.ResumeTiming();
        benchmark::DoNotOptimize(initializer.Initialize());
        state.PauseTiming();
        initializer.Uninitialize();
        manager.reset();
        state.ResumeTiming();
    }
}

// Every article's brief, as `articlectl list` reads the whole catalogue.
void LibFindPluInRange(benchmark::State& state) {
    for (auto _ : state) {
        QList<ArticleBrief> briefs;
        G::articleManager->GetSeeker()->FindPluInRange(1, 0xFFFFFFFFu, briefs, false);
        state.counters["articles"] = briefs.size();
    }
}

void RawFindPluInRange(benchmark::State& state) {
    sqlite3_stmt* statement = prepareRaw(
        "SELECT id, plu_no, art_name FROM Article WHERE plu_no >= ? AND plu_no <= ? "
        "ORDER BY plu_no");
    std::vector<std::pair<qint64, std::string>> briefs;
    for (auto _ : state) {
        briefs.clear();
        sqlite3_bind_int64(statement, 1, 1);
        sqlite3_bind_int64(statement, 2, 0xFFFFFFFFll);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            briefs.emplace_back(sqlite3_column_int64(statement, 1),
                                reinterpret_cast<const char*>(sqlite3_column_text(statement, 2)));
        }
        sqlite3_reset(statement);
        state.counters["articles"] = static_cast<double>(briefs.size());
    }
    sqlite3_finalize(statement);
}

// A command of the tool, or of its raw counterpart, as a process of its own: start-up included.
void runProcess(benchmark::State& state, const QString& program, const QStringList& arguments) {
    const QStringList command = childCommand(program, arguments);
    for (auto _ : state) {
        if (runChild(command, QByteArray(), {}, QString(), 3600000).exit != 0) {
            state.SkipWithError("the command failed");
        }
    }
}

QString rawProgram() {
    return QCoreApplication::applicationDirPath() + QStringLiteral("/raw_search");
}

void LibScan(benchmark::State& state) {
    runProcess(
        state, setup.articlectl,
        {QStringLiteral("--db"), setup.database, QStringLiteral("scan"), setup.labels.front()});
}

void RawScan(benchmark::State& state) {
    runProcess(state, rawProgram(),
               {setup.database, QStringLiteral("--scan"), setup.labels.front()});
}

void LibExport(benchmark::State& state) {
    runProcess(state, setup.articlectl,
               {QStringLiteral("--db"), setup.database, QStringLiteral("export"),
                setup.scratch.filePath(QStringLiteral("export.csv"))});
}

// One joined read of the catalogue in PLU order, written as the same CSV.
void RawExport(benchmark::State& state) {
    runProcess(state, rawProgram(),
               {setup.database, QStringLiteral("--export"),
                setup.scratch.filePath(QStringLiteral("raw-export.csv"))});
}

// A fresh copy of the database with the settings and no articles.
QString freshImportTarget() {
    const QString target = setup.scratch.filePath(QStringLiteral("import.db"));
    for (const char* suffix : {"", "-wal", "-shm", ".log"}) {
        QFile::remove(target + QLatin1String(suffix));
    }
    QFile::copy(setup.catalogue->EmptyDatabase(), target);
    return target;
}

void LibImport(benchmark::State& state) {
    const QString priceList = setup.catalogue->PriceList();
    for (auto _ : state) {
        state.PauseTiming();
        const QString target = freshImportTarget();
        state.ResumeTiming();
        const QStringList command =
            childCommand(setup.articlectl,
                         {QStringLiteral("--db"), target, QStringLiteral("import"), priceList});
        const int exit = runChild(command, QByteArray(), {}, QString(), 3600000).exit;
        if (exit != 0) {
            state.SkipWithError("articlectl import failed");
        }
    }
}

// A copy of the whole catalogue, to import more articles into.
QString catalogueCopy() {
    const QString target = setup.scratch.filePath(QStringLiteral("catalogue.db"));
    for (const char* suffix : {"", "-wal", "-shm", ".log"}) {
        QFile::remove(target + QLatin1String(suffix));
    }
    sqlite3_exec(setup.raw, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);
    QFile::copy(setup.database, target);
    QFile::copy(setup.database + QStringLiteral("-wal"), target + QStringLiteral("-wal"));
    return target;
}

// A tenth of the catalogue's size in new articles, imported into a copy of it.
int additionsCount() {
    return qMax(1, setup.size / 10);
}

void LibImportIntoCatalogue(benchmark::State& state) {
    const QString priceList = setup.catalogue->Additions(additionsCount());
    for (auto _ : state) {
        state.PauseTiming();
        const QString target = catalogueCopy();
        state.ResumeTiming();
        const QStringList command =
            childCommand(setup.articlectl,
                         {QStringLiteral("--db"), target, QStringLiteral("import"), priceList});
        if (runChild(command, QByteArray(), {}, QString(), 3600000).exit != 0) {
            state.SkipWithError("articlectl import failed");
        }
    }
}

// The rows inserted with statements prepared once, in one transaction, and the search index
// brought up to date from its notes, as the library leaves the file.
void rawImportInto(const QString& target, const QVector<GeneratedArticle>& rows,
                   benchmark::State& state) {
    {
        sqlite3* db = nullptr;
        sqlite3_open_v2(target.toUtf8().constData(), &db, SQLITE_OPEN_READWRITE, nullptr);
        sqlite3_exec(db, "PRAGMA synchronous = FULL", nullptr, nullptr, nullptr);
        sqlite3_exec(db, "PRAGMA cache_size = -4096", nullptr, nullptr, nullptr);
        sqlite3_exec(db, "PRAGMA temp_store = MEMORY", nullptr, nullptr, nullptr);
        state.ResumeTiming();
        sqlite3_stmt* article = nullptr;
        sqlite3_stmt* barcode = nullptr;
        sqlite3_prepare_v2(
            db,
            "INSERT INTO Article (plu_no, art_name, tax_rate_no, dept_no, quantity_precision, "
            "unit_no, "
            "main_barcode, price, is_pack, on_handy_list, scale_no) VALUES (?,?,?,?,?,?,?,?,?,?,?)",
            -1, &article, nullptr);
        sqlite3_prepare_v2(
            db, "INSERT INTO ArticleBarcode (article_id, barcode, is_main) VALUES (?,?,?)", -1,
            &barcode, nullptr);
        sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
        for (const GeneratedArticle& generated : rows) {
            const Article& a = generated.article;
            sqlite3_bind_int64(article, 1, a.pluNo);
            bindText(article, 2, a.name);
            sqlite3_bind_int(article, 3, a.taxRateNo);
            sqlite3_bind_int(article, 4, a.deptNo);
            sqlite3_bind_int(article, 5, a.quantityPrecision);
            sqlite3_bind_int(article, 6, a.unitNo);
            bindText(article, 7, a.mainBarcode);
            sqlite3_bind_int64(article, 8, a.price);
            sqlite3_bind_int(article, 9, a.isPack);
            sqlite3_bind_int(article, 10, a.onHandyList);
            sqlite3_bind_int(article, 11, a.scaleNo);
            sqlite3_step(article);
            sqlite3_reset(article);
            const sqlite3_int64 id = sqlite3_last_insert_rowid(db);
            QStringList codes = generated.extraBarcodes;
            codes.prepend(a.mainBarcode);
            for (int i = 0; i < codes.size(); ++i) {
                sqlite3_bind_int64(barcode, 1, id);
                bindText(barcode, 2, codes[i]);
                sqlite3_bind_int(barcode, 3, i == 0);
                sqlite3_step(barcode);
                sqlite3_reset(barcode);
            }
        }
        // The search index brought up to date, as the library does when its transaction
        // commits, so that both leave the same file.
        sqlite3_exec(db,
                     "INSERT INTO ArticleSearch (ArticleSearch, rowid, art_name, main_barcode) "
                     "SELECT 'delete', id, art_name, main_barcode FROM ArticleSearchPending "
                     "WHERE indexed; "
                     "INSERT INTO ArticleSearch (rowid, art_name, main_barcode) "
                     "SELECT a.id, a.art_name, a.main_barcode FROM ArticleSearchPending p "
                     "CROSS JOIN Article a ON a.id = p.id; "
                     "DELETE FROM ArticleSearchPending",
                     nullptr, nullptr, nullptr);
        sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
        sqlite3_finalize(article);
        sqlite3_finalize(barcode);
        sqlite3_close(db);
    }
}

void RawImport(benchmark::State& state) {
    const QVector<GeneratedArticle> rows = setup.catalogue->Generator().Batch(setup.size);
    for (auto _ : state) {
        state.PauseTiming();
        rawImportInto(freshImportTarget(), rows, state);
    }
}

void RawImportIntoCatalogue(benchmark::State& state) {
    QVector<GeneratedArticle> rows;
    for (int index = setup.size; index < setup.size + additionsCount(); ++index) {
        rows.append(setup.catalogue->Generator().Generate(index));
    }
    for (auto _ : state) {
        state.PauseTiming();
        rawImportInto(catalogueCopy(), rows, state);
    }
}

// Peak resident memory, in MiB, of a child process running `program` with `arguments`.
double peakMemoryOf(const QString& program, const QStringList& arguments) {
    std::vector<std::string> strings;
    for (const QString& argument : childCommand(program, arguments)) {
        strings.push_back(argument.toStdString());
    }
    std::vector<char*> argv;
    for (std::string& text : strings) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int null = ::open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    struct rusage usage {};
    wait4(child, &status, 0, &usage);
    return usage.ru_maxrss / 1024.0;
}

// Touches every sample once through both connections, so that neither pays for first reads
// the other already made.
void warmUp() {
    ArticleSeeker* seeker = G::articleManager->GetSeeker();
    sqlite3_stmt* byPlu = prepareRaw("SELECT * FROM Article WHERE plu_no = ?");
    for (unsigned int plu : setup.plus) {
        Article article;
        seeker->FindPlu(plu, article, false);
        sqlite3_bind_int64(byPlu, 1, plu);
        drain(byPlu);
    }
    sqlite3_finalize(byPlu);
    for (const std::vector<QString>* codes :
         {&setup.barcodes, &setup.labels, &setup.labelArticles}) {
        for (const QString& code : *codes) {
            Article article;
            seeker->FindArticleByBarcode(code, article, false);
        }
    }
}

bool startLibrary() {
    setup.database = setup.catalogue->Database();
    if (setup.database.isEmpty()) {
        std::fprintf(stderr, "the catalogue could not be built\n");
        return false;
    }
    G::appLogger->ClearAppenders();
    setup.articles = std::make_unique<DBManager>(setup.database, DBManager::SCHEMA_ARTICLES);
    setup.receipts = std::make_unique<DBManager>(
        setup.scratch.filePath(QStringLiteral("receipts.db")), DBManager::SCHEMA_RECEIPTS);
    if (setup.articles->Open() != DB_OPERATION_SUCCESS ||
        setup.receipts->Open() != DB_OPERATION_SUCCESS) {
        return false;
    }
    G::dbArticles = setup.articles.get();
    G::dbReceipt = setup.receipts.get();
    if (!SystemManager::Instance()->InitializeAll()) {
        std::fprintf(stderr, "the article library did not start\n");
        return false;
    }
    sqlite3_open_v2(setup.database.toUtf8().constData(), &setup.raw,
                    SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    sqlite3_exec(setup.raw, "PRAGMA synchronous = FULL", nullptr, nullptr, nullptr);
    // The same access path as the library's connection, so that the ratios show its own cost.
    sqlite3_exec(setup.raw, "PRAGMA mmap_size = 0", nullptr, nullptr, nullptr);
    sqlite3_exec(setup.raw, "PRAGMA cache_size = -4096", nullptr, nullptr, nullptr);
    sqlite3_exec(setup.raw, "PRAGMA temp_store = MEMORY", nullptr, nullptr, nullptr);
    return true;
}

// Says which patterns the searches use and how many articles each matches.
void describeSamples() {
    auto matches = [](const char* column, const QString& pattern) {
        sqlite3_stmt* statement = nullptr;
        const std::string sql =
            std::string("SELECT COUNT(*) FROM Article WHERE ") + column + " LIKE ?";
        sqlite3_prepare_v2(setup.raw, sql.c_str(), -1, &statement, nullptr);
        const QByteArray utf8 = pattern.toUtf8();
        sqlite3_bind_text(statement, 1, utf8.constData(), utf8.size(), SQLITE_TRANSIENT);
        const int count =
            sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int(statement, 0) : -1;
        sqlite3_finalize(statement);
        return count;
    };
    // The raw reader of scans must agree with the library on a label and on a plain code.
    const std::pair<QString, QString> scans[] = {
        {setup.labels.front(), setup.labelArticles.front()},
        {setup.barcodes.front(), setup.barcodes.front()}};
    for (const auto& scan : scans) {
        const std::string code = articleCodeOfLabel(setup.raw, scan.first.toStdString());
        if (code != scan.second.toStdString()) {
            std::printf("the raw scan reader reads %s as %s, not %s\n", qPrintable(scan.first),
                        code.c_str(), qPrintable(scan.second));
        }
    }
    const QString infix = QLatin1Char('%') + setup.nameInfix + QLatin1Char('%');
    const QString common = QLatin1Char('%') + setup.commonInfix + QLatin1Char('%');
    const QString barcode = QLatin1Char('%') + setup.barcodeInfix + QLatin1Char('%');
    std::printf(
        "patterns: name infix \"%s\" (%d articles), common words \"%s\" (%d), "
        "barcode infix \"%s\" (%d), name prefix \"%s\" (%d)\n",
        qPrintable(setup.nameInfix), matches("art_name", infix), qPrintable(setup.commonInfix),
        matches("art_name", common), qPrintable(setup.barcodeInfix),
        matches("main_barcode", barcode), qPrintable(setup.namePrefix),
        matches("art_name", setup.namePrefix + QLatin1Char('%')));
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<char*> benchmarkArguments;
    // The same search patterns on catalogues of other sizes, to see how a search grows.
    QString chosenInfix;
    QString chosenCommon;
    for (int i = 0; i < argc; ++i) {
        const QString argument = QString::fromLocal8Bit(argv[i]);
        if (argument.startsWith(QLatin1String("--size="))) {
            setup.size = argument.mid(7).toInt();
        } else if (argument.startsWith(QLatin1String("--data="))) {
            setup.data = argument.mid(7);
        } else if (argument.startsWith(QLatin1String("--articlectl="))) {
            setup.articlectl = argument.mid(13);
        } else if (argument.startsWith(QLatin1String("--infix="))) {
            chosenInfix = argument.mid(8);
        } else if (argument.startsWith(QLatin1String("--common="))) {
            chosenCommon = argument.mid(9);
        } else {
            benchmarkArguments.push_back(argv[i]);
        }
    }
    int benchmarkCount = static_cast<int>(benchmarkArguments.size());
    QCoreApplication application(argc, argv);
    setup.catalogue = std::make_unique<BenchCatalogue>(setup.data, setup.size);
    if (!startLibrary()) {
        return 1;
    }
    pickSamples();
    if (!chosenInfix.isEmpty()) {
        setup.nameInfix = chosenInfix;
    }
    if (!chosenCommon.isEmpty()) {
        setup.commonInfix = chosenCommon;
    }
    describeSamples();
    warmUp();

    using benchmark::RegisterBenchmark;
    const int repetitions = 5;
    auto quick = [&](benchmark::internal::Benchmark* b) {
        b->Repetitions(repetitions)
            ->ReportAggregatesOnly(true)
            ->Unit(benchmark::kMicrosecond)
            ->UseRealTime();
    };
    auto slow = [&](benchmark::internal::Benchmark* b, int iterations) {
        b->Iterations(iterations)
            ->Repetitions(3)
            ->ReportAggregatesOnly(true)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    };
    quick(RegisterBenchmark("lib/FindPlu", LibFindPlu));
    quick(RegisterBenchmark("raw/FindPlu", RawFindPlu));
    quick(RegisterBenchmark("lib/FindArticleByBarcode", LibFindArticleByBarcode, &setup.barcodes));
    quick(RegisterBenchmark("raw/FindArticleByBarcode", RawFindArticleByBarcode, &setup.barcodes));
    quick(RegisterBenchmark("lib/FindArticleByBarcode scale label", LibFindArticleByBarcode,
                            &setup.labels));
    quick(RegisterBenchmark("raw/FindArticleByBarcode scale label", RawFindArticleByBarcode,
                            &setup.labels));
    quick(RegisterBenchmark("lib/FindName", LibFindName));
    quick(RegisterBenchmark("raw/FindName", RawFindName));
    slow(RegisterBenchmark("lib/first search after an edit", LibFirstSearchAfterEdit), 50);
    quick(RegisterBenchmark("lib/FindNameInfix", LibFindNameInfix));
    slow(RegisterBenchmark("raw/FindNameInfix", RawInfix, "art_name", &setup.nameInfix), 3);
    quick(RegisterBenchmark("lib/FindNameInfix, common words", LibFindCommonNameInfix));
    slow(RegisterBenchmark("raw/FindNameInfix, common words", RawInfix, "art_name",
                           &setup.commonInfix),
         3);
    quick(
        RegisterBenchmark("lib/FindNameInfix, two letters", LibFindShortInfix, &setup.twoLetters));
    slow(RegisterBenchmark("raw/FindNameInfix, two letters", RawInfix, "art_name",
                           &setup.twoLetters),
         3);
    quick(RegisterBenchmark("lib/FindNameInfix, one letter", LibFindShortInfix, &setup.oneLetter));
    slow(RegisterBenchmark("raw/FindNameInfix, one letter", RawInfix, "art_name", &setup.oneLetter),
         3);
    quick(RegisterBenchmark("lib/FindByBarcodeInfix", LibFindByBarcodeInfix));
    slow(RegisterBenchmark("raw/FindByBarcodeInfix", RawInfix, "main_barcode", &setup.barcodeInfix),
         3);
    quick(RegisterBenchmark("lib/FindNamePrefix", LibFindNamePrefix));
    slow(RegisterBenchmark("raw/FindNamePrefix", RawFindNamePrefix), 3);
    slow(RegisterBenchmark("lib/FindFirstUnusedPlu", LibFindFirstUnusedPlu), 5);
    slow(RegisterBenchmark("raw/FindFirstUnusedPlu", RawFindFirstUnusedPlu), 3);
    slow(RegisterBenchmark("lib/LoadBarcode walk", LibLoadBarcodeWalk), 2);
    slow(RegisterBenchmark("raw/LoadBarcode walk", RawBarcodeCursor), 2);
    slow(RegisterBenchmark("lib/FindPluInRange over everything", LibFindPluInRange), 2);
    slow(RegisterBenchmark("raw/FindPluInRange over everything", RawFindPluInRange), 2);
    slow(RegisterBenchmark("lib/ChangeAllArticlesPrices", LibChangeAllArticlesPrices), 2);
    slow(RegisterBenchmark("raw/ChangeAllArticlesPrices", RawChangeAllArticlesPrices), 2);
    slow(RegisterBenchmark("lib/start-up (XCLASS_gArticleManager::Initialize)", LibStartUp), 20);
    if (!setup.articlectl.isEmpty() && setup.size <= 100000) {
        slow(RegisterBenchmark("lib/articlectl import", LibImport), 1);
        slow(RegisterBenchmark("raw/articlectl import", RawImport), 1);
    }
    if (!setup.articlectl.isEmpty()) {
        slow(RegisterBenchmark("lib/articlectl scan", LibScan), 10);
        slow(RegisterBenchmark("raw/articlectl scan", RawScan), 10);
        slow(RegisterBenchmark("lib/articlectl export", LibExport), 1);
        slow(RegisterBenchmark("raw/articlectl export", RawExport), 1);
        slow(RegisterBenchmark("lib/articlectl import of a tenth more", LibImportIntoCatalogue), 1);
        slow(RegisterBenchmark("raw/articlectl import of a tenth more", RawImportIntoCatalogue), 1);
    }

    // The lookups a register makes at every scan: within a tenth of raw SQLite on a big
    // catalogue, a fifth on a small one, where the file's own work is smaller.
    const double lookup = setup.size >= 1000000 ? 1.10 : 1.2;
    RatioReporter::Target walk{"LoadBarcode walk", 2.0, 0};
    walk.perCallOf = "FindPlu";
    walk.calls = setup.extraBarcodes;
    RatioReporter reporter(setup.size,
                           {
                               {"FindPlu", lookup, 0},
                               {"FindArticleByBarcode", lookup, 0},
                               {"FindArticleByBarcode scale label", lookup, 0},
                               {"FindName", 0, 100},
                               {"first search after an edit", 0, 1000},
                               {"FindNameInfix", 0, 1000, true},
                               {"FindNameInfix, common words", 0, 0, true},
                               {"FindNameInfix, two letters", 1.0, 0},
                               {"FindNameInfix, one letter", 1.0, 0},
                               {"FindByBarcodeInfix", 0, 1000, true},
                               {"FindNamePrefix", 0, 1000},
                               {"FindFirstUnusedPlu", 0, 100000, true},
                               {"FindPluInRange over everything", 1.5, 0},
                               {"ChangeAllArticlesPrices", 1.2, 0},
                               walk,
                               {"articlectl scan", 0, 0},
                               {"articlectl export", 1.5, 0},
                               {"articlectl import", 3.0, 0},
                               {"articlectl import of a tenth more", 1.5, 0},
                               {"peak RSS of articlectl import of a tenth more", 0, 64},
                               {"start-up (XCLASS_gArticleManager::Initialize)", 0, 10000},
                               {"peak RSS of articlectl search", 2.0, 0},
                           });
    benchmark::Initialize(&benchmarkCount, benchmarkArguments.data());
    if (!setup.articlectl.isEmpty()) {
        const QString pattern = setup.nameInfix;
        reporter.AddMeasurement(
            "peak RSS of articlectl search",
            peakMemoryOf(setup.articlectl, {QStringLiteral("--db"), setup.database,
                                            QStringLiteral("search"), pattern}),
            "MiB");
        const QString rawSearch = rawProgram();
        reporter.AddMeasurement(
            "peak RSS of articlectl import of a tenth more",
            peakMemoryOf(setup.articlectl,
                         {QStringLiteral("--db"), catalogueCopy(), QStringLiteral("import"),
                          setup.catalogue->Additions(additionsCount())}),
            "MiB");
        reporter.AddMeasurement("raw peak RSS of articlectl search",
                                peakMemoryOf(rawSearch, {setup.database, pattern}), "MiB");
    }
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    sqlite3_close(setup.raw);
    SystemManager::Instance()->UninitializeAll();
    G::dbArticles = nullptr;
    G::dbReceipt = nullptr;
    return 0;
}

#pragma once

// What the reliability programs share (crash_safety kills the process, power_loss cuts the power
// under it, fault_injection fails one I/O): a record of what the catalogue holds, the changes
// made to it through the library's public API, the worker processes that make them, the loop
// that runs and reports rounds, and a verifier that opens a folder's databases the way the
// register does and finds how many of a list of changes it holds.

#include <sys/wait.h>
#include <unistd.h>

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <vector>

class ArticleManager;
class DBManager;

// ---- The record of what the catalogue holds ----------------------------------------------------

struct ModelArticle {
    QString name;
    qint64 price = 0;
    QString mainBarcode;  // the Article row's main_barcode
    bool handy = false;
    QMap<QString, bool> barcodes;  // ArticleBarcode rows: text, is_main

    bool operator==(const ModelArticle& other) const;
};

struct Model {
    std::map<unsigned int, ModelArticle> articles;
    std::map<unsigned int, QString> depts;     // the departments that have a name
    std::map<unsigned int, QString> prefixes;  // prefix entries 10 to 12: "TEXT/KIND"
    std::array<quint16, 7> rates{2300, 800, 500, 0, 65535, 65535, 61440};  // a new catalogue's
    unsigned int nextPlu = 1;
    unsigned int serial = 0;  // makes every name and barcode unique
    bool doubleNext = true;   // price conversions alternate between doubling and halving

    bool operator==(const Model& other) const;
};

// One change: one call of the library, or one explicit transaction of several.
enum Kind {
    AddArticle,         // ArticleEditor::AddRecord
    AddBarcode,         // ArticleBarcodeManager::AddRecord
    EditArticle,        // ArticleEditor::EditRecord: name, price and handy flag
    SetPrice,           // ArticleEditor::UpdateArticlePrice
    UpdateMainBarcode,  // ArticleBarcodeManager::UpdateMainBarcode
    DeleteBarcode,      // ArticleBarcodeManager::DeleteRecord (an additional barcode)
    DeleteBarcodes,     // ArticleBarcodeManager::DeleteBarcodes(ALL_BARCODES)
    DeleteArticle,      // ArticleEditor::DeleteRecord
    ConvertPrices,      // ArticleEditor::ChangeAllArticlesPrices
    AddArticles,        // batchSize AddRecord calls in one DBManager::BeginTransaction block
    SearchName,         // ArticleSeeker::FindNameInfix, which folds the index's pending notes
    SetDept,            // DeptDBManager::AddOrUpdateRecord: department `plu` named `text`
    SetTaxRates,        // TaxRatesManager::UpdateRecord: rate 1 becomes `price`, the rest default
    SetPrefix,     // BarcodePrefixDBManager::AddPrefix: entry `plu`, prefix `text`, kind `flag`
    ImportPrices,  // `articlectl import` of importRows rows "PLU;Nazwa;Cena" from PLU `plu`
};

constexpr unsigned int batchSize = 3;
constexpr unsigned int importRows = 25;

struct Change {
    Kind kind = AddArticle;
    unsigned int plu = 0;
    QString text;   // a name or a barcode
    QString text2;  // the main barcode of a new article
    qint64 price = 0;
    bool flag = false;  // is_main of a new barcode, the handy flag of an edit, doubling

    QByteArray Serialize() const;
    static bool Parse(const QByteArray& line, Change& change);
};

void apply(Model& model, const Change& change);

// The next change, chosen so that it should succeed.
Change choose(const Model& model, std::mt19937_64& random);

// ---- Starting the library the way the register does -------------------------------------------

struct Library {
    std::unique_ptr<DBManager> articles;
    std::unique_ptr<DBManager> receipts;

    Library();
    ~Library();
    // Empty when the article manager is ready on the folder's databases.
    QString Start(const QString& folder);
};

// Makes `change` through the library; 0 when it succeeded. An import runs articlectl on the
// library's article database.
int perform(ArticleManager& manager, const Change& change);

// ---- articlectl --------------------------------------------------------------------------------

// Runs `articlectl --db DATABASE import` of the price list of `change` (an ImportPrices), with
// `environment` added (PowerCutPreload.c's variables: the tool on the power-cut VFS); its exit
// status (-1 when it did not run), and in `report` the VFS's report ("IOS HIT WRITES SYNCS READS
// LOCKS") when it was preloaded.
int runImport(const QString& database, const Change& change, const QStringList& environment,
              QByteArray* report = nullptr);

// The environment that puts articlectl on the power-cut VFS, before `variables`.
QStringList onPowerCutVfs(const QStringList& variables);

// ---- Processes ---------------------------------------------------------------------------------

// Writes one line to a pipe; lines are far shorter than PIPE_BUF, so each arrives whole.
void say(int fd, const QByteArray& line);

// Reads what the other end wrote until it closed the pipe.
QList<QByteArray> readLines(int fd);

// Forks `child`, which writes lines into a pipe and never returns; returns its pid and the read
// end.
template <typename Child>
pid_t spawn(int& readEnd, Child child) {
    int fds[2];
    if (pipe(fds) != 0) {
        std::perror("pipe");
        std::exit(2);
    }
    const pid_t pid = fork();
    if (pid < 0) {
        std::perror("fork");
        std::exit(2);
    }
    if (pid == 0) {
        close(fds[0]);
        child(fds[1]);
    }
    close(fds[1]);
    readEnd = fds[0];
    return pid;
}

struct Ended {
    QList<QByteArray> lines;
    int status = 0;
};

// Runs `child` (see spawn) to its end, letting `meanwhile` act on its pid first.
template <typename Child>
Ended runChild(Child child, const std::function<void(pid_t)>& meanwhile = {}) {
    Ended ended;
    int fd = -1;
    const pid_t pid = spawn(fd, child);
    if (meanwhile) {
        meanwhile(pid);
    }
    ended.lines = readLines(fd);
    close(fd);
    waitpid(pid, &ended.status, 0);
    return ended;
}

// In a worker: starts the library on `folder` and leaves it open, as a crash would; when it does
// not start while the power is on (`off` says) says "E <why>" and ends with status 2.
void startWorker(const QString& folder, int fd, bool (*off)() = nullptr);

// In a worker: makes at most `most` changes chosen from `model`, saying "I <change>" before each
// and "C" once it succeeded, until `off` says the power is off. A refusal while the power is on
// is a fault (every change is chosen to succeed): says "E refused with N" and ends with status 2.
void makeChanges(Model model, quint64 seed, int fd, int most = INT_MAX, bool (*off)() = nullptr);

// ---- The programs' frame -----------------------------------------------------------------------

struct Options {
    int runs = 0;  // --kills, --cuts or --max
    int seconds = 600;
    quint64 seed = 0;  // from the clock unless given
    QString folder;
    bool selfTest = false;
};

// Parses the options `usage` lists ("usage: NAME [--kills N] [--seconds S] [--seed SEED] [--dir
// FOLDER] [--self-test]"), `runsOption` among them; prints `usage` and exits 2 on others.
Options parseOptions(const char* usage, const char* runsOption, int runs);

// One round of crash_safety or power_loss: how the worker ended, the folder to verify, and how
// to name the round in a report; `failure` says how the worker itself went wrong. Rounds of one
// `label` are counted together.
struct Round {
    Ended ended;
    QString folder;
    QString where;
    QString label;
    QString failure;
};

// The loop crash_safety and power_loss share: from `root` (options.folder or a new temporary
// folder, kept when a check fails), runs `round(n, model, random)` up to options.runs times or
// options.seconds, verifies after each that the folder holds every change the worker reported
// done, applies what it holds to the model and calls `kept`. Reports, and returns the exit
// status: 0 nothing lost, 1 reported changes lost or a file damaged (counted on in a self-test),
// 2 the harness or the worker failed.
int runRounds(const char* program, const char* noun, const Options& options, const QString& root,
              const std::function<Round(int, Model&, std::mt19937_64&)>& round,
              const std::function<void()>& kept);

// options.folder, or a new temporary folder.
QString rootFolder(const Options& options, const char* program);

// ---- The verifier ------------------------------------------------------------------------------

struct Verdict {
    // How many of the changes, in order from the start, the folder holds; -1 when it holds no
    // prefix of them, or is damaged (why says how).
    int held = -1;
    QString why;
};

// In a process that has not started the library (the library's globals must start afresh):
// checks the folder's article database is whole, starts the library on it, reads the catalogue
// into `stored` as the library answers it, and checks every lookup agrees with the rows. Empty,
// or what is wrong.
QString readFolder(const QString& folder, Model& stored);

// In a child process (the library's globals start afresh there): checks the folder's article
// database is whole, starts the library on it, checks every lookup agrees with the rows, and
// finds the longest prefix of `changes` that, applied to `base`, gives exactly what is stored.
Verdict verifyFolder(const QString& folder, const Model& base, const std::vector<Change>& changes);

#pragma once

// What the reliability programs share: a model of the catalogue and the changes made to it
// through the library's public API, forked processes that report in lines, the options, the
// rounds and the ending every program has, and the verifier that reads a folder's catalogue the
// way the register does.

#include <sys/types.h>

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <array>
#include <climits>
#include <functional>
#include <map>
#include <random>
#include <vector>

class ArticleManager;

// ---- The model of the catalogue and the changes ------------------------------------------------

struct ModelArticle {
    QString name;
    qint64 price = 0;
    QString mainBarcode;  // the Article row's main_barcode
    bool handy = false;
    QMap<QString, bool> barcodes;  // ArticleBarcode rows: text, is_main
};

struct Model {
    std::map<unsigned int, ModelArticle> articles;
    std::map<unsigned int, QString> depts;     // the departments that have a name
    std::map<unsigned int, QString> prefixes;  // prefix entries 10 to 12: "TEXT/KIND"
    std::array<quint16, 7> rates{2300, 800, 500, 0, 65535, 65535, 61440};  // a new catalogue's
    unsigned int nextPlu = 1;
    unsigned int serial = 0;  // makes every name and barcode unique
    bool doubleNext = true;   // price conversions alternate between doubling and halving

    // One line an article ("PLU n | name | price | main barcode | handy"), barcode ("barcode
    // TEXT | PLU n | main"), department, prefix and the rates, in order: two models hold the
    // same catalogue when their lines are equal.
    QStringList Lines() const;
};

// One change: one call of the library (kindNames), or one explicit transaction of several.
enum Kind {
    AddArticle,         // PLU `plu` named `text`, main barcode `text2`, at `price`
    AddBarcode,         // `text` on PLU `plu`, is_main `flag`
    EditArticle,        // name `text`, `price` and handy flag `flag`
    SetPrice,           // `price`
    UpdateMainBarcode,  // to `text`
    DeleteBarcode,      // the additional barcode `text`
    DeleteBarcodes,     // every barcode of PLU `plu`
    DeleteArticle,      // PLU `plu`
    ConvertPrices,      // every price doubled (`flag`) or halved
    AddArticles,        // batchSize articles from PLU `plu` in one BeginTransaction block
    SearchName,         // the fragment `text`, which folds the index's pending notes
    SetDept,            // department `plu` named `text`
    SetTaxRates,        // rate 1 becomes `price`, the rest default
    SetPrefix,          // entry `plu`, prefix `text`, a price label when `flag`
    ImportPrices,       // `articlectl import` of importRows rows "PLU;Nazwa;Cena" from PLU `plu`
};
extern const char* const kindNames[];

constexpr unsigned int batchSize = 3;
constexpr unsigned int importRows = 25;

struct Change {
    Kind kind = AddArticle;
    unsigned int plu = 0;
    QString text;
    QString text2;
    qint64 price = 0;
    bool flag = false;

    QByteArray Serialize() const;
    static bool Parse(const QByteArray& line, Change& change);
};

void apply(Model& model, const Change& change);

// An EAN-13: the three digits of `prefix`, `serial` in nine, the check digit.
QString ean13(const char* prefix, quint64 serial);

// The next change, chosen so that it should succeed.
Change choose(const Model& model, std::mt19937_64& random);

// ---- The library and articlectl ----------------------------------------------------------------

// Starts the library on the folder's databases the way the register does, and leaves it open
// until the process ends (as a crash would). Empty, or why it does not start.
QString startLibrary(const QString& folder);

// Makes `change` through the library; 0 when it succeeded. An import runs articlectl on the
// library's article database.
int perform(ArticleManager& manager, const Change& change);

// Runs `articlectl --db DATABASE import` of the price list of `change` (an ImportPrices), with
// `environment` added; its exit status (-1 when it did not run), and in `report` the power-cut
// VFS's report ("IOS HIT WRITES SYNCS READS LOCKS") when it was preloaded.
int runImport(const QString& database, const Change& change, const QStringList& environment,
              QByteArray* report = nullptr);

// The environment that puts articlectl on the power-cut VFS (PowerCutPreload.c), `variables`
// after it.
QStringList onPowerCutVfs(const QStringList& variables);

// ---- Processes ---------------------------------------------------------------------------------

// Writes one line to a pipe; lines are far shorter than PIPE_BUF, so each arrives whole.
void say(int fd, const QByteArray& line);

// One line from `fd`, read a byte at a time so that the rest stays in the pipe.
QByteArray readLine(int fd);

struct Ended {
    QList<QByteArray> lines;
    int status = 0;
};

// Forks `child`, which writes lines to the descriptor it is given and never returns, and runs it
// to its end; `meanwhile` acts on it first (its pid, and the read end of its lines).
Ended runChild(const std::function<void(int)>& child,
               const std::function<void(pid_t, int)>& meanwhile = {});

// In a worker: starts the library on `folder` with the departments `articlectl init` makes;
// when it does not start while the power is on (`off` says), says "E <why>" and ends with 2.
void startWorker(const QString& folder, int fd, bool (*off)() = nullptr);

// In a worker: makes at most `most` changes chosen from `model`, saying "I <change>" before each
// and "C" once it succeeded, until `off` says the power is off. A refusal while the power is on
// is a fault (every change is chosen to succeed): says "E refused with N" and ends with 2.
void makeChanges(Model model, quint64 seed, int fd, int most = INT_MAX, bool (*off)() = nullptr);

// ---- The programs' frame -----------------------------------------------------------------------

struct Options {
    QString program;
    int runs = 0;  // --kills, --cuts, --max or --processes
    int seconds = 600;
    quint64 seed = 0;    // from the clock unless given
    QString folder;      // --dir, or a new temporary folder
    bool given = false;  // the folder by --dir
    bool selfTest = false;
};

// Parses the options `usage` lists ("usage: NAME [--kills N] [--seconds S] [--seed SEED] [--dir
// FOLDER] [--self-test]"), the first of them the runs'; prints `usage` and exits 2 on others.
// Makes the folder.
Options parseOptions(const char* usage, int runs);

// Prints how the run went and returns the exit status: 2 when `harness` says how the harness
// failed, 1 when `failed` says which check failed, else 0. The folder is kept to look into after
// a failure (not the one a self-test expects) or when --dir gave it, removed otherwise.
int finish(const Options& options, const QString& harness, const QString& failed);

// One round of crash_safety or power_loss: how the worker ended, the folder to verify, and how
// to name the round in a report (`label` counts rounds together); `failure`: how the worker
// itself went wrong.
struct Round {
    Ended ended;
    QString folder;
    QString where;
    QString label;
    QString failure;
};

// Runs `round(n, model, random)` up to options.runs times or options.seconds, verifies after
// each that the folder holds every change the worker reported done, applies what it holds to the
// model and calls `kept`. Reports, and returns finish's status; a self-test counts on after a
// loss.
int runRounds(const char* noun, const Options& options,
              const std::function<Round(int, Model&, std::mt19937_64&)>& round,
              const std::function<void()>& kept);

// ---- The verifier ------------------------------------------------------------------------------

// In a process of its own, so that the library's globals start afresh: checks the folder's
// article database is whole, starts the library on it, reads the catalogue as the library
// answers it and checks every lookup agrees with the rows. The catalogue's Lines, or an empty
// list and why it cannot be read.
QStringList readStored(const QString& folder, QString& why);

struct Verdict {
    // How many of the changes, in order from the start, the folder holds; -1 when it holds no
    // prefix of them, or is damaged (why says how).
    int held = -1;
    QString why;
};

// Finds the longest prefix of `changes` that, applied to `base`, gives what readStored reads.
Verdict verifyFolder(const QString& folder, const Model& base, const std::vector<Change>& changes);

#pragma once

// The workload and the verifier that the reliability programs share (crash_safety kills the
// process, power_loss cuts the power under it): a record of what the catalogue holds, the
// changes made to it through the library's public API, and a verifier that opens a folder's
// databases the way the register does and finds how many of a list of changes it holds.

#include <unistd.h>

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <cstdio>
#include <cstdlib>
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
};

struct Model {
    std::map<unsigned int, ModelArticle> articles;
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
};

constexpr unsigned int batchSize = 3;

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

// Makes `change` through the library; 0 when it succeeded.
int perform(ArticleManager& manager, const Change& change);

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

// ---- The verifier ------------------------------------------------------------------------------

struct Verdict {
    // How many of the changes, in order from the start, the folder holds; -1 when it holds no
    // prefix of them, or is damaged (why says how).
    int held = -1;
    QString why;
};

// In a child process (the library's globals start afresh there): checks the folder's article
// database is whole, starts the library on it, checks every lookup agrees with the rows, and
// finds the longest prefix of `changes` that, applied to `base`, gives exactly what is stored.
Verdict verifyFolder(const QString& folder, const Model& base, const std::vector<Change>& changes);

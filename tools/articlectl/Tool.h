#pragma once

#include <QCommandLineParser>
#include <QJsonValue>
#include <QStringList>
#include <QTextStream>
#include <functional>
#include <memory>

#include "ArticleManager.h"
#include "CatalogueBackup.h"
#include "DBManager.h"
#include "ExitCode.h"

class Tool;

// How a command uses the article database.
enum class Access {
    None,    // no database, or one the command opens itself
    Read,    // opened read-only; nothing is created or changed, a missing file is an error
    Write,   // opened for writing; a missing file is an error
    Create,  // opened for writing, created with the full schema when missing
};

// One command of the tool, or a group of subcommands (run null, subcommands set).
struct Command {
    const char* name;
    const char* summary;
    int (*run)(Tool& tool, const QStringList& arguments);
    Access access = Access::Write;
    const QList<Command>* subcommands = nullptr;
    // One command line shown at the end of the command's help, without "articlectl".
    const char* example = nullptr;
};

// The tool's state for one run: global options, the open databases and the library started the
// way the register starts it, and the output streams.
class Tool {
public:
    Tool();
    ~Tool();

    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    // Runs the command line (without the program name) and returns the exit code. The global
    // options (--db, --receipts, --json, --verbose) may stand anywhere on the line.
    int Run(const QStringList& arguments);

    // Opens the databases with the access the running command declares (or `access`),
    // publishes them and lets the system manager start the article manager. False, with the
    // reason printed, when that failed: a missing file (unless created), a named receipt
    // database that does not exist, a file that cannot be opened.
    bool StartLibrary();
    bool StartLibrary(Access access);
    // Lets the library start without a receipt database: `clear --no-receipts`.
    void AllowNoReceipts() { noReceipts = true; }
    // Whether a receipt database was found (a missing default one is not created).
    bool HasReceipts() const { return receipts != nullptr && !noReceipts; }
    // Whether the article database existed before this run.
    bool DatabaseExisted() const { return databaseExisted; }
    // The started article manager.
    ArticleManager& Articles() { return *G::articleManager; }
    DBManager& Database() { return *articles; }

    // Copies the article database into FILE.backups/ with SQLite's online backup before a
    // command changes or removes data; the last 10 copies are kept. False, with the reason
    // printed, when no copy could be made: the command must then change nothing.
    bool BackUp();
    // BackUp() in two halves, for a long write: Start fixes the catalogue as it is and copies it
    // while the command works; Finish waits for the copy and must be true before the command
    // commits. Each prints what BackUp() prints.
    bool StartBackUp();
    bool FinishBackUp();
    // Prints "<what>: <SQLite's reason>" and returns EXIT_DATABASE.
    int DatabaseFailure(const QString& what);

    const QString& DatabasePath() const { return databasePath; }
    const QString& ReceiptsPath() const { return receiptsPath; }
    bool Json() const { return json; }
    void SetJson(bool on) { json = on; }
    bool Verbose() const { return verbose; }

    QTextStream& Out() { return out; }
    QTextStream& Err() { return err; }
    // Prints "articlectl: <message>" and, when given, what to do about it, on standard error;
    // returns `code`.
    int Fail(int code, const QString& message, const QString& hint = QString());
    // Prints a JSON document on standard output.
    void PrintJson(const QJsonValue& value);
    // Runs `work` inside one transaction of the article database: committed when it returns 0,
    // rolled back otherwise. Returns work's exit code, or 4 when the transaction failed.
    int InTransaction(const std::function<int()>& work);

    // The shared prologue of every command, named as the dispatcher reached it ("dept set"):
    // parses its arguments (options, --help with the command's example, the positional
    // arguments it needs: between `minimum` and `maximum`, -1 for no limit). Returns -1 when
    // the command may go on, otherwise the exit code to return (0 after --help, 2 for a usage
    // error). `readCommand`: --json is listed.
    int ParseCommand(QCommandLineParser& parser, const QStringList& arguments, int minimum,
                     int maximum, bool readCommand);

    static const QList<Command>& Commands();

private:
    int usage(const QString& message, const QString& command = QString());
    int dispatch(const QList<Command>& table, const QString& path, const QStringList& arguments);
    int help(const QStringList& words);
    QString groupHelp(const Command& group, const QString& path) const;
    bool openReceipts();
    bool backupFailed(const QString& error);
    void configureLog();

    QTextStream out;
    QTextStream err;
    QString databasePath;
    QString receiptsPath;
    bool receiptsNamed = false;
    bool noReceipts = false;
    bool databaseExisted = false;
    bool json = false;
    bool verbose = false;
    const Command* current = nullptr;
    QString currentName;  // with its group: "dept set"
    std::unique_ptr<DBManager> articles;
    std::unique_ptr<DBManager> receipts;
    std::unique_ptr<CatalogueBackup::Background> backup;
};

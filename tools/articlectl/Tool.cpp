#include "Tool.h"

#include <sqlite3.h>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <numeric>

#include "CatalogueBackup.h"
#include "DBTransaction.h"
#include "FileLogAppender.h"
#include "Globals.h"
#include "Logger.h"
#include "StdErrLogAppender.h"
#include "SystemManager.h"

namespace {

const QString toolName = QStringLiteral("articlectl");
const QString defaultDatabase = QStringLiteral("articles.db");
const QString defaultReceipts = QStringLiteral("receipts.db");

// The edit distance of two words, for "did you mean".
int distance(const QString& a, const QString& b) {
    QVector<int> previous(b.size() + 1);
    QVector<int> row(b.size() + 1);
    std::iota(previous.begin(), previous.end(), 0);
    for (int i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (int j = 1; j <= b.size(); ++j) {
            row[j] = std::min({previous[j] + 1, row[j - 1] + 1,
                               previous[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
        }
        std::swap(previous, row);
    }
    return previous[b.size()];
}

// The entry of `table` named `word`, or null.
const Command* find(const QList<Command>& table, const QString& word) {
    for (const Command& command : table) {
        if (word == QLatin1String(command.name)) {
            return &command;
        }
    }
    return nullptr;
}

// The closest name of `table` to a mistyped `word`, or empty when none is close.
QString suggestion(const QList<Command>& table, const QString& word) {
    QString best;
    int bestDistance = std::max(2, static_cast<int>(word.size()) / 3) + 1;
    for (const Command& command : table) {
        const QString name = QString::fromLatin1(command.name);
        const int d = name.startsWith(word) && word.size() >= 2 ? 1 : distance(word, name);
        if (d < bestDistance) {
            best = name;
            bestDistance = d;
        }
    }
    return best;
}

QString commandList(const QList<Command>& table, const QString& indent) {
    QString text;
    for (const Command& command : table) {
        text += QStringLiteral("%1%2%3\n")
                    .arg(indent)
                    .arg(QString::fromLatin1(command.name), -18)
                    .arg(QString::fromUtf8(command.summary));
    }
    return text;
}

QString toolHelp() {
    return QStringLiteral(
               "Usage: articlectl [--db FILE] [--receipts FILE] [--json] [--verbose] COMMAND "
               "[ARGS]\n"
               "\n"
               "Prepares and services a cash register's article catalogue through the register's "
               "own\narticle library.\n"
               "\n"
               "Global options (anywhere on the line):\n"
               "  --db FILE         the article database (default: articles.db); only init, demo "
               "and\n"
               "                    import --create make a new one\n"
               "  --receipts FILE   the receipt database (default: receipts.db beside the article "
               "one)\n"
               "  --json            machine-readable output\n"
               "  --verbose         also print the library's log on standard error\n"
               "  -h, --help        this help; 'articlectl help COMMAND' for a command's own\n"
               "  -v, --version     the version\n"
               "\n"
               "Commands:\n") +
           commandList(Tool::Commands(), QStringLiteral("  ")) +
           QStringLiteral(
               "\nExit codes: 0 done, 1 not found or problems found, 2 usage error or bad input, "
               "3 refused,\n4 database error. The library's log goes to the database's file name "
               "with \".log\" appended.\n"
               "Before a command removes or rewrites data, a copy of the database is kept in "
               "FILE.backups/.\n");
}

// The library and Qt speak to the log, never to the terminal, unless asked to.
bool qtMessagesShown = false;
void qtMessages(QtMsgType type, const QMessageLogContext&, const QString& text) {
    if (qtMessagesShown || type == QtFatalMsg) {
        fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
    }
}

}  // namespace

Tool::Tool() : out(stdout), err(stderr) {
    qInstallMessageHandler(qtMessages);
}

Tool::~Tool() {
    if (articles) {
        SystemManager::Instance()->UninitializeAll();
        G::dbArticles = nullptr;
        G::dbReceipt = nullptr;
    }
    out.flush();
    err.flush();
}

int Tool::usage(const QString& message, const QString& command) {
    return Fail(EXIT_USAGE, message,
                command.isEmpty() ? QStringLiteral("see 'articlectl help'")
                                  : QStringLiteral("see 'articlectl help %1'").arg(command));
}

int Tool::Fail(int code, const QString& message, const QString& hint) {
    out.flush();
    // A database failure always carries SQLite's own reason, whichever command met it.
    const QString reason = code == EXIT_DATABASE && articles ? articles->GetLastError() : QString();
    err << toolName << ": " << message;
    if (!reason.isEmpty() && !message.contains(reason)) {
        err << ": " << reason;
    }
    err << "\n";
    if (!hint.isEmpty()) {
        err << "  " << hint << "\n";
    }
    err.flush();
    return code;
}

int Tool::DatabaseFailure(const QString& what) {
    const QString reason = articles ? articles->GetLastError() : QString();
    return Fail(
        EXIT_DATABASE, reason.isEmpty() ? what : QStringLiteral("%1: %2").arg(what, reason),
        QStringLiteral("nothing was changed; the library's log is in %1.log").arg(databasePath));
}

void Tool::PrintJson(const QJsonValue& value) {
    const QJsonDocument document =
        value.isArray() ? QJsonDocument(value.toArray()) : QJsonDocument(value.toObject());
    out << document.toJson(QJsonDocument::Indented);
}

int Tool::InTransaction(const std::function<int()>& work) {
    DBTransaction transaction(articles.get());
    if (transaction.Result() != DB_OPERATION_SUCCESS) {
        return Fail(EXIT_DATABASE,
                    QStringLiteral("cannot start a transaction: %1").arg(articles->GetLastError()),
                    QStringLiteral("another program may be writing the database; try again"));
    }
    const int result = work();
    if (result != EXIT_DONE) {
        return result;  // rolled back
    }
    if (transaction.Commit() != DB_OPERATION_SUCCESS) {
        return Fail(EXIT_DATABASE,
                    QStringLiteral("cannot commit: %1").arg(articles->GetLastError()));
    }
    return EXIT_DONE;
}

int Tool::Run(const QStringList& arguments) {
    // The global options are taken out wherever they stand, up to a "--".
    QStringList rest;
    bool help = false;
    bool version = false;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& word = arguments[i];
        if (word == QLatin1String("--")) {
            rest += arguments.mid(i);
            break;
        }
        const bool first = rest.isEmpty();
        auto value = [&](const char* option, QString& target) {
            const QString name = QLatin1String("--") + QLatin1String(option);
            if (word.startsWith(name + QLatin1Char('='))) {
                target = word.mid(name.size() + 1);
                return 1;
            }
            if (word != name) {
                return 0;
            }
            if (i + 1 >= arguments.size()) {
                return -1;
            }
            target = arguments[++i];
            return 1;
        };
        QString receiptsValue;
        const int db = value("db", databasePath);
        const int receiptsGiven = db ? 0 : value("receipts", receiptsValue);
        if (db < 0 || receiptsGiven < 0) {
            return usage(QStringLiteral("'%1' needs a file name").arg(word));
        }
        if (receiptsGiven > 0) {
            receiptsPath = receiptsValue;
            receiptsNamed = true;
        } else if (db > 0) {
            continue;
        } else if (word == QLatin1String("--json")) {
            json = true;
        } else if (word == QLatin1String("--verbose")) {
            verbose = true;
        } else if (first && (word == QLatin1String("-h") || word == QLatin1String("--help"))) {
            help = true;
        } else if (first && (word == QLatin1String("-v") || word == QLatin1String("--version"))) {
            version = true;
        } else if (first && word.startsWith(QLatin1Char('-'))) {
            return usage(QStringLiteral("unknown option '%1'").arg(word));
        } else {
            rest.append(word);
        }
    }
    qtMessagesShown = verbose;
    if (version) {
        out << toolName << " " << QCoreApplication::applicationVersion() << " (libArticleManager "
            << QCoreApplication::applicationVersion() << ", SQLite " << sqlite3_libversion()
            << ", Qt " << qVersion() << ")\n";
        return EXIT_DONE;
    }
    if (help) {
        out << toolHelp();
        return EXIT_DONE;
    }
    if (rest.isEmpty()) {
        err << toolHelp();
        return usage(QStringLiteral("no command given"));
    }
    if (databasePath.isEmpty()) {
        databasePath = defaultDatabase;
    }
    if (receiptsPath.isEmpty()) {
        receiptsPath = QFileInfo(databasePath).absoluteDir().filePath(defaultReceipts);
    }
    if (rest.first() == QLatin1String("help")) {
        return this->help(rest.mid(1));
    }
    return dispatch(Commands(), QString(), rest);
}

int Tool::dispatch(const QList<Command>& table, const QString& path, const QStringList& arguments) {
    const QString word = arguments.value(0);
    const Command* command = find(table, word);
    if (!command) {
        const QString near = suggestion(table, word);
        const QString what = path.isEmpty() ? QStringLiteral("command")
                                            : QStringLiteral("'%1' subcommand").arg(path);
        return Fail(EXIT_USAGE,
                    word.isEmpty() ? QStringLiteral("%1 needs a subcommand").arg(path)
                                   : QStringLiteral("unknown %1 '%2'").arg(what, word),
                    !near.isEmpty()
                        ? QStringLiteral("did you mean '%1'?")
                              .arg((path.isEmpty() ? QString() : path + QLatin1Char(' ')) + near)
                        : QStringLiteral("see 'articlectl help %1'").arg(path).trimmed());
    }
    const QString name = (path.isEmpty() ? QString() : path + QLatin1Char(' ')) + word;
    if (command->subcommands) {
        const QString next = arguments.value(1);
        if (next == QLatin1String("-h") || next == QLatin1String("--help")) {
            out << groupHelp(*command, name);
            return EXIT_DONE;
        }
        if (next.isEmpty()) {
            err << groupHelp(*command, name);
            return Fail(EXIT_USAGE, QStringLiteral("'%1' needs a subcommand").arg(name));
        }
        return dispatch(*command->subcommands, name, arguments.mid(1));
    }
    current = command;
    currentName = name;
    return command->run(*this, arguments.mid(1));
}

QString Tool::groupHelp(const Command& group, const QString& path) const {
    QString summary = QString::fromUtf8(group.summary);
    summary[0] = summary[0].toUpper();
    QString text = QStringLiteral(
                       "Usage: articlectl [global options] %1 SUBCOMMAND [ARGS]\n\n%2.\n\n"
                       "Subcommands:\n")
                       .arg(path, summary);
    text += commandList(*group.subcommands, QStringLiteral("  "));
    text += QStringLiteral("\nExamples:\n");
    for (const Command& sub : *group.subcommands) {
        if (sub.example) {
            text += QStringLiteral("  articlectl %1\n").arg(QString::fromUtf8(sub.example));
        }
    }
    text += QStringLiteral("\n'articlectl help %1 SUBCOMMAND' shows a subcommand's options.\n")
                .arg(path);
    return text;
}

int Tool::help(const QStringList& words) {
    if (words.isEmpty()) {
        out << toolHelp();
        return EXIT_DONE;
    }
    return dispatch(Commands(), QString(), words + QStringList(QStringLiteral("--help")));
}

int Tool::ParseCommand(QCommandLineParser& parser, const QStringList& arguments, int minimum,
                       int maximum, bool readCommand) {
    const QString& command = currentName;
    const QCommandLineOption helpOption(QStringList{QStringLiteral("h"), QStringLiteral("help")},
                                        QStringLiteral("Shows this help."));
    const QCommandLineOption jsonOption(QStringLiteral("json"),
                                        QStringLiteral("Prints machine-readable JSON."));
    parser.addOption(helpOption);
    if (readCommand) {
        parser.addOption(jsonOption);
    }
    if (!parser.parse(QStringList(toolName + QLatin1Char(' ') + command) + arguments)) {
        return usage(parser.errorText(), command);
    }
    if (parser.isSet(helpOption)) {
        // Qt names the program by its path; the usage line names the command instead.
        QString help = parser.helpText();
        const int firstLineEnd = help.indexOf(QLatin1Char('\n'));
        const QString usageLine = help.left(firstLineEnd);
        const int options = usageLine.indexOf(QStringLiteral("[options]"));
        help = QStringLiteral("Usage: articlectl [global options] ") + command + QLatin1Char(' ') +
               usageLine.mid(options) + help.mid(firstLineEnd);
        if (current && current->example) {
            help += QStringLiteral("\nExample:\n  articlectl %1\n")
                        .arg(QString::fromUtf8(current->example));
        }
        out << help;
        return EXIT_DONE;
    }
    if (readCommand && parser.isSet(jsonOption)) {
        json = true;
    }
    const int count = parser.positionalArguments().size();
    if (count < minimum || (maximum >= 0 && count > maximum)) {
        return usage(count < minimum ? QStringLiteral("'%1' needs more arguments").arg(command)
                                     : QStringLiteral("'%1' takes fewer arguments").arg(command),
                     command);
    }
    return -1;
}

void Tool::configureLog() {
    // The library's messages go to a file beside the database, not among the tool's own.
    G::appLogger->ClearAppenders();
    G::appLogger->AddAppender(QSharedPointer<FileLogAppender>::create(
        databasePath + QStringLiteral(".log"), Logger::LOG_NOTICE));
    if (verbose) {
        G::appLogger->AddAppender(QSharedPointer<StdErrLogAppender>::create(Logger::LOG_NOTICE));
    }
}

bool Tool::BackUp() {
    return StartBackUp() && FinishBackUp();
}

bool Tool::StartBackUp() {
    if (!databaseExisted) {
        return true;  // this run made the file: there is nothing yet to keep
    }
    QString error;
    backup = std::make_unique<CatalogueBackup::Background>();
    if (!backup->Start(databasePath, error)) {
        backup.reset();
        return backupFailed(error);
    }
    return true;
}

bool Tool::FinishBackUp() {
    if (!backup) {
        return true;  // nothing to keep
    }
    QString error;
    const QString copy = backup->Finish(error);
    backup.reset();
    if (copy.isEmpty()) {
        return backupFailed(error);
    }
    err << toolName << ": the catalogue as it was is kept in " << copy << "\n";
    err.flush();
    return true;
}

bool Tool::backupFailed(const QString& error) {
    Fail(EXIT_DATABASE,
         QStringLiteral("no backup could be made, so nothing was changed: %1").arg(error),
         QStringLiteral("free some space or make %1 writable, then try again")
             .arg(CatalogueBackup::Folder(databasePath)));
    return false;
}

bool Tool::openReceipts() {
    if (noReceipts) {
        // An empty receipt database of the process's own: nothing is created on disk.
        receipts =
            std::make_unique<DBManager>(QStringLiteral(":memory:"), DBManager::SCHEMA_RECEIPTS);
    } else if (QFileInfo::exists(receiptsPath)) {
        // The tool only ever counts receipt lines: it never writes the register's receipts.
        receipts = std::make_unique<DBManager>(receiptsPath, DBManager::SCHEMA_RECEIPTS);
        receipts->SetReadOnly(true);
    } else {
        return true;  // none: clear refuses, everything else goes on
    }
    if (receipts->Open() != DB_OPERATION_SUCCESS) {
        Fail(EXIT_DATABASE,
             QStringLiteral("cannot open the receipt database %1: %2")
                 .arg(receiptsPath, receipts->GetLastError()),
             QStringLiteral("give --receipts the path of the register's receipt database"));
        receipts.reset();
        return false;
    }
    return true;
}

bool Tool::StartLibrary() {
    return StartLibrary(current ? current->access : Access::Write);
}

bool Tool::StartLibrary(Access access) {
    databaseExisted = QFileInfo::exists(databasePath);
    if (!databaseExisted && access != Access::Create) {
        Fail(EXIT_DATABASE, QStringLiteral("there is no article database at %1").arg(databasePath),
             QStringLiteral("check the path given to --db; 'articlectl init' or 'articlectl "
                            "import --create' makes a new catalogue"));
        return false;
    }
    if (receiptsNamed && !noReceipts && !QFileInfo::exists(receiptsPath)) {
        Fail(EXIT_DATABASE, QStringLiteral("there is no receipt database at %1").arg(receiptsPath),
             QStringLiteral("check the path given to --receipts"));
        return false;
    }
    if (databaseExisted && access != Access::Read && !QFileInfo(databasePath).isWritable()) {
        Fail(EXIT_DATABASE,
             QStringLiteral("the article database %1 is read-only: nothing was changed")
                 .arg(databasePath),
             QStringLiteral("make the file writable, or work on a copy"));
        return false;
    }
    configureLog();
    articles = std::make_unique<DBManager>(databasePath, DBManager::SCHEMA_ARTICLES);
    articles->SetReadOnly(access == Access::Read);
    if (articles->Open() != DB_OPERATION_SUCCESS) {
        const QString folder = QFileInfo(databasePath).absolutePath();
        Fail(EXIT_DATABASE,
             QStringLiteral("cannot open the article database %1: %2")
                 .arg(databasePath, articles->GetLastError()),
             QFileInfo(folder).isWritable()
                 ? QStringLiteral("give --db the path of an article database made by this "
                                  "software")
                 : QStringLiteral("SQLite keeps its lock file beside the database, and %1 is not "
                                  "writable: make it writable, or work on a copy")
                       .arg(folder));
        articles.reset();
        return false;
    }
    if (!openReceipts()) {
        articles.reset();
        return false;
    }
    G::dbArticles = articles.get();
    G::dbReceipt = receipts.get();
    if (!SystemManager::Instance()->InitializeAll() || !G::articleManager ||
        G::articleManager->GetState() != SystemBase::STATE_READY) {
        Fail(EXIT_DATABASE,
             QStringLiteral("the article library did not start: %1")
                 .arg(G::articleManager ? G::articleManager->GetErrorText() : QString()),
             QStringLiteral("see the log in %1.log").arg(databasePath));
        return false;
    }
    return true;
}

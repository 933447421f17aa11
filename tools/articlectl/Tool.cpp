#include "Tool.h"

#include <sqlite3.h>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "Commands.h"
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

QString toolHelp() {
    QString help = QStringLiteral(
        "Usage: articlectl [--db FILE] [--receipts FILE] [--json] [--verbose] COMMAND [ARGS]\n"
        "\n"
        "Prepares and services a cash register's article catalogue through the register's own\n"
        "article library.\n"
        "\n"
        "Global options:\n"
        "  --db FILE         the article database (default: articles.db; created when missing)\n"
        "  --receipts FILE   the receipt database (default: receipts.db beside the article one)\n"
        "  --json            machine-readable output of read commands\n"
        "  --verbose         also print the library's log on standard error\n"
        "  -h, --help        this help; COMMAND --help for a command's own\n"
        "  -v, --version     the version\n"
        "\n"
        "Commands:\n");
    for (const Command& command : Tool::Commands()) {
        help += QStringLiteral("  %1%2\n")
                    .arg(QString::fromLatin1(command.name), -18)
                    .arg(QString::fromUtf8(command.summary));
    }
    help += QStringLiteral(
        "\nExit codes: 0 done, 1 not found, 2 usage error, 3 refused, 4 database error.\n"
        "The library's log goes to the database's file name with \".log\" appended.\n");
    return help;
}

}  // namespace

Tool::Tool() : out(stdout), err(stderr) {}

Tool::~Tool() {
    if (articles) {
        SystemManager::Instance()->UninitializeAll();
        G::dbArticles = nullptr;
        G::dbReceipt = nullptr;
    }
    out.flush();
    err.flush();
}

int Tool::usage(const QString& message) {
    return Fail(EXIT_USAGE, message, QStringLiteral("see 'articlectl --help'"));
}

int Tool::Fail(int code, const QString& message, const QString& hint) {
    out.flush();
    err << toolName << ": " << message << "\n";
    if (!hint.isEmpty()) {
        err << "  " << hint << "\n";
    }
    err.flush();
    return code;
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
    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    const QCommandLineOption dbOption(QStringLiteral("db"), QString(), QStringLiteral("FILE"));
    const QCommandLineOption receiptsOption(QStringLiteral("receipts"), QString(),
                                            QStringLiteral("FILE"));
    const QCommandLineOption jsonOption(QStringLiteral("json"));
    const QCommandLineOption verboseOption(QStringLiteral("verbose"));
    const QCommandLineOption helpOption(QStringList{QStringLiteral("h"), QStringLiteral("help")});
    const QCommandLineOption versionOption(
        QStringList{QStringLiteral("v"), QStringLiteral("version")});
    parser.addOptions(
        {dbOption, receiptsOption, jsonOption, verboseOption, helpOption, versionOption});
    if (!parser.parse(QStringList(toolName) + arguments)) {
        return usage(parser.errorText());
    }
    if (parser.isSet(versionOption)) {
        out << toolName << " " << QCoreApplication::applicationVersion() << " (libArticleManager "
            << QCoreApplication::applicationVersion() << ", SQLite " << sqlite3_libversion()
            << ", Qt " << qVersion() << ")\n";
        return EXIT_DONE;
    }
    const QStringList positional = parser.positionalArguments();
    if (parser.isSet(helpOption)) {
        out << toolHelp();
        return EXIT_DONE;
    }
    if (positional.isEmpty()) {
        err << toolHelp();
        return usage(QStringLiteral("no command given"));
    }
    json = parser.isSet(jsonOption);
    verbose = parser.isSet(verboseOption);
    databasePath = parser.isSet(dbOption) ? parser.value(dbOption) : defaultDatabase;
    receiptsPath = parser.isSet(receiptsOption)
                       ? parser.value(receiptsOption)
                       : QFileInfo(databasePath).absoluteDir().filePath(defaultReceipts);
    const QString name = positional.first();
    for (const Command& command : Commands()) {
        if (name == QLatin1String(command.name)) {
            return command.run(*this, positional.mid(1));
        }
    }
    return usage(QStringLiteral("unknown command '%1'").arg(name));
}

int Tool::ParseCommand(QCommandLineParser& parser, const QString& command,
                       const QStringList& arguments, int minimum, int maximum, bool readCommand) {
    const QCommandLineOption helpOption(QStringList{QStringLiteral("h"), QStringLiteral("help")},
                                        QStringLiteral("Shows this help."));
    const QCommandLineOption jsonOption(QStringLiteral("json"),
                                        QStringLiteral("Prints machine-readable JSON."));
    parser.addOption(helpOption);
    if (readCommand) {
        parser.addOption(jsonOption);
    }
    if (!parser.parse(QStringList(toolName + QLatin1Char(' ') + command) + arguments)) {
        return Fail(EXIT_USAGE, parser.errorText(),
                    QStringLiteral("see 'articlectl %1 --help'").arg(command));
    }
    if (parser.isSet(helpOption)) {
        // Qt names the program by its path; the usage line names the command instead.
        QString help = parser.helpText();
        const int firstLineEnd = help.indexOf(QLatin1Char('\n'));
        const QString usageLine = help.left(firstLineEnd);
        const int options = usageLine.indexOf(QStringLiteral("[options]"));
        help = QStringLiteral("Usage: articlectl [global options] ") + command + QLatin1Char(' ') +
               usageLine.mid(options) + help.mid(firstLineEnd);
        out << help;
        return EXIT_DONE;
    }
    if (readCommand && parser.isSet(jsonOption)) {
        json = true;
    }
    const int count = parser.positionalArguments().size();
    if (count < minimum || (maximum >= 0 && count > maximum)) {
        return Fail(EXIT_USAGE,
                    count < minimum ? QStringLiteral("'%1' needs more arguments").arg(command)
                                    : QStringLiteral("'%1' takes fewer arguments").arg(command),
                    QStringLiteral("see 'articlectl %1 --help'").arg(command));
    }
    return -1;
}

void Tool::configureLog(bool toStandardError) {
    // The library's messages go to a file beside the database, not among the tool's own.
    G::appLogger->ClearAppenders();
    G::appLogger->AddAppender(QSharedPointer<FileLogAppender>::create(
        databasePath + QStringLiteral(".log"), Logger::LOG_NOTICE));
    if (toStandardError) {
        G::appLogger->AddAppender(QSharedPointer<StdErrLogAppender>::create(Logger::LOG_NOTICE));
    }
}

bool Tool::StartLibrary(Access) {
    return StartLibrary();
}

bool Tool::BackUp() {
    return true;
}

int Tool::DatabaseFailure(const QString& what) {
    return Fail(EXIT_DATABASE, QStringLiteral("%1: %2").arg(
                                   what, articles ? articles->GetLastError() : QString()));
}

bool Tool::StartLibrary() {
    configureLog(verbose);
    articles = std::make_unique<DBManager>(databasePath, DBManager::SCHEMA_ARTICLES);
    if (articles->Open() != DB_OPERATION_SUCCESS) {
        Fail(EXIT_DATABASE,
             QStringLiteral("cannot open the article database %1: %2")
                 .arg(databasePath, articles->GetLastError()),
             QStringLiteral("give --db the path of an article database made by this software, "
                            "or a new file name to create one"));
        articles.reset();
        return false;
    }
    receipts = std::make_unique<DBManager>(receiptsPath, DBManager::SCHEMA_RECEIPTS);
    if (receipts->Open() != DB_OPERATION_SUCCESS) {
        Fail(EXIT_DATABASE,
             QStringLiteral("cannot open the receipt database %1: %2")
                 .arg(receiptsPath, receipts->GetLastError()),
             QStringLiteral("give --receipts the path of the register's receipt database"));
        articles.reset();
        receipts.reset();
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

// backup and restore: copies of the catalogue kept beside it.

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include "CatalogueBackup.h"
#include "Commands.h"
#include "Tool.h"

int RunBackup(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Copies the catalogue with SQLite's online backup, safely while the register uses it: "
        "into FILE.backups/ (the newest 10 copies are kept there), or into DEST. The tool also "
        "makes a copy by itself before clear, init --force, import, price convert, tax reset and "
        "dept reset."));
    parser.addPositionalArgument(QStringLiteral("DEST"),
                                 QStringLiteral("A new file to copy into (optional)."), "[DEST]");
    const QCommandLineOption list(QStringLiteral("list"),
                                  QStringLiteral("Lists the copies in FILE.backups/."));
    parser.addOption(list);
    const int exit = tool.ParseCommand(parser, arguments, 0, 1, true);
    if (exit >= 0) {
        return exit;
    }
    const QString database = tool.DatabasePath();
    if (parser.isSet(list)) {
        const QStringList copies = CatalogueBackup::List(database);
        QJsonArray rows;
        for (const QString& copy : copies) {
            const QFileInfo info(copy);
            if (tool.Json()) {
                rows.append(QJsonObject{
                    {QStringLiteral("path"), copy},
                    {QStringLiteral("bytes"), info.size()},
                    {QStringLiteral("taken"), info.lastModified().toString(Qt::ISODate)}});
            } else {
                tool.Out() << copy << "  " << info.size() << " bytes  "
                           << info.lastModified().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))
                           << "\n";
            }
        }
        if (tool.Json()) {
            tool.PrintJson(QJsonObject{{QStringLiteral("count"), rows.size()},
                                       {QStringLiteral("backups"), rows}});
        } else if (copies.isEmpty()) {
            tool.Out() << "No copies of " << database << " in " << CatalogueBackup::Folder(database)
                       << ".\n";
        }
        return EXIT_DONE;
    }
    if (!QFileInfo::exists(database)) {
        return tool.Fail(EXIT_DATABASE,
                         QStringLiteral("there is no article database at %1").arg(database),
                         QStringLiteral("check the path given to --db"));
    }
    QString error;
    QString copy;
    if (parser.positionalArguments().isEmpty()) {
        copy = CatalogueBackup::Take(database, error);
    } else {
        copy = parser.positionalArguments().first();
        if (QFileInfo::exists(copy)) {
            return tool.Fail(EXIT_REFUSED,
                             QStringLiteral("%1 exists: nothing was written").arg(copy),
                             QStringLiteral("name a new file"));
        }
        if (!CatalogueBackup::Copy(database, copy, error)) {
            copy.clear();
        }
    }
    if (copy.isEmpty()) {
        return tool.Fail(EXIT_DATABASE, QStringLiteral("no copy was made: %1").arg(error));
    }
    if (tool.Json()) {
        tool.PrintJson(QJsonObject{{QStringLiteral("path"), copy},
                                   {QStringLiteral("bytes"), QFileInfo(copy).size()}});
    } else {
        tool.Out() << "Copied " << database << " to " << copy << ".\n";
    }
    return EXIT_DONE;
}

int RunRestore(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Puts a copy back in place of the catalogue, after checking that the copy is an intact "
        "article database. The catalogue as it was is copied into FILE.backups/ first, so a "
        "restore can be undone. Stop the register's sales first: it sees the restored catalogue "
        "at once."));
    parser.addPositionalArgument(QStringLiteral("BACKUP"),
                                 QStringLiteral("The copy, e.g. one listed by 'backup --list'."));
    const int exit = tool.ParseCommand(parser, arguments, 1, 1, false);
    if (exit >= 0) {
        return exit;
    }
    const QString database = tool.DatabasePath();
    const QString copy = parser.positionalArguments().first();
    if (QFileInfo(copy).canonicalFilePath() == QFileInfo(database).canonicalFilePath()) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("%1 is the catalogue itself").arg(copy));
    }
    QString error;
    if (!CatalogueBackup::Verify(copy, error)) {
        return tool.Fail(EXIT_REFUSED, QStringLiteral("refused: %1").arg(error),
                         QStringLiteral("the catalogue was not changed; choose another copy"));
    }
    QString kept;
    if (QFileInfo::exists(database)) {
        kept = CatalogueBackup::Take(database, error);
        if (kept.isEmpty()) {
            return tool.Fail(EXIT_DATABASE,
                             QStringLiteral("no copy of the catalogue as it is could be made, so "
                                            "nothing was changed: %1")
                                 .arg(error));
        }
    }
    if (!CatalogueBackup::Copy(copy, database, error)) {
        return tool.Fail(EXIT_DATABASE, QStringLiteral("the copy was not restored: %1").arg(error),
                         kept.isEmpty()
                             ? QString()
                             : QStringLiteral("the catalogue as it was is in %1").arg(kept));
    }
    tool.Out() << "Restored " << database << " from " << copy << ".";
    if (!kept.isEmpty()) {
        tool.Out() << " The catalogue as it was is kept in " << kept << ".";
    }
    tool.Out() << "\n";
    return EXIT_DONE;
}

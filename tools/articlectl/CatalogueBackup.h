#pragma once

#include <QString>
#include <QStringList>

// Online copies of an article database made with SQLite's backup API: consistent while the
// register or another tool is using the file, and never a half-written copy under a final name.
namespace CatalogueBackup {

// How many copies a database keeps in its folder.
constexpr int kept = 10;

// The folder of the copies of `database`: "<database>.backups".
QString Folder(const QString& database);
// Copies `database` into a new file of its folder named after the time, then removes all but the
// newest `kept` copies. Returns the copy's path, or an empty text with `error` saying why.
QString Take(const QString& database, QString& error);
// The copies in the folder, oldest first.
QStringList List(const QString& database);
// Copies the whole database `from` onto `to` (created when missing), waiting for other
// connections' locks. Returns false with `error` saying why.
bool Copy(const QString& from, const QString& to, QString& error);
// Whether `path` is an intact database of this library's articles (SQLite's integrity check and
// the file's application id); false with `error` saying why.
bool Verify(const QString& path, QString& error);

}  // namespace CatalogueBackup

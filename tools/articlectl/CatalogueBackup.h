#pragma once

#include <QString>
#include <QStringList>
#include <memory>

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

// Take() on a thread of its own, so that a long import and the copy of the catalogue as it was
// run side by side. The copy is of the catalogue as it stands when Start() returns, whatever is
// written to it afterwards (its connection holds that snapshot until the copy is done).
class Background {
public:
    Background();
    ~Background();  // waits; a copy not collected by Finish() is kept all the same
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    // Fixes the snapshot and starts copying it; false with `error` saying why.
    bool Start(const QString& database, QString& error);
    // Waits for the copy: its path, or an empty text with `error` saying why.
    QString Finish(QString& error);

private:
    struct Work;
    std::unique_ptr<Work> work;
};
// The copies in the folder, oldest first.
QStringList List(const QString& database);
// Copies the whole database `from` onto `to` (created when missing), waiting for other
// connections' locks. Returns false with `error` saying why.
bool Copy(const QString& from, const QString& to, QString& error);
// Whether `path` is an intact database of this library's articles (SQLite's integrity check and
// the file's application id); false with `error` saying why.
bool Verify(const QString& path, QString& error);

}  // namespace CatalogueBackup

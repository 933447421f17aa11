#pragma once

#include <QString>

struct sqlite3;

// Brings a database file to the newest schema of its kind. The schema is a numbered series of
// SQL scripts ("0001_tables.sql", "0002_....sql") built into the library; PRAGMA user_version
// holds the number of the last script applied and PRAGMA application_id the kind of database.
class SchemaMigrator {
public:
    // `scriptFolder` is a resource folder such as ":/articledb/schema/articles".
    SchemaMigrator(const QString& scriptFolder, quint32 applicationId);

    // Applies every script newer than the file's version, each in its own transaction.
    // Refuses files of another kind and files newer than the scripts. Returns an SQLite result
    // code; `error` explains a failure.
    int Migrate(sqlite3* connection, QString& error) const;
    // The version a file has after Migrate.
    int LatestVersion() const;

private:
    struct Script {
        int version;
        QString path;
    };
    QList<Script> scripts() const;

    QString scriptFolder;
    quint32 applicationId;
};

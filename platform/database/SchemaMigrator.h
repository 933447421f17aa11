#pragma once

#include <QList>
#include <QString>

struct sqlite3;

// Brings a database file to the newest schema of its kind. The schema is a numbered series of
// SQL scripts ("0001_tables.sql", "0002_....sql") built into the library; PRAGMA user_version
// holds the number of the last script applied and PRAGMA application_id the kind of database.
class SchemaMigrator {
public:
    // What a file says about itself before anything is written to it.
    struct FileFacts {
        bool exists = false;
        qint64 applicationId = 0;
        qint64 userVersion = 0;
        int schemaObjects = 0;  // tables, indexes, views and triggers
    };

    // `scriptFolder` is a resource folder such as ":/articledb/schema/articles".
    SchemaMigrator(const QString& scriptFolder, quint32 applicationId);

    // Reads the facts of the file at `path` through a read-only connection that neither
    // recovers, checkpoints nor creates it. Returns an SQLite result code (SQLITE_NOTADB for a
    // file that is not a database); `error` explains a failure.
    static int ReadFacts(const QString& path, FileFacts& facts, QString& error);
    // Whether a file with these facts may be opened and migrated: not when it holds another
    // kind of database, another program's tables (no application id of ours), or a schema
    // newer than the scripts. Returns SQLITE_OK or SQLITE_MISMATCH with `error` saying why.
    int Accepts(const FileFacts& facts, QString& error) const;
    // Whether a file with these facts may be used without migrating it: it exists and has the
    // latest schema. Returns SQLITE_OK, SQLITE_CANTOPEN or SQLITE_MISMATCH with `error` saying
    // why.
    int AcceptsAsIs(const FileFacts& facts, QString& error) const;
    // Applies every script newer than the file's version, each in its own transaction, after
    // checking the file again on the open connection. Returns an SQLite result code; `error`
    // explains a failure.
    int Migrate(sqlite3* connection, QString& error) const;
    // The version a file has after Migrate.
    int LatestVersion() const;

private:
    struct Script {
        int version;
        QString path;
    };
    QList<Script> scripts() const;
    static int readFacts(sqlite3* connection, FileFacts& facts);

    QString scriptFolder;
    quint32 applicationId;
};

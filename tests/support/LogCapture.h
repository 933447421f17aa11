#pragma once

#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QVector>
#include <mutex>

#include "CallbackLogAppender.h"
#include "QtPrinters.h"

// Records every message of G::appLogger while it lives; the logger's other appenders are
// detached meanwhile so that expected failures do not clutter the test output.
class LogCapture {
public:
    struct Entry {
        int level;
        QString text;
    };

    LogCapture();
    ~LogCapture();

    QVector<Entry> Entries() const;
    QStringList Texts() const;
    // Whether a message with exactly this level and text was logged.
    bool Contains(int level, const QString& text) const;
    // Whether any message contains `part`.
    bool Mentions(const QString& part) const;
    bool IsEmpty() const { return Entries().isEmpty(); }
    void Clear();

private:
    mutable std::mutex mutex;
    QVector<Entry> entries;
    QSharedPointer<CallbackLogAppender> appender;
    QList<QSharedPointer<LogAppender>> detached;
};

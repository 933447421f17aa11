#include "LogCapture.h"

#include "Globals.h"
#include "Logger.h"

LogCapture::LogCapture() {
    appender = QSharedPointer<CallbackLogAppender>::create(
        [this](int level, const QString& text) {
            std::lock_guard<std::mutex> lock(mutex);
            entries.append(Entry{level, text});
        },
        0);
    detached = G::appLogger->GetAppenders();
    G::appLogger->ClearAppenders();
    G::appLogger->AddAppender(appender);
}

LogCapture::~LogCapture() {
    G::appLogger->RemoveAppender(appender);
    for (const auto& other : detached) {
        G::appLogger->AddAppender(other);
    }
}

QVector<LogCapture::Entry> LogCapture::Entries() const {
    std::lock_guard<std::mutex> lock(mutex);
    return entries;
}

QStringList LogCapture::Texts() const {
    QStringList texts;
    for (const Entry& entry : Entries()) {
        texts.append(entry.text);
    }
    return texts;
}

bool LogCapture::Contains(int level, const QString& text) const {
    for (const Entry& entry : Entries()) {
        if (entry.level == level && entry.text == text) {
            return true;
        }
    }
    return false;
}

bool LogCapture::Mentions(const QString& part) const {
    for (const Entry& entry : Entries()) {
        if (entry.text.contains(part)) {
            return true;
        }
    }
    return false;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(mutex);
    entries.clear();
}

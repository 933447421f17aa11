#pragma once

#include <QStringList>
#include <mutex>

#include "DBManager.h"

// Records every SQL text handed to DBManager::Execute while it lives.
class SqlRecorder {
public:
    explicit SqlRecorder(DBManager* db) : db(db) {
        id = db->AddStatementObserver([this](const QString& sql) {
            std::lock_guard<std::mutex> lock(mutex);
            texts.append(sql);
        });
    }
    ~SqlRecorder() { db->RemoveStatementObserver(id); }

    SqlRecorder(const SqlRecorder&) = delete;
    SqlRecorder& operator=(const SqlRecorder&) = delete;

    QStringList Texts() const {
        std::lock_guard<std::mutex> lock(mutex);
        return texts;
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(mutex);
        texts.clear();
    }

private:
    DBManager* db;
    int id;
    mutable std::mutex mutex;
    QStringList texts;
};

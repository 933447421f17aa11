#pragma once

#include <QString>
#include <atomic>

#include "VexCoreGlobal.h"

// Destination of the logger's messages. An appender receives the messages whose level is at
// least its threshold (higher levels are more severe: 3 notices, 5 failures).
class VEXCORE_EXPORT LogAppender {
public:
    explicit LogAppender(int threshold);
    virtual ~LogAppender();

    LogAppender(const LogAppender&) = delete;
    LogAppender& operator=(const LogAppender&) = delete;

    int GetThreshold() const { return threshold.load(); }
    void SetThreshold(int level) { threshold.store(level); }
    bool Admits(int level) const { return level >= threshold.load(); }

    // One message: its level, the text as it was logged, and the formatted line. Called under
    // the logger's mutex, so appenders need no lock of their own.
    virtual void Append(int level, const QString& text, const QString& line) = 0;

private:
    std::atomic<int> threshold;
};

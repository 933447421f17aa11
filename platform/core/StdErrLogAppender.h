#pragma once

#include "LogAppender.h"

// Writes each line to standard error.
class VEXCORE_EXPORT StdErrLogAppender : public LogAppender {
public:
    explicit StdErrLogAppender(int threshold);
    void Append(int level, const QString& text, const QString& line) override;
};

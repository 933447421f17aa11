#pragma once

#include <functional>

#include "LogAppender.h"

// Hands (level, text) of each admitted message to a function: how a program or a test watches
// the log.
class VEXCORE_EXPORT CallbackLogAppender : public LogAppender {
public:
    using Callback = std::function<void(int level, const QString& text)>;

    CallbackLogAppender(const Callback& callback, int threshold = 0);
    void Append(int level, const QString& text, const QString& line) override;

private:
    Callback callback;
};

#include "CallbackLogAppender.h"

CallbackLogAppender::CallbackLogAppender(const Callback& callback, int threshold)
    : LogAppender(threshold), callback(callback) {}

void CallbackLogAppender::Append(int level, const QString& text, const QString&) {
    if (callback) {
        callback(level, text);
    }
}

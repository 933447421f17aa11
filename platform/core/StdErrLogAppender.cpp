#include "StdErrLogAppender.h"

#include <cstdio>

StdErrLogAppender::StdErrLogAppender(int threshold) : LogAppender(threshold) {}

void StdErrLogAppender::Append(int, const QString&, const QString& line) {
    const QByteArray bytes = line.toLocal8Bit();
    std::fprintf(stderr, "%s\n", bytes.constData());
    std::fflush(stderr);
}

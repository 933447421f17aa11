#include "FileLogAppender.h"

FileLogAppender::FileLogAppender(const QString& fileName, int threshold)
    : LogAppender(threshold), file(fileName) {
    file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
}

void FileLogAppender::Append(int, const QString&, const QString& line) {
    if (file.isOpen()) {
        file.write(line.toUtf8());
        file.write("\n");
        file.flush();
    }
}

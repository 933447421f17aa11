#pragma once

#include <QFile>

#include "LogAppender.h"

// Appends each line to a file, flushed line by line so that nothing is lost at power-off.
class VEXCORE_EXPORT FileLogAppender : public LogAppender {
public:
    FileLogAppender(const QString& fileName, int threshold);
    // False when the file could not be opened for appending.
    bool IsOpen() const { return file.isOpen(); }
    void Append(int level, const QString& text, const QString& line) override;

private:
    QFile file;
};

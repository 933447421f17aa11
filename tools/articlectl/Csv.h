#pragma once

#include <QIODevice>
#include <QString>
#include <QStringList>

// Reads RFC 4180 CSV from UTF-8 text: fields separated by commas, fields holding commas,
// quotes or line breaks enclosed in double quotes with inner quotes doubled. Lines may end in
// CRLF or LF; a UTF-8 byte order mark is skipped.
class CsvReader {
public:
    explicit CsvReader(const QByteArray& text);

    // The next record; false at the end. `line` is the line the record starts on.
    bool Next(QStringList& fields, int& line);
    // What is wrong with the last record read (an unterminated quote, text after a closing
    // quote), or empty.
    const QString& Error() const { return error; }
    // Fraction of the text read so far, for progress reports.
    double Progress() const;

private:
    QString text;
    int position = 0;
    int lineNumber = 1;
    QString error;
};

// Writes RFC 4180 CSV: CRLF line ends, fields quoted only when they need it.
class CsvWriter {
public:
    explicit CsvWriter(QIODevice* device);
    void Write(const QStringList& fields);
    static QString Field(const QString& value);

private:
    QIODevice* device;
};

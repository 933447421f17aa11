#pragma once

#include <QBuffer>
#include <QByteArray>
#include <QIODevice>
#include <QString>
#include <QStringList>
#include <QVarLengthArray>
#include <memory>
#include <string>

class QTextCodec;

// Reads RFC 4180 CSV a record at a time from a device, holding no more than the record being
// read: fields separated by a comma, semicolon or tab, fields holding separators, quotes or
// line breaks enclosed in double quotes with inner quotes doubled, lines ending in CRLF or LF.
// The text is UTF-8 (a byte order mark is skipped) unless a codec of an ASCII-based encoding is
// given. A file that is not in that encoding, holds a NUL byte or is UTF-16 is refused at the
// line where that shows (Fatal()): reading it on would only make up characters.
//
// A quote left open swallows the lines after it; when the record it opened then does not parse
// cleanly to the expected number of fields, only the line it opened on is reported and reading
// resumes on the next line, so every broken line is reported and none hides the next.
class CsvReader {
public:
    // `separator` ',' ';' or '\t', or 0 to take the one the first line uses most; `codec` null
    // for UTF-8. The device stays the caller's.
    explicit CsvReader(QIODevice* device, char separator = ',', QTextCodec* codec = nullptr);
    // Comma-separated UTF-8 text in memory.
    explicit CsvReader(const QByteArray& text);
    ~CsvReader();

    CsvReader(const CsvReader&) = delete;
    CsvReader& operator=(const CsvReader&) = delete;

    // The next record; false at the end (and after a fatal error). `line` is the line the
    // record starts on.
    bool Next(QStringList& fields, int& line);
    // What went wrong with the last record read.
    enum Fault {
        NoFault,
        Syntax,       // a quote out of place or not closed, or an overlong line
        Encoding,     // not text of the expected encoding (fatal)
        Binary,       // a NUL byte, or UTF-16 text (fatal)
        NoSeparator,  // the separator cannot be told from the first line (fatal)
    };
    Fault LastFault() const { return fault; }
    // What is wrong with the last record read, or empty.
    const QString& Error() const { return error; }
    // Whether the last error ends the reading: no more records are returned.
    bool Fatal() const { return fault >= Encoding; }
    // The number of fields a record must have for a quote spanning lines to be taken as a
    // multi-line field; 0 (the default) takes any.
    void ExpectFields(int count) { expectedFields = count; }
    // The separator in use (known after the first Next).
    char Separator() const { return separator; }
    // Bytes of the input consumed so far, for progress reports.
    qint64 BytesRead() const { return consumed + start; }

    // The separator a header line uses: the most frequent of ',' ';' '\t' outside quotes, ','
    // when it has none, 0 when two are equally frequent.
    static char DetectSeparator(const QByteArray& line);

private:
    bool fill();
    bool lookAhead(int position);
    bool begin();
    // Reads one record's fields into `record`, each ending where `ends` says.
    bool parse(int& line);
    int skipLine(int position);
    bool checkText(int end, int line);
    bool decode(QStringList& fields);
    void setFault(Fault kind, const QString& reason);

    std::unique_ptr<QBuffer> owned;
    QIODevice* device;
    QTextCodec* codec;
    char separator;
    QByteArray buffer;  // unread input from `start` on
    int start = 0;
    qint64 consumed = 0;  // bytes dropped from the front of the buffer
    bool atEnd = false;
    bool started = false;
    bool stopped = false;
    int lineNumber = 1;
    int expectedFields = 0;
    Fault fault = NoFault;
    QString error;
    // The record read last: its fields' bytes one after another, kept between records so
    // that a price list's rows reuse one buffer.
    QByteArray record;
    QVarLengthArray<int, 32> ends;
};

// Writes RFC 4180 CSV in UTF-8: CRLF line ends, fields quoted only when they need it. Lines
// are gathered in a buffer and handed to the device in blocks; Flush() before closing it.
class CsvWriter {
public:
    explicit CsvWriter(QIODevice* device, char separator = ',');
    ~CsvWriter();
    CsvWriter(const CsvWriter&) = delete;
    CsvWriter& operator=(const CsvWriter&) = delete;

    void Write(const QStringList& fields);
    // A line a field at a time, with no list per line (an export writes a million of them).
    CsvWriter& Add(const QString& value);
    CsvWriter& Add(qint64 number);
    CsvWriter& Add(const char* ascii);
    void EndLine();
    void Flush();

private:
    void startField();

    QIODevice* device;
    char separator;
    bool inLine = false;
    std::string buffer;
};

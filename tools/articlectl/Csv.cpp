#include "Csv.h"

#include <QTextCodec>
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "Utf8.h"

namespace {

constexpr int chunkSize = 64 * 1024;
// A record longer than this is broken (a register's row is well under 1 KiB); past it the
// reader stops keeping the record, so a missing quote cannot pull a whole file into memory.
constexpr int maxRecordBytes = 1024 * 1024;

// The offset of the first byte of `data` that does not belong to well-formed UTF-8 (overlong
// forms, surrogates and values past U+10FFFF included), or -1.
int invalidUtf8(const char* data, int size) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(data);
    int i = 0;
    while (i < size) {
        const unsigned char c = bytes[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        int length = 0;
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        if (c >= 0xC2 && c <= 0xDF) {
            length = 2;
        } else if (c >= 0xE0 && c <= 0xEF) {
            length = 3;
            low = c == 0xE0 ? 0xA0 : 0x80;
            high = c == 0xED ? 0x9F : 0xBF;
        } else if (c >= 0xF0 && c <= 0xF4) {
            length = 4;
            low = c == 0xF0 ? 0x90 : 0x80;
            high = c == 0xF4 ? 0x8F : 0xBF;
        } else {
            return i;
        }
        if (i + length > size || bytes[i + 1] < low || bytes[i + 1] > high) {
            return i;
        }
        for (int k = 2; k < length; ++k) {
            if (bytes[i + k] < 0x80 || bytes[i + k] > 0xBF) {
                return i;
            }
        }
        i += length;
    }
    return -1;
}

}  // namespace

CsvReader::CsvReader(QIODevice* device, char separator, QTextCodec* codec)
    : device(device), codec(codec), separator(separator) {}

CsvReader::CsvReader(const QByteArray& text)
    : owned(std::make_unique<QBuffer>()), device(owned.get()), codec(nullptr), separator(',') {
    owned->setData(text);
    owned->open(QIODevice::ReadOnly);
}

CsvReader::~CsvReader() = default;

char CsvReader::DetectSeparator(const QByteArray& line) {
    int commas = 0;
    int semicolons = 0;
    int tabs = 0;
    bool quoted = false;
    for (const char c : line) {
        if (c == '"') {
            quoted = !quoted;
        } else if (!quoted) {
            commas += c == ',';
            semicolons += c == ';';
            tabs += c == '\t';
        }
    }
    const int most = qMax(commas, qMax(semicolons, tabs));
    if (most == 0) {
        return ',';
    }
    if ((commas == most) + (semicolons == most) + (tabs == most) > 1) {
        return 0;
    }
    return commas == most ? ',' : semicolons == most ? ';' : '\t';
}

bool CsvReader::fill() {
    if (atEnd) {
        return false;
    }
    const int before = buffer.size();
    buffer.resize(before + chunkSize);
    const qint64 got = device->read(buffer.data() + before, chunkSize);
    buffer.resize(before + static_cast<int>(qMax<qint64>(got, 0)));
    if (got <= 0) {
        atEnd = true;
        return false;
    }
    return true;
}

bool CsvReader::lookAhead(int position) {
    while (position >= buffer.size()) {
        if (!fill()) {
            return false;
        }
    }
    return true;
}

void CsvReader::setFault(Fault kind, const QString& reason) {
    if (fault == NoFault || kind > fault) {
        fault = kind;
        error = reason;
    }
    if (Fatal()) {
        stopped = true;
    }
}

bool CsvReader::begin() {
    started = true;
    lookAhead(3);
    const QByteArray head = buffer.left(4);
    if (head.startsWith("\xEF\xBB\xBF")) {
        if (codec) {
            setFault(Encoding,
                     QStringLiteral("the file is UTF-8 (it begins with UTF-8's byte order mark), "
                                    "not %1")
                         .arg(QString::fromLatin1(codec->name())));
            return false;
        }
        start = 3;
    } else if (head.startsWith("\xFF\xFE") || head.startsWith("\xFE\xFF")) {
        setFault(Binary, QStringLiteral("the file is UTF-16 text; save it as UTF-8"));
        return false;
    }
    if (separator == 0) {
        int end = start;
        while (lookAhead(end) && buffer[end] != '\n' && end - start < maxRecordBytes) {
            ++end;
        }
        separator = DetectSeparator(buffer.mid(start, end - start));
        if (separator == 0) {
            setFault(NoSeparator,
                     QStringLiteral("cannot tell whether the columns are separated by commas, "
                                    "semicolons or tabs: the first line has as many of two of "
                                    "them"));
            return false;
        }
    }
    return true;
}

int CsvReader::skipLine(int position) {
    // Drops the rest of an overlong line without keeping it.
    for (;;) {
        const int newline = buffer.indexOf('\n', position);
        if (newline >= 0) {
            return newline + 1;
        }
        consumed += buffer.size();
        buffer.clear();
        start = 0;
        position = 0;
        if (!fill()) {
            return 0;
        }
    }
}

bool CsvReader::parse(int& line) {
    line = lineNumber;
    int position = start;
    if (!lookAhead(position)) {
        return false;
    }
    record.clear();  // keeps its room
    ends.clear();
    int fieldStart = 0;
    bool quoted = false;     // inside quotes
    bool wasQuoted = false;  // the current field began with a quote
    int firstBreak = -1;     // the first line break inside quotes
    int breaks = 0;          // line breaks inside quotes
    QString problem;
    bool overlong = false;
    while (lookAhead(position)) {
        if (position - start > maxRecordBytes) {
            overlong = true;
            break;
        }
        const char c = buffer[position];
        if (quoted) {
            if (c == '"') {
                if (lookAhead(position + 1) && buffer[position + 1] == '"') {
                    record += '"';
                    position += 2;
                    continue;
                }
                quoted = false;
                ++position;
                continue;
            }
            if (c == '\n') {
                ++breaks;
                if (firstBreak < 0) {
                    firstBreak = position;
                }
            }
            record += c;
            ++position;
            continue;
        }
        if (c != separator && c != '\n' && c != '\r' && c != '"') {
            // A run of plain bytes, taken in one go: this loop reads every byte of a price list.
            const char* data = buffer.constData();
            const int limit = qMin(buffer.size(), start + maxRecordBytes + 1);
            int end = position + 1;
            while (end < limit && data[end] != separator && data[end] != '\n' &&
                   data[end] != '\r' && data[end] != '"') {
                ++end;
            }
            if (wasQuoted && problem.isEmpty()) {
                problem = QStringLiteral("text after the closing quote of a field");
            }
            record.append(data + position, end - position);
            position = end;
            continue;
        }
        if (c == separator) {
            ends.append(record.size());
            fieldStart = record.size();
            wasQuoted = false;
            ++position;
            continue;
        }
        if (c == '\n' || (c == '\r' && lookAhead(position + 1) && buffer[position + 1] == '\n')) {
            position += c == '\n' ? 1 : 2;
            break;
        }
        if (c == '"') {
            if (record.size() == fieldStart && !wasQuoted) {
                quoted = true;
                wasQuoted = true;
                ++position;
                continue;
            }
            if (problem.isEmpty()) {
                problem = QStringLiteral(
                    "a quote inside an unquoted field (double it and quote the field)");
            }
        } else if (wasQuoted && problem.isEmpty()) {
            problem = QStringLiteral("text after the closing quote of a field");
        }
        record += c;
        ++position;
    }
    ends.append(record.size());
    if (quoted || overlong) {
        problem = QStringLiteral("a quoted field is not closed");
    }
    const bool broken = !problem.isEmpty() || (expectedFields > 0 && ends.size() != expectedFields);
    if (firstBreak >= 0 && broken) {
        // The quote most likely belongs to this line alone: report it, read on from the next.
        setFault(Syntax, QStringLiteral("a quote on this line is not closed"));
        position = firstBreak + 1;
        breaks = 0;
    } else if (overlong) {
        setFault(Syntax, QStringLiteral("the line is longer than %1 bytes").arg(maxRecordBytes));
        position = skipLine(position);
        breaks = 0;
    } else if (!problem.isEmpty()) {
        setFault(Syntax, problem);
    }
    if (!checkText(position, line)) {
        return true;
    }
    lineNumber += breaks + 1;
    start = position;
    return true;
}

bool CsvReader::checkText(int end, int line) {
    const char* data = buffer.constData() + start;
    const int size = qMax(0, end - start);
    auto lineOf = [&](int offset) {
        return line + static_cast<int>(std::count(data, data + offset, '\n'));
    };
    const char* nul = static_cast<const char*>(memchr(data, '\0', static_cast<size_t>(size)));
    if (nul) {
        lineNumber = lineOf(static_cast<int>(nul - data));
        setFault(Binary, QStringLiteral("the file holds a NUL byte (is it UTF-16? save it as "
                                        "UTF-8)"));
        return false;
    }
    if (!codec) {
        const int bad = invalidUtf8(data, size);
        if (bad >= 0) {
            lineNumber = lineOf(bad);
            const auto byte = static_cast<unsigned char>(data[bad]);
            setFault(Encoding, QStringLiteral("the text is not UTF-8 (byte 0x%1)")
                                   .arg(QString::number(byte, 16).toUpper()));
            return false;
        }
    }
    return true;
}

bool CsvReader::decode(QStringList& fields) {
    fields.reserve(ends.size());
    int from = 0;
    for (const int end : ends) {
        const char* bytes = record.constData() + from;
        const int size = end - from;
        from = end;
        if (!codec) {
            fields.append(QString::fromUtf8(bytes, size));
            continue;
        }
        QTextCodec::ConverterState state;
        const QString text = codec->toUnicode(bytes, size, &state);
        if (state.invalidChars > 0 || text.contains(QChar(QChar::ReplacementCharacter))) {
            setFault(Encoding, QStringLiteral("the text holds a byte that is no character of %1")
                                   .arg(QString::fromLatin1(codec->name())));
            return false;
        }
        fields.append(text);
    }
    return true;
}

bool CsvReader::Next(QStringList& fields, int& line) {
    fields.clear();
    error.clear();
    fault = NoFault;
    if (stopped) {
        return false;
    }
    if (!started && !begin()) {
        line = lineNumber;
        return true;  // the fault is the record
    }
    if (start >= chunkSize) {
        // Forget what was read, keeping the buffer about one chunk long.
        buffer.remove(0, start);
        consumed += start;
        start = 0;
    }
    if (!parse(line)) {
        return false;
    }
    if (Fatal()) {
        line = lineNumber;
        return true;
    }
    decode(fields);  // a failure is the record's fault
    return true;
}

CsvWriter::CsvWriter(QIODevice* device, char separator) : device(device), separator(separator) {
    buffer.reserve(chunkSize + 4096);
}

CsvWriter::~CsvWriter() {
    Flush();
}

namespace {

bool isSpaceByte(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// Quoted when it holds the separator, a quote or a line break, or begins or ends with
// white space (which a reader would trim).
bool needsQuotes(const QString& value, char separator) {
    if (value.isEmpty()) {
        return false;
    }
    if (value.front().isSpace() || value.back().isSpace()) {
        return true;
    }
    for (const QChar c : value) {
        const ushort u = c.unicode();
        if (u == static_cast<ushort>(separator) || u == '"' || u == '\n' || u == '\r') {
            return true;
        }
    }
    return false;
}

// Appends `value` as UTF-8, each quote doubled when `quoted`.
void appendUtf8(std::string& out, const QString& value, bool quoted) {
    const std::size_t start = out.size();
    out.resize(start + 3 * static_cast<std::size_t>(value.size()));
    const int written = Utf8::Encode(value, &out[start]);
    if (written >= 0) {
        out.resize(start + static_cast<std::size_t>(written));
    } else {
        const QByteArray bytes = value.toUtf8();
        out.replace(start, std::string::npos, bytes.constData(),
                    static_cast<std::size_t>(bytes.size()));
    }
    if (quoted) {
        for (std::size_t i = out.find('"', start); i != std::string::npos;
             i = out.find('"', i + 2)) {
            out.insert(i, 1, '"');
        }
    }
}

}  // namespace

void CsvWriter::startField() {
    if (inLine) {
        buffer += separator;
    }
    inLine = true;
}

CsvWriter& CsvWriter::Add(const QString& value) {
    startField();
    const bool quoted = needsQuotes(value, separator);
    if (quoted) {
        buffer += '"';
    }
    appendUtf8(buffer, value, quoted);
    if (quoted) {
        buffer += '"';
    }
    return *this;
}

CsvWriter& CsvWriter::Add(qint64 number) {
    startField();
    // By hand: printf's parsing of its format costs as much as the rest of an exported line.
    quint64 magnitude =
        number < 0 ? 0 - static_cast<quint64>(number) : static_cast<quint64>(number);
    char digits[24];
    char* end = digits + sizeof digits;
    char* first = end;
    do {
        *--first = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (number < 0) {
        *--first = '-';
    }
    buffer.append(first, static_cast<std::size_t>(end - first));
    return *this;
}

CsvWriter& CsvWriter::Add(const char* ascii) {
    startField();
    const std::size_t length = std::strlen(ascii);
    const bool quoted =
        length > 0 && (isSpaceByte(ascii[0]) || isSpaceByte(ascii[length - 1]) ||
                       std::strpbrk(ascii, "\"\r\n") || std::memchr(ascii, separator, length));
    if (!quoted) {
        buffer.append(ascii, length);
        return *this;
    }
    buffer += '"';
    for (const char* c = ascii; *c; ++c) {
        if (*c == '"') {
            buffer += '"';
        }
        buffer += *c;
    }
    buffer += '"';
    return *this;
}

void CsvWriter::EndLine() {
    buffer += "\r\n";
    inLine = false;
    if (buffer.size() >= static_cast<std::size_t>(chunkSize)) {
        Flush();
    }
}

void CsvWriter::Flush() {
    if (!buffer.empty()) {
        device->write(buffer.data(), static_cast<qint64>(buffer.size()));
        buffer.clear();
    }
}

void CsvWriter::Write(const QStringList& fields) {
    for (const QString& field : fields) {
        Add(field);
    }
    EndLine();
}

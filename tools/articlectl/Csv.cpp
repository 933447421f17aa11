#include "Csv.h"

CsvReader::CsvReader(const QByteArray& bytes) : text(QString::fromUtf8(bytes)) {
    if (text.startsWith(QChar(0xFEFF))) {
        position = 1;
    }
}

double CsvReader::Progress() const {
    return text.isEmpty() ? 1.0 : static_cast<double>(position) / text.size();
}

bool CsvReader::Next(QStringList& fields, int& line) {
    fields.clear();
    error.clear();
    const int n = text.size();
    if (position >= n) {
        return false;
    }
    line = lineNumber;
    QString field;
    bool quoted = false;     // inside quotes
    bool wasQuoted = false;  // the current field began with a quote
    while (position < n) {
        const QChar c = text[position];
        if (quoted) {
            if (c == QLatin1Char('"')) {
                if (position + 1 < n && text[position + 1] == QLatin1Char('"')) {
                    field += QLatin1Char('"');
                    position += 2;
                    continue;
                }
                quoted = false;
                ++position;
                continue;
            }
            if (c == QLatin1Char('\n')) {
                ++lineNumber;
            }
            field += c;
            ++position;
            continue;
        }
        if (c == QLatin1Char(',')) {
            fields.append(field);
            field.clear();
            wasQuoted = false;
            ++position;
            continue;
        }
        if (c == QLatin1Char('\r') && position + 1 < n && text[position + 1] == QLatin1Char('\n')) {
            ++position;
            continue;
        }
        if (c == QLatin1Char('\n')) {
            ++position;
            ++lineNumber;
            fields.append(field);
            return true;
        }
        if (c == QLatin1Char('"')) {
            if (!field.isEmpty() || wasQuoted) {
                error = QStringLiteral(
                    "a quote inside an unquoted field (double it and quote the field)");
            }
            quoted = true;
            wasQuoted = true;
            ++position;
            continue;
        }
        if (wasQuoted && error.isEmpty()) {
            error = QStringLiteral("text after the closing quote of a field");
        }
        field += c;
        ++position;
    }
    if (quoted) {
        error = QStringLiteral("a quoted field is not closed");
    }
    fields.append(field);
    return true;
}

CsvWriter::CsvWriter(QIODevice* device) : device(device) {}

QString CsvWriter::Field(const QString& value) {
    const bool needsQuotes = value.contains(QLatin1Char(',')) || value.contains(QLatin1Char('"')) ||
                             value.contains(QLatin1Char('\n')) ||
                             value.contains(QLatin1Char('\r')) || value != value.trimmed();
    if (!needsQuotes) {
        return value;
    }
    QString quoted = value;
    quoted.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

void CsvWriter::Write(const QStringList& fields) {
    QStringList encoded;
    for (const QString& field : fields) {
        encoded.append(Field(field));
    }
    device->write((encoded.join(QLatin1Char(',')) + QStringLiteral("\r\n")).toUtf8());
}

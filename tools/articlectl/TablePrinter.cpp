#include "TablePrinter.h"

TablePrinter::TablePrinter(const QStringList& headerTexts) {
    for (QString header : headerTexts) {
        const bool right = header.endsWith(QLatin1Char('>'));
        if (right) {
            header.chop(1);
        }
        headers.append(header);
        rightAligned.append(right);
    }
}

void TablePrinter::AddRow(const QStringList& cells) {
    rows.append(cells);
}

void TablePrinter::Print(QTextStream& out) const {
    QVector<int> widths;
    for (const QString& header : headers) {
        widths.append(header.size());
    }
    for (const QStringList& row : rows) {
        for (int i = 0; i < row.size() && i < widths.size(); ++i) {
            widths[i] = qMax(widths[i], row[i].size());
        }
    }
    auto printRow = [&](const QStringList& cells) {
        QString line;
        for (int i = 0; i < headers.size(); ++i) {
            const QString cell = cells.value(i);
            if (i > 0) {
                line += QStringLiteral("  ");
            }
            const bool last = i == headers.size() - 1;
            line += rightAligned[i] ? cell.rightJustified(widths[i])
                                    : (last ? cell : cell.leftJustified(widths[i]));
        }
        out << line << "\n";
    };
    printRow(headers);
    QStringList rule;
    for (int width : widths) {
        rule.append(QString(width, QLatin1Char('-')));
    }
    printRow(rule);
    for (const QStringList& row : rows) {
        printRow(row);
    }
}

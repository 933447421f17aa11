#include "PriceListColumns.h"

#include <QHash>

namespace PriceList {

QString Key(const QString& header) {
    // Decomposed, ą ć ę ń ó ś ź ż lose their marks as separate characters; ł has no
    // decomposition of its own.
    const QString decomposed = header.toLower().normalized(QString::NormalizationForm_D);
    QString key;
    for (const QChar c : decomposed) {
        if (c == QChar(0x0142)) {
            key += QLatin1Char('l');
        } else if (c.isLetterOrNumber()) {
            key += c;
        }
        // Marks, blanks, underscores, hyphens, dots and other punctuation are left out.
    }
    return key;
}

namespace {

QHash<QString, int> buildIndex() {
    QHash<QString, int> index;
    for (const ColumnInfo& info : columns) {
        QStringList names = QString::fromUtf8(info.aliases).split(QLatin1Char('|'));
        names.prepend(QString::fromLatin1(info.name));
        for (const QString& name : names) {
            const QString key = Key(name);
            // Two columns under one name would make a header mean two things.
            Q_ASSERT_X(!index.contains(key), "PriceList::columns", "a name stands for two columns");
            index.insert(key, info.column);
        }
    }
    return index;
}

}  // namespace

int ColumnOf(const QString& header) {
    static const QHash<QString, int> index = buildIndex();
    return index.value(Key(header), -1);
}

QStringList Names() {
    QStringList names;
    for (const ColumnInfo& info : columns) {
        names.append(QString::fromLatin1(info.name));
    }
    return names;
}

QString MarkdownTable() {
    QString table = QStringLiteral("| column | also read as | meaning |\n|---|---|---|\n");
    for (const ColumnInfo& info : columns) {
        QStringList aliases;
        for (const QString& alias : QString::fromUtf8(info.aliases).split(QLatin1Char('|'))) {
            aliases.append(QStringLiteral("`%1`").arg(alias));
        }
        table += QStringLiteral("| `%1` | %2 | %3 |\n")
                     .arg(QString::fromLatin1(info.name), aliases.join(QStringLiteral(", ")),
                          QString::fromUtf8(info.meaning));
    }
    return table;
}

}  // namespace PriceList

#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>
#include <ostream>

// Readable GoogleTest failure messages for Qt values.
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QStringList& list, std::ostream* out) {
    *out << "{";
    for (int i = 0; i < list.size(); ++i) {
        *out << (i ? ", " : "") << '"' << list[i].toStdString() << '"';
    }
    *out << "}";
}

inline void PrintTo(const QVariant& value, std::ostream* out) {
    *out << "QVariant(" << value.typeName() << ", " << value.toString().toStdString() << ")";
}

#include "StatementTemplates.h"

#include <algorithm>
#include <cstring>

#include "SqlText.h"

namespace {

const QChar quote = QLatin1Char('"');

// Whether one text could be read as both shapes: then nobody could tell where the pasted text
// ends.
bool overlap(const QString& head, const QString& tail, const QString& otherHead,
             const QString& otherTail) {
    return (head.startsWith(otherHead) || otherHead.startsWith(head)) &&
           (tail.endsWith(otherTail) || otherTail.endsWith(tail));
}

}  // namespace

bool StatementTemplates::Declare(const QString& head, const QStringList& tails, int rowsRead,
                                 QString& why) {
    if (!head.endsWith(quote) || tails.isEmpty()) {
        why = QStringLiteral(
            "a statement template needs a head ending with a double quote and "
            "at least one tail");
        return false;
    }
    QVector<Shape> added;
    for (const QString& tail : tails) {
        if (!tail.startsWith(quote)) {
            why = QStringLiteral("a tail of a statement template must begin with a double quote");
            return false;
        }
        const auto same = [&](const Shape& shape) {
            return shape.head == head && shape.tail == tail;
        };
        const auto known = std::find_if(shapes.begin(), shapes.end(), same);
        if (known != shapes.end()) {
            known->rowsRead =
                known->rowsRead == 0 || rowsRead == 0 ? 0 : qMax(known->rowsRead, rowsRead);
            continue;
        }
        if (std::any_of(added.cbegin(), added.cend(), same)) {
            continue;
        }
        for (const QVector<Shape>* known : {&shapes, &added}) {
            for (const Shape& shape : *known) {
                if (overlap(head, tail, shape.head, shape.tail)) {
                    why = QStringLiteral(
                              "the statement template [%1...%2] can be read as "
                              "[%3...%4] too")
                              .arg(head, tail, shape.head, shape.tail);
                    return false;
                }
            }
        }
        added.append(Shape{head,
                           tail,
                           head.left(head.size() - 1) + QLatin1Char('?') + tail.mid(1),
                           qMax(0, rowsRead),
                           {}});
    }
    shapes += added;
    return true;
}

StatementTemplates::Shape* StatementTemplates::FindParts(const QString& head, const QString& tail) {
    for (Shape& shape : shapes) {
        if (SqlText::Same(shape.head, head) && SqlText::Same(shape.tail, tail)) {
            return &shape;
        }
    }
    return nullptr;
}

bool StatementTemplates::Find(const QString& sql, Match& match) const {
    for (const Shape& shape : shapes) {
        // memcmp over the UTF-16 units: QString::startsWith's generic compare cost a scan of a
        // label more than its own label parse.
        if (sql.size() >= shape.head.size() + shape.tail.size() &&
            std::memcmp(sql.constData(), shape.head.constData(),
                        sizeof(QChar) * static_cast<size_t>(shape.head.size())) == 0 &&
            std::memcmp(sql.constData() + sql.size() - shape.tail.size(), shape.tail.constData(),
                        sizeof(QChar) * static_cast<size_t>(shape.tail.size())) == 0) {
            match.statement = shape.statement;
            match.rowsRead = shape.rowsRead;
            match.value =
                sql.mid(shape.head.size(), sql.size() - shape.head.size() - shape.tail.size());
            return true;
        }
    }
    return false;
}

#include "DBColumn.h"

#include <QRegularExpression>

namespace {

int declaredSize(const QString& type) {
    static const QRegularExpression sizePattern(QStringLiteral("\\(\\s*(\\d+)"));
    const QRegularExpressionMatch match = sizePattern.match(type);
    return match.hasMatch() ? match.captured(1).toInt() : 0;
}

}  // namespace

DBColumn::DBColumn(const DBTable* table, int index, const QString& name,
                   const QString& declaredType, bool notNull, const QString& defaultValue,
                   int primaryKeyPosition)
    : table(table)
    , index(index)
    , name(name)
    , quotedName(QLatin1Char('"') + QString(name).replace(QLatin1Char('"'), QLatin1String("\"\"")) +
                 QLatin1Char('"'))
    , declaredType(declaredType)
    , notNull(notNull)
    , defaultValue(defaultValue)
    , primaryKeyPosition(primaryKeyPosition)
    , size(declaredSize(declaredType)) {}

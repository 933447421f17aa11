#pragma once

#include <QJsonObject>
#include <QStringList>
#include <QTextStream>

#include "Article.h"
#include "ArticleManager.h"

// How the tool shows articles to people and to programs.
namespace ArticleView {

// Minor units as a decimal amount: 1299 is "12.99".
QString Price(qint64 minorUnits);
// The article's additional barcodes, in row order.
QStringList ExtraBarcodes(ArticleManager& manager, const Article& article);
QJsonObject Json(const Article& article, const QStringList& extraBarcodes);
// "PLU 12  Chleb wiejski  4.99 / szt."
QString Line(const Article& article);
// Every field, one per line.
void PrintDetails(QTextStream& out, ArticleManager& manager, const Article& article,
                  const QStringList& extraBarcodes);

}  // namespace ArticleView

#pragma once

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QStringList>
#include <QTextStream>
#include <QVector>

#include "Article.h"
#include "ArticleManager.h"
#include "Barcode.h"

// How the tool shows articles and barcodes to people and to programs. Every command prints an
// article, a barcode or a scan in the one JSON shape made here: keys in snake_case, numbers as
// JSON numbers, money in złoty.
namespace ArticleView {

// Minor units as a decimal amount: 1299 is "12.99".
QString Price(qint64 minorUnits);
// Minor units as a JSON number of złoty: 1299 is 12.99.
QJsonValue Money(qint64 minorUnits);
// The article's additional barcodes, in row order.
QStringList ExtraBarcodes(ArticleManager& manager, const Article& article);

// The additional barcodes of the articles of a list: read article by article for a few, all at
// once when the list grows long.
class ExtraBarcodeReader {
public:
    ExtraBarcodeReader(ArticleManager& manager, DBManager& database);
    QStringList Of(const Article& article);

private:
    ArticleManager& manager;
    DBManager& database;
    int readOneByOne = 0;
    bool readAll = false;
    QHash<unsigned int, QStringList> all;  // by article id
};

// Prints a list as the JSON object {"LIST": [items...], more keys...} item by item, so that a long
// list is never held whole; the keys after the list must sort after LIST, as QJsonDocument
// orders keys.
class JsonListPrinter {
public:
    JsonListPrinter(QTextStream& out, const QString& listKey);
    void Add(const QJsonObject& item);
    // Closes the list and the object with the keys of `after`.
    void Finish(const QJsonObject& after);

private:
    QTextStream& out;
    bool first = true;
};
// The article shape.
QJsonObject Json(const Article& article, const QStringList& extraBarcodes);
// The barcode shape; `plu` is the PLU of the article it belongs to.
QJsonObject Json(const Barcode& barcode, unsigned int plu);
// A table of PLU, name, price, unit and main barcode.
void PrintTable(QTextStream& out, const QVector<Article>& articles);
// "PLU 12  Chleb wiejski  4.99 / szt."
QString Line(const Article& article);
// Every field, one per line.
void PrintDetails(QTextStream& out, ArticleManager& manager, const Article& article,
                  const QStringList& extraBarcodes);

}  // namespace ArticleView

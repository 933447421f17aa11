#pragma once

#include <QString>
#include <QVector>

#include "CatalogueGenerator.h"

// The generated catalogues the benchmarks run on, built once and cached in a folder (the build
// folder): article databases of a given size and the same catalogue as a CSV price list.
//
// The PLUs run without gaps up to 99 % of the catalogue and with a gap after every 10 articles
// from there, so the first unused PLU lies near the end.
class BenchCatalogue {
public:
    BenchCatalogue(const QString& folder, int size);

    // The generator of this catalogue.
    const CatalogueGenerator& Generator() const { return generator; }
    int Size() const { return size; }

    // The article database, built with the full schema when missing; empty on failure.
    QString Database();
    // The catalogue as a CSV price list, in the form articlectl exports.
    QString PriceList();
    // A price list of `count` articles that follow the catalogue's last one (new PLUs, names
    // and barcodes).
    QString Additions(int count);
    // A database with the schema and settings but no articles, for imports.
    QString EmptyDatabase();

private:
    bool build(const QString& path, bool withArticles);
    QString writePriceList(const QString& path, int first, int count);

    QString folder;
    int size;
    CatalogueGenerator generator;
};

#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

#include "Article.h"

// One generated article: the record as the editor writes it and its additional barcodes.
struct GeneratedArticle {
    Article article;
    QStringList extraBarcodes;
    bool weighed = false;  // sold by weight under a scale label
};

// A department of the generated shop.
struct GeneratedDept {
    unsigned int id;
    QString name;
};

// A deterministic sample catalogue of a Polish shop: unique names with diacritics (at most 40
// characters), valid EAN-13 barcodes (about 1.3 per article), PLU gaps, and 2 % weighed goods
// whose main barcode is the article part of a scale label (weight "23"/"24", price "29"). The
// same seed and size always give the same catalogue, article by article.
class CatalogueGenerator {
public:
    // `gapEvery` > 0 leaves one PLU unused after every that many articles, from article
    // `gapsFrom` on.
    explicit CatalogueGenerator(quint64 seed = 2026, int gapEvery = 50, int gapsFrom = 0);

    // Article number `index` (from 0).
    GeneratedArticle Generate(int index) const;
    // Articles 0 to count - 1.
    QVector<GeneratedArticle> Batch(int count, int first = 0) const;
    // The PLU of article `index`.
    unsigned int PluOf(int index) const;

    // The departments the articles use, 1 to 12.
    static QVector<GeneratedDept> Departments();
    // The largest catalogue whose names stay unique.
    static int Capacity();

private:
    quint64 mix(quint64 value) const;

    quint64 seed;
    int gapEvery;
    int gapsFrom;
};

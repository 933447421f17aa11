#pragma once

#include <QString>

// The short record of a PLU range listing. Briefs order by PLU alone.
class ArticleBrief {
public:
    unsigned int id = 0;     // "id"
    unsigned int pluNo = 0;  // "plu_no"
    QString name;            // "art_name"

    bool operator<(const ArticleBrief& other) const { return pluNo < other.pluNo; }
};

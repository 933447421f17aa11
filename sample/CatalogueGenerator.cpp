#include "CatalogueGenerator.h"

#include "ScaleLabelRecognizer.h"

namespace {

// Grammatical gender of a noun, which its adjective agrees with.
enum Gender { Masculine, Feminine, Neuter, Plural };

struct Product {
    const char* noun;
    Gender gender;
    unsigned char dept;
    unsigned char taxRate;  // 1 = 23 %, 2 = 8 %, 3 = 5 %
    bool weighable;
    int basePrice;  // minor units, per piece or per kilogram
};

// The shop's goods with their department, usual tax rate and price.
const Product products[] = {
    {"Chleb", Masculine, 1, 3, false, 549},
    {"Bułka", Feminine, 1, 3, false, 89},
    {"Rogal", Masculine, 1, 3, false, 199},
    {"Bagietka", Feminine, 1, 3, false, 399},
    {"Ser", Masculine, 2, 3, true, 3299},
    {"Twaróg", Masculine, 2, 3, true, 1899},
    {"Jogurt", Masculine, 2, 3, false, 279},
    {"Mleko", Neuter, 2, 3, false, 389},
    {"Masło", Neuter, 2, 3, false, 799},
    {"Śmietana", Feminine, 2, 3, false, 459},
    {"Kiełbasa", Feminine, 3, 3, true, 2899},
    {"Szynka", Feminine, 3, 3, true, 4599},
    {"Polędwica", Feminine, 3, 3, true, 5999},
    {"Boczek", Masculine, 3, 3, true, 3199},
    {"Pierś z kurczaka", Feminine, 3, 3, true, 2499},
    {"Jabłka", Plural, 4, 3, true, 449},
    {"Gruszki", Plural, 4, 3, true, 799},
    {"Ziemniaki", Plural, 4, 3, true, 299},
    {"Pomidory", Plural, 4, 3, true, 1199},
    {"Ogórki", Plural, 4, 3, true, 899},
    {"Śliwki", Plural, 4, 3, true, 999},
    {"Woda", Feminine, 5, 1, false, 219},
    {"Sok", Masculine, 5, 1, false, 599},
    {"Herbata", Feminine, 5, 1, false, 1099},
    {"Kawa", Feminine, 5, 1, false, 2499},
    {"Czekolada", Feminine, 6, 1, false, 649},
    {"Cukierki", Plural, 6, 1, true, 3999},
    {"Ciastka", Plural, 6, 1, false, 799},
    {"Żelki", Plural, 6, 1, false, 549},
    {"Proszek piorący", Masculine, 7, 1, false, 3999},
    {"Mydło", Neuter, 7, 1, false, 499},
    {"Płyn do naczyń", Masculine, 7, 1, false, 899},
    {"Piwo", Neuter, 8, 1, false, 449},
    {"Wino", Neuter, 8, 1, false, 2999},
    {"Mąka", Feminine, 9, 3, false, 449},
    {"Kasza", Feminine, 9, 3, true, 899},
    {"Ryż", Masculine, 9, 3, false, 599},
    {"Makaron", Masculine, 9, 3, false, 549},
    {"Śledź", Masculine, 10, 3, true, 2299},
    {"Łosoś", Masculine, 10, 3, true, 8999},
    {"Pstrąg", Masculine, 10, 3, true, 4999},
    {"Lody", Plural, 11, 2, false, 1299},
    {"Pierogi", Plural, 11, 2, true, 2799},
    {"Frytki", Plural, 11, 2, false, 999},
    {"Zeszyt", Masculine, 12, 1, false, 399},
    {"Długopis", Masculine, 12, 1, false, 299},
    {"Gazeta", Feminine, 12, 1, false, 450},
    {"Ćwikła", Feminine, 4, 3, false, 699},
};

// Adjectives in the masculine, feminine, neuter and plural forms.
const char* const adjectives[][4] = {
    {"żółty", "żółta", "żółte", "żółte"},
    {"biały", "biała", "białe", "białe"},
    {"świeży", "świeża", "świeże", "świeże"},
    {"wiejski", "wiejska", "wiejskie", "wiejskie"},
    {"domowy", "domowa", "domowe", "domowe"},
    {"złocisty", "złocista", "złociste", "złociste"},
    {"łagodny", "łagodna", "łagodne", "łagodne"},
    {"pikantny", "pikantna", "pikantne", "pikantne"},
    {"wędzony", "wędzona", "wędzone", "wędzone"},
    {"słodki", "słodka", "słodkie", "słodkie"},
    {"kwaśny", "kwaśna", "kwaśne", "kwaśne"},
    {"górski", "górska", "górskie", "górskie"},
    {"tradycyjny", "tradycyjna", "tradycyjne", "tradycyjne"},
    {"ekologiczny", "ekologiczna", "ekologiczne", "ekologiczne"},
    {"razowy", "razowa", "razowe", "razowe"},
    {"orkiszowy", "orkiszowa", "orkiszowe", "orkiszowe"},
    {"ciemny", "ciemna", "ciemne", "ciemne"},
    {"jasny", "jasna", "jasne", "jasne"},
    {"mrożony", "mrożona", "mrożone", "mrożone"},
    {"duży", "duża", "duże", "duże"},
    {"mały", "mała", "małe", "małe"},
    {"śląski", "śląska", "śląskie", "śląskie"},
    {"mazurski", "mazurska", "mazurskie", "mazurskie"},
    {"kaszubski", "kaszubska", "kaszubskie", "kaszubskie"},
    {"królewski", "królewska", "królewskie", "królewskie"},
    {"leśny", "leśna", "leśne", "leśne"},
    {"owocowy", "owocowa", "owocowe", "owocowe"},
    {"pełny", "pełna", "pełne", "pełne"},
    {"lekki", "lekka", "lekkie", "lekkie"},
    {"chrupiący", "chrupiąca", "chrupiące", "chrupiące"},
};

struct Brand {
    const char* name;
    const char* shortName;  // used when the full name would make the article name too long
};

const Brand brands[] = {
    {"Mlekpol", "MLK"},   {"Sokołów", "SOK"}, {"Łowicz", "ŁOW"},  {"Wawel", "WAW"},
    {"Tymbark", "TYM"},   {"Żywiec", "ŻYW"},  {"Hortex", "HOR"},  {"Bakoma", "BAK"},
    {"Pudliszki", "PUD"}, {"Krakus", "KRA"},  {"Łaciate", "ŁAC"}, {"Społem", "SPO"},
    {"Kamis", "KAM"},     {"Winiary", "WIN"}, {"Dębica", "DĘB"},  {"Zakopane", "ZAK"},
    {"Mazury", "MAZ"},    {"Tatry", "TAT"},   {"Wedel", "WED"},   {"Goplana", "GOP"},
    {"Bałtyk", "BAŁ"},    {"Kujawy", "KUJ"},  {"Pilos", "PIL"},   {"Zott", "ZOT"},
    {"Prymat", "PRY"},    {"Lubella", "LUB"}, {"Sante", "SAN"},   {"Agros", "AGR"},
    {"Bobo", "BOB"},      {"Gryf", "GRY"},    {"Hajduk", "HAJ"},  {"Jurajska", "JUR"},
};

const char* const sizes[] = {
    "100 g", "150 g", "200 g", "250 g", "300 g", "400 g",  "500 g",  "750 g",   "1 kg",
    "2 kg",  "0,5 l", "1 l",   "1,5 l", "2 l",   "3 szt.", "6 szt.", "10 szt.", "opak.",
    "XL",    "mini",  "duo",   "maxi",  "50 g",  "5 kg",   "0,33 l",
};

// Past the combinations, each round of them again names its sizes otherwise: no longer than
// the size they stand for, so that names stay within the limit, and all different.
const char* const laterSizes[][25] = {
    {"110 g", "160 g", "210 g", "260 g", "310 g", "410 g",  "510 g",  "760 g",   "3 kg",
     "8 kg",  "0,6 l", "3 l",   "1,6 l", "7 l",   "2 szt.", "8 szt.", "12 szt.", "pak.",
     "XS",    "midi",  "set",   "mega",  "55 g",  "5 dl",   "0,25 l"},
    {"120 g", "170 g", "220 g", "270 g", "320 g", "420 g",  "520 g",  "770 g",   "4 kg",
     "9 kg",  "0,7 l", "4 l",   "1,7 l", "8 l",   "4 szt.", "9 szt.", "16 szt.", "kpl.",
     "S",     "nano",  "bis",   "giga",  "60 g",  "6 dl",   "0,2 l"},
    {"130 g", "180 g", "230 g", "280 g", "330 g", "430 g",  "530 g",  "780 g",   "6 kg",
     "2 dl",  "0,8 l", "5 l",   "1,8 l", "9 l",   "5 szt.", "1 szt.", "20 szt.", "zest.",
     "M",     "baby",  "eko",   "XXL",   "65 g",  "7 dl",   "0,75 l"},
    {"140 g", "190 g", "240 g", "290 g", "340 g", "440 g",  "540 g",  "790 g",   "7 kg",
     "4 dl",  "0,9 l", "6 l",   "1,9 l", "4 m",   "7 szt.", "6 par.", "24 szt.", "para",
     "L",     "solo",  "lux",   "max",   "70 g",  "8 dl",   "0,1 l"},
};

template <typename T, int N>
constexpr int countOf(const T (&)[N]) {
    return N;
}

constexpr int productCount = countOf(products);
constexpr int adjectiveCount = countOf(adjectives);
constexpr int brandCount = countOf(brands);
constexpr int sizeCount = countOf(sizes);
constexpr int combinations = productCount * adjectiveCount * brandCount * sizeCount;
static_assert(countOf(laterSizes[0]) == sizeCount, "a later size for every size");
constexpr int rounds = 1 + countOf(laterSizes);
// Of every 19 articles one is a candidate for weighing; nouns that can be weighed make it so,
// about 2 % of the catalogue in all.
constexpr int weighedEvery = 19;
constexpr int itemCodesPerPrefix = 100000;
constexpr int maxNameLength = 40;

QString ean13(const QString& twelve) {
    return twelve + QString::number(SpecialBarcodeRecognizer::Ean13CheckDigit(twelve));
}

}  // namespace

CatalogueGenerator::CatalogueGenerator(quint64 seed, int gapEvery, int gapsFrom)
    : seed(seed), gapEvery(gapEvery), gapsFrom(gapsFrom) {}

int CatalogueGenerator::Capacity() {
    return combinations * rounds;
}

quint64 CatalogueGenerator::mix(quint64 value) const {
    // splitmix64: a fixed, well-spread function of the index and the seed.
    quint64 z = value + seed * 0x9E3779B97F4A7C15ull + 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

unsigned int CatalogueGenerator::PluOf(int index) const {
    const unsigned int gaps = gapEvery > 0 && index >= gapsFrom
                                  ? static_cast<unsigned int>((index - gapsFrom) / gapEvery)
                                  : 0;
    return static_cast<unsigned int>(index) + 1 + gaps;
}

GeneratedArticle CatalogueGenerator::Generate(int index) const {
    GeneratedArticle generated;
    Article& article = generated.article;
    const quint64 random = mix(static_cast<quint64>(index));
    // Names: a bijection of the index onto the combinations, noun varying fastest so that
    // neighbouring articles differ.
    const quint64 slot = (static_cast<quint64>(index) * 7919u) % combinations;
    const Product& product = products[slot % productCount];
    const int adjective = static_cast<int>((slot / productCount) % adjectiveCount);
    const int brand = static_cast<int>((slot / productCount / adjectiveCount) % brandCount);
    const int size = static_cast<int>(slot / productCount / adjectiveCount / brandCount);
    const int round = index / combinations;
    const char* sizeName = round == 0 ? sizes[size] : laterSizes[(round - 1) % (rounds - 1)][size];
    auto nameWith = [&](const char* brandName) {
        return QString::fromUtf8(product.noun) + QLatin1Char(' ') +
               QString::fromUtf8(adjectives[adjective][product.gender]) + QLatin1Char(' ') +
               QString::fromUtf8(brandName) + QLatin1Char(' ') + QString::fromUtf8(sizeName);
    };
    QString name = nameWith(brands[brand].name);
    if (name.size() > maxNameLength) {
        name = nameWith(brands[brand].shortName);
    }
    article.pluNo = PluOf(index);
    article.name = name;
    article.taxRateNo = product.taxRate;
    article.deptNo = product.dept;
    article.unitNo = 1;
    // The product's price, 70 % to 130 % of it, ending in 9.
    const qint64 spread = product.basePrice * 6 / 10 + 1;
    article.price = qMax<qint64>(
        9, (product.basePrice * 7 / 10 + static_cast<qint64>(random % spread)) / 10 * 10 + 9);
    article.onHandyList = random % 100 == 7;
    generated.weighed = product.weighable && index % weighedEvery == weighedEvery - 1;
    if (generated.weighed) {
        // The article part of a weight label: prefix, 5-digit item code, zero weight.
        // Candidates have distinct index / weighedEvery: 300000 item codes over three prefixes.
        const int item = index / weighedEvery;
        // Scales print weight labels ("23", "24") or price labels ("29") for the same goods.
        const QString prefix = item % 3 == 0   ? QStringLiteral("23")
                               : item % 3 == 1 ? QStringLiteral("24")
                                               : QStringLiteral("29");
        article.mainBarcode = ean13(
            prefix +
            QString::number(item / 3 % itemCodesPerPrefix).rightJustified(5, QLatin1Char('0')) +
            QStringLiteral("00000"));
        article.unitNo = 2;
        article.quantityPrecision = 3;
        article.scaleNo = 1;
    } else {
        article.mainBarcode = ean13(QStringLiteral("590") +
                                    QString::number(index).rightJustified(9, QLatin1Char('0')));
        article.isPack = size >= 14;
    }
    if (random % 10 < 3) {
        // An additional barcode: the same goods from another producer's numbering.
        generated.extraBarcodes.append(ean13(
            QStringLiteral("400") + QString::number(index).rightJustified(9, QLatin1Char('0'))));
    }
    return generated;
}

QVector<GeneratedArticle> CatalogueGenerator::Batch(int count, int first) const {
    QVector<GeneratedArticle> all;
    all.reserve(count);
    for (int index = first; index < first + count; ++index) {
        all.append(Generate(index));
    }
    return all;
}

QVector<GeneratedDept> CatalogueGenerator::Departments() {
    return {
        {1, QStringLiteral("Pieczywo")},        {2, QStringLiteral("Nabiał")},
        {3, QStringLiteral("Mięso i wędliny")}, {4, QStringLiteral("Owoce i warzywa")},
        {5, QStringLiteral("Napoje")},          {6, QStringLiteral("Słodycze")},
        {7, QStringLiteral("Chemia")},          {8, QStringLiteral("Alkohole")},
        {9, QStringLiteral("Artykuły sypkie")}, {10, QStringLiteral("Ryby")},
        {11, QStringLiteral("Mrożonki")},       {12, QStringLiteral("Prasa i papier")},
    };
}

#include "HostileInput.h"

#include <sqlite3.h>
#include <QBuffer>
#include <QDir>
#include <QMap>
#include <QVector>
#include <algorithm>
#include <functional>

#include "Article.h"
#include "ArticleBarcodeManager.h"
#include "ArticleEditor.h"
#include "ArticleInput.h"
#include "ArticleManager.h"
#include "ArticleSeeker.h"
#include "BarcodePrefixDBManager.h"
#include "Csv.h"
#include "DBManager.h"
#include "DeptDBManager.h"
#include "Globals.h"
#include "Logger.h"
#include "ScaleLabelRecognizer.h"
#include "SystemManager.h"
#include "TaxRatesManager.h"

namespace {

enum Operation {
    OpScan,                     // ArticleSeeker::FindArticleByBarcode
    OpNamePrefix,               // ArticleSeeker::FindNamePrefix, articles
    OpNamePrefixNames,          // ArticleSeeker::FindNamePrefix, names
    OpNameInfix,                // ArticleSeeker::FindNameInfix
    OpBarcodeInfix,             // ArticleSeeker::FindByBarcodeInfix
    OpInfixOnColumn,            // ArticleSeeker::FindByGivenInfixAndColumn("column\ninfix")
    OpFindName,                 // ArticleSeeker::FindName
    OpFindBarcode,              // ArticleSeeker::FindBarcode
    OpNameTaken,                // ArticleEditor::IsRecordExist
    OpBarcodeTaken,             // ArticleBarcodeManager::IsRecordExist
    OpBarcodeIndex,             // ArticleBarcodeManager::GetBarcodeIndex
    OpClassifyPrefix,           // BarcodePrefixDBManager::CheckSpecialBarcodeSubjectType
    OpAddBarcode,               // ArticleBarcodeManager::AddRecord
    OpUpdateMainBarcode,        // ArticleBarcodeManager::UpdateMainBarcode
    OpUpdateAdditionalBarcode,  // ArticleBarcodeManager::UpdateAdditionalBarcode
    OpDeleteBarcode,            // ArticleBarcodeManager::DeleteRecord
    OpAddPrefix,                // BarcodePrefixDBManager::AddPrefix
    OpAddArticle,               // ArticleEditor::AddRecord
    OpEditArticle,              // ArticleEditor::EditRecord
    OpPriceList,                // the price-list reader and the field readers of an import
    OperationCount
};

const char* const operationNames[OperationCount] = {
    "FindArticleByBarcode",
    "FindNamePrefix(articles)",
    "FindNamePrefix(names)",
    "FindNameInfix",
    "FindByBarcodeInfix",
    "FindByGivenInfixAndColumn",
    "FindName",
    "FindBarcode",
    "ArticleEditor::IsRecordExist",
    "ArticleBarcodeManager::IsRecordExist",
    "GetBarcodeIndex",
    "CheckSpecialBarcodeSubjectType",
    "AddRecord(barcode)",
    "UpdateMainBarcode",
    "UpdateAdditionalBarcode",
    "DeleteRecord(barcode)",
    "AddPrefix",
    "ArticleEditor::AddRecord",
    "ArticleEditor::EditRecord",
    "price list",
};

// The statements the library builds around a text it is given.
const QString scanHead = QStringLiteral(
    "SELECT a.id, plu_no, art_name, tax_rate_no, dept_no, quantity_precision, unit_no, sale_bloc, "
    "main_barcode, price, is_pack, disc_sur_block, free_price_allow, on_handy_list, scale_no, "
    "link_plu_no             FROM Article a, ArticleBarcode b                 WHERE a.id == "
    "b.article_id                 AND b.barcode = \"");
const QString scanHandyTail = QStringLiteral(" AND a.on_handy_list == 1");
const QString findNameHead = QStringLiteral("SELECT * FROM Article WHERE art_name like \"");
const QString classifyHead = QStringLiteral(
    "SELECT weight_or_price             FROM SpecialBarcodePrefixes                 WHERE prefix "
    "== \"");

const QString articleTable = QStringLiteral("Article");
const QString barcodeTable = QStringLiteral("ArticleBarcode");
const QString prefixTable = QStringLiteral("SpecialBarcodePrefixes");
const QString sequenceTable = QStringLiteral("sqlite_sequence");
const QString schemaTable = QStringLiteral("sqlite_master");

// Far from every seeded PLU, so that an added article never collides by number.
constexpr unsigned int addedPluBase = 900000;
constexpr unsigned int missingId = 999999;

struct Decoded {
    Operation op = OpScan;
    bool utf16 = false;
    unsigned char number = 0;
    QString text;
    QByteArray bytes;  // the text's bytes as given
};

// All of the bytes: QString::fromUtf8(QByteArray) would stop at the first NUL.
QString fromUtf8(const QByteArray& bytes) {
    return QString::fromUtf8(bytes.constData(), bytes.size());
}

Decoded decode(const QByteArray& input) {
    Decoded in;
    if (input.isEmpty()) {
        return in;
    }
    const auto first = static_cast<unsigned char>(input[0]);
    in.op = static_cast<Operation>((first & 0x7f) % OperationCount);
    in.utf16 = (first & 0x80) != 0;
    in.number = input.size() > 1 ? static_cast<unsigned char>(input[1]) : 0;
    in.bytes = input.mid(2);
    if (in.utf16) {
        QVector<ushort> units;
        for (int i = 0; i + 1 < in.bytes.size(); i += 2) {
            units.append(static_cast<ushort>(static_cast<unsigned char>(in.bytes[i]) |
                                             (static_cast<unsigned char>(in.bytes[i + 1]) << 8)));
        }
        in.text = QString::fromUtf16(units.constData(), units.size());
    } else {
        in.text = fromUtf8(in.bytes);
    }
    return in;
}

// ---- Stored rows, read behind the library's back -------------------------------------------

// One value as SQLite stores it, with its storage class in front: "i:12", "t:text", "n", ...
using Cells = QVector<QByteArray>;

QByteArray textCell(const QString& text) {
    return "t:" + text.toUtf8();
}

QByteArray intCell(qint64 value) {
    return "i:" + QByteArray::number(value);
}

QString cellText(const QByteArray& cell) {
    return cell.startsWith("t:") ? fromUtf8(cell.mid(2)) : QString();
}

qint64 cellInt(const QByteArray& cell) {
    return cell.startsWith("i:") ? cell.mid(2).toLongLong() : 0;
}

struct TableRows {
    QStringList columns;
    QMap<qint64, Cells> rows;  // by rowid

    int Column(const QString& name) const { return columns.indexOf(name); }
    bool operator==(const TableRows& other) const {
        return columns == other.columns && rows == other.rows;
    }
    bool operator!=(const TableRows& other) const { return !(*this == other); }
};

// Every table but the search index (which reads may bring up to date) and SQLite's statistics,
// and the schema itself as the table "sqlite_master".
using Snapshot = QMap<QString, TableRows>;

class Connection {
public:
    ~Connection() { sqlite3_close_v2(handle); }

    bool Open(const QString& path, QString& error) {
        if (sqlite3_open_v2(path.toUtf8().constData(), &handle, SQLITE_OPEN_READWRITE, nullptr) !=
            SQLITE_OK) {
            error = QStringLiteral("cannot open %1: %2").arg(path, Error());
            return false;
        }
        sqlite3_busy_timeout(handle, 10000);
        return true;
    }
    QString Error() const { return QString::fromUtf8(sqlite3_errmsg(handle)); }
    bool Exec(const QString& sql) {
        return sqlite3_exec(handle, sql.toUtf8().constData(), nullptr, nullptr, nullptr) ==
               SQLITE_OK;
    }
    // Calls `row` for each result row; false when the statement failed.
    bool Query(const QString& sql, const std::function<void(sqlite3_stmt*)>& row) {
        sqlite3_stmt* statement = nullptr;
        const QByteArray utf8 = sql.toUtf8();
        if (sqlite3_prepare_v2(handle, utf8.constData(), utf8.size(), &statement, nullptr) !=
            SQLITE_OK) {
            return false;
        }
        int rc;
        while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
            row(statement);
        }
        sqlite3_finalize(statement);
        return rc == SQLITE_DONE;
    }
    sqlite3* Handle() const { return handle; }

private:
    sqlite3* handle = nullptr;
};

QByteArray cellOf(sqlite3_stmt* statement, int column) {
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            return intCell(sqlite3_column_int64(statement, column));
        case SQLITE_FLOAT:
            return "r:" + QByteArray::number(sqlite3_column_double(statement, column), 'g', 17);
        case SQLITE_TEXT: {
            const auto* text =
                reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
            return "t:" + QByteArray(text, sqlite3_column_bytes(statement, column));
        }
        case SQLITE_BLOB: {
            const auto* blob = static_cast<const char*>(sqlite3_column_blob(statement, column));
            return "b:" + QByteArray(blob, sqlite3_column_bytes(statement, column));
        }
        default:
            return "n";
    }
}

QString quoted(const QString& name) {
    return QLatin1Char('"') + name + QLatin1Char('"');
}

bool takeSnapshot(Connection& db, Snapshot& snapshot) {
    snapshot.clear();
    QStringList tables;
    bool ok = db.Query(
        QStringLiteral("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE "
                       "'ArticleSearch%' AND name NOT LIKE 'sqlite\\_stat%' ESCAPE '\\' ORDER BY "
                       "name"),
        [&](sqlite3_stmt* row) {
            tables.append(
                QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(row, 0))));
        });
    tables.prepend(schemaTable);
    for (const QString& table : tables) {
        TableRows& rows = snapshot[table];
        const QString sql = table == schemaTable
                                ? QStringLiteral(
                                      "SELECT rowid, type, name, tbl_name, sql FROM sqlite_master "
                                      "WHERE name NOT LIKE 'sqlite\\_stat%' ESCAPE '\\'")
                                : QStringLiteral("SELECT rowid, * FROM ") + quoted(table);
        ok = db.Query(sql, [&](sqlite3_stmt* row) {
            const int count = sqlite3_column_count(row);
            if (rows.columns.isEmpty()) {
                for (int i = 1; i < count; ++i) {
                    rows.columns.append(QString::fromUtf8(sqlite3_column_name(row, i)));
                }
            }
            Cells cells;
            for (int i = 1; i < count; ++i) {
                cells.append(cellOf(row, i));
            }
            rows.rows.insert(sqlite3_column_int64(row, 0), cells);
        }) && ok;
    }
    return ok;
}

QString describeCells(const Cells& cells) {
    QStringList parts;
    for (const QByteArray& cell : cells) {
        parts.append(QString::fromUtf8(cell.left(60)));
    }
    return QLatin1Char('(') + parts.join(QStringLiteral(", ")) + QLatin1Char(')');
}

// The first difference between two states of a table, or empty.
QString firstDifference(const QString& table, const TableRows& before, const TableRows& after) {
    if (before.columns != after.columns) {
        return QStringLiteral("the columns of %1 changed").arg(table);
    }
    for (auto it = before.rows.cbegin(); it != before.rows.cend(); ++it) {
        if (!after.rows.contains(it.key())) {
            return QStringLiteral("row %1 of %2 was deleted: %3")
                .arg(it.key())
                .arg(table, describeCells(it.value()));
        }
        if (after.rows.value(it.key()) != it.value()) {
            return QStringLiteral("row %1 of %2 changed from %3 to %4")
                .arg(it.key())
                .arg(table, describeCells(it.value()), describeCells(after.rows.value(it.key())));
        }
    }
    for (auto it = after.rows.cbegin(); it != after.rows.cend(); ++it) {
        if (!before.rows.contains(it.key())) {
            return QStringLiteral("row %1 was added to %2: %3")
                .arg(it.key())
                .arg(table, describeCells(it.value()));
        }
    }
    return QString();
}

// ---- What the stored rows say an answer must be ---------------------------------------------

// A text as the database holds it: its UTF-8, in which Qt replaces what UTF-16 it cannot encode
// (a lone surrogate). The library hands every text over so, and every oracle compares so.
QString asStored(const QString& text) {
    return fromUtf8(text.toUtf8());
}

// The code points of a text as stored, each case-folded as the database layer's LIKE and prefix
// search fold them (simple folding).
QVector<uint> foldedCodePoints(const QString& text) {
    QVector<uint> points;
    for (const uint c : asStored(text).toUcs4()) {
        points.append(QChar::toCaseFolded(c));
    }
    return points;
}

// SQL LIKE without an escape character: % any run, _ any one character.
bool likeMatches(const QVector<uint>& pattern, const QVector<uint>& text) {
    int p = 0;
    int t = 0;
    int star = -1;
    int starText = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '%') {
            star = ++p;
            starText = t;
        } else if (p < pattern.size() && (pattern[p] == '_' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (star >= 0) {
            p = star;
            t = ++starText;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '%') {
        ++p;
    }
    return p == pattern.size();
}

bool like(const QString& text, const QString& pattern) {
    return likeMatches(foldedCodePoints(pattern), foldedCodePoints(text));
}

bool startsWithFolded(const QString& text, const QString& prefix) {
    const QVector<uint> t = foldedCodePoints(text);
    const QVector<uint> p = foldedCodePoints(prefix);
    return p.size() <= t.size() && std::equal(p.cbegin(), p.cend(), t.cbegin());
}

struct StoredArticle {
    qint64 id;
    qint64 plu;
    QString name;
    QString mainBarcode;
    bool handy;
};

struct StoredBarcode {
    qint64 id;
    qint64 articleId;
    QByteArray barcode;  // the stored cell
    bool isMain;
};

// A lookup's result code when the stored rows hold `count` matches.
int lookupResult(int count) {
    return count == 0 ? 3 : (count == 1 ? 0 : 8);
}

// The name a lookup's article carries until the lookup fills it.
const QString untouchedName = QStringLiteral("untouched");

QString filledOnlyIfFound(int result, const Article& article) {
    if (result != 0 && article.name != untouchedName) {
        return QStringLiteral("result %1 but the article was filled").arg(result);
    }
    return QString();
}

QString idList(const QVector<qint64>& ids) {
    QStringList parts;
    for (qint64 id : ids) {
        parts.append(QString::number(id));
    }
    return QLatin1Char('[') + parts.join(QLatin1Char(',')) + QLatin1Char(']');
}

QString shortText(const QString& text) {
    QString shown;
    for (const QChar c : text.left(80)) {
        shown += c.isPrint() ? QString(c)
                             : QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    }
    return QLatin1Char('"') + shown +
           (text.size() > 80 ? QStringLiteral("...\"") : QStringLiteral("\""));
}

}  // namespace

class HostileInput::Private {
public:
    QString startError;
    DBManager* articles = nullptr;
    DBManager* receipts = nullptr;
    ArticleManager* manager = nullptr;
    std::unique_ptr<SpecialBarcodeRecognizer> recognizer;
    Connection raw;
    Snapshot baseline;
    QVector<StoredArticle> storedArticles;
    QVector<StoredBarcode> storedBarcodes;
    QStringList observed;
    int observer = -1;
    bool broken = false;

    ~Private() {
        if (articles && observer >= 0) {
            articles->RemoveStatementObserver(observer);
        }
    }

    bool start(const QString& folder);
    bool seed();
    QString run(const Decoded& in);
    QString putBack();

    // Checks shared by every operation.
    QString statements(const QStringList& expected);
    QString unchanged();
    QString readOnly(const QStringList& expected = {});
    QString changedOnly(const QStringList& tables, Snapshot& after);

    // The operations.
    QString scan(const Decoded& in);
    QString namePrefix(const Decoded& in, bool names);
    QString infix(const QString& column, const QString& text, bool viaColumn);
    QString findName(const Decoded& in, bool throughEditor);
    QString findBarcode(const Decoded& in);
    QString barcodeTaken(const Decoded& in);
    QString barcodeIndex(const Decoded& in);
    QString classify(const Decoded& in);
    QString addBarcode(const Decoded& in);
    QString updateBarcode(const Decoded& in, bool main);
    QString deleteBarcode(const Decoded& in);
    QString addPrefix(const Decoded& in);
    QString writeArticle(const Decoded& in, bool add);
    QString priceList(const Decoded& in);

    QString normalised(const QString& barcode) {
        QString out;
        return recognizer->getArticleBarcode(barcode, out) ? out : barcode;
    }
    qint64 articleIdFor(unsigned char number) const {
        const int choice = (number & 0x7f) % (storedArticles.size() + 2);
        return choice < storedArticles.size() ? storedArticles[choice].id
                                              : (choice == storedArticles.size() ? 0 : missingId);
    }
    // The barcode rows that hold `barcode` as stored, in id order.
    QVector<const StoredBarcode*> barcodesHolding(const QString& barcode) const {
        QVector<const StoredBarcode*> holding;
        const QByteArray cell = textCell(barcode);
        for (const StoredBarcode& stored : storedBarcodes) {
            if (stored.barcode == cell) {
                holding.append(&stored);
            }
        }
        return holding;
    }
    const StoredArticle* storedArticle(qint64 id) const {
        for (const StoredArticle& article : storedArticles) {
            if (article.id == id) {
                return &article;
            }
        }
        return nullptr;
    }
};

// ---- Start-up and the seeded catalogue -------------------------------------------------------

bool HostileInput::Private::start(const QString& folder) {
    // Failures are the expected answer to most inputs; logging each would only slow the run.
    G::appLogger->ClearAppenders();
    const QString path = QDir(folder).filePath(QStringLiteral("articles.db"));
    articles = new DBManager(path, DBManager::SCHEMA_ARTICLES);
    receipts = new DBManager(QDir(folder).filePath(QStringLiteral("receipts.db")),
                             DBManager::SCHEMA_RECEIPTS);
    if (articles->Open() != DB_OPERATION_SUCCESS || receipts->Open() != DB_OPERATION_SUCCESS) {
        startError = QStringLiteral("the databases did not open: ") + articles->GetLastError();
        return false;
    }
    // Every query on the seeded catalogue takes microseconds: one that runs away (a scanned
    // text holding a recursive query) is stopped long before the fuzzer's own timeout.
    articles->SetReadTimeLimit(250);
    G::dbArticles = articles;
    G::dbReceipt = receipts;
    if (!SystemManager::Instance()->InitializeAll() || !G::articleManager ||
        G::articleManager->GetState() != SystemBase::STATE_READY) {
        startError = QStringLiteral("the article manager did not start");
        return false;
    }
    manager = G::articleManager;
    recognizer = std::make_unique<SpecialBarcodeRecognizer>(articles);
    if (!raw.Open(path, startError) || !seed()) {
        return false;
    }
    // A copy of the seeded file, from which every change an input made is put back.
    const QString pristine = QDir(folder).filePath(QStringLiteral("pristine.db"));
    sqlite3* target = nullptr;
    sqlite3_open(pristine.toUtf8().constData(), &target);
    sqlite3_backup* backup = sqlite3_backup_init(target, "main", raw.Handle(), "main");
    const bool copied = backup && sqlite3_backup_step(backup, -1) == SQLITE_DONE;
    sqlite3_backup_finish(backup);
    sqlite3_close_v2(target);
    if (!copied ||
        !raw.Exec(QStringLiteral("ATTACH DATABASE '%1' AS pristine")
                      .arg(QString(pristine).replace(QLatin1Char('\''), QStringLiteral("''"))))) {
        startError = QStringLiteral("cannot keep a copy of the catalogue: ") + raw.Error();
        return false;
    }
    if (!takeSnapshot(raw, baseline)) {
        startError = QStringLiteral("cannot read the catalogue: ") + raw.Error();
        return false;
    }
    const TableRows& a = baseline[articleTable];
    for (const Cells& row : a.rows) {
        storedArticles.append({cellInt(row[a.Column(QStringLiteral("id"))]),
                               cellInt(row[a.Column(QStringLiteral("plu_no"))]),
                               cellText(row[a.Column(QStringLiteral("art_name"))]),
                               cellText(row[a.Column(QStringLiteral("main_barcode"))]),
                               cellInt(row[a.Column(QStringLiteral("on_handy_list"))]) != 0});
    }
    const TableRows& b = baseline[barcodeTable];
    for (const Cells& row : b.rows) {
        storedBarcodes.append({cellInt(row[b.Column(QStringLiteral("id"))]),
                               cellInt(row[b.Column(QStringLiteral("article_id"))]),
                               row[b.Column(QStringLiteral("barcode"))],
                               cellInt(row[b.Column(QStringLiteral("is_main"))]) != 0});
    }
    observer = articles->AddStatementObserver([this](const QString& sql) { observed.append(sql); });
    return true;
}

namespace {

QString ean13(const QString& twelveDigits) {
    return twelveDigits + QString::number(SpecialBarcodeRecognizer::Ean13CheckDigit(twelveDigits));
}

struct SeedArticle {
    unsigned int plu;
    const char* name;
    QString barcode;
    qint64 price;
    bool handy;
    unsigned char unit;
    QStringList extras;
};

}  // namespace

bool HostileInput::Private::seed() {
    DeptDBManager* depts = manager->GetDeptDBManager();
    if (!depts->ResetTable() ||
        !depts->GetDeptFirmwareInitializer()->SetFirmwareDeptNamesInDatabase() ||
        !manager->GetBarcodePrefixDBManager()->ResetTable() ||
        manager->GetTaxRatesManager()->UpdateRecord({{2300, 800, 500, 0, 65535, 65535, 0}, 2}) !=
            0) {
        startError = QStringLiteral("departments, tax rates or prefixes could not be set up");
        return false;
    }
    // Names and codes a shop really has, and some a hostile price list or a careless operator
    // could bring: quotes, LIKE wildcards, SQL, letters whose case folding is special.
    const QVector<SeedArticle> seeds = {
        {1, "Chleb wiejski", ean13("590000000001"), 549, true, 1, {}},
        {2, "Bułka kajzerka", ean13("590000000002"), 79, true, 1, {ean13("590000000102")}},
        {3, "Masło ekstra 82%", ean13("590000000003"), 799, false, 1, {}},
        {4, "Ser żółty Gouda", ean13("590000000004"), 3299, false, 2, {"ABC-123"}},
        {5, "ŻUBRÓWKA 0,5 l", ean13("590000000005"), 3499, false, 1, {}},
        {6, "Sok \"Kubuś\" marchew", ean13("590000000006"), 299, true, 1, {}},
        {7, "Kawa O'Rzeźwiająca", ean13("590000000007"), 1899, false, 1, {"7'7"}},
        {8, "Jogurt_naturalny", ean13("590000000008"), 259, false, 1, {}},
        {9, "Śledź w oleju", ean13("590000000009"), 899, false, 1, {}},
        {10, "Ćwikła z chrzanem", ean13("590000000010"), 499, false, 1, {}},
        {11, "Woda 1.5L", ean13("590000000011"), 199, false, 3, {"12345670", "96385074"}},
        {12, "Mąka pszenna typ 450", ean13("590000000012"), 349, false, 1, {}},
        {13, "Ziemniaki", ean13("231234500000"), 299, false, 2, {}},
        {14, "Jabłka Ligol", ean13("240001200000"), 449, true, 2, {}},
        {15, "Kiełbasa krakowska", ean13("270555500000"), 0, false, 2, {}},
        {16, "Pomidory malinowe", ean13("290000700000"), 0, false, 2, {}},
        {17, "Straße-Brot", QString(), 650, false, 1, {}},
        {18, "Kelvin \u212A Test", QString(), 100, false, 1, {}},
        {19, "ΣΟΦΙΑ σοφία", ean13("590000000019"), 1000, false, 1, {}},
        {20, "100% sok", ean13("590000000020"), 450, false, 3, {"%", "_"}},
        {21, "a_b%c\\d", QStringLiteral("a_b%c\\d"), 1, false, 1, {}},
        {22, "Piwo\"; DROP TABLE Article; --", ean13("590000000022"), 399, false, 1, {"x\"y"}},
        {23, "Cukier", QStringLiteral("0000000000000"), 389, false, 1, {}},
        {24, "Mleko 3,2%", ean13("590000000024"), 339, false, 3, {}},
        {25, "Mleko 2% (druga dostawa)", ean13("590000000025"), 329, false, 3, {}},
        {26, "TV 32\"", ean13("590000000026"), 129900, true, 1, {}},
        {27, "Niespodzianka?", ean13("590000000027"), 500, false, 1, {}},
        {99999, "Ostatni", ean13("599999999999"), 99, false, 5, {}},
    };
    for (const SeedArticle& seed : seeds) {
        Article article;
        article.pluNo = seed.plu;
        article.name = QString::fromUtf8(seed.name);
        article.mainBarcode = seed.barcode;
        article.price = seed.price;
        article.onHandyList = seed.handy;
        article.unitNo = seed.unit;
        article.taxRateNo = 1;
        article.deptNo = static_cast<unsigned char>(1 + seed.plu % 5);
        Article stored;
        if (manager->GetEditor()->AddRecord(article) != 0 ||
            manager->GetSeeker()->FindPlu(seed.plu, stored, false) != 0) {
            startError = QStringLiteral("cannot seed article %1").arg(seed.plu);
            return false;
        }
        if (!seed.barcode.isEmpty() &&
            manager->GetBarcodeManager()->AddRecord(stored.id, seed.barcode, true) != 0) {
            startError = QStringLiteral("cannot seed the barcode of article %1").arg(seed.plu);
            return false;
        }
        for (const QString& extra : seed.extras) {
            if (manager->GetBarcodeManager()->AddRecord(stored.id, extra, false) != 0) {
                startError = QStringLiteral("cannot seed barcode %1").arg(extra);
                return false;
            }
        }
    }
    // Data errors the register must live with, which the library itself refuses to write: a
    // barcode two articles share, and one that names no article.
    if (!raw.Exec(QStringLiteral("INSERT INTO ArticleBarcode (article_id, barcode, is_main) "
                                 "SELECT id, '%1', 0 FROM Article WHERE plu_no = 25; "
                                 "INSERT INTO ArticleBarcode (article_id, barcode, is_main) "
                                 "VALUES (777777, '5901234123457', 0);")
                      .arg(ean13("590000000024")))) {
        startError = QStringLiteral("cannot seed the shared barcode: ") + raw.Error();
        return false;
    }
    return true;
}

HostileInput::HostileInput(const QString& folder) : d(std::make_unique<Private>()) {
    if (!d->start(folder) && d->startError.isEmpty()) {
        d->startError = QStringLiteral("the catalogue could not be set up");
    }
}

HostileInput::~HostileInput() = default;

QString HostileInput::StartError() const {
    return d->startError;
}

QString HostileInput::Check(const QByteArray& input) {
    if (!d->startError.isEmpty()) {
        return QStringLiteral("not started: ") + d->startError;
    }
    if (d->broken) {
        return QStringLiteral("the catalogue could not be put back after an earlier input");
    }
    const Decoded in = decode(input);
    d->observed.clear();
    QString problem = d->run(in);
    if (!problem.isEmpty()) {
        problem = QString::fromLatin1(operationNames[in.op]) + QStringLiteral(" of ") +
                  shortText(in.text) + QStringLiteral(" (number ") + QString::number(in.number) +
                  QStringLiteral("): ") + problem;
    }
    const QString restored = d->putBack();
    return problem.isEmpty() ? restored : problem;
}

// ---- Checks shared by the operations ---------------------------------------------------------

QString HostileInput::Private::statements(const QStringList& expected) {
    if (observed != expected) {
        return QStringLiteral("Execute was handed %1 instead of %2")
            .arg(shortText(observed.join(QStringLiteral(" | "))),
                 shortText(expected.join(QStringLiteral(" | "))));
    }
    return QString();
}

QString HostileInput::Private::unchanged() {
    Snapshot now;
    if (!takeSnapshot(raw, now)) {
        return QStringLiteral("the catalogue cannot be read any more: ") + raw.Error();
    }
    for (auto it = baseline.cbegin(); it != baseline.cend(); ++it) {
        const QString difference = firstDifference(it.key(), it.value(), now.value(it.key()));
        if (!difference.isEmpty()) {
            return QStringLiteral("a read changed the catalogue: ") + difference;
        }
    }
    if (now.keys() != baseline.keys()) {
        return QStringLiteral("a table came or went: ") + now.keys().join(QLatin1Char(','));
    }
    return QString();
}

// What every read must keep to: exactly the `expected` texts handed to Execute, no row touched.
QString HostileInput::Private::readOnly(const QStringList& expected) {
    const QString problem = statements(expected);
    return problem.isEmpty() ? unchanged() : problem;
}

QString HostileInput::Private::changedOnly(const QStringList& tables, Snapshot& after) {
    if (!takeSnapshot(raw, after)) {
        return QStringLiteral("the catalogue cannot be read any more: ") + raw.Error();
    }
    if (after.keys() != baseline.keys()) {
        return QStringLiteral("a table came or went: ") + after.keys().join(QLatin1Char(','));
    }
    for (auto it = baseline.cbegin(); it != baseline.cend(); ++it) {
        if (tables.contains(it.key())) {
            continue;
        }
        const QString difference = firstDifference(it.key(), it.value(), after.value(it.key()));
        if (!difference.isEmpty()) {
            return QStringLiteral("a write reached another table: ") + difference;
        }
    }
    return QString();
}

QString HostileInput::Private::putBack() {
    Snapshot now;
    if (!takeSnapshot(raw, now)) {
        broken = true;
        return QStringLiteral("the catalogue cannot be read any more: ") + raw.Error();
    }
    if (now.keys() != baseline.keys() || now[schemaTable] != baseline[schemaTable]) {
        broken = true;
        return QStringLiteral("the schema changed");
    }
    QString sql;
    for (auto it = baseline.cbegin(); it != baseline.cend(); ++it) {
        if (it.key() != schemaTable && now.value(it.key()) != it.value()) {
            sql += QStringLiteral(
                       "DELETE FROM main.%1; INSERT INTO main.%1 SELECT * FROM "
                       "pristine.%1 ORDER BY rowid;")
                       .arg(quoted(it.key()));
        }
    }
    if (sql.isEmpty()) {
        return QString();
    }
    if (!raw.Exec(QStringLiteral("BEGIN;") + sql + QStringLiteral("COMMIT;")) ||
        !takeSnapshot(raw, now) || now != baseline) {
        raw.Exec(QStringLiteral("ROLLBACK"));
        broken = true;
        return QStringLiteral("the catalogue could not be put back: ") + raw.Error();
    }
    return QString();
}

// ---- The operations --------------------------------------------------------------------------

QString HostileInput::Private::run(const Decoded& in) {
    switch (in.op) {
        case OpScan:
            return scan(in);
        case OpNamePrefix:
        case OpNamePrefixNames:
            return namePrefix(in, in.op == OpNamePrefixNames);
        case OpNameInfix:
            return infix(QStringLiteral("art_name"), in.text, false);
        case OpBarcodeInfix:
            return infix(QStringLiteral("main_barcode"), in.text, false);
        case OpInfixOnColumn: {
            const int split = in.text.indexOf(QLatin1Char('\n'));
            return infix(split < 0 ? in.text : in.text.left(split),
                         split < 0 ? QString() : in.text.mid(split + 1), true);
        }
        case OpFindName:
        case OpNameTaken:
            return findName(in, in.op == OpNameTaken);
        case OpFindBarcode:
            return findBarcode(in);
        case OpBarcodeTaken:
            return barcodeTaken(in);
        case OpBarcodeIndex:
            return barcodeIndex(in);
        case OpClassifyPrefix:
            return classify(in);
        case OpAddBarcode:
            return addBarcode(in);
        case OpUpdateMainBarcode:
        case OpUpdateAdditionalBarcode:
            return updateBarcode(in, in.op == OpUpdateMainBarcode);
        case OpDeleteBarcode:
            return deleteBarcode(in);
        case OpAddPrefix:
            return addPrefix(in);
        case OpAddArticle:
        case OpEditArticle:
            return writeArticle(in, in.op == OpAddArticle);
        case OpPriceList:
        case OperationCount:
            break;
    }
    return priceList(in);
}

#define RETURN_IF(problem)                \
    do {                                  \
        const QString found_ = (problem); \
        if (!found_.isEmpty()) {          \
            return found_;                \
        }                                 \
    } while (false)

QString HostileInput::Private::scan(const Decoded& in) {
    const bool handy = (in.number & 1) != 0;
    Article article;
    article.name = untouchedName;
    const int result = manager->GetSeeker()->FindArticleByBarcode(in.text, article, handy);
    const QString searched = normalised(in.text);
    RETURN_IF(
        readOnly({scanHead + searched + QLatin1Char('"') + (handy ? scanHandyTail : QString())}));
    RETURN_IF(filledOnlyIfFound(result, article));
    QVector<qint64> ids;
    for (const StoredBarcode* barcode : barcodesHolding(searched)) {
        const StoredArticle* owner = storedArticle(barcode->articleId);
        if (owner && (!handy || owner->handy)) {
            ids.append(owner->id);
        }
    }
    const int expected = lookupResult(ids.size());
    if (result != expected) {
        return QStringLiteral("result %1, the stored rows say %2 (articles %3)")
            .arg(result)
            .arg(expected)
            .arg(idList(ids));
    }
    if (result == 0 && article.id != ids.first()) {
        return QStringLiteral("found article %1 instead of %2").arg(article.id).arg(ids.first());
    }
    return QString();
}

QString HostileInput::Private::namePrefix(const Decoded& in, bool names) {
    const bool handy = (in.number & 1) != 0;
    QVector<Article> found(1);
    found[0].name = QStringLiteral("kept");
    QVector<QString> foundNames = {QStringLiteral("kept")};
    const int result = names ? manager->GetSeeker()->FindNamePrefix(in.text, foundNames, handy)
                             : manager->GetSeeker()->FindNamePrefix(in.text, found, handy);
    RETURN_IF(readOnly());
    if (found.first().name != QStringLiteral("kept") ||
        foundNames.first() != QStringLiteral("kept")) {
        return QStringLiteral("what the list held before was lost");
    }
    QVector<StoredArticle> expected;
    for (const StoredArticle& article : storedArticles) {
        if (startsWithFolded(article.name, in.text) && (!handy || article.handy)) {
            expected.append(article);
        }
    }
    std::sort(expected.begin(), expected.end(), [](const StoredArticle& a, const StoredArticle& b) {
        return a.name.toUtf8() < b.name.toUtf8();
    });
    QStringList want;
    for (const StoredArticle& article : expected) {
        want.append(article.name);
    }
    QStringList got;
    for (int i = 1; i < (names ? foundNames.size() : found.size()); ++i) {
        got.append(names ? foundNames[i] : found[i].name);
    }
    if (result != (want.isEmpty() ? 3 : 0) || got != want) {
        return QStringLiteral("result %1 with %2, the stored rows say %3")
            .arg(result)
            .arg(shortText(got.join(QLatin1Char('|'))), shortText(want.join(QLatin1Char('|'))));
    }
    return QString();
}

QString HostileInput::Private::infix(const QString& column, const QString& text, bool viaColumn) {
    QVector<Article> found(3);
    ArticleSeeker* seeker = manager->GetSeeker();
    const int result = viaColumn ? seeker->FindByGivenInfixAndColumn(text, column, found)
                       : column == QStringLiteral("art_name")
                           ? seeker->FindNameInfix(text, found)
                           : seeker->FindByBarcodeInfix(text, found);
    RETURN_IF(readOnly());
    const bool textColumn =
        column == QStringLiteral("art_name") || column == QStringLiteral("main_barcode");
    if (!textColumn) {
        // Any other column name has no defined answer; it still may not conjure up articles.
        for (const Article& article : found) {
            if (result == 0 && !storedArticle(article.id)) {
                return QStringLiteral("listed article %1, which is not stored").arg(article.id);
            }
        }
        return QString();
    }
    QVector<qint64> prefixed;
    QVector<qint64> inner;
    for (const StoredArticle& article : storedArticles) {
        const QString& value =
            column == QStringLiteral("art_name") ? article.name : article.mainBarcode;
        if (like(value, text + QLatin1Char('%'))) {
            prefixed.append(article.id);
        } else if (like(value, QLatin1Char('%') + text + QLatin1Char('%'))) {
            inner.append(article.id);
        }
    }
    QVector<qint64> got;
    for (const Article& article : found) {
        got.append(article.id);
    }
    QVector<qint64> gotPrefixed = got.mid(0, prefixed.size());
    QVector<qint64> gotInner = got.mid(prefixed.size());
    std::sort(gotPrefixed.begin(), gotPrefixed.end());
    std::sort(gotInner.begin(), gotInner.end());
    if (result != 0 || gotPrefixed != prefixed || gotInner != inner) {
        return QStringLiteral("result %1 with %2, the stored rows say %3 then %4")
            .arg(result)
            .arg(idList(got), idList(prefixed), idList(inner));
    }
    return QString();
}

QString HostileInput::Private::findName(const Decoded& in, bool throughEditor) {
    Article article;
    article.name = untouchedName;
    int result = 0;
    if (throughEditor) {
        result = manager->GetEditor()->IsRecordExist(in.text) ? 0 : 3;
    } else {
        result = manager->GetSeeker()->FindName(in.text, article);
    }
    RETURN_IF(readOnly({findNameHead + in.text + QStringLiteral("\";")}));
    RETURN_IF(filledOnlyIfFound(result, article));
    // The whole text is the pattern: % and _ are wildcards, nothing escapes them.
    QVector<qint64> matching;
    for (const StoredArticle& stored : storedArticles) {
        if (like(stored.name, in.text)) {
            matching.append(stored.id);
        }
    }
    if (result != (matching.isEmpty() ? 3 : 0)) {
        return QStringLiteral("result %1, the stored names matching it: %2")
            .arg(result)
            .arg(idList(matching));
    }
    if (!throughEditor && result == 0 && !matching.contains(article.id)) {
        return QStringLiteral("found article %1, which does not match").arg(article.id);
    }
    return QString();
}

QString HostileInput::Private::findBarcode(const Decoded& in) {
    const int result = manager->GetSeeker()->FindBarcode(in.text);
    RETURN_IF(readOnly());
    const int count = barcodesHolding(in.text).size();
    if (result != lookupResult(count)) {
        return QStringLiteral("result %1, %2 stored rows hold it").arg(result).arg(count);
    }
    return QString();
}

QString HostileInput::Private::barcodeTaken(const Decoded& in) {
    const bool taken = manager->GetBarcodeManager()->IsRecordExist(in.text);
    RETURN_IF(readOnly());
    const bool zeros = in.text.count(QLatin1Char('0')) == in.text.size();
    const bool expected = !zeros && !barcodesHolding(in.text).isEmpty();
    if (taken != expected) {
        return QStringLiteral("answered %1, the stored rows say %2").arg(taken).arg(expected);
    }
    return QString();
}

QString HostileInput::Private::barcodeIndex(const Decoded& in) {
    const unsigned int index = manager->GetBarcodeManager()->GetBarcodeIndex(in.text);
    RETURN_IF(readOnly());
    const QVector<const StoredBarcode*> holding = barcodesHolding(in.text);
    const qint64 expected = holding.isEmpty() ? 0 : holding.first()->id;
    if (index != expected) {
        return QStringLiteral("index %1, the stored rows say %2").arg(index).arg(expected);
    }
    return QString();
}

QString HostileInput::Private::classify(const Decoded& in) {
    auto type = static_cast<SpecialBarcodeSubjectType>(7);  // not a kind: shows it was written
    const bool ok =
        manager->GetBarcodePrefixDBManager()->CheckSpecialBarcodeSubjectType(in.text, type);
    RETURN_IF(readOnly({classifyHead + in.text + QLatin1Char('"')}));
    const TableRows& prefixes = baseline[prefixTable];
    auto expected = SPECIAL_BARCODE_NONE;
    for (const Cells& row : prefixes.rows) {
        if (row[prefixes.Column(QStringLiteral("prefix"))] == textCell(in.text)) {
            expected = cellInt(row[prefixes.Column(QStringLiteral("weight_or_price"))]) != 0
                           ? SPECIAL_BARCODE_PRICE
                           : SPECIAL_BARCODE_WEIGHT;
            break;
        }
    }
    if (!ok || type != expected) {
        return QStringLiteral("answered %1 with kind %2, the stored rows say kind %3")
            .arg(ok)
            .arg(type)
            .arg(expected);
    }
    return QString();
}

QString HostileInput::Private::addBarcode(const Decoded& in) {
    const qint64 articleId = articleIdFor(in.number);
    const bool isMain = (in.number & 0x80) != 0;
    const eDBOperationResult result = manager->GetBarcodeManager()->AddRecord(
        static_cast<unsigned int>(articleId), in.text, isMain);
    RETURN_IF(statements({}));
    const QString stored = normalised(in.text);
    if (in.text.isEmpty() || result != DB_OPERATION_SUCCESS) {
        RETURN_IF(unchanged());
        const bool zeros = stored.count(QLatin1Char('0')) == stored.size();
        const bool taken = !zeros && !barcodesHolding(stored).isEmpty();
        const int expected = in.text.isEmpty() ? 7 : (taken ? 2 : 0);
        if (result != expected) {
            return QStringLiteral("result %1, expected %2").arg(result).arg(expected);
        }
        return QString();
    }
    Snapshot after;
    RETURN_IF(changedOnly({barcodeTable, sequenceTable}, after));
    const TableRows& before = baseline[barcodeTable];
    const TableRows& now = after[barcodeTable];
    if (now.rows.size() != before.rows.size() + 1) {
        return QStringLiteral("%1 rows were added").arg(now.rows.size() - before.rows.size());
    }
    for (auto it = before.rows.cbegin(); it != before.rows.cend(); ++it) {
        if (now.rows.value(it.key()) != it.value()) {
            return firstDifference(barcodeTable, before, now);
        }
    }
    const Cells added = now.rows.last();
    const Cells want = {added[0], intCell(articleId), textCell(stored), intCell(isMain ? 1 : 0)};
    if (added != want) {
        return QStringLiteral("stored %1 instead of %2")
            .arg(describeCells(added), describeCells(want));
    }
    return QString();
}

QString HostileInput::Private::updateBarcode(const Decoded& in, bool main) {
    qint64 key = 0;
    if (main) {
        key = articleIdFor(in.number);
    } else {
        const int choice = in.number % (storedBarcodes.size() + 2);
        key = choice < storedBarcodes.size() ? storedBarcodes[choice].id
                                             : (choice == storedBarcodes.size() ? 0 : missingId);
    }
    ArticleBarcodeManager* barcodes = manager->GetBarcodeManager();
    const eDBOperationResult result =
        main ? barcodes->UpdateMainBarcode(static_cast<unsigned int>(key), in.text)
             : barcodes->UpdateAdditionalBarcode(static_cast<unsigned int>(key), in.text);
    RETURN_IF(statements({}));
    if (result != DB_OPERATION_SUCCESS) {
        RETURN_IF(unchanged());
        return QStringLiteral("refused with %1").arg(result);
    }
    Snapshot after;
    RETURN_IF(changedOnly({barcodeTable}, after));
    const TableRows& before = baseline[barcodeTable];
    const TableRows& now = after[barcodeTable];
    const int articleColumn = before.Column(QStringLiteral("article_id"));
    const int idColumn = before.Column(QStringLiteral("id"));
    const int mainColumn = before.Column(QStringLiteral("is_main"));
    const int barcodeColumn = before.Column(QStringLiteral("barcode"));
    if (now.rows.keys() != before.rows.keys()) {
        return QStringLiteral("rows came or went: ") + firstDifference(barcodeTable, before, now);
    }
    for (auto it = before.rows.cbegin(); it != before.rows.cend(); ++it) {
        Cells want = it.value();
        const bool named =
            main ? cellInt(want[articleColumn]) == key && cellInt(want[mainColumn]) == 1
                 : cellInt(want[idColumn]) == key && cellInt(want[mainColumn]) == 0;
        if (named) {
            want[barcodeColumn] = textCell(normalised(in.text));
        }
        if (now.rows.value(it.key()) != want) {
            return QStringLiteral("row %1 is %2 instead of %3")
                .arg(it.key())
                .arg(describeCells(now.rows.value(it.key())), describeCells(want));
        }
    }
    return QString();
}

QString HostileInput::Private::deleteBarcode(const Decoded& in) {
    const eDBOperationResult result = manager->GetBarcodeManager()->DeleteRecord(in.text);
    RETURN_IF(statements({}));
    if (result != DB_OPERATION_SUCCESS) {
        RETURN_IF(unchanged());
        return QStringLiteral("refused with %1").arg(result);
    }
    Snapshot after;
    RETURN_IF(changedOnly({barcodeTable}, after));
    const TableRows& before = baseline[barcodeTable];
    TableRows want = before;
    for (const StoredBarcode* barcode : barcodesHolding(in.text)) {
        if (!barcode->isMain) {
            want.rows.remove(barcode->id);
        }
    }
    if (after[barcodeTable] != want) {
        return QStringLiteral("the barcode rows differ from the expected: ") +
               firstDifference(barcodeTable, want, after[barcodeTable]);
    }
    return QString();
}

QString HostileInput::Private::addPrefix(const Decoded& in) {
    const unsigned int id = in.number & 0x0f;
    const auto type = static_cast<SpecialBarcodeSubjectType>((in.number >> 4) % 3);
    const int result = manager->GetBarcodePrefixDBManager()->AddPrefix(id, in.text, type);
    RETURN_IF(statements({}));
    if (result != 0) {
        RETURN_IF(unchanged());
        return QStringLiteral("refused with %1").arg(result);
    }
    Snapshot after;
    RETURN_IF(changedOnly({prefixTable}, after));
    const TableRows& before = baseline[prefixTable];
    TableRows want = before;
    const int kindColumn = before.Column(QStringLiteral("weight_or_price"));
    // A stored entry of that id is replaced whole: without a kind it has none (NULL).
    Cells row(before.columns.size(), QByteArray("n"));
    row[before.Column(QStringLiteral("id"))] = intCell(id);
    row[before.Column(QStringLiteral("prefix"))] = textCell(in.text);
    if (type != SPECIAL_BARCODE_NONE) {
        row[kindColumn] = intCell(type == SPECIAL_BARCODE_PRICE ? 1 : 0);
    }
    want.rows.insert(id, row);
    if (after[prefixTable] != want) {
        return QStringLiteral("the prefix rows differ from the expected: ") +
               firstDifference(prefixTable, want, after[prefixTable]);
    }
    return QString();
}

QString HostileInput::Private::writeArticle(const Decoded& in, bool add) {
    Article article;
    if (add) {
        article.pluNo = addedPluBase + in.number;
        article.taxRateNo = 1;
        article.deptNo = 1;
        article.unitNo = 1;
    } else {
        const qint64 id = storedArticles[in.number % storedArticles.size()].id;
        if (manager->GetSeeker()->FindById(static_cast<unsigned int>(id), article, false) != 0) {
            return QStringLiteral("article %1 cannot be read").arg(id);
        }
    }
    article.name = in.text;
    article.mainBarcode = in.text;
    const Article given = article;
    const eDBOperationResult result =
        add ? manager->GetEditor()->AddRecord(article) : manager->GetEditor()->EditRecord(article);
    RETURN_IF(statements({}));
    if (!(article == given) || article.unitName != given.unitName) {
        return QStringLiteral("the article passed in was modified");
    }
    bool nameTaken = false;
    for (const StoredArticle& stored : storedArticles) {
        nameTaken =
            nameTaken || (stored.name == asStored(in.text) && (add || stored.id != article.id));
    }
    if (result != DB_OPERATION_SUCCESS) {
        RETURN_IF(unchanged());
        return nameTaken ? QString() : QStringLiteral("refused with %1").arg(result);
    }
    if (nameTaken) {
        return QStringLiteral("a second article was given a stored name");
    }
    Snapshot after;
    RETURN_IF(changedOnly({articleTable, sequenceTable}, after));
    const TableRows& before = baseline[articleTable];
    const TableRows& now = after[articleTable];
    TableRows want = before;
    const int nameColumn = before.Column(QStringLiteral("art_name"));
    const int barcodeColumn = before.Column(QStringLiteral("main_barcode"));
    if (add) {
        if (now.rows.size() != before.rows.size() + 1) {
            return QStringLiteral("%1 articles were added")
                .arg(now.rows.size() - before.rows.size());
        }
        const Cells added = now.rows.last();
        if (cellInt(added[before.Column(QStringLiteral("plu_no"))]) != article.pluNo) {
            return QStringLiteral("the added article has PLU %1")
                .arg(cellInt(added[before.Column(QStringLiteral("plu_no"))]));
        }
        want.rows.insert(now.rows.lastKey(), added);
    }
    Cells& row = want.rows[add ? now.rows.lastKey() : article.id];
    row[nameColumn] = textCell(in.text);
    row[barcodeColumn] = textCell(normalised(in.text));
    if (now != want) {
        return QStringLiteral("the article rows differ from the expected: ") +
               firstDifference(articleTable, want, now);
    }
    return QString();
}

QString HostileInput::Private::priceList(const Decoded& in) {
    const QByteArray& bytes = in.bytes;
    ArticleInput input(*manager, *articles);
    CsvReader reader(bytes);
    QVector<QStringList> records;
    QStringList fields;
    QStringList header;
    int line = 0;
    int lastLine = 0;
    bool clean = true;
    while (reader.Next(fields, line)) {
        if (line < lastLine || records.size() > bytes.size()) {
            return QStringLiteral("the reader went back or round in circles (line %1)").arg(line);
        }
        lastLine = line;
        clean = clean && reader.Error().isEmpty();
        records.append(fields);
        if (header.isEmpty()) {
            header = fields;
            continue;
        }
        // Every field through the reader its column names, as an import reads a row.
        for (int i = 0; i < fields.size() && i < header.size(); ++i) {
            const QString column = header[i].trimmed().toLower();
            const QString& value = fields[i];
            QString error;
            unsigned int number = 0;
            unsigned char small = 0;
            qint64 price = 0;
            bool flag = false;
            QString text;
            if (column == QStringLiteral("plu")) {
                input.Plu(value, number, error);
            } else if (column == QStringLiteral("name")) {
                input.Name(value, text, error);
            } else if (column == QStringLiteral("price")) {
                input.Price(value, price, error);
            } else if (column == QStringLiteral("tax")) {
                input.TaxRate(value, small, error);
            } else if (column == QStringLiteral("dept")) {
                input.Dept(value, small, error);
            } else if (column == QStringLiteral("unit")) {
                input.Unit(value, small, error);
            } else if (column == QStringLiteral("precision")) {
                input.Precision(value, small, error);
            } else if (column == QStringLiteral("scale")) {
                input.Scale(value, small, error);
            } else if (column == QStringLiteral("link_plu")) {
                input.LinkPlu(value, number, error);
            } else if (column == QStringLiteral("barcode") ||
                       column == QStringLiteral("extra_barcodes")) {
                input.Barcode(value, text, error);
            } else {
                input.Flag(value, flag, error);
            }
        }
    }
    RETURN_IF(readOnly());
    if (!clean) {
        return QString();
    }
    // What export writes, import must read back as it was.
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    CsvWriter writer(&buffer);
    for (const QStringList& record : records) {
        writer.Write(record);
    }
    writer.Flush();
    CsvReader again(buffer.data());
    QVector<QStringList> reread;
    while (again.Next(fields, line)) {
        if (!again.Error().isEmpty()) {
            return QStringLiteral("written record %1 reads back with the error: %2")
                .arg(reread.size() + 1)
                .arg(again.Error());
        }
        reread.append(fields);
        if (reread.size() > records.size()) {
            break;
        }
    }
    if (reread != records) {
        for (int i = 0; i < records.size(); ++i) {
            if (i >= reread.size() || reread[i] != records[i]) {
                return QStringLiteral("record %1 was written as %2 and read back as %3")
                    .arg(i + 1)
                    .arg(shortText(records[i].join(QLatin1Char('|'))),
                         shortText(reread.value(i).join(QLatin1Char('|'))));
            }
        }
        return QStringLiteral("extra records were read back");
    }
    return QString();
}

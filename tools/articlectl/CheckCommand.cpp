// check: is the article database file whole, and does the catalogue in it hang together?
//
// It reads the file through its own read-only SQLite connection and never starts the library:
// the library may refuse to start on a damaged file, and starting it may write (migrations,
// checkpoints, folding the search notes), while a check must leave the file as it found it.

#include <sqlite3.h>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <functional>

#include "Commands.h"
#include "Gs1.h"
#include "Tool.h"

namespace {

// The register's tax rates are numbered 1 to 7; 65535 marks one not in use.
constexpr int taxRateCount = 7;
constexpr qint64 rateNotInUse = 65535;
// A line names at most this many PLUs.
constexpr int plusNamed = 20;
constexpr int busyTimeoutMs = 5000;

// A read-only SQLite connection to one file.
class ReadOnlyFile {
public:
    explicit ReadOnlyFile(const QString& path) {
        opened = sqlite3_open_v2(QFile::encodeName(path).constData(), &db, SQLITE_OPEN_READONLY,
                                 nullptr);
        if (db) {
            sqlite3_busy_timeout(db, busyTimeoutMs);
        }
    }
    ~ReadOnlyFile() { sqlite3_close_v2(db); }

    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;

    bool Opened() const { return opened == SQLITE_OK; }

    // Runs `sql`, handing each row to `row`. False when it failed; Error() says why.
    bool Query(const char* sql, const std::function<void(sqlite3_stmt*)>& row) {
        sqlite3_stmt* statement = nullptr;
        int rc = sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
        while (rc == SQLITE_OK && (rc = sqlite3_step(statement)) == SQLITE_ROW) {
            row(statement);
            rc = SQLITE_OK;
        }
        lastCode = rc == SQLITE_DONE ? SQLITE_OK : sqlite3_extended_errcode(db);
        lastError = rc == SQLITE_DONE ? QString() : QString::fromUtf8(sqlite3_errmsg(db));
        sqlite3_finalize(statement);
        return rc == SQLITE_DONE;
    }

    // The first column of the one row of `sql`.
    bool Integer(const char* sql, qint64& value) {
        return Query(sql, [&](sqlite3_stmt* s) { value = sqlite3_column_int64(s, 0); });
    }

    const QString& Error() const { return lastError; }
    int ErrorCode() const { return lastCode; }

private:
    sqlite3* db = nullptr;
    int opened = SQLITE_CANTOPEN;
    int lastCode = SQLITE_OK;
    QString lastError;
};

qint64 integer(sqlite3_stmt* row, int column) {
    return sqlite3_column_int64(row, column);
}

QString text(sqlite3_stmt* row, int column) {
    return QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(row, column)));
}

// "PLU 3, PLU 7" for the first PLUs of a list, and how many more there are.
QString pluList(const QList<qint64>& plus) {
    QStringList named;
    for (int i = 0; i < plus.size() && i < plusNamed; ++i) {
        named.append(QStringLiteral("PLU %1").arg(plus[i]));
    }
    QString list = named.join(QStringLiteral(", "));
    if (plus.size() > plusNamed) {
        list += QStringLiteral(" and %1 more").arg(plus.size() - plusNamed);
    }
    return list;
}

QJsonArray jsonList(const QList<qint64>& values) {
    QJsonArray list;
    for (qint64 value : values) {
        list.append(value);
    }
    return list;
}

// The problems found, in the order found.
class Report {
public:
    void Add(const char* kind, const QString& message, QJsonObject details = QJsonObject()) {
        details.insert(QStringLiteral("kind"), QLatin1String(kind));
        details.insert(QStringLiteral("message"), message);
        lines.append(QStringLiteral("%1: %2").arg(QLatin1String(kind), message));
        json.append(details);
    }
    // A check that could not run on this file is a problem too: the file did not answer.
    void CouldNotCheck(const QString& what, const ReadOnlyFile& file) {
        Add("unchecked", QStringLiteral("%1 could not be checked: %2").arg(what, file.Error()));
    }
    int Count() const { return lines.size(); }

    QStringList lines;
    QJsonArray json;
};

void checkIntegrity(ReadOnlyFile& file, Report& report) {
    // SQLite lists what it found, and on some damage then stops with an error: both count.
    const bool finished = file.Query("PRAGMA integrity_check", [&](sqlite3_stmt* row) {
        const QString line = text(row, 0);
        if (line != QLatin1String("ok") && !line.startsWith(QLatin1String("***"))) {
            report.Add("damaged", line);
        }
    });
    if (finished) {
        return;
    }
    // Stopped without saying where: check table by table to name the damaged ones.
    const QString reason = file.Error();
    QStringList tables;
    if (!file.Query("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name",
                    [&](sqlite3_stmt* row) { tables.append(text(row, 0)); })) {
        report.Add("damaged", QStringLiteral("the integrity check stopped: %1").arg(reason));
        return;
    }
    int damaged = 0;
    for (const QString& table : tables) {
        const QByteArray sql =
            "PRAGMA integrity_check(\"" +
            QString(table).replace(QLatin1Char('"'), QStringLiteral("\"\"")).toUtf8() + "\")";
        QStringList lines;
        const bool tableFinished = file.Query(sql.constData(), [&](sqlite3_stmt* row) {
            const QString line = text(row, 0);
            if (line != QLatin1String("ok") && !line.startsWith(QLatin1String("***"))) {
                lines.append(line);
            }
        });
        if (!tableFinished) {
            lines.append(file.Error());
        }
        for (const QString& line : lines) {
            report.Add("damaged", QStringLiteral("table %1: %2").arg(table, line),
                       {{QStringLiteral("table"), table}});
        }
        damaged += lines.isEmpty() ? 0 : 1;
    }
    if (damaged == 0) {
        report.Add("damaged", QStringLiteral("the integrity check stopped: %1").arg(reason));
    }
    if (!file.Query("PRAGMA foreign_key_check", [&](sqlite3_stmt* row) {
            report.Add("foreign_key",
                       QStringLiteral("row %1 of %2 refers to a row of %3 that is not there")
                           .arg(integer(row, 1))
                           .arg(text(row, 0), text(row, 2)));
        })) {
        report.CouldNotCheck(QStringLiteral("the foreign keys"), file);
    }
}

void checkBarcodes(ReadOnlyFile& file, Report& report) {
    if (!file.Query("SELECT b.id, b.article_id, b.barcode FROM ArticleBarcode b "
                    "WHERE NOT EXISTS (SELECT 1 FROM Article a WHERE a.id = b.article_id) "
                    "ORDER BY b.id",
                    [&](sqlite3_stmt* row) {
                        report.Add("barcode_without_article",
                                   QStringLiteral("barcode %1 (barcode row %2) belongs to article "
                                                  "id %3, which is not on file")
                                       .arg(text(row, 2), QString::number(integer(row, 0)),
                                            QString::number(integer(row, 1))),
                                   {{QStringLiteral("barcode"), text(row, 2)},
                                    {QStringLiteral("barcode_id"), integer(row, 0)},
                                    {QStringLiteral("article_id"), integer(row, 1)}});
                    })) {
        report.CouldNotCheck(QStringLiteral("barcodes without their article"), file);
    }
    // A scan looks barcodes up in the barcode rows only: a main barcode without its row is
    // never found.
    if (!file.Query("SELECT a.id, a.plu_no, a.main_barcode FROM Article a "
                    "WHERE a.main_barcode <> '' AND NOT EXISTS (SELECT 1 FROM ArticleBarcode b "
                    "WHERE b.article_id = a.id AND b.is_main = 1 AND b.barcode = a.main_barcode) "
                    "ORDER BY a.plu_no",
                    [&](sqlite3_stmt* row) {
                        report.Add("main_barcode_without_row",
                                   QStringLiteral("PLU %1 (id %2): main barcode %3 has no barcode "
                                                  "row, so a scan does not find it")
                                       .arg(integer(row, 1))
                                       .arg(integer(row, 0))
                                       .arg(text(row, 2)),
                                   {{QStringLiteral("plu"), integer(row, 1)},
                                    {QStringLiteral("article_id"), integer(row, 0)},
                                    {QStringLiteral("barcode"), text(row, 2)}});
                    })) {
        report.CouldNotCheck(QStringLiteral("main barcodes without their row"), file);
    }
    if (!file.Query("SELECT b.id, b.barcode, a.id, a.plu_no, a.main_barcode "
                    "FROM ArticleBarcode b JOIN Article a ON a.id = b.article_id "
                    "WHERE b.is_main = 1 AND b.barcode <> a.main_barcode "
                    "ORDER BY a.plu_no, b.id",
                    [&](sqlite3_stmt* row) {
                        const QString field = text(row, 4);
                        report.Add(
                            "main_row_without_main_barcode",
                            QStringLiteral("PLU %1 (id %2): barcode row %3 holds main barcode %4, "
                                           "but the article's main barcode is %5")
                                .arg(integer(row, 3))
                                .arg(integer(row, 2))
                                .arg(integer(row, 0))
                                .arg(text(row, 1),
                                     field.isEmpty() ? QStringLiteral("empty") : field),
                            {{QStringLiteral("plu"), integer(row, 3)},
                             {QStringLiteral("article_id"), integer(row, 2)},
                             {QStringLiteral("barcode_id"), integer(row, 0)},
                             {QStringLiteral("barcode"), text(row, 1)}});
                    })) {
        report.CouldNotCheck(QStringLiteral("main barcode rows"), file);
    }
    // All-zero codes are placeholders the library lets any number of articles hold.
    struct Holder {
        qint64 articleId;
        qint64 plu;  // -1: the article is not on file
    };
    QMap<QString, QList<Holder>> holders;
    if (!file.Query("SELECT b.barcode, b.article_id, coalesce(a.plu_no, -1) FROM ArticleBarcode b "
                    "LEFT JOIN Article a ON a.id = b.article_id "
                    "WHERE b.barcode IN (SELECT barcode FROM ArticleBarcode GROUP BY barcode "
                    "HAVING COUNT(*) > 1) AND replace(b.barcode, '0', '') <> '' "
                    "ORDER BY b.barcode, 3, 2",
                    [&](sqlite3_stmt* row) {
                        holders[text(row, 0)].append({integer(row, 1), integer(row, 2)});
                    })) {
        report.CouldNotCheck(QStringLiteral("barcodes on several articles"), file);
    }
    for (auto it = holders.cbegin(); it != holders.cend(); ++it) {
        QStringList named;
        QList<qint64> plus;
        for (const Holder& holder : it.value()) {
            if (holder.plu >= 0) {
                named.append(QStringLiteral("PLU %1").arg(holder.plu));
                plus.append(holder.plu);
            } else {
                named.append(QStringLiteral("article id %1 (not on file)").arg(holder.articleId));
            }
        }
        // A scan finds a barcode's rows through their articles: two rows of articles on file,
        // even of the same article, make it ambiguous.
        report.Add(
            "shared_barcode",
            QStringLiteral("barcode %1 is on file %2 times: %3%4")
                .arg(it.key(), QString::number(it.value().size()), named.join(QStringLiteral(", ")),
                     plus.size() > 1 ? QStringLiteral("; a scan of it is refused as ambiguous")
                                     : QString()),
            {{QStringLiteral("barcode"), it.key()}, {QStringLiteral("plus"), jsonList(plus)}});
    }
    if (!file.Query("SELECT b.id, b.barcode, coalesce(a.plu_no, -1) FROM ArticleBarcode b "
                    "LEFT JOIN Article a ON a.id = b.article_id ORDER BY 3, b.id",
                    [&](sqlite3_stmt* row) {
                        const QString code = text(row, 1);
                        if (Gs1::CheckDigitValid(code)) {
                            return;
                        }
                        const qint64 plu = integer(row, 2);
                        report.Add(
                            "check_digit",
                            QStringLiteral("%1barcode %2 (barcode row %3) has a wrong check "
                                           "digit: it should end in %4")
                                .arg(plu >= 0 ? QStringLiteral("PLU %1: ").arg(plu) : QString(),
                                     code, QString::number(integer(row, 0)),
                                     QString(Gs1::CheckDigit(code.left(code.size() - 1)))),
                            {{QStringLiteral("plu"), plu},
                             {QStringLiteral("barcode_id"), integer(row, 0)},
                             {QStringLiteral("barcode"), code}});
                    })) {
        report.CouldNotCheck(QStringLiteral("the check digits"), file);
    }
}

// Articles grouped by a number they refer to (a department, a tax rate) that is not usable.
void reportArticlesByNumber(ReadOnlyFile& file, Report& report, const char* sql, const char* kind,
                            const QString& what, const QString& numberKey) {
    QMap<qint64, QList<qint64>> plusByNumber;
    QMap<qint64, QString> whyByNumber;
    if (!file.Query(sql, [&](sqlite3_stmt* row) {
            plusByNumber[integer(row, 0)].append(integer(row, 1));
            whyByNumber[integer(row, 0)] = text(row, 2);
        })) {
        report.CouldNotCheck(QStringLiteral("the articles' %1s").arg(what), file);
        return;
    }
    for (auto it = plusByNumber.cbegin(); it != plusByNumber.cend(); ++it) {
        report.Add(kind,
                   QStringLiteral("%1 %2 %3, and %4 article%5 use%6 it: %7")
                       .arg(what)
                       .arg(it.key())
                       .arg(whyByNumber.value(it.key()))
                       .arg(it.value().size())
                       .arg(it.value().size() == 1 ? QString() : QStringLiteral("s"))
                       .arg(it.value().size() == 1 ? QStringLiteral("s") : QString())
                       .arg(pluList(it.value())),
                   {{numberKey, it.key()}, {QStringLiteral("plus"), jsonList(it.value())}});
    }
}

void checkSettings(ReadOnlyFile& file, Report& report) {
    QList<qint64> depts;
    if (!file.Query("SELECT dept_id FROM Dept ORDER BY dept_id",
                    [&](sqlite3_stmt* row) { depts.append(integer(row, 0)); })) {
        report.CouldNotCheck(QStringLiteral("the departments"), file);
    } else if (depts.isEmpty()) {
        report.Add("departments", QStringLiteral("no departments are on file"));
    } else if (depts.first() != 1 || depts.last() != depts.size()) {
        // The register finds a department by its place in a list numbered from 1.
        QList<qint64> missing;
        QList<qint64> outside;
        for (qint64 id = 1, i = 0; id <= qMax<qint64>(depts.last(), 1); ++id) {
            while (i < depts.size() && depts[static_cast<int>(i)] < id) {
                if (depts[static_cast<int>(i)] < 1) {
                    outside.append(depts[static_cast<int>(i)]);
                }
                ++i;
            }
            if (i >= depts.size() || depts[static_cast<int>(i)] != id) {
                missing.append(id);
            }
        }
        QStringList why;
        if (!missing.isEmpty()) {
            QStringList numbers;
            for (int i = 0; i < missing.size() && i < plusNamed; ++i) {
                numbers.append(QString::number(missing[i]));
            }
            why.append(QStringLiteral("%1 missing (%2%3)")
                           .arg(missing.size())
                           .arg(numbers.join(QStringLiteral(", ")))
                           .arg(missing.size() > plusNamed ? QStringLiteral(", ...") : QString()));
        }
        if (!outside.isEmpty()) {
            QStringList numbers;
            for (qint64 id : outside) {
                numbers.append(QString::number(id));
            }
            why.append(
                QStringLiteral("numbers below 1: %1").arg(numbers.join(QStringLiteral(", "))));
        }
        report.Add("departments",
                   QStringLiteral("departments are not numbered 1 to %1: %2")
                       .arg(depts.size())
                       .arg(why.join(QStringLiteral("; "))),
                   {{QStringLiteral("missing"), jsonList(missing)},
                    {QStringLiteral("below_1"), jsonList(outside)}});
    }
    reportArticlesByNumber(file, report,
                           "SELECT a.dept_no, a.plu_no, 'is not on file' FROM Article a "
                           "WHERE NOT EXISTS (SELECT 1 FROM Dept d WHERE d.dept_id = a.dept_no) "
                           "ORDER BY a.dept_no, a.plu_no",
                           "article_department", QStringLiteral("department"),
                           QStringLiteral("dept"));

    QList<qint64> rates;
    if (!file.Query("SELECT tax_rate_id FROM TaxRates ORDER BY tax_rate_id",
                    [&](sqlite3_stmt* row) { rates.append(integer(row, 0)); })) {
        report.CouldNotCheck(QStringLiteral("the tax rates"), file);
    } else {
        QList<qint64> missing;
        for (qint64 id = 1; id <= taxRateCount; ++id) {
            if (!rates.contains(id)) {
                missing.append(id);
            }
        }
        if (!missing.isEmpty()) {
            QStringList numbers;
            for (qint64 id : missing) {
                numbers.append(QString::number(id));
            }
            report.Add("tax_rates",
                       QStringLiteral("tax rate%1 %2 %3 missing: the register keeps rates 1 to %4")
                           .arg(missing.size() == 1 ? QString() : QStringLiteral("s"))
                           .arg(numbers.join(QStringLiteral(", ")))
                           .arg(missing.size() == 1 ? QStringLiteral("is") : QStringLiteral("are"))
                           .arg(taxRateCount),
                       {{QStringLiteral("missing"), jsonList(missing)}});
        }
    }
    const QByteArray ratesSql =
        QByteArrayLiteral(
            "SELECT a.tax_rate_no, a.plu_no, CASE WHEN t.tax_rate_id IS NULL THEN "
            "'is not on file' ELSE 'is not in use' END FROM Article a "
            "LEFT JOIN TaxRates t ON t.tax_rate_id = a.tax_rate_no "
            "WHERE t.tax_rate_id IS NULL OR t.tax_rate_val = ") +
        QByteArray::number(rateNotInUse) + " ORDER BY a.tax_rate_no, a.plu_no";
    reportArticlesByNumber(file, report, ratesSql.constData(), "article_tax_rate",
                           QStringLiteral("tax rate"), QStringLiteral("tax_rate"));
}

// The search index's notes: the library folds them into the index when it commits, so notes
// left in the file come from writes made without it, and the index is behind until the library
// next writes to the file.
void checkSearchNotes(ReadOnlyFile& file, Report& report) {
    QList<qint64> ids;
    if (!file.Query("SELECT id FROM ArticleSearchPending ORDER BY id",
                    [&](sqlite3_stmt* row) { ids.append(integer(row, 0)); })) {
        report.CouldNotCheck(QStringLiteral("the search index's pending notes"), file);
        return;
    }
    if (ids.isEmpty()) {
        return;
    }
    QStringList named;
    for (int i = 0; i < ids.size() && i < plusNamed; ++i) {
        named.append(QString::number(ids[i]));
    }
    const bool one = ids.size() == 1;
    report.Add("search_notes",
               QStringLiteral("%1 article%2 written without the library %3 not in the search index "
                              "yet (article id%2 %4%5); the library adds %6 the next time "
                              "it writes to the file")
                   .arg(ids.size())
                   .arg(one ? QString() : QStringLiteral("s"))
                   .arg(one ? QStringLiteral("is") : QStringLiteral("are"))
                   .arg(named.join(QStringLiteral(", ")))
                   .arg(ids.size() > plusNamed ? QStringLiteral(", ...") : QString())
                   .arg(one ? QStringLiteral("it") : QStringLiteral("them")),
               {{QStringLiteral("article_ids"), jsonList(ids)}});
}

}  // namespace

int RunCheck(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Checks the article database file without changing it: SQLite's integrity check of\n"
        "every page, then the catalogue: barcodes without their article, main barcodes without\n"
        "their barcode row or the other way round, a barcode on several articles, wrong GS1\n"
        "check digits, departments not numbered 1 to n, missing tax rates, articles in a\n"
        "department or on a tax rate that is not there, and search index notes left by writes\n"
        "made without the library. Each problem is one line.\n"
        "Exit 0: no problem; 1: problems found; 4: the file cannot be read as an article\n"
        "database."));
    int exit = tool.ParseCommand(parser, arguments, 0, 0, true);
    if (exit >= 0) {
        return exit;
    }
    const QString& path = tool.DatabasePath();
    if (!QFileInfo(path).isFile()) {
        return tool.Fail(EXIT_DATABASE, QStringLiteral("%1 does not exist").arg(path),
                         QStringLiteral("give --db the article database to check"));
    }
    ReadOnlyFile file(path);
    qint64 applicationId = 0;
    qint64 tables = 0;
    if (!file.Opened() || !file.Integer("PRAGMA application_id", applicationId) ||
        !file.Integer("SELECT COUNT(*) FROM sqlite_master", tables)) {
        return tool.Fail(
            EXIT_DATABASE,
            QStringLiteral("%1 cannot be read: %2")
                .arg(path, file.Opened() ? file.Error() : QStringLiteral("it cannot be opened")),
            QStringLiteral("restore it from a backup (FILE.backups/)"));
    }
    if (applicationId != DBManager::ApplicationId(DBManager::SCHEMA_ARTICLES)) {
        return tool.Fail(
            EXIT_DATABASE,
            applicationId == DBManager::ApplicationId(DBManager::SCHEMA_RECEIPTS)
                ? QStringLiteral("%1 is a receipt database, not an article database").arg(path)
                : QStringLiteral("%1 is not an article database").arg(path),
            QStringLiteral("give --db the article database to check"));
    }
    Report report;
    checkIntegrity(file, report);
    checkBarcodes(file, report);
    checkSettings(file, report);
    checkSearchNotes(file, report);
    qint64 articles = -1;
    qint64 barcodes = -1;
    file.Integer("SELECT COUNT(*) FROM Article", articles);
    file.Integer("SELECT COUNT(*) FROM ArticleBarcode", barcodes);
    if (tool.Json()) {
        tool.PrintJson(QJsonObject{{QStringLiteral("ok"), report.Count() == 0},
                                   {QStringLiteral("articles"), articles},
                                   {QStringLiteral("barcodes"), barcodes},
                                   {QStringLiteral("count"), report.Count()},
                                   {QStringLiteral("problems"), report.json}});
    } else {
        for (const QString& line : report.lines) {
            tool.Out() << line << "\n";
        }
        if (report.Count() == 0) {
            tool.Out() << path << ": no problems (" << articles << " articles, " << barcodes
                       << " barcodes)\n";
        } else {
            tool.Out() << path << ": " << report.Count() << " problem"
                       << (report.Count() == 1 ? "" : "s") << " found\n";
        }
    }
    return report.Count() == 0 ? EXIT_DONE : EXIT_PROBLEMS;
}

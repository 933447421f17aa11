// search: the register's incremental search on names and main barcodes, with how many articles
// it found, a limit on how many are shown, and a search that ignores diacritics.

#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <algorithm>
#include <climits>

#include "ArticleView.h"
#include "CatalogueWalk.h"
#include "Commands.h"
#include "DBData.h"
#include "DBRow.h"
#include "Tool.h"

namespace {

constexpr int defaultLimit = 200;
const QString articleTable = QStringLiteral("Article");
const QString nameColumn = QStringLiteral("art_name");
const QString barcodeColumn = QStringLiteral("main_barcode");

// What the search found: the articles to show, in the register's order, and how many matched.
struct Found {
    QVector<Article> shown;
    qint64 total = 0;
};

// ---- The register's search -------------------------------------------------------------------

// One pass as the register's seeker makes it: the articles whose `column` matches the LIKE
// `pattern` (case ignored), ordered by UPPER(column), at most `limit` of them (0: all). Those not
// listed yet are appended while fewer than `limit` are listed.
bool appendMatches(Tool& tool, const QString& column, const QString& pattern, int limit,
                   QVector<Article>& shown, QSet<unsigned int>& listed) {
    DBManager& database = tool.Database();
    const DBTable* table = database.GetTable(articleTable);
    if (!table) {
        return false;
    }
    auto* row = new DBRow(table);
    row->AppendField(column, pattern);
    QSharedPointer<DBData> query = QSharedPointer<DBData>::create();
    query->AppendRow(row);
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    if (database.Load(query, DBManager::LOAD_MODE_BY_KEY, rows, true,
                      QStringLiteral("UPPER(") + column + QLatin1Char(')'),
                      limit) != DB_OPERATION_SUCCESS) {
        return false;
    }
    for (DBRow* found : *rows) {
        if (limit > 0 && shown.size() >= limit) {
            break;
        }
        Article article;
        tool.Articles().GetSeeker()->BuildArticleFromDbData(found, &article);
        if (!listed.contains(article.id)) {
            listed.insert(article.id);
            shown.append(article);
        }
    }
    return true;
}

// SQL text of a LIKE pattern.
QString sqlText(const QString& text) {
    return QLatin1Char('\'') + QString(text).replace(QLatin1Char('\''), QStringLiteral("''")) +
           QLatin1Char('\'');
}

// Names first, prefix matches before the rest, then main barcodes the same way: the passes of
// the register's search without its cap of 100 rows a pass. Each pass needs at most `limit` rows
// (those already listed among them included), so none reads more than it can show. When the
// limit cut the list, one count over the table says how many there are.
bool searchIndexed(Tool& tool, const QString& text, int limit, Found& found) {
    QSet<unsigned int> listed;
    const QString prefix = text + QLatin1Char('%');
    const QString infix = QLatin1Char('%') + text + QLatin1Char('%');
    for (const QString& column : {nameColumn, barcodeColumn}) {
        for (const QString& pattern : {prefix, infix}) {
            if (limit > 0 && found.shown.size() >= limit) {
                break;
            }
            if (!appendMatches(tool, column, pattern, limit, found.shown, listed)) {
                return false;
            }
        }
    }
    found.total = found.shown.size();
    if (limit > 0 && found.shown.size() >= limit) {
        unsigned int count = 0;
        const QString pattern = sqlText(infix);
        if (tool.Database().CountInRange(articleTable,
                                         nameColumn + QStringLiteral(" LIKE ") + pattern +
                                             QStringLiteral(" OR ") + barcodeColumn +
                                             QStringLiteral(" LIKE ") + pattern,
                                         count) != DB_OPERATION_SUCCESS) {
            return false;
        }
        found.total = count;
    }
    return true;
}

// ---- The search ignoring diacritics ------------------------------------------------------------

// `text` without diacritics and case: decomposed, combining marks dropped, "ł" made "l" (it has
// no decomposition), case folded. "Żółty" and "ZOLTY" both give "zolty".
QVector<uint> folded(const QString& text) {
    const QVector<uint> points = text.normalized(QString::NormalizationForm_D).toUcs4();
    QVector<uint> result;
    result.reserve(points.size());
    for (uint point : points) {
        if (QChar::category(point) == QChar::Mark_NonSpacing) {
            continue;
        }
        if (point == 0x0141 || point == 0x0142) {  // Ł, ł
            point = 'l';
        }
        result.append(QChar::toCaseFolded(point));
    }
    return result;
}

// LIKE on folded text: "%" any run of characters, "_" exactly one, the whole text matched.
bool like(const QVector<uint>& text, const QVector<uint>& pattern) {
    int t = 0;
    int p = 0;
    int starAt = -1;  // the last "%" seen, to fall back to
    int starText = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '%') {
            starAt = p++;
            starText = t;
        } else if (p < pattern.size() && (pattern[p] == '_' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (starAt >= 0) {
            p = starAt + 1;
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

// The same order as the register's passes, over every article of the catalogue: the database
// cannot compare names without their diacritics, so each name is read and folded here.
bool searchFolded(Tool& tool, const QString& text, int limit, Found& found) {
    struct Match {
        int pass;  // 0 name prefix, 1 name elsewhere, 2 barcode prefix, 3 barcode elsewhere
        QByteArray order;
        Article article;
    };
    const QVector<uint> typed = folded(text);
    const QVector<uint> prefix = typed + QVector<uint>{'%'};
    const QVector<uint> infix = QVector<uint>{'%'} + prefix;
    QVector<Match> matches;
    const bool walked = forEachArticle(tool.Articles(), [&](const Article& article) {
        const QVector<uint> name = folded(article.name);
        const QVector<uint> barcode = folded(article.mainBarcode);
        const int pass = like(name, prefix)      ? 0
                         : like(name, infix)     ? 1
                         : like(barcode, prefix) ? 2
                         : like(barcode, infix)  ? 3
                                                 : -1;
        if (pass >= 0) {
            matches.append({pass,
                            (pass < 2 ? article.name : article.mainBarcode).toUpper().toUtf8(),
                            article});
        }
    });
    if (!walked) {
        return false;
    }
    std::sort(matches.begin(), matches.end(), [](const Match& a, const Match& b) {
        if (a.pass != b.pass) {
            return a.pass < b.pass;
        }
        return a.order != b.order ? a.order < b.order : a.article.id < b.article.id;
    });
    found.total = matches.size();
    for (const Match& match : matches) {
        if (limit > 0 && found.shown.size() >= limit) {
            break;
        }
        found.shown.append(match.article);
    }
    return true;
}

}  // namespace

int RunSearch(Tool& tool, const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "The register's incremental search: articles whose name or main barcode holds TEXT\n"
        "(case does not matter; % and _ are wildcards), names before barcodes, those beginning\n"
        "with TEXT first. Says how many were found and how many are shown."));
    parser.addPositionalArgument(QStringLiteral("TEXT"), QStringLiteral("What was typed."));
    const QCommandLineOption limitOption(
        QStringLiteral("limit"),
        QStringLiteral("Show at most N articles (default %1; 0 shows all).").arg(defaultLimit),
        QStringLiteral("N"));
    const QCommandLineOption foldOption(
        QStringLiteral("fold"),
        QStringLiteral("Ignore diacritics too: 'zolty' finds \"Żółty\", 'lodz' finds \"Łódź\". "
                       "Reads every article."));
    parser.addOptions({limitOption, foldOption});
    int exit = tool.ParseCommand(parser, arguments, 1, 1, true);
    if (exit >= 0) {
        return exit;
    }
    int limit = defaultLimit;
    if (parser.isSet(limitOption)) {
        bool ok = false;
        const qlonglong value = parser.value(limitOption).toLongLong(&ok);
        if (!ok || value < 0 || value > INT_MAX) {
            return tool.Fail(EXIT_USAGE,
                             QStringLiteral("--limit takes a number of articles, 0 for all"),
                             QStringLiteral("search --limit 500 TEXT"));
        }
        limit = static_cast<int>(value);
    }
    if (!tool.StartLibrary()) {
        return EXIT_DATABASE;
    }
    // Names are stored in NFC: a name typed decomposed must find them too.
    const QString text =
        parser.positionalArguments().first().normalized(QString::NormalizationForm_C);
    Found found;
    const bool searched = parser.isSet(foldOption) ? searchFolded(tool, text, limit, found)
                                                   : searchIndexed(tool, text, limit, found);
    if (!searched) {
        return tool.DatabaseFailure(QStringLiteral("the search failed"));
    }
    if (tool.Json()) {
        ArticleView::ExtraBarcodeReader extras(tool.Articles(), tool.Database());
        ArticleView::JsonListPrinter list(tool.Out(), QStringLiteral("articles"));
        for (const Article& article : found.shown) {
            list.Add(ArticleView::Json(article, extras.Of(article)));
        }
        list.Finish({{QStringLiteral("found"), found.total},
                     {QStringLiteral("shown"), found.shown.size()}});
    } else {
        if (!found.shown.isEmpty()) {
            ArticleView::PrintTable(tool.Out(), found.shown);
        }
        tool.Out() << found.total << " found";
        if (found.total > found.shown.size()) {
            tool.Out() << ", first " << found.shown.size()
                       << " shown (--limit N shows more, --limit 0 all)";
        }
        tool.Out() << "\n";
    }
    return found.total == 0 ? EXIT_NOT_FOUND : EXIT_DONE;
}

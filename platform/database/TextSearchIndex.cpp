// How the trigram index serves a LIKE pattern or a prefix:
//
//  - LIKE patterns holding a run of 3 or more ordinary characters ask the index (FTS5) for the
//    rows containing that run's trigrams, then check each candidate with the same case-folding
//    LIKE the plain statement uses, and sort and cap them as it would;
//  - prefixes ask the trigram index, or for short prefixes walk an ordinary index once per
//    case form of their first letters.

#include "TextSearchIndex.h"

#include <sqlite3.h>

#include <QRegularExpression>
#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>

#include "SchemaCatalogue.h"
#include "SqlText.h"
#include "SqliteStatement.h"
#include "SqliteTransaction.h"
#include "StatementRunner.h"
#include "UnicodeText.h"

namespace {

// The shortest run of ordinary characters the trigram index can look for.
constexpr int trigramLength = 3;
// Trigrams of a run considered, and how many of the rarest the index is asked for: the index has
// no positions, so more trigrams narrow the candidates little but cost whole index lists.
constexpr int maxTrigrams = 12;
constexpr int askedTrigrams = 3;
// Index entries read to tell a common trigram from a rare one.
constexpr int frequencyCap = 50000;
// What fetching and checking one candidate row costs, against reading one index entry: a seek
// into the table, often into a page that is not cached (another connection's write empties the
// cache), against a few bytes of a list read in order. Measured on 100k articles: 40 fetched
// 374 candidates for a rare name and took 2.2-2.4 ms after an edit, 400 takes 0.8-0.9 ms.
constexpr double candidateCost = 400;
// Case forms of a prefix's first letters walked on an ordinary index.
constexpr int maxPrefixForms = 8;

// Characters whose case folding SQLite's trigram tokenizer and this layer's LIKE agree on:
// ASCII and the Latin letters of Central Europe. Runs holding others take the plain path.
bool foldsAlike(QChar c) {
    const ushort u = c.unicode();
    if (u < 0x80) {
        return u >= 0x20;
    }
    if (u >= 0xC0 && u <= 0x17F) {
        return u != 0xD7 && u != 0xF7 && u != 0xDF && u != 0x130 && u != 0x131 && u != 0x149 &&
               u != 0x17F;
    }
    return false;
}

// The longest run of ordinary characters in a LIKE pattern (% and _ are wildcards; after
// `escape` a character is ordinary).
QString longestRun(const QString& pattern, QChar escape) {
    QString best;
    QString current;
    for (int i = 0; i < pattern.size(); ++i) {
        QChar c = pattern[i];
        if (!escape.isNull() && c == escape && i + 1 < pattern.size()) {
            current.append(pattern[++i]);
            continue;
        }
        if (c == QLatin1Char('%') || c == QLatin1Char('_')) {
            if (current.size() > best.size()) {
                best = current;
            }
            current.clear();
            continue;
        }
        current.append(c);
    }
    return current.size() > best.size() ? current : best;
}

bool allFoldAlike(const QString& text) {
    return std::all_of(text.cbegin(), text.cend(), foldsAlike);
}

// The trigrams of a run with their positions, at most `maxTrigrams` spread over it.
QVector<QPair<int, QString>> trigramsOf(const QString& run) {
    QVector<QPair<int, QString>> trigrams;
    const int count = run.size() - trigramLength + 1;
    const int step = qMax(1, count / maxTrigrams);
    for (int i = 0; i < count; i += step) {
        trigrams.append(qMakePair(i, run.mid(i, trigramLength).toLower()));
    }
    return trigrams;
}

QString phrase(QString trigram) {
    trigram.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + trigram + QLatin1Char('"');
}

// The ORDER BY expressions the indexed paths reproduce: the column itself, or its UPPER.
enum class SortKey { Rowid, Column, UpperColumn, Unsupported };

SortKey sortKeyOf(const QString& order, const QString& column) {
    const QString expression = order.trimmed();
    if (expression.isEmpty()) {
        return SortKey::Rowid;
    }
    const QString bare = column;
    const QString quoted = QLatin1Char('"') + column + QLatin1Char('"');
    if (expression == bare || expression == quoted) {
        return SortKey::Column;
    }
    static const QRegularExpression upper(QStringLiteral("^upper\\s*\\(\\s*(.*?)\\s*\\)$"),
                                          QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = upper.match(expression);
    if (match.hasMatch() && (match.captured(1) == bare || match.captured(1) == quoted)) {
        return SortKey::UpperColumn;
    }
    return SortKey::Unsupported;
}

// Whether a table's rows are in rowid order under its key: no declared key, or an INTEGER
// PRIMARY KEY (which is the rowid).
bool keyIsRowid(const DBTable* table) {
    const QVector<const DBColumn*>& key = table->GetPrimaryKey();
    return key.isEmpty() ||
           (key.size() == 1 &&
            key.first()->GetType().compare(QLatin1String("INTEGER"), Qt::CaseInsensitive) == 0);
}

struct Candidate {
    QByteArray key;
    qint64 rowid;
    bool operator<(const Candidate& other) const {
        const int byKey = std::memcmp(key.constData(), other.key.constData(),
                                      static_cast<size_t>(qMin(key.size(), other.key.size())));
        if (byKey != 0) {
            return byKey < 0;
        }
        if (key.size() != other.key.size()) {
            return key.size() < other.key.size();
        }
        return rowid < other.rowid;
    }
};

// The rowids of the candidates in the order the plain statement would list them, the first
// `limit` only when `limit` > 0.
QVector<qint64> orderedRowids(QVector<Candidate>& matching, int limit) {
    if (limit > 0 && matching.size() > limit) {
        std::partial_sort(matching.begin(), matching.begin() + limit, matching.end());
        matching.resize(limit);
    } else {
        std::sort(matching.begin(), matching.end());
    }
    QVector<qint64> rowids;
    rowids.reserve(matching.size());
    for (const Candidate& candidate : matching) {
        rowids.append(candidate.rowid);
    }
    return rowids;
}

// The text of a result column as SQLite stores it (UTF-8).
QByteArray columnBytes(sqlite3_stmt* statement, int column) {
    return QByteArray(reinterpret_cast<const char*>(sqlite3_column_text(statement, column)),
                      sqlite3_column_bytes(statement, column));
}

// Whether a text converts to UTF-8 here as SQLite converts it when bound: not so for a lone
// surrogate, which the two encode differently.
bool pairedSurrogates(const QString& text) {
    for (int i = 0; i < text.size(); ++i) {
        if (text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            ++i;
        } else if (text[i].isSurrogate()) {
            return false;
        }
    }
    return true;
}

// Notes a search reads along with the index before it folds them: folding is a durable write
// (a sync of the file), reading a few noted rows costs far less.
constexpr int maxUnfoldedNotes = 256;

// Case forms of an exact name looked up on an index ignoring case, at most.
constexpr int maxNameForms = 16;
// The longest exact text looked up on the index ignoring case, in UTF-16 units.
constexpr int maxNameLength = 256;
// Rows AnswerLike hands back at most; callers that read more run the statement itself.
constexpr int maxAnsweredRows = 1000;
// Statement texts whose shape AnswerLike remembers.
constexpr int maxLikeShapes = 64;

// For every code point whose case fold others share, all of them (itself included): LIKE takes
// "K", "k" and KELVIN SIGN for one another, an index ignoring case only the first two.
const QHash<uint, QVector<uint>>& foldClasses() {
    static const QHash<uint, QVector<uint>> classes = [] {
        QHash<uint, QVector<uint>> byFold;
        // Case pairs outside the BMP stay outside it, and names that hold such letters are left
        // to the trigram path (see ignoringCaseRowids).
        for (uint c = 0; c <= 0xFFFF; ++c) {
            if (c >= 0xD800 && c <= 0xDFFF) {
                continue;
            }
            const uint folded = UnicodeText::Fold(c);
            if (folded != c) {
                QVector<uint>& members = byFold[folded];
                if (members.isEmpty()) {
                    members.append(folded);
                }
                members.append(c);
            }
        }
        QHash<uint, QVector<uint>> classes;
        for (auto it = byFold.cbegin(); it != byFold.cend(); ++it) {
            for (uint member : it.value()) {
                classes.insert(member, it.value());
            }
        }
        return classes;
    }();
    return classes;
}

// The code points an index under NOCASE (which folds ASCII letters only) must be asked for so
// as to find every text LIKE takes for `c`.
QVector<uint> noCaseForms(uint c) {
    const QVector<uint> members = foldClasses().value(c, QVector<uint>{c});
    QVector<uint> forms;
    for (uint member : members) {
        const uint asNoCase = (member >= 'A' && member <= 'Z') ? member + ('a' - 'A') : member;
        if (!forms.contains(asNoCase)) {
            forms.append(asNoCase);
        }
    }
    return forms;
}

}  // namespace

TextSearchIndex::TextSearchIndex(StatementRunner& runner, SchemaCatalogue& catalogue)
    : runner(runner), catalogue(catalogue) {}

double TextSearchIndex::estimatedRows(const Index& index) {
    const StatementRunner::Lease largest =
        runner.TryPrepare(QStringLiteral("SELECT MAX(rowid) FROM ") + index.quotedContent);
    if (!largest) {
        return 0;
    }
    return sqlite3_step(largest->Handle()) == SQLITE_ROW
               ? double(sqlite3_column_int64(largest->Handle(), 0))
               : 0;
}

QString TextSearchIndex::trigramQuery(const Index& index, const QString& run) {
    const QString& quotedIndex = index.quotedName;
    if (run.size() < trigramLength || !allFoldAlike(run)) {
        return QString();
    }
    // The rarest trigrams, by a capped count remembered per trigram; the counts only steer
    // the choice, so they may grow stale without harm.
    struct Choice {
        int frequency;
        int position;
        QString trigram;
    };
    QVector<Choice> choices;
    for (const QPair<int, QString>& candidate : trigramsOf(run)) {
        const QString& trigram = candidate.second;
        const QString key = quotedIndex + QLatin1Char('\x1f') + trigram;
        auto known = trigramFrequencies.constFind(key);
        if (known == trigramFrequencies.constEnd()) {
            const StatementRunner::Lease counter = runner.TryPrepare(
                QStringLiteral("SELECT COUNT(*) FROM (SELECT 1 FROM %1 WHERE %1 MATCH ? LIMIT %2)")
                    .arg(quotedIndex)
                    .arg(frequencyCap));
            if (!counter) {
                return QString();
            }
            counter->Bind(1, phrase(trigram));
            if (sqlite3_step(counter->Handle()) != SQLITE_ROW) {
                return QString();
            }
            if (trigramFrequencies.size() > maxRememberedTrigrams) {
                trigramFrequencies.clear();
            }
            known = trigramFrequencies.insert(key, sqlite3_column_int(counter->Handle(), 0));
        }
        choices.append(Choice{known.value(), candidate.first, trigram});
    }
    // The set of up to `askedTrigrams` non-overlapping trigrams (overlapping ones mostly come
    // together, so they narrow little) that costs least: every index list read, plus every
    // candidate row fetched and checked, estimating the candidates as if the trigrams were
    // independent. A count at the cap stands for a list of unknown length, taken as long.
    const double rows = qMax<double>(estimatedRows(index), frequencyCap);
    auto length = [](const Choice& choice) {
        return choice.frequency >= frequencyCap ? 4.0 * frequencyCap : double(choice.frequency);
    };
    QVector<int> best;
    double bestCost = 0;
    QVector<int> chosen;
    std::function<void(int, double, double)> consider = [&](int from, double read, double share) {
        if (!chosen.isEmpty()) {
            const double cost = read + candidateCost * rows * share;
            if (best.isEmpty() || cost < bestCost) {
                best = chosen;
                bestCost = cost;
            }
        }
        if (chosen.size() == askedTrigrams) {
            return;
        }
        for (int i = from; i < choices.size(); ++i) {
            const Choice& choice = choices[i];
            const bool fits = std::none_of(chosen.cbegin(), chosen.cend(), [&](int taken) {
                return qAbs(choices[taken].position - choice.position) < trigramLength ||
                       choices[taken].trigram == choice.trigram;
            });
            if (fits) {
                chosen.append(i);
                consider(i + 1, read + length(choice), share * qMin(1.0, length(choice) / rows));
                chosen.removeLast();
            }
        }
    };
    consider(0, 0, 1);
    QStringList asked;
    for (int i : best) {
        asked.append(phrase(choices[i].trigram));
    }
    return asked.join(QStringLiteral(" AND "));
}

void TextSearchIndex::Describe() {
    indexes.clear();
    memo = CandidateMemo();
    scanned = ScanMemo();
    const QHash<QString, DBTable*>& tables = catalogue.Tables();
    sqlite3_stmt* virtualTables = nullptr;
    if (sqlite3_prepare_v2(runner.Connection(),
                           "SELECT name, sql FROM sqlite_master WHERE type = 'table' AND "
                           "substr(sql, 1, 20) = 'CREATE VIRTUAL TABLE'",
                           -1, &virtualTables, nullptr) == SQLITE_OK) {
        static const QRegularExpression fts(QStringLiteral("USING\\s+fts5\\s*\\((.*)\\)"),
                                            QRegularExpression::CaseInsensitiveOption |
                                                QRegularExpression::DotMatchesEverythingOption);
        static const QRegularExpression content(
            QStringLiteral("content\\s*=\\s*['\"]?([^'\",\\s)]+)"),
            QRegularExpression::CaseInsensitiveOption);
        static const QRegularExpression trigram(QStringLiteral("tokenize\\s*=\\s*['\"]\\s*trigram"),
                                                QRegularExpression::CaseInsensitiveOption);
        while (sqlite3_step(virtualTables) == SQLITE_ROW) {
            const QString name = QString::fromUtf8(
                reinterpret_cast<const char*>(sqlite3_column_text(virtualTables, 0)));
            const QString sql = QString::fromUtf8(
                reinterpret_cast<const char*>(sqlite3_column_text(virtualTables, 1)));
            const QString arguments = fts.match(sql).captured(1);
            const QString contentTable = content.match(arguments).captured(1);
            const DBTable* indexed = tables.value(name, nullptr);
            if (contentTable.isEmpty() || !trigram.match(arguments).hasMatch() || !indexed) {
                continue;
            }
            Index index;
            index.quotedName = indexed->GetQuotedName();
            index.quotedContent = SqlText::QuoteIdentifier(contentTable);
            QStringList quotedColumns;
            for (const DBColumn* column : indexed->GetColumns()) {
                index.columns.insert(column->GetName());
                quotedColumns.append(column->GetQuotedName());
            }
            if (const DBTable* pending =
                    tables.value(name + QLatin1String(pendingSuffix), nullptr)) {
                // Notes it cannot read would leave the index behind the table: not usable.
                const bool readable = pending->GetColumn(QStringLiteral("id")) &&
                                      pending->GetColumn(QStringLiteral("indexed")) &&
                                      std::all_of(index.columns.cbegin(), index.columns.cend(),
                                                  [pending](const QString& column) {
                                                      return pending->GetColumn(column) != nullptr;
                                                  });
                if (!readable) {
                    continue;
                }
                const QString p = pending->GetQuotedName();
                const QString i = index.quotedName;
                const QString c = index.quotedContent;
                const QString columns = quotedColumns.join(QStringLiteral(", "));
                QStringList contentColumns;
                for (const QString& column : quotedColumns) {
                    contentColumns.append(QStringLiteral("c.") + column);
                }
                index.anyPending = QStringLiteral("SELECT EXISTS (SELECT 1 FROM %1)").arg(p);
                index.manyPending =
                    QStringLiteral("SELECT EXISTS (SELECT 1 FROM %1 LIMIT 1 OFFSET %2)")
                        .arg(p)
                        .arg(maxUnfoldedNotes);
                index.pendingIds = QStringLiteral(" UNION ALL SELECT id FROM ") + p;
                index.foldRemoved = QStringLiteral(
                                        "INSERT INTO %1 (%1, rowid, %2) SELECT 'delete', id, %2 "
                                        "FROM %3 WHERE indexed")
                                        .arg(i, columns, p)
                                        .toUtf8();
                // Driven from the notes (CROSS JOIN keeps them the outer loop): a fold costs
                // the rows written, not the size of the catalogue.
                index.foldWritten =
                    QStringLiteral(
                        "INSERT INTO %1 (rowid, %2) SELECT c.rowid, %3 FROM %5 AS p CROSS JOIN "
                        "%4 AS c ON c.rowid = p.id")
                        .arg(i, columns, contentColumns.join(QStringLiteral(", ")), c, p)
                        .toUtf8();
                index.foldAll =
                    QStringLiteral("INSERT INTO %1 (%1) VALUES ('delete-all')").arg(i).toUtf8();
                index.clearPending = QStringLiteral("DELETE FROM %1").arg(p).toUtf8();
                index.contentEmpty = QStringLiteral("SELECT NOT EXISTS (SELECT 1 FROM %1)").arg(c);
            }
            indexes.insert(contentTable, index);
        }
    }
    sqlite3_finalize(virtualTables);
}

void TextSearchIndex::Clear() {
    scanned = ScanMemo();
    indexes.clear();
    likeShapes.clear();
    trigramFrequencies.clear();
    memo = CandidateMemo();
}

QString TextSearchIndex::indexedRows(const Index& index) {
    // The index is behind its table exactly for the rows noted since the last fold: those are
    // candidates whatever it holds for them.
    return QStringLiteral("rowid IN (SELECT rowid FROM ") + index.quotedName +
           QStringLiteral(" WHERE ") + index.quotedName + QStringLiteral(" MATCH ?") +
           index.pendingIds + QLatin1Char(')');
}

void TextSearchIndex::fold(const Index& index, bool always) {
    if (index.anyPending.isEmpty()) {
        return;
    }
    auto ask = [this](const QString& sql, bool& answer) {
        const StatementRunner::Lease statement = runner.TryPrepare(sql);
        if (!statement) {
            return false;
        }
        if (sqlite3_step(statement->Handle()) != SQLITE_ROW) {
            return false;
        }
        answer = sqlite3_column_int(statement->Handle(), 0) != 0;
        return true;
    };
    bool pending = false;
    if (!ask(always ? index.anyPending : index.manyPending, pending) || !pending ||
        sqlite3_db_readonly(runner.Connection(), "main") == 1) {
        return;
    }
    bool contentEmpty = false;
    if (!ask(index.contentEmpty, contentEmpty)) {
        return;
    }
    // One write: the notes go only together with the index entries they stand for.
    sqlite3* connection = runner.Connection();
    auto exec = [connection](const QByteArray& sql) {
        return sqlite3_exec(connection, sql.constData(), nullptr, nullptr, nullptr);
    };
    // Never waits for the write lock: while another process writes, the search reads the notes
    // along with the index instead of stalling the register for the busy timeout.
    SqliteTransaction transaction(connection);
    int rc = transaction.TryBegin();
    if (rc == SQLITE_OK) {
        // A cleared catalogue: dropping the whole index beats removing each article from it.
        rc = contentEmpty ? exec(index.foldAll) : exec(index.foldRemoved);
    }
    if (rc == SQLITE_OK && !contentEmpty) {
        rc = exec(index.foldWritten);
    }
    if (rc == SQLITE_OK) {
        rc = exec(index.clearPending);
    }
    if (rc == SQLITE_OK) {
        transaction.Commit();
    }
}

void TextSearchIndex::FoldAll() {
    for (const Index& index : qAsConst(indexes)) {
        fold(index, true);
    }
}

void TextSearchIndex::readVersions(qint64& dataVersion, qint64& changes) {
    dataVersion = -1;
    if (const StatementRunner::Lease version =
            runner.TryPrepare(QStringLiteral("PRAGMA data_version"))) {
        if (sqlite3_step(version->Handle()) == SQLITE_ROW) {
            dataVersion = sqlite3_column_int64(version->Handle(), 0);
        }
    }
    changes = sqlite3_total_changes64(runner.Connection());
}

bool TextSearchIndex::candidates(const DBTable* table, const DBColumn* column, const Index& index,
                                 const QString& match, Candidates& found) {
    // PRAGMA data_version sees the commits of other connections, the change count this
    // connection's own writes. Read before the rows, so that a change in between only makes
    // the memo look older than it is. Nothing is remembered inside a transaction: a rollback
    // undoes changes without lowering the count.
    sqlite3* connection = runner.Connection();
    qint64 dataVersion = -1;
    qint64 changes = -1;
    readVersions(dataVersion, changes);
    const QString lookup =
        table->GetName() + QLatin1Char('\x1f') + column->GetName() + QLatin1Char('\x1f') + match;
    if (dataVersion >= 0 && memo.lookup == lookup && memo.dataVersion == dataVersion &&
        memo.changes == changes && memo.schemaVersion == catalogue.Version()) {
        found = memo.found;  // shared, not copied
        if (memo.found.rows.size() > maxKeptCandidates) {
            memo = CandidateMemo();
        }
        return true;
    }
    memo = CandidateMemo();
    const QString sql = QStringLiteral("SELECT rowid, ") + column->GetQuotedName() +
                        QStringLiteral(" FROM ") + table->GetQuotedName() +
                        QStringLiteral(" WHERE ") + indexedRows(index);
    const StatementRunner::Lease query = runner.TryPrepare(sql);
    if (!query) {
        return false;
    }
    query->Bind(1, match);
    sqlite3_stmt* handle = query->Handle();
    int rc = SQLITE_OK;
    Candidates rows;
    while ((rc = sqlite3_step(handle)) == SQLITE_ROW) {
        const int type = sqlite3_column_type(handle, 1);
        const char* text = type == SQLITE_NULL
                               ? nullptr
                               : reinterpret_cast<const char*>(sqlite3_column_text(handle, 1));
        const int bytes = text ? sqlite3_column_bytes(handle, 1) : 0;
        rows.rows.append(
            SearchCandidate{sqlite3_column_int64(handle, 0), type, rows.texts.size(), bytes});
        rows.texts.append(text, bytes);
    }
    if (rc != SQLITE_DONE) {
        return false;
    }
    if (dataVersion >= 0 && sqlite3_get_autocommit(connection)) {
        memo.lookup = lookup;
        memo.dataVersion = dataVersion;
        memo.changes = changes;
        memo.schemaVersion = catalogue.Version();
        memo.found = rows;
    }
    found = rows;
    return true;
}

bool TextSearchIndex::LoadLike(const DBTable* table, const DBField* field,
                               DBManager::eLoadMode mode, const QString& order, int limit,
                               QSharedPointer<DBData>& result) {
    const auto index = indexes.constFind(table->GetName());
    const DBColumn* column = table->GetColumn(field->GetColumnName());
    if (index == indexes.constEnd() || !column || !index->columns.contains(column->GetName()) ||
        field->GetValue().userType() != QMetaType::QString || !keyIsRowid(table)) {
        return false;
    }
    const SortKey sortKey = sortKeyOf(order, column->GetName());
    if (sortKey == SortKey::Unsupported ||
        (sortKey == SortKey::Rowid && mode != DBManager::LOAD_MODE_BY_KEY &&
         mode != DBManager::LOAD_MODE_BY_EXAMPLE)) {
        return false;
    }
    const QString pattern = field->GetValue().toString();
    if (!pairedSurrogates(pattern)) {
        return false;
    }
    const QString match = trigramQuery(*index, longestRun(pattern, QChar()));
    if (match.isEmpty()) {
        return limit > 0 && limit <= maxScanLimit &&
               scanLike(table, column, pattern, static_cast<int>(sortKey), limit, result);
    }
    fold(*index);
    // Candidates: the rows holding the run's trigrams in any indexed column.
    Candidates found;
    if (!candidates(table, column, *index, match, found)) {
        return false;
    }
    const QByteArray utf8 = pattern.toUtf8();
    const UnicodeText::LikePattern like(utf8.constData(), utf8.size(), 0);
    QVector<Candidate> matching;
    for (const SearchCandidate& candidate : qAsConst(found.rows)) {
        const char* text = found.texts.constData() + candidate.offset;
        if (candidate.type == SQLITE_NULL || !like.Matches(text, candidate.bytes)) {
            continue;
        }
        if (sortKey == SortKey::Column && candidate.type != SQLITE_TEXT) {
            return false;  // mixed storage classes sort differently; leave it to SQLite
        }
        matching.append(Candidate{sortKey == SortKey::UpperColumn
                                      ? UnicodeText::Upper(text, candidate.bytes)
                                  : sortKey == SortKey::Column ? QByteArray(text, candidate.bytes)
                                                               : QByteArray(),
                                  candidate.rowid});
    }
    return loadRowsInOrder(table, orderedRowids(matching, limit), result);
}

namespace {

// The first `limit` candidates in statement order, kept as the scan goes: at most twice
// `limit` at any time, however many rows match.
class TopCandidates {
public:
    explicit TopCandidates(int limit) : limit(limit) { kept.reserve(2 * limit); }
    void Add(Candidate&& candidate) {
        kept.append(std::move(candidate));
        if (kept.size() == 2 * limit) {
            std::nth_element(kept.begin(), kept.begin() + limit, kept.end());
            kept.resize(limit);
            worst = *std::max_element(kept.cbegin(), kept.cend());
            full = true;
        }
    }
    // False when a row of this text (`upper`: keyed by its UPPER) and rowid cannot be among the
    // first `limit`, told from the text's leading ASCII without building its key.
    bool MayTake(const char* text, int bytes, bool upper, qint64 rowid) const {
        if (!full) {
            return true;
        }
        for (int i = 0; i < bytes; ++i) {
            unsigned char c = static_cast<unsigned char>(text[i]);
            if (c >= 0x80) {
                return true;  // the key may differ from here on: build it
            }
            if (upper && static_cast<unsigned>(c - 'a') < 26u) {
                c -= 'a' - 'A';
            }
            if (i >= worst.key.size()) {
                return false;  // the same beginning, longer: after the worst kept
            }
            const unsigned char w = static_cast<unsigned char>(worst.key[i]);
            if (c != w) {
                return c < w;
            }
        }
        return bytes < worst.key.size() || rowid < worst.rowid;
    }
    QVector<qint64> Rowids() { return orderedRowids(kept, limit); }

private:
    int limit;
    QVector<Candidate> kept;
    bool full = false;
    Candidate worst{};  // once full: the last of those kept at the last pruning
};

}  // namespace

bool TextSearchIndex::scanLike(const DBTable* table, const DBColumn* column, const QString& pattern,
                               int sortKey, int limit, QSharedPointer<DBData>& result) {
    const SortKey key = static_cast<SortKey>(sortKey);
    // Every text the pattern takes holds its longest run, so the infix of that run takes it too.
    const QString infix = QLatin1Char('%') + longestRun(pattern, QChar()) + QLatin1Char('%');
    const QString lookup = table->GetName() + QLatin1Char('\x1f') + column->GetName() +
                           QLatin1Char('\x1f') + QString::number(sortKey) + QLatin1Char('\x1f') +
                           QString::number(limit) + QLatin1Char('\x1f');
    qint64 dataVersion = -1;
    qint64 changes = -1;
    readVersions(dataVersion, changes);
    if (dataVersion >= 0 && pattern == infix && scanned.lookup == lookup + infix &&
        scanned.dataVersion == dataVersion && scanned.changes == changes &&
        scanned.schemaVersion == catalogue.Version()) {
        const QVector<qint64> rowids = scanned.rowids;
        scanned = ScanMemo();
        return loadRowsInOrder(table, rowids, result);
    }
    scanned = ScanMemo();
    const StatementRunner::Lease query =
        runner.TryPrepare(QStringLiteral("SELECT rowid, ") + column->GetQuotedName() +
                          QStringLiteral(" FROM ") + table->GetQuotedName());
    if (!query) {
        return false;
    }
    const QByteArray patternUtf8 = pattern.toUtf8();
    const QByteArray infixUtf8 = infix.toUtf8();
    const UnicodeText::LikePattern asked(patternUtf8.constData(), patternUtf8.size(), 0);
    const UnicodeText::LikePattern wider(infixUtf8.constData(), infixUtf8.size(), 0);
    const bool same = pattern == infix;
    TopCandidates askedTop(limit);
    TopCandidates widerTop(limit);
    const bool upper = key == SortKey::UpperColumn;
    const bool byText = key != SortKey::Rowid;
    sqlite3_stmt* handle = query->Handle();
    int rc = SQLITE_OK;
    while ((rc = sqlite3_step(handle)) == SQLITE_ROW) {
        const int type = sqlite3_column_type(handle, 1);
        if (type == SQLITE_NULL) {
            continue;
        }
        const char* text = reinterpret_cast<const char*>(sqlite3_column_text(handle, 1));
        const int bytes = sqlite3_column_bytes(handle, 1);
        if (!wider.Matches(text, bytes)) {
            continue;
        }
        if (key == SortKey::Column && type != SQLITE_TEXT) {
            return false;  // mixed storage classes sort differently; leave it to SQLite
        }
        // The key (an UPPER is costly outside ASCII) only for rows that may be kept.
        const qint64 rowid = sqlite3_column_int64(handle, 0);
        const bool toWider = widerTop.MayTake(text, byText ? bytes : 0, upper, rowid);
        const bool toAsked = !same && askedTop.MayTake(text, byText ? bytes : 0, upper, rowid) &&
                             asked.Matches(text, bytes);
        if (!toWider && !toAsked) {
            continue;
        }
        Candidate candidate{upper    ? UnicodeText::Upper(text, bytes)
                            : byText ? QByteArray(text, bytes)
                                     : QByteArray(),
                            rowid};
        if (toAsked) {
            askedTop.Add(Candidate(candidate));
        }
        if (toWider) {
            widerTop.Add(std::move(candidate));
        }
    }
    if (rc != SQLITE_DONE) {
        return false;
    }
    if (same) {
        return loadRowsInOrder(table, widerTop.Rowids(), result);
    }
    // Nothing is remembered inside a transaction: a rollback undoes changes without lowering
    // the count.
    if (dataVersion >= 0 && sqlite3_get_autocommit(runner.Connection())) {
        scanned.lookup = lookup + infix;
        scanned.dataVersion = dataVersion;
        scanned.changes = changes;
        scanned.schemaVersion = catalogue.Version();
        scanned.rowids = widerTop.Rowids();
    }
    return loadRowsInOrder(table, askedTop.Rowids(), result);
}

bool TextSearchIndex::loadRowsInOrder(const DBTable* table, const QVector<qint64>& rowids,
                                      QSharedPointer<DBData>& result) {
    const StatementRunner::Lease byRowid =
        runner.TryPrepare(QStringLiteral("SELECT * FROM ") + table->GetQuotedName() +
                          QStringLiteral(" WHERE rowid = ?"));
    if (!byRowid) {
        return false;
    }
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    for (const qint64 rowid : rowids) {
        sqlite3_bind_int64(byRowid->Handle(), 1, rowid);
        const int rc = StatementRunner::AppendRows(byRowid.get(), table, *rows);
        sqlite3_reset(byRowid->Handle());
        if (rc != SQLITE_DONE) {
            return false;
        }
    }
    result = rows;
    return true;
}

bool TextSearchIndex::LoadPrefix(const DBTable* table, const DBColumn* column,
                                 const QString& prefix, const DBColumn* orderColumn,
                                 QSharedPointer<DBData>& result) {
    if (!keyIsRowid(table) || prefix.isEmpty() || !allFoldAlike(prefix)) {
        return false;
    }
    const auto index = indexes.constFind(table->GetName());
    const bool byTrigrams = prefix.size() >= trigramLength && index != indexes.constEnd() &&
                            index->columns.contains(column->GetName());
    const bool byRanges =
        !byTrigrams && catalogue.LeadsAnIndex(table->GetName(), column->GetName());
    if (!byTrigrams && !byRanges) {
        return false;
    }
    const QString orderExpression =
        orderColumn ? orderColumn->GetQuotedName() : QStringLiteral("NULL");
    const QString head = QStringLiteral("SELECT rowid, ") + column->GetQuotedName() +
                         QStringLiteral(", ") + orderExpression + QStringLiteral(" FROM ") +
                         table->GetQuotedName() + QStringLiteral(" WHERE ");
    // The ranges of the index holding each case form of the first letters.
    QStringList forms{QString()};
    int formLetters = 0;
    if (byRanges) {
        for (; formLetters < prefix.size(); ++formLetters) {
            const QChar c = prefix[formLetters];
            QStringList cases{QString(c)};
            for (const QChar other : {c.toLower(), c.toUpper()}) {
                if (!cases.contains(QString(other))) {
                    cases.append(QString(other));
                }
            }
            if (forms.size() * cases.size() > maxPrefixForms) {
                break;
            }
            QStringList longer;
            for (const QString& form : forms) {
                for (const QString& variant : cases) {
                    longer.append(form + variant);
                }
            }
            forms = longer;
        }
    }
    const QString sql =
        head + (byTrigrams ? indexedRows(*index)
                           : column->GetQuotedName() + QStringLiteral(" >= ? AND ") +
                                 column->GetQuotedName() + QStringLiteral(" < ?"));
    const StatementRunner::Lease candidates = runner.TryPrepare(sql);
    if (!candidates) {
        return false;
    }
    const QByteArray pattern = (SqlText::EscapeLikePattern(prefix) + QLatin1Char('%')).toUtf8();
    const UnicodeText::LikePattern like(pattern.constData(), pattern.size(), '\\');
    QVector<Candidate> matching;
    const QStringList lookups = byTrigrams ? QStringList{trigramQuery(*index, prefix)} : forms;
    if (byTrigrams) {
        if (lookups.first().isEmpty()) {
            return false;
        }
        fold(*index);
    }
    int rc = SQLITE_OK;
    for (const QString& lookup : lookups) {
        if (byTrigrams) {
            candidates->Bind(1, lookup);
        } else {
            // Every text beginning with the form, in binary order: [form, form + U+10FFFF).
            candidates->Bind(1, lookup);
            candidates->Bind(2, lookup + QString::fromUcs4(U"\U0010FFFF"));
        }
        while ((rc = sqlite3_step(candidates->Handle())) == SQLITE_ROW) {
            if (sqlite3_column_type(candidates->Handle(), 1) != SQLITE_TEXT) {
                continue;
            }
            const QByteArray text = columnBytes(candidates->Handle(), 1);
            if (!like.Matches(text.constData(), text.size())) {
                continue;
            }
            const int orderType = sqlite3_column_type(candidates->Handle(), 2);
            if (orderColumn && orderType != SQLITE_TEXT) {
                sqlite3_reset(candidates->Handle());
                return false;  // mixed storage classes sort differently; leave it to SQLite
            }
            matching.append(
                Candidate{orderColumn ? columnBytes(candidates->Handle(), 2) : QByteArray(),
                          sqlite3_column_int64(candidates->Handle(), 0)});
        }
        sqlite3_reset(candidates->Handle());
        if (rc != SQLITE_DONE) {
            return false;
        }
    }
    return loadRowsInOrder(table, orderedRowids(matching, 0), result);
}

bool TextSearchIndex::ignoringCaseRowids(const DBTable* table, const DBColumn* column,
                                         const QString& text, QVector<qint64>& rowids) {
    // A name, not a pasted page: longer texts, NUL and letters outside the BMP take the other
    // paths.
    if (!catalogue.LeadsANoCaseIndex(table->GetName(), column->GetName()) ||
        text.size() > maxNameLength || text.contains(QChar(0)) ||
        std::any_of(text.cbegin(), text.cend(), [](QChar c) { return c.isSurrogate(); })) {
        return false;
    }
    // The texts LIKE takes for `text` begin, under NOCASE, with one of these forms of its first
    // letters; every text that does is a candidate, checked with LIKE itself.
    QVector<QString> forms{QString()};
    int formed = 0;
    const QVector<uint> codePoints = text.toUcs4();
    for (; formed < codePoints.size(); ++formed) {
        const QVector<uint> options = noCaseForms(codePoints[formed]);
        if (forms.size() * options.size() > maxNameForms) {
            break;
        }
        QVector<QString> longer;
        for (const QString& form : qAsConst(forms)) {
            for (uint option : options) {
                longer.append(form + QString::fromUcs4(&option, 1));
            }
        }
        forms = longer;
    }
    if (formed < qMin(codePoints.size(), trigramLength)) {
        return false;
    }
    const QString c = column->GetQuotedName();
    const QString t = table->GetQuotedName();
    // Texts from the form up to the form followed by a byte no UTF-8 text holds; numbers sort
    // before every text and blobs after, and LIKE reads both as text: they are candidates too.
    const StatementRunner::Lease inRange = runner.TryPrepare(
        QStringLiteral("SELECT rowid, %1 FROM %2 WHERE %1 COLLATE NOCASE >= ?1 AND %1 COLLATE "
                       "NOCASE < ?2")
            .arg(c, t));
    const StatementRunner::Lease notText = runner.TryPrepare(
        QStringLiteral("SELECT rowid, %1 FROM %2 WHERE %1 COLLATE NOCASE < '' UNION ALL SELECT "
                       "rowid, %1 FROM %2 WHERE %1 COLLATE NOCASE >= X''")
            .arg(c, t));
    if (!inRange || !notText) {
        return false;
    }
    const QByteArray utf8 = text.toUtf8();
    const UnicodeText::LikePattern like(utf8.constData(), utf8.size(), 0);
    auto collect = [&](sqlite3_stmt* statement) {
        int rc = SQLITE_OK;
        while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
            const char* value = reinterpret_cast<const char*>(sqlite3_column_text(statement, 1));
            if (value && like.Matches(value, sqlite3_column_bytes(statement, 1))) {
                rowids.append(sqlite3_column_int64(statement, 0));
            }
        }
        sqlite3_reset(statement);
        return rc == SQLITE_DONE;
    };
    for (const QString& form : qAsConst(forms)) {
        const QByteArray low = form.toUtf8();
        sqlite3_bind_text(inRange->Handle(), 1, low.constData(), low.size(), SQLITE_STATIC);
        const QByteArray high = low + '\xF5';
        sqlite3_bind_text(inRange->Handle(), 2, high.constData(), high.size(), SQLITE_STATIC);
        if (!collect(inRange->Handle())) {
            return false;
        }
    }
    if (!collect(notText->Handle())) {
        return false;
    }
    std::sort(rowids.begin(), rowids.end());
    rowids.erase(std::unique(rowids.begin(), rowids.end()), rowids.end());
    return true;
}

bool TextSearchIndex::likeRowids(const DBTable* table, const DBColumn* column,
                                 const QString& pattern, QVector<qint64>& rowids) {
    if (!keyIsRowid(table)) {
        return false;
    }
    if (!pattern.contains(QLatin1Char('%')) && !pattern.contains(QLatin1Char('_')) &&
        ignoringCaseRowids(table, column, pattern, rowids)) {
        return true;
    }
    rowids.clear();
    const auto index = indexes.constFind(table->GetName());
    if (index == indexes.constEnd() || !index->columns.contains(column->GetName())) {
        return false;
    }
    const QString match = trigramQuery(*index, longestRun(pattern, QChar()));
    if (match.isEmpty()) {
        return false;
    }
    // Not folded here: the caller folds before it starts reading.
    Candidates found;
    if (!candidates(table, column, *index, match, found)) {
        return false;
    }
    const QByteArray utf8 = pattern.toUtf8();
    const UnicodeText::LikePattern like(utf8.constData(), utf8.size(), 0);
    for (const SearchCandidate& candidate : qAsConst(found.rows)) {
        if (candidate.type != SQLITE_NULL &&
            like.Matches(found.texts.constData() + candidate.offset, candidate.bytes)) {
            rowids.append(candidate.rowid);
        }
    }
    std::sort(rowids.begin(), rowids.end());
    return true;
}

bool TextSearchIndex::scansInRowidOrder(SqliteStatement& statement, const DBTable* table) {
    const QStringList details = runner.QueryPlan(statement.Text());
    return details == QStringList{QStringLiteral("SCAN ") + table->GetName()} ||
           details == QStringList{QStringLiteral("SCAN TABLE ") + table->GetName()};
}

bool TextSearchIndex::AnswerLike(SqliteStatement& statement, const QVector<QVariant>& values,
                                 int rowsRead, DBDirectQueryResult& result) {
    if (rowsRead <= 0 || rowsRead > maxAnsweredRows || values.size() != 1 ||
        values.first().userType() != QMetaType::QString ||
        !pairedSurrogates(values.first().toString())) {
        return false;
    }
    if (likeShapes.size() > maxLikeShapes && !likeShapes.contains(statement.Text())) {
        likeShapes.clear();
    }
    LikeShape& shape = likeShapes[statement.Text()];
    if (shape.schemaVersion != catalogue.Version()) {
        static const QRegularExpression form(
            QStringLiteral("^\\s*SELECT\\s+\\*\\s+FROM\\s+(\\w+)\\s+WHERE\\s+(\\w+)\\s+like\\s+\\?"
                           "\\s*;?\\s*$"),
            QRegularExpression::CaseInsensitiveOption);
        const QRegularExpressionMatch parts = form.match(statement.Text());
        const DBTable* table =
            parts.hasMatch() ? catalogue.Tables().value(parts.captured(1), nullptr) : nullptr;
        shape = LikeShape();
        shape.schemaVersion = catalogue.Version();
        shape.served =
            table && table->GetColumn(parts.captured(2)) && scansInRowidOrder(statement, table);
        if (shape.served) {
            shape.table = table->GetName();
            shape.column = parts.captured(2);
        }
    }
    if (!shape.served) {
        return false;
    }
    const DBTable* table = catalogue.Tables().value(shape.table, nullptr);
    const DBColumn* column = table ? table->GetColumn(shape.column) : nullptr;
    if (!column) {
        return false;
    }
    sqlite3* connection = runner.Connection();
    // One snapshot for the index lookups and the rows, as the statement would read.
    struct ReadTransaction {
        sqlite3* connection;
        bool begun;
        explicit ReadTransaction(sqlite3* connection)
            : connection(connection)
            , begun(sqlite3_get_autocommit(connection) &&
                    sqlite3_exec(connection, "BEGIN", nullptr, nullptr, nullptr) == SQLITE_OK) {}
        ~ReadTransaction() {
            if (begun) {
                sqlite3_exec(connection, "COMMIT", nullptr, nullptr, nullptr);
            }
        }
    };
    QVector<qint64> rowids;
    // The fold writes: before the read begins.
    const auto index = indexes.constFind(table->GetName());
    if (index != indexes.constEnd()) {
        fold(*index);
    }
    const ReadTransaction read(connection);
    if (!likeRowids(table, column, values.first().toString(), rowids)) {
        return false;
    }
    if (rowids.size() > rowsRead) {
        rowids.resize(rowsRead);
    }
    const StatementRunner::Lease byRowid =
        runner.TryPrepare(QStringLiteral("SELECT * FROM ") + table->GetQuotedName() +
                          QStringLiteral(" WHERE rowid = ?"));
    if (!byRowid) {
        return false;
    }
    DBDirectQueryResult rows;
    rows.SetColumnNames(statement.ColumnNames());
    const int columnCount = byRowid->ColumnCount();
    if (columnCount != rows.ColumnCount()) {
        return false;
    }
    for (const qint64 rowid : qAsConst(rowids)) {
        sqlite3_bind_int64(byRowid->Handle(), 1, rowid);
        if (sqlite3_step(byRowid->Handle()) != SQLITE_ROW) {
            return false;
        }
        QVector<QVariant> row(columnCount);
        for (int i = 0; i < columnCount; ++i) {
            row[i] = byRowid->ColumnValue(i);
        }
        rows.AppendRow(row);
        sqlite3_reset(byRowid->Handle());
    }
    result = rows;
    return true;
}

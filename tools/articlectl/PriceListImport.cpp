// articlectl import: a price list read a record at a time and applied in one transaction.

#include "PriceListImport.h"

#include "Commands.h"

#include <sys/stat.h>
#include <unistd.h>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextCodec>
#include <algorithm>
#include <functional>

#include "ArticleInput.h"
#include "ArticleView.h"
#include "CatalogueWriter.h"
#include "Csv.h"
#include "PluSet.h"
#include "PriceListColumns.h"
#include "Tool.h"

namespace {

using PriceList::Column;

const QString windowsHint = QStringLiteral(
    "a file saved by a Windows program in Poland is read with --encoding windows-1250");

// "12,345" for people; the progress line and the summary use it.
QString grouped(qint64 number) {
    QString digits = QString::number(number);
    for (int at = digits.size() - 3; at > 0; at -= 3) {
        digits.insert(at, QLatin1Char(','));
    }
    return digits;
}

// Rows done, rows per second and the time left on standard error while a long import runs on a
// terminal; nothing otherwise.
class Progress {
public:
    Progress(QTextStream& err, const QString& label, qint64 totalBytes)
        : err(err), label(label), total(totalBytes), shown(isatty(STDERR_FILENO) != 0) {
        timer.start();
    }
    ~Progress() { Clear(); }

    void Update(qint64 rows, qint64 bytes) {
        if (!shown || (rows & 255) != 0 || timer.elapsed() - lastDrawn < 250) {
            return;
        }
        lastDrawn = timer.elapsed();
        const double seconds = static_cast<double>(lastDrawn) / 1000.0;
        QString text =
            QStringLiteral("%1: %2 rows, %3 rows/s")
                .arg(label, grouped(rows))
                .arg(grouped(seconds > 0 ? static_cast<qint64>(static_cast<double>(rows) / seconds)
                                         : 0));
        if (total > 0 && bytes > 0) {
            const qint64 left = static_cast<qint64>(seconds * static_cast<double>(total - bytes) /
                                                    static_cast<double>(bytes));
            text += QStringLiteral(", %1:%2 left")
                        .arg(left / 60)
                        .arg(left % 60, 2, 10, QLatin1Char('0'));
        }
        err << "\r" << text << "\x1b[K";
        err.flush();
        drawn = true;
    }
    // Takes the line away before other output.
    void Clear() {
        if (drawn) {
            err << "\r\x1b[K";
            err.flush();
            drawn = false;
        }
    }

private:
    QTextStream& err;
    QString label;
    qint64 total;
    bool shown;
    bool drawn = false;
    QElapsedTimer timer;
    qint64 lastDrawn = 0;
};

// One difference between the stored article and what the row makes of it.
struct Difference {
    const char* column;
    QString oldText;
    QString newText;
    QJsonValue oldValue;
    QJsonValue newValue;
};

QString flagText(bool flag) {
    return flag ? QStringLiteral("1") : QStringLiteral("0");
}

QString barcodeText(const QString& barcode) {
    return barcode.isEmpty() ? QStringLiteral("(none)") : barcode;
}

QString listText(const QStringList& barcodes) {
    return barcodes.isEmpty() ? QStringLiteral("(none)") : barcodes.join(QLatin1Char(' '));
}

QList<Difference> differences(const Article& before, const Article& after,
                              const QStringList& extrasBefore, const QStringList* extrasAfter) {
    QList<Difference> found;
    auto number = [&](const char* column, qint64 a, qint64 b) {
        if (a != b) {
            found.append({column, QString::number(a), QString::number(b), a, b});
        }
    };
    auto flag = [&](const char* column, bool a, bool b) {
        if (a != b) {
            found.append({column, flagText(a), flagText(b), a, b});
        }
    };
    if (before.name != after.name) {
        found.append({"name", before.name, after.name, before.name, after.name});
    }
    if (before.price != after.price) {
        found.append({"price", ArticleView::Price(before.price), ArticleView::Price(after.price),
                      static_cast<double>(before.price) / 100.0,
                      static_cast<double>(after.price) / 100.0});
    }
    number("tax", before.taxRateNo, after.taxRateNo);
    number("dept", before.deptNo, after.deptNo);
    number("unit", before.unitNo, after.unitNo);
    number("precision", before.quantityPrecision, after.quantityPrecision);
    if (before.mainBarcode != after.mainBarcode) {
        found.append({"barcode", barcodeText(before.mainBarcode), barcodeText(after.mainBarcode),
                      before.mainBarcode, after.mainBarcode});
    }
    if (extrasAfter && *extrasAfter != extrasBefore) {
        found.append({"extra_barcodes", listText(extrasBefore), listText(*extrasAfter),
                      QJsonArray::fromStringList(extrasBefore),
                      QJsonArray::fromStringList(*extrasAfter)});
    }
    flag("blocked", before.saleBlocked, after.saleBlocked);
    flag("pack", before.isPack, after.isPack);
    flag("no_discounts", before.discSurBlock, after.discSurBlock);
    flag("free_price", before.freePriceAllow, after.freePriceAllow);
    flag("handy", before.onHandyList, after.onHandyList);
    number("scale", before.scaleNo, after.scaleNo);
    number("link_plu", before.linkPluNo, after.linkPluNo);
    return found;
}

QString jsonString(const QString& text) {
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

// Which field of a row holds which column.
struct Header {
    int fieldOf[PriceList::ColumnCount];
    QList<int> unnamed;  // fields the header gives no name
    int size = 0;
};

// Maps the header's fields to columns. False, with every problem printed, when the header is
// unusable.
bool readHeader(Tool& tool, const ImportOptions& options, const QString& file,
                const QStringList& fields, int line, Header& header) {
    std::fill(std::begin(header.fieldOf), std::end(header.fieldOf), -1);
    header.size = fields.size();
    QStringList problems;
    QStringList unknown;
    for (int i = 0; i < fields.size(); ++i) {
        const QString name = fields[i].trimmed();
        if (name.isEmpty()) {
            header.unnamed.append(i);
            continue;
        }
        const int column = PriceList::ColumnOf(name);
        if (column < 0) {
            unknown.append(name);
        } else if (header.fieldOf[column] >= 0) {
            problems.append(QStringLiteral("columns '%1' and '%2' both name the %3 column")
                                .arg(fields[header.fieldOf[column]].trimmed(), name,
                                     QString::fromLatin1(PriceList::columns[column].name)));
        } else {
            header.fieldOf[column] = i;
        }
    }
    if (header.fieldOf[PriceList::Plu] < 0) {
        problems.append(QStringLiteral("the header lacks the 'plu' column"));
    }
    if (!unknown.isEmpty()) {
        if (options.ignoreUnknown) {
            tool.Err() << "articlectl: warning: " << file << ": ignoring the column"
                       << (unknown.size() > 1 ? "s '" : " '")
                       << unknown.join(QStringLiteral("', '")) << "'\n";
        } else {
            for (const QString& name : unknown) {
                problems.append(QStringLiteral("unknown column '%1'").arg(name));
            }
        }
    }
    if (problems.isEmpty()) {
        return true;
    }
    for (const QString& problem : problems) {
        tool.Err() << file << ":" << line << ": " << problem << "\n";
    }
    QString hint = QStringLiteral(
                       "the columns are %1, or their Polish names ('articlectl import --columns' "
                       "lists them)")
                       .arg(PriceList::Names().join(QStringLiteral(", ")));
    if (!unknown.isEmpty() && !options.ignoreUnknown) {
        hint += QStringLiteral("; --ignore-unknown skips the others");
    }
    for (const QString& name : unknown) {
        for (const char separator : {',', ';', '\t'}) {
            if (name.contains(QLatin1Char(separator))) {
                hint = QStringLiteral(
                           "the header seems separated by '%1'; leave --separator out to have it "
                           "told from the header")
                           .arg(separator == '\t' ? QStringLiteral("tab")
                                                  : QString(QLatin1Char(separator)));
            }
        }
    }
    tool.Fail(EXIT_USAGE, QStringLiteral("nothing was imported: the header is wrong"), hint);
    return false;
}

class Importer {
public:
    Importer(Tool& tool, const ImportOptions& options, const QString& shownPath,
             const Header& header)
        : tool(tool)
        , options(options)
        , file(shownPath)
        , header(header)
        , input(tool.Articles(), tool.Database())
        , writer(tool.Articles()) {}

    // What became of a row.
    enum Outcome { Added, Changed, Unchanged, Bad, Refused, Failed };

    // Reads every record after the header; returns the exit code, having said what is wrong.
    int ReadRows(CsvReader& reader, qint64 totalBytes);
    // Reports the outcome once the transaction ended with `result`; returns it.
    int Finish(int result);

private:
    Outcome row(const QStringList& fields, int line);
    QString cell(const QStringList& fields, Column column) const {
        const int index = header.fieldOf[column];
        return index >= 0 ? fields.value(index).trimmed() : QString();
    }
    bool has(const QStringList& fields, Column column) const {
        return !cell(fields, column).isEmpty();
    }
    bool readColumns(const QStringList& fields, Article& article, QString& error);
    bool readExtras(const QStringList& fields, QStringList& extras, QString& error);
    // Whether the register would refuse the article: `outcome` says how.
    bool refuses(const Article& article, const QStringList& newBarcodes, Outcome& outcome);
    Outcome bad(int line, const QString& reason, Outcome outcome = Bad);
    void printRow(int line, const Article& article, const char* action,
                  const QList<Difference>& changes);
    void printJson(const QJsonObject& entry);
    void beginJson();
    void endJson(bool imported);

    Tool& tool;
    const ImportOptions& options;
    QString file;
    const Header& header;
    ArticleInput input;
    CatalogueWriter writer;
    PluSet plus;
    int currentLine = 0;
    qint64 counts[Failed + 1] = {};
    QString failure;  // what the database failed at
    bool jsonRows = false;
    qint64 jsonEntries = 0;
    qint64 rows = 0;  // rows read, blank ones aside
    Progress* progress = nullptr;
};

Importer::Outcome Importer::bad(int line, const QString& reason, Outcome outcome) {
    if (progress) {
        progress->Clear();
    }
    tool.Out().flush();
    tool.Err() << file << ":" << line << ": " << reason << "\n";
    tool.Err().flush();
    if (jsonRows) {
        printJson({{QStringLiteral("line"), line},
                   {QStringLiteral("action"), QStringLiteral("refused")},
                   {QStringLiteral("reason"), reason}});
    }
    return outcome;
}

bool Importer::readColumns(const QStringList& fields, Article& a, QString& error) {
    auto read = [&](Column column, auto&& reader) {
        const QString value = cell(fields, column);
        return value.isEmpty() || reader(value);
    };
    return read(PriceList::Name, [&](const QString& v) { return input.Name(v, a.name, error); }) &&
           read(PriceList::Price,
                [&](const QString& v) { return input.Price(v, a.price, error); }) &&
           read(PriceList::Tax,
                [&](const QString& v) { return input.TaxRate(v, a.taxRateNo, error); }) &&
           read(PriceList::Dept,
                [&](const QString& v) { return input.Dept(v, a.deptNo, error); }) &&
           read(PriceList::Unit,
                [&](const QString& v) { return input.Unit(v, a.unitNo, error); }) &&
           read(PriceList::Precision,
                [&](const QString& v) { return input.Precision(v, a.quantityPrecision, error); }) &&
           read(PriceList::Barcode,
                [&](const QString& v) {
                    if (!input.Barcode(v, a.mainBarcode, error)) {
                        return false;
                    }
                    a.mainBarcode = writer.Normalised(a.mainBarcode);
                    return true;
                }) &&
           read(PriceList::Blocked,
                [&](const QString& v) { return input.Flag(v, a.saleBlocked, error); }) &&
           read(PriceList::Pack,
                [&](const QString& v) { return input.Flag(v, a.isPack, error); }) &&
           read(PriceList::NoDiscounts,
                [&](const QString& v) { return input.Flag(v, a.discSurBlock, error); }) &&
           read(PriceList::FreePrice,
                [&](const QString& v) { return input.Flag(v, a.freePriceAllow, error); }) &&
           read(PriceList::Handy,
                [&](const QString& v) { return input.Flag(v, a.onHandyList, error); }) &&
           read(PriceList::Scale,
                [&](const QString& v) { return input.Scale(v, a.scaleNo, error); }) &&
           read(PriceList::LinkPlu,
                [&](const QString& v) { return input.LinkPlu(v, a.linkPluNo, error); });
}

bool Importer::readExtras(const QStringList& fields, QStringList& extras, QString& error) {
    extras.clear();
    for (const QString& code :
         cell(fields, PriceList::ExtraBarcodes).split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        QString barcode;
        if (!input.Barcode(code, barcode, error)) {
            return false;
        }
        barcode = writer.Normalised(barcode);
        if (extras.contains(barcode)) {
            error = QStringLiteral("barcode %1 is listed twice").arg(barcode);
            return false;
        }
        extras.append(barcode);
    }
    return true;
}

// Under --dry-run nothing is written, so the register's refusals are looked up instead.
bool Importer::refuses(const Article& article, const QStringList& newBarcodes, Outcome& outcome) {
    ArticleSeeker* seeker = tool.Articles().GetSeeker();
    for (const QString& barcode : newBarcodes) {
        Article owner;
        const int found = seeker->FindArticleByBarcode(barcode, owner, false);
        if (found == ArticleSeeker::RESULT_FOUND && owner.id != article.id) {
            outcome = bad(currentLine,
                          QStringLiteral("barcode %1 already belongs to PLU %2 (%3)")
                              .arg(barcode)
                              .arg(owner.pluNo)
                              .arg(owner.name),
                          Refused);
            return true;
        }
        if (found == ArticleSeeker::RESULT_AMBIGUOUS_BARCODE) {
            outcome = bad(currentLine, QStringLiteral("barcode %1 is already on file").arg(barcode),
                          Refused);
            return true;
        }
        if (found != ArticleSeeker::RESULT_FOUND && found != ArticleSeeker::RESULT_NOT_FOUND) {
            failure = QStringLiteral("cannot look barcode %1 up").arg(barcode);
            outcome = Failed;
            return true;
        }
    }
    Article owner;
    if (seeker->FindName(article.name, owner) == ArticleSeeker::RESULT_FOUND &&
        owner.name == article.name && owner.id != article.id) {
        outcome = bad(currentLine,
                      QStringLiteral("the name \"%1\" is already used by PLU %2")
                          .arg(article.name)
                          .arg(owner.pluNo),
                      Refused);
        return true;
    }
    return false;
}

Importer::Outcome Importer::row(const QStringList& fields, int line) {
    QString error;
    if (fields.size() != header.size) {
        return bad(line, QStringLiteral("the row has %1 fields; the header names %2")
                             .arg(fields.size())
                             .arg(header.size));
    }
    for (const int index : header.unnamed) {
        if (!fields[index].trimmed().isEmpty()) {
            return bad(line, QStringLiteral("field %1 holds '%2' but the header gives it no name")
                                 .arg(index + 1)
                                 .arg(fields[index].trimmed()));
        }
    }
    unsigned int plu = 0;
    if (!input.Plu(cell(fields, PriceList::Plu), plu, error)) {
        return bad(line, error);
    }
    if (!plus.Insert(plu)) {
        return bad(line, QStringLiteral("PLU %1 is on an earlier line too").arg(plu));
    }
    Article stored;
    const int found = tool.Articles().GetSeeker()->FindPlu(plu, stored, false);
    if (found != ArticleSeeker::RESULT_FOUND && found != ArticleSeeker::RESULT_NOT_FOUND) {
        failure = QStringLiteral("cannot look PLU %1 up").arg(plu);
        return Failed;
    }
    const bool isNew = found == ArticleSeeker::RESULT_NOT_FOUND;
    const bool whole = isNew || options.replace;
    Article article = stored;
    if (whole) {
        article = Article();
        article.id = isNew ? 0 : stored.id;
        article.pluNo = plu;
        article.unitNo = 1;
        if ((!has(fields, PriceList::Tax) &&
             !input.TaxRate(QStringLiteral("1"), article.taxRateNo, error)) ||
            (!has(fields, PriceList::Dept) &&
             !input.Dept(QStringLiteral("1"), article.deptNo, error))) {
            return bad(line, error);
        }
        for (const Column required : {PriceList::Name, PriceList::Price}) {
            if (!has(fields, required)) {
                const QString what = QString::fromLatin1(PriceList::columns[required].name);
                return bad(
                    line,
                    isNew ? QStringLiteral("PLU %1 is not on file, and a new article "
                                           "needs a %2")
                                .arg(plu)
                                .arg(what)
                          : QStringLiteral("--replace needs a %2 for PLU %1").arg(plu).arg(what));
            }
        }
    }
    if (!readColumns(fields, article, error)) {
        return bad(line, error);
    }
    // The additional barcodes change only when the row lists them (or replaces everything).
    QStringList extras;
    bool extrasGiven = whole || has(fields, PriceList::ExtraBarcodes);
    if (!readExtras(fields, extras, error)) {
        return bad(line, error);
    }
    QStringList storedExtras;
    const bool mainChanged = !isNew && article.mainBarcode != stored.mainBarcode;
    if (!isNew && (extrasGiven || mainChanged)) {
        if (writer.ExtraBarcodes(stored.id, storedExtras) != DB_OPERATION_SUCCESS) {
            failure = QStringLiteral("cannot read the barcodes of PLU %1").arg(plu);
            return Failed;
        }
        if (mainChanged && !extrasGiven && storedExtras.contains(article.mainBarcode)) {
            // An additional barcode made the main one leaves the additional ones.
            extras = storedExtras;
            extras.removeAll(article.mainBarcode);
            extrasGiven = true;
        }
    }
    if (!article.mainBarcode.isEmpty() && extras.contains(article.mainBarcode)) {
        return bad(line, QStringLiteral("barcode %1 is both the main and an additional barcode")
                             .arg(article.mainBarcode));
    }
    QStringList sortedBefore = storedExtras;
    QStringList sortedAfter = extras;
    sortedBefore.sort();
    sortedAfter.sort();
    const bool extrasChanged = extrasGiven && sortedBefore != sortedAfter;
    if (!isNew && article == stored && !extrasChanged) {
        return Unchanged;
    }
    if (options.dryRun) {
        QStringList newBarcodes;
        if ((isNew || mainChanged) && !article.mainBarcode.isEmpty()) {
            newBarcodes.append(article.mainBarcode);
        }
        for (const QString& barcode : qAsConst(extras)) {
            if (!storedExtras.contains(barcode) && barcode != stored.mainBarcode) {
                newBarcodes.append(barcode);
            }
        }
        Outcome refused = Refused;
        if (refuses(article, newBarcodes, refused)) {
            return refused;
        }
    } else if (counts[Bad] + counts[Refused] == 0) {
        // Once a row is bad nothing will be kept: the rest are only checked.
        const int result =
            isNew ? writer.Add(article, extras, error)
                  : writer.Update(stored, article, extrasGiven ? &extras : nullptr, error);
        if (result == DB_OPERATION_ALREADY_EXISTS || result == DB_OPERATION_CONSTRAINT) {
            return bad(line, error, Refused);
        }
        if (result != DB_OPERATION_SUCCESS) {
            failure = error;
            return Failed;
        }
    }
    if (isNew) {
        printRow(line, article, "added", {});
        return Added;
    }
    printRow(line, article, "changed",
             differences(stored, article, storedExtras, extrasChanged ? &extras : nullptr));
    return Changed;
}

void Importer::printJson(const QJsonObject& entry) {
    tool.Out() << (jsonEntries++ > 0 ? ",\n    " : "    ")
               << QJsonDocument(entry).toJson(QJsonDocument::Compact);
}

void Importer::printRow(int line, const Article& article, const char* action,
                        const QList<Difference>& changes) {
    if (jsonRows) {
        QJsonObject entry{{QStringLiteral("line"), line},
                          {QStringLiteral("plu"), static_cast<qint64>(article.pluNo)},
                          {QStringLiteral("action"), QString::fromLatin1(action)},
                          {QStringLiteral("name"), article.name}};
        if (!changes.isEmpty()) {
            QJsonObject changed;
            for (const Difference& difference : changes) {
                changed.insert(QString::fromLatin1(difference.column),
                               QJsonObject{{QStringLiteral("old"), difference.oldValue},
                                           {QStringLiteral("new"), difference.newValue}});
            }
            entry.insert(QStringLiteral("changes"), changed);
        }
        printJson(entry);
        return;
    }
    if (!options.dryRun) {
        return;
    }
    if (progress) {
        progress->Clear();
    }
    if (changes.isEmpty()) {
        tool.Out() << file << ":" << line << ": add PLU " << article.pluNo << " \"" << article.name
                   << "\" " << ArticleView::Price(article.price) << "\n";
        return;
    }
    QStringList described;
    for (const Difference& difference : changes) {
        described.append(QStringLiteral("%1 %2 -> %3")
                             .arg(QString::fromLatin1(difference.column), difference.oldText,
                                  difference.newText));
    }
    tool.Out() << file << ":" << line << ": change PLU " << article.pluNo << " \"" << article.name
               << "\": " << described.join(QStringLiteral(", ")) << "\n";
}

void Importer::beginJson() {
    jsonRows = true;
    tool.Out() << "{\n  \"file\": " << jsonString(file)
               << ",\n  \"dry_run\": " << (options.dryRun ? "true" : "false")
               << ",\n  \"rows\": [\n";
}

void Importer::endJson(bool imported) {
    tool.Out() << "\n  ],\n  \"read\": " << rows << ",\n  \"added\": " << counts[Added]
               << ",\n  \"changed\": " << counts[Changed]
               << ",\n  \"unchanged\": " << counts[Unchanged]
               << ",\n  \"refused\": " << counts[Bad] + counts[Refused]
               << ",\n  \"imported\": " << (imported ? "true" : "false") << "\n}\n";
}

int Importer::ReadRows(CsvReader& reader, qint64 totalBytes) {
    Progress shown(tool.Err(),
                   options.dryRun ? QStringLiteral("checking") : QStringLiteral("importing"),
                   totalBytes);
    progress = &shown;
    if (tool.Json()) {
        beginJson();
    }
    QStringList fields;
    int line = 0;
    bool unreadable = false;
    while (reader.Next(fields, line)) {
        currentLine = line;
        if (reader.Fatal()) {
            counts[bad(line, reader.Error())] += 1;
            unreadable = true;
            break;
        }
        if (reader.Error().isEmpty() &&
            std::all_of(fields.begin(), fields.end(),
                        [](const QString& field) { return field.trimmed().isEmpty(); })) {
            continue;  // a blank line, or a spreadsheet's empty row (";;;;")
        }
        ++rows;
        shown.Update(rows, reader.BytesRead());
        const Outcome outcome =
            reader.Error().isEmpty() ? row(fields, line) : bad(line, reader.Error());
        counts[outcome] += 1;
        if (outcome == Failed) {
            break;
        }
    }
    shown.Clear();
    progress = nullptr;
    tool.Out().flush();
    if (counts[Failed] > 0) {
        return tool.DatabaseFailure(failure);
    }
    if (unreadable) {
        return tool.Fail(
            EXIT_USAGE,
            QStringLiteral("nothing was imported: %1 cannot be read past the line "
                           "named above")
                .arg(file),
            reader.LastFault() == CsvReader::Encoding && !options.codec ? windowsHint : QString());
    }
    const qint64 refused = counts[Bad] + counts[Refused];
    if (refused > 0) {
        return tool.Fail(counts[Bad] > 0 ? EXIT_USAGE : EXIT_REFUSED,
                         options.dryRun
                             ? QStringLiteral("%1 of %2 rows would be refused; nothing was written")
                                   .arg(grouped(refused), grouped(rows))
                             : QStringLiteral("nothing was imported: %1 of %2 rows are bad")
                                   .arg(grouped(refused), grouped(rows)),
                         QStringLiteral("correct the rows named above and import the file again"));
    }
    return EXIT_DONE;
}

int Importer::Finish(int result) {
    if (jsonRows) {
        endJson(result == EXIT_DONE && !options.dryRun);
    } else if (result == EXIT_DONE) {
        tool.Out() << (options.dryRun ? "Would import " : "Imported ") << grouped(rows)
                   << (rows == 1 ? " row from " : " rows from ") << file << ": "
                   << grouped(counts[Added]) << " added, " << grouped(counts[Changed])
                   << " changed, " << grouped(counts[Unchanged]) << " unchanged"
                   << (options.dryRun ? "; nothing was written" : "") << ".\n";
    }
    return result;
}

}  // namespace

int ImportPriceList(Tool& tool, const ImportOptions& options) {
    const Access access = options.dryRun   ? Access::Read
                          : options.create ? Access::Create
                                           : Access::Write;
    // A missing database is named before the file; one to be created is made only for a file
    // whose header is right.
    if (access != Access::Create && !tool.StartLibrary(access)) {
        return EXIT_DATABASE;
    }
    const bool standardInput = options.path == QLatin1String("-");
    const QString shown = standardInput ? QStringLiteral("<stdin>") : options.path;
    QFile device;
    bool opened = false;
    if (standardInput) {
        opened = device.open(STDIN_FILENO, QIODevice::ReadOnly);
    } else {
        device.setFileName(options.path);
        opened = device.open(QIODevice::ReadOnly);
    }
    if (!opened) {
        return tool.Fail(EXIT_USAGE,
                         QStringLiteral("cannot read %1: %2").arg(shown, device.errorString()));
    }
    // The size, when the input is a file, tells how long the rest will take.
    struct stat status {};
    const qint64 totalBytes = fstat(device.handle(), &status) == 0 && S_ISREG(status.st_mode)
                                  ? static_cast<qint64>(status.st_size)
                                  : 0;
    CsvReader reader(&device, options.separator, options.codec);
    QStringList fields;
    int line = 0;
    if (!reader.Next(fields, line)) {
        return tool.Fail(EXIT_USAGE, QStringLiteral("%1 is empty").arg(shown),
                         QStringLiteral("the first line names the columns: %1")
                             .arg(PriceList::Names().join(QLatin1Char(','))));
    }
    if (!reader.Error().isEmpty()) {
        tool.Err() << shown << ":" << line << ": " << reader.Error() << "\n";
        return tool.Fail(EXIT_USAGE, QStringLiteral("nothing was imported"),
                         reader.LastFault() == CsvReader::NoSeparator
                             ? QStringLiteral("give --separator ',', ';' or tab")
                         : reader.LastFault() == CsvReader::Encoding && !options.codec ? windowsHint
                                                                                       : QString());
    }
    Header columns;
    if (!readHeader(tool, options, shown, fields, line, columns)) {
        return EXIT_USAGE;
    }
    if (access == Access::Create && !tool.StartLibrary(access)) {
        return EXIT_DATABASE;
    }
    Importer importer(tool, options, shown, columns);
    reader.ExpectFields(fields.size());
    if (options.dryRun) {
        return importer.Finish(importer.ReadRows(reader, totalBytes));
    }
    // The copy of the catalogue as it was is written while the rows are read and stored.
    if (!tool.StartBackUp()) {
        return EXIT_DATABASE;
    }
    // A catalogue this import creates is set up as init sets one up, in the same transaction.
    const bool created = access == Access::Create && !tool.DatabaseExisted();
    const int result = tool.InTransaction([&]() {
        const int setUp = created ? SetUpCatalogue(tool) : EXIT_DONE;
        const int stored = setUp != EXIT_DONE ? setUp : importer.ReadRows(reader, totalBytes);
        // Committed only once the copy is safe on disk.
        const bool kept = tool.FinishBackUp();
        return stored != EXIT_DONE ? stored : kept ? EXIT_DONE : EXIT_DATABASE;
    });
    tool.FinishBackUp();  // a transaction that could not begin still says where the copy is
    return importer.Finish(result);
}

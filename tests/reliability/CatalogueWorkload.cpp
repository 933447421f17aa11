#include "CatalogueWorkload.h"

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QTemporaryDir>
#include <QVector>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "ArticleBarcodeManager.h"
#include "ArticleBarcodes.h"
#include "ArticleEditor.h"
#include "ArticleManager.h"
#include "ArticleSeeker.h"
#include "BarcodePrefixDBManager.h"
#include "ChildLauncher.h"
#include "CurrencyExchangeRate.h"
#include "DBManager.h"
#include "Dept.h"
#include "DeptDBManager.h"
#include "Globals.h"
#include "Logger.h"
#include "PriceValue.h"
#include "ScaleLabelRecognizer.h"
#include "SystemManager.h"
#include "TaxRates.h"
#include "TaxRatesManager.h"

QStringList Model::Lines() const {
    QStringList lines;
    for (const auto& [plu, a] : articles) {
        const QString number = QString::number(plu);
        lines << QStringLiteral("PLU %1 | %2 | %3 | %4 | %5")
                     .arg(number, a.name, QString::number(a.price), a.mainBarcode,
                          a.handy ? QStringLiteral("handy") : QStringLiteral("not handy"));
        for (auto b = a.barcodes.cbegin(); b != a.barcodes.cend(); ++b) {
            lines << QStringLiteral("barcode %1 | PLU %2 | %3")
                         .arg(b.key(), number, b.value() ? "main" : "additional");
        }
    }
    for (const auto& [id, name] : depts) {
        lines << QStringLiteral("dept %1 | %2").arg(id).arg(name);
    }
    for (const auto& [id, prefix] : prefixes) {
        lines << QStringLiteral("prefix %1 | %2").arg(id).arg(prefix);
    }
    QStringList values;
    for (const quint16 rate : rates) {
        values << QString::number(rate);
    }
    return lines << QStringLiteral("rates | ") + values.join(' ');
}

const char* const kindNames[] = {"ArticleEditor::AddRecord",
                                 "ArticleBarcodeManager::AddRecord",
                                 "ArticleEditor::EditRecord",
                                 "ArticleEditor::UpdateArticlePrice",
                                 "ArticleBarcodeManager::UpdateMainBarcode",
                                 "ArticleBarcodeManager::DeleteRecord",
                                 "ArticleBarcodeManager::DeleteBarcodes",
                                 "ArticleEditor::DeleteRecord",
                                 "ArticleEditor::ChangeAllArticlesPrices",
                                 "BeginTransaction + 3 AddRecord + CommitTransaction",
                                 "ArticleSeeker::FindNameInfix",
                                 "DeptDBManager::AddOrUpdateRecord",
                                 "TaxRatesManager::UpdateRecord",
                                 "BarcodePrefixDBManager::AddPrefix",
                                 "articlectl import (25 rows)"};

QByteArray Change::Serialize() const {
    return QByteArray::number(kind) + ' ' + QByteArray::number(plu) + ' ' +
           (text.toUtf8().toPercentEncoding() + "~") + ' ' +
           (text2.toUtf8().toPercentEncoding() + "~") + ' ' + QByteArray::number(price) + ' ' +
           QByteArray::number(flag ? 1 : 0);
}

bool Change::Parse(const QByteArray& line, Change& change) {
    const QList<QByteArray> parts = line.split(' ');
    if (parts.size() != 6) {
        return false;
    }
    change.kind = static_cast<Kind>(parts[0].toInt());
    change.plu = parts[1].toUInt();
    change.text = QString::fromUtf8(QByteArray::fromPercentEncoding(parts[2].chopped(1)));
    change.text2 = QString::fromUtf8(QByteArray::fromPercentEncoding(parts[3].chopped(1)));
    change.price = parts[4].toLongLong();
    change.flag = parts[5] == "1";
    return true;
}

namespace {

// What a price becomes when every price is divided by `rate` (scaled by 10^digits): the
// register's rounding, to the nearest minor unit with halves going up, capped.
qint64 converted(qint64 price, qint64 rate, unsigned int digits) {
    qint64 scale = 10;
    for (unsigned int i = 0; i < digits; ++i) {
        scale *= 10;
    }
    const qint64 value = (price * scale / rate + 5) / 10;
    return value >= 999999999 ? 999999999 : value;
}

constexpr qint64 doublingRate = 50;  // 0.50
constexpr qint64 halvingRate = 200;  // 2.00
constexpr unsigned int rateDigits = 2;

std::array<quint16, 7> taxRates(qint64 first) {
    return {static_cast<quint16>(first), 800, 500, 0, 65535, 65535, 61440};
}

}  // namespace

void apply(Model& model, const Change& change) {
    switch (change.kind) {
        case AddArticle: {
            ModelArticle& article = model.articles[change.plu];
            article.name = change.text;
            article.price = change.price;
            article.mainBarcode = change.text2;
            model.nextPlu = std::max(model.nextPlu, change.plu + 1);
            ++model.serial;
            break;
        }
        case AddBarcode:
            model.articles[change.plu].barcodes.insert(change.text, change.flag);
            ++model.serial;
            break;
        case EditArticle: {
            ModelArticle& article = model.articles[change.plu];
            article.name = change.text;
            article.price = change.price;
            article.handy = change.flag;
            ++model.serial;
            break;
        }
        case SetPrice:
            model.articles[change.plu].price = change.price;
            break;
        case UpdateMainBarcode: {
            QMap<QString, bool>& barcodes = model.articles[change.plu].barcodes;
            for (auto it = barcodes.begin(); it != barcodes.end();) {
                it = it.value() ? barcodes.erase(it) : std::next(it);
            }
            barcodes.insert(change.text, true);
            ++model.serial;
            break;
        }
        case DeleteBarcode:
            for (auto& entry : model.articles) {
                if (!entry.second.barcodes.value(change.text, true)) {
                    entry.second.barcodes.remove(change.text);
                }
            }
            break;
        case DeleteBarcodes:
            model.articles[change.plu].barcodes.clear();
            break;
        case DeleteArticle:
            model.articles.erase(change.plu);
            break;
        case ConvertPrices:
            for (auto& entry : model.articles) {
                entry.second.price = converted(
                    entry.second.price, change.flag ? doublingRate : halvingRate, rateDigits);
            }
            model.doubleNext = !change.flag;
            break;
        case AddArticles:
        case ImportPrices: {
            // An imported row changes only the name and price of an article on file; a new one
            // gets the defaults: no barcodes, not on the handy list.
            const unsigned int rows = change.kind == AddArticles ? batchSize : importRows;
            for (unsigned int i = 0; i < rows; ++i) {
                ModelArticle& article = model.articles[change.plu + i];
                article.name = change.text + QStringLiteral(" / %1").arg(i);
                article.price = change.price + i;
            }
            model.nextPlu = std::max(model.nextPlu, change.plu + rows);
            ++model.serial;
            break;
        }
        case SearchName:
            break;
        case SetDept:
            model.depts[change.plu] = change.text;
            ++model.serial;
            break;
        case SetTaxRates:
            model.rates = taxRates(change.price);
            break;
        case SetPrefix:
            model.prefixes[change.plu] = change.text + QStringLiteral("/%1").arg(change.flag);
            ++model.serial;
            break;
    }
}

QString ean13(const char* prefix, quint64 serial) {
    const QString digits = QLatin1String(prefix) +
                           QStringLiteral("%1").arg(serial % 1000000000u, 9, 10, QLatin1Char('0'));
    return digits + QString::number(SpecialBarcodeRecognizer::Ean13CheckDigit(digits));
}

// The next change, chosen so that it should succeed.
Change choose(const Model& model, std::mt19937_64& random) {
    auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned int>(n)); };
    Change change;
    const int count = static_cast<int>(model.articles.size());
    const int roll = pick(100);
    const int rare = pick(50);
    if (count >= 5 && rare == 0) {
        change.kind = SetDept;
        change.plu = 1 + static_cast<unsigned int>(pick(3));
        change.text = QStringLiteral("Dział %1").arg(model.serial);
        return change;
    }
    if (count >= 5 && rare == 1) {
        change.kind = SetTaxRates;
        change.price = 100 * (1 + pick(30));
        return change;
    }
    if (count >= 5 && rare == 2) {
        change.kind = SetPrefix;
        change.plu = 10 + static_cast<unsigned int>(pick(3));
        change.text = QStringLiteral("2%1").arg(model.serial % 10);
        change.flag = pick(2) == 1;
        return change;
    }
    if (count >= 5 && roll < 6 && count < 400) {
        change.kind = AddArticles;
        change.plu = model.nextPlu + static_cast<unsigned int>(pick(3));
        change.text = QStringLiteral("Zestaw %1 nr %2").arg(change.plu).arg(model.serial);
        change.price = 1 + pick(100000);
        return change;
    }
    if (count < 5 || (roll < 22 && count < 400)) {
        change.kind = AddArticle;
        change.plu = model.nextPlu + static_cast<unsigned int>(pick(3));
        change.text = QStringLiteral("Artykuł %1 nr %2").arg(change.plu).arg(model.serial);
        change.text2 = pick(2) ? ean13("590", model.serial) : QString();
        change.price = 1 + pick(100000);
        return change;
    }
    auto it = model.articles.begin();
    std::advance(it, pick(count));
    change.plu = it->first;
    const ModelArticle& article = it->second;
    if (roll < 42) {
        change.kind = AddBarcode;
        change.text = ean13("590", model.serial);
        const bool hasMain = std::find(article.barcodes.cbegin(), article.barcodes.cend(), true) !=
                             article.barcodes.cend();
        change.flag = !hasMain;
    } else if (roll < 57) {
        change.kind = EditArticle;
        change.text = QStringLiteral("Żółty %1 nr %2").arg(change.plu).arg(model.serial);
        change.price = 1 + pick(100000);
        change.flag = pick(2) == 1;
    } else if (roll < 62) {
        change.kind = SearchName;
        change.text = article.name.mid(article.name.size() / 3, 4);
    } else if (roll < 74) {
        change.kind = SetPrice;
        change.price = pick(1000000);
    } else if (roll < 79) {
        change.kind = UpdateMainBarcode;
        change.text = ean13("590", model.serial);
        if (std::find(article.barcodes.cbegin(), article.barcodes.cend(), true) ==
            article.barcodes.cend()) {
            change.kind = AddBarcode;  // there is no main row to update
            change.flag = true;
        }
    } else if (roll < 86) {
        change.kind = DeleteBarcode;
        for (auto b = article.barcodes.cbegin(); b != article.barcodes.cend(); ++b) {
            if (!b.value()) {
                change.text = b.key();
            }
        }
        if (change.text.isEmpty()) {
            change.kind = SetPrice;
            change.price = pick(1000000);
        }
    } else if (roll < 98) {
        // An article goes with its barcodes first, as the register's application removes it.
        change.kind = article.barcodes.isEmpty() ? DeleteArticle : DeleteBarcodes;
    } else {
        change.kind = ConvertPrices;
        change.flag = model.doubleNext;
    }
    return change;
}

// ---- Starting the library the way the register does -------------------------------------------

QString startLibrary(const QString& folder) {
    G::appLogger->ClearAppenders();
    // Never closed: the process ends as a crash would end it.
    auto* articles = new DBManager(QDir(folder).filePath(QStringLiteral("articles.db")),
                                   DBManager::SCHEMA_ARTICLES);
    auto* receipts = new DBManager(QDir(folder).filePath(QStringLiteral("receipts.db")),
                                   DBManager::SCHEMA_RECEIPTS);
    if (articles->Open() != DB_OPERATION_SUCCESS) {
        return QStringLiteral("the article database does not open: ") + articles->GetLastError();
    } else if (receipts->Open() != DB_OPERATION_SUCCESS) {
        return QStringLiteral("the receipt database does not open: ") + receipts->GetLastError();
    }
    G::dbArticles = articles;
    G::dbReceipt = receipts;
    if (!SystemManager::Instance()->InitializeAll() || !G::articleManager ||
        G::articleManager->GetState() != SystemBase::STATE_READY) {
        return QStringLiteral("the article manager does not start");
    }
    return QString();
}

// ---- Processes ---------------------------------------------------------------------------------

void say(int fd, const QByteArray& line) {
    const QByteArray out = line + '\n';
    if (write(fd, out.constData(), static_cast<size_t>(out.size())) != out.size()) {
        _exit(3);
    }
}

QByteArray readLine(int fd) {
    QByteArray line;
    char c = 0;
    while (read(fd, &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return line;
}

Ended runChild(const std::function<void(int)>& child,
               const std::function<void(pid_t, int)>& meanwhile) {
    int fds[2];
    const pid_t pid = pipe(fds) == 0 ? fork() : -1;
    if (pid < 0) {
        std::perror("pipe or fork");
        std::exit(2);
    } else if (pid == 0) {
        close(fds[0]);
        child(fds[1]);
        _exit(3);
    }
    close(fds[1]);
    if (meanwhile) {
        meanwhile(pid, fds[0]);
    }
    Ended ended;
    QByteArray all;
    char buffer[4096];
    for (ssize_t got; (got = read(fds[0], buffer, sizeof buffer)) > 0;) {
        all.append(buffer, static_cast<int>(got));
    }
    close(fds[0]);
    waitpid(pid, &ended.status, 0);
    ended.lines = all.split('\n');
    ended.lines.removeAll(QByteArray());
    return ended;
}

void startWorker(const QString& folder, int fd, bool (*off)()) {
    QString error = startLibrary(folder);
    // A new catalogue gets its departments as `articlectl init` makes them: an import needs them.
    if (error.isEmpty() && G::articleManager->GetDeptDBManager()->GetDepts().isEmpty() &&
        !G::articleManager->GetDeptDBManager()->ResetTable()) {
        error = QStringLiteral("the departments cannot be made");
    }
    if (!error.isEmpty() && !(off && off())) {
        say(fd, "E " + error.toUtf8());
        _exit(2);
    }
}

void makeChanges(Model model, quint64 seed, int fd, int most, bool (*off)()) {
    std::mt19937_64 random(seed);
    for (int i = 0; i < most && !(off && off()); ++i) {
        const Change change = choose(model, random);
        say(fd, "I " + change.Serialize());
        const int result = perform(*G::articleManager, change);
        if (result != 0) {
            if (off && off()) {
                return;
            }
            say(fd, "E refused with " + QByteArray::number(result));
            _exit(2);
        }
        say(fd, "C");
        apply(model, change);
    }
}

namespace {

unsigned int articleId(ArticleManager& manager, unsigned int plu) {
    Article article;
    return manager.GetSeeker()->FindPlu(plu, article, false) == 0 ? article.id : 0;
}

Article newArticle(unsigned int plu, const QString& name, qint64 price,
                   const QString& mainBarcode = QString()) {
    Article article;
    article.pluNo = plu;
    article.name = name;
    article.price = price;
    article.mainBarcode = mainBarcode;
    article.taxRateNo = 1;
    article.deptNo = 1;
    article.unitNo = 1;
    return article;
}

}  // namespace

int perform(ArticleManager& manager, const Change& change) {
    ArticleEditor* editor = manager.GetEditor();
    ArticleBarcodeManager* barcodes = manager.GetBarcodeManager();
    switch (change.kind) {
        case AddArticle: {
            Article article = newArticle(change.plu, change.text, change.price, change.text2);
            return editor->AddRecord(article);
        }
        case AddBarcode: {
            // A failed lookup must not reach the library as article 0, which it would take as
            // given: the register does not go on after a failed lookup either.
            const unsigned int id = articleId(manager, change.plu);
            return id == 0 ? -1 : barcodes->AddRecord(id, change.text, change.flag);
        }
        case EditArticle: {
            Article article;
            if (manager.GetSeeker()->FindPlu(change.plu, article, false) != 0) {
                return -1;
            }
            article.name = change.text;
            article.price = change.price;
            article.onHandyList = change.flag;
            return editor->EditRecord(article);
        }
        case SetPrice:
            return editor->UpdateArticlePrice(change.plu, PriceValue(change.price));
        case UpdateMainBarcode: {
            const unsigned int id = articleId(manager, change.plu);
            return id == 0 ? -1 : barcodes->UpdateMainBarcode(id, change.text);
        }
        case DeleteBarcode:
            return barcodes->DeleteRecord(change.text);
        case DeleteBarcodes: {
            const unsigned int id = articleId(manager, change.plu);
            return id == 0 ? -1 : barcodes->DeleteBarcodes(id, ALL_BARCODES);
        }
        case DeleteArticle: {
            Article article;
            article.id = articleId(manager, change.plu);
            return article.id == 0 ? -1 : editor->DeleteRecord(article);
        }
        case ConvertPrices:
            return editor->ChangeAllArticlesPrices(
                CurrencyExchangeRate(change.flag ? doublingRate : halvingRate, rateDigits));
        case AddArticles: {
            if (G::dbArticles->BeginTransaction() != DB_OPERATION_SUCCESS) {
                return -1;
            }
            for (unsigned int i = 0; i < batchSize; ++i) {
                Article article = newArticle(
                    change.plu + i, change.text + QStringLiteral(" / %1").arg(i), change.price + i);
                const int result = editor->AddRecord(article);
                if (result != 0) {
                    G::dbArticles->RollbackTransaction();
                    return result;
                }
            }
            return G::dbArticles->CommitTransaction();
        }
        case SearchName: {
            // Every name is indexed: the fragment of one is found (a failed search finds none).
            QVector<Article> found;
            manager.GetSeeker()->FindNameInfix(change.text, found);
            return found.isEmpty() ? -1 : 0;
        }
        case SetDept:
            return manager.GetDeptDBManager()->AddOrUpdateRecord(QSharedPointer<const Dept>::create(
                change.plu, change.text, 10000, 10000, false, false));
        case SetTaxRates: {
            TaxRates rates{};
            const std::array<quint16, 7> values = taxRates(change.price);
            std::copy(values.cbegin(), values.cend(), rates.values);
            return manager.GetTaxRatesManager()->UpdateRecord(rates);
        }
        case SetPrefix:
            return manager.GetBarcodePrefixDBManager()->AddPrefix(
                change.plu, change.text,
                change.flag ? SPECIAL_BARCODE_PRICE : SPECIAL_BARCODE_WEIGHT);
        case ImportPrices:
            return runImport(G::dbArticles->GetFileName(), change, {});
    }
    return -1;
}

// ---- articlectl --------------------------------------------------------------------------------

int runImport(const QString& database, const Change& change, const QStringList& environment,
              QByteArray* report) {
    // As a back office sends it: Polish headers, semicolons, decimal commas, CRLF.
    QByteArray text = "PLU;Nazwa;Cena\r\n";
    for (unsigned int i = 0; i < importRows; ++i) {
        const qint64 price = change.price + i;
        text += QByteArray::number(change.plu + i) + ';' +
                (change.text + QStringLiteral(" / %1").arg(i)).toUtf8() + ';' +
                QByteArray::number(price / 100) + ',' +
                QByteArray::number(price % 100).rightJustified(2, '0') + "\r\n";
    }
    const QString list = database + QStringLiteral(".import.csv");
    QFile file(list);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(text) != text.size()) {
        return -1;
    }
    file.close();
    QStringList variables = environment;
    const QStringList command = childCommand(
        QStringLiteral(ARTICLECTL_PATH),
        {QStringLiteral("--db"), database, QStringLiteral("import"), list}, &variables);
    const ChildOutcome tool = runChild(command, QByteArray(), variables);
    if (tool.exit < 0) {
        return -1;
    }
    const QByteArray& errors = tool.err;
    const int at = errors.lastIndexOf("power-cut-vfs: ");
    if (report) {
        *report = at < 0 ? QByteArray() : errors.mid(at + 15).trimmed();
    }
    return tool.exit;
}

QStringList onPowerCutVfs(const QStringList& variables) {
    // The VFS is loaded before the sanitizer's runtime there; it is built with it, and works.
    const QByteArray sanitizer = qgetenv("ASAN_OPTIONS");
    return QStringList{QStringLiteral("LD_PRELOAD=" POWER_CUT_PRELOAD),
                       QStringLiteral("ASAN_OPTIONS=") + QString::fromLocal8Bit(sanitizer) +
                           QStringLiteral(":verify_asan_link_order=0")} +
           variables;
}

// ---- The verifier ------------------------------------------------------------------------------

namespace {

// The first column of what `sql` answers on the database at `path`; "the file does not open".
QStringList query(const QString& path, const char* sql) {
    sqlite3* raw = nullptr;
    QStringList answers;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_open_v2(path.toUtf8().constData(), &raw, SQLITE_OPEN_READWRITE, nullptr) !=
        SQLITE_OK) {
        answers << QStringLiteral("the file does not open");
    } else if (sqlite3_prepare_v2(raw, sql, -1, &statement, nullptr) == SQLITE_OK) {
        while (sqlite3_step(statement) == SQLITE_ROW) {
            answers << QString::fromUtf8(
                reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
        }
    }
    sqlite3_finalize(statement);
    sqlite3_close_v2(raw);
    return answers;
}

// Reads the catalogue as the library does into `stored`; empty, or why it cannot.
QString readCatalogue(ArticleManager& manager, Model& stored) {
    QList<Article> all;
    const int result = manager.GetSeeker()->FindNextPlu(0, 0, all, false);
    if (result != 0 && result != 3) {
        return QStringLiteral("the articles cannot be listed (%1)").arg(result);
    }
    for (const Article& article : all) {
        ModelArticle& entry = stored.articles[article.pluNo];
        entry.name = article.name;
        entry.price = article.price;
        entry.mainBarcode = article.mainBarcode;
        entry.handy = article.onHandyList;
        ArticleBarcodes barcodes(article.id);
        if (manager.GetBarcodeManager()->Load(barcodes) != 0) {
            return QStringLiteral("the barcodes of PLU %1 cannot be loaded").arg(article.pluNo);
        }
        for (const Barcode* barcode : barcodes.GetBarcodes()) {
            entry.barcodes.insert(barcode->GetBarcode(), barcode->IsMain());
        }
    }
    for (const QSharedPointer<const Dept>& dept : manager.GetDeptDBManager()->GetDepts()) {
        if (dept && !dept->GetName().isEmpty()) {
            stored.depts[dept->GetId()] = dept->GetName();
        }
    }
    QList<SpecialBarcodePrefix*> prefixes;
    const int loaded =
        manager.GetBarcodePrefixDBManager()->LoadPrefixesByType(SPECIAL_BARCODE_NONE, prefixes);
    for (SpecialBarcodePrefix* prefix : prefixes) {
        // Only the workload's entries: a catalogue may come with the factory ones.
        if (prefix->GetId() >= 10) {
            stored.prefixes[prefix->GetId()] =
                prefix->GetPrefix() +
                QStringLiteral("/%1").arg(prefix->GetType() == SPECIAL_BARCODE_PRICE);
        }
        delete prefix;
    }
    if (loaded != 0) {
        return QStringLiteral("the prefixes cannot be loaded (%1)").arg(loaded);
    }
    const TaxRatesList& rates = manager.GetTaxRatesManager()->GetRecords();
    if (rates.size() != static_cast<int>(stored.rates.size())) {
        return QStringLiteral("%1 tax rates are loaded").arg(rates.size());
    }
    for (size_t i = 0; i < stored.rates.size(); ++i) {
        stored.rates[i] = rates[static_cast<int>(i)]->GetValue();
    }
    return QString();
}

// The lookups a register makes must agree with the rows: every barcode scans to its article,
// every name is found by the incremental search (which has its own index), nothing else is
// stored.
QString checkLookups(ArticleManager& manager, const Model& stored, const QString& folder) {
    int barcodeRows = 0;
    for (const auto& [plu, article] : stored.articles) {
        for (auto b = article.barcodes.cbegin(); b != article.barcodes.cend(); ++b) {
            ++barcodeRows;
            Article found;
            const int result = manager.GetSeeker()->FindArticleByBarcode(b.key(), found, false);
            if (result != 0 || found.pluNo != plu) {
                return QStringLiteral("barcode %1 scans to PLU %2 (result %3) instead of %4")
                    .arg(b.key())
                    .arg(found.pluNo)
                    .arg(result)
                    .arg(plu);
            }
        }
        QVector<Article> named;
        if (manager.GetSeeker()->FindNameInfix(article.name, named) != 0 ||
            std::none_of(named.cbegin(), named.cend(),
                         [plu = plu](const Article& a) { return a.pluNo == plu; })) {
            return QStringLiteral("the search does not find %1").arg(article.name);
        }
    }
    const int rows = query(QDir(folder).filePath(QStringLiteral("articles.db")),
                           "SELECT count(*) FROM ArticleBarcode")
                         .value(0, QStringLiteral("-1"))
                         .toInt();
    if (rows != barcodeRows) {
        return QStringLiteral("%1 barcode rows are stored; the articles have %2")
            .arg(rows)
            .arg(barcodeRows);
    }
    return QString();
}

QString integrity(const QString& path) {
    const QStringList answers = query(path, "PRAGMA integrity_check");
    return answers == QStringList(QStringLiteral("ok"))
               ? QString()
               : QStringLiteral("integrity_check: ") + answers.join(QStringLiteral("; "));
}

// In the process that reads the folder: the catalogue as the library answers it, or why not.
QString readFolder(const QString& folder, Model& stored) {
    const QString path = QDir(folder).filePath(QStringLiteral("articles.db"));
    QString why = QFileInfo::exists(path) ? integrity(path) : QString();
    why = why.isEmpty() ? startLibrary(folder) : why;
    why = why.isEmpty() ? readCatalogue(*G::articleManager, stored) : why;
    return why.isEmpty() ? checkLookups(*G::articleManager, stored, folder) : why;
}

}  // namespace

QStringList readStored(const QString& folder, QString& why) {
    const Ended ended = runChild([&](int out) {
        Model stored;
        const QString problem = readFolder(folder, stored);
        for (const QString& line : problem.isEmpty() ? stored.Lines() : QStringList(problem)) {
            say(out, line.toUtf8());
        }
        _exit(problem.isEmpty() ? 0 : 1);
    });
    if (WIFEXITED(ended.status) && WEXITSTATUS(ended.status) == 0) {
        why.clear();
        QStringList lines;
        for (const QByteArray& line : ended.lines) {
            lines << QString::fromUtf8(line);
        }
        return lines;
    }
    why = ended.lines.isEmpty()
              ? QStringLiteral("the verifier crashed (status %1)").arg(ended.status)
              : QString::fromUtf8(ended.lines.join(' '));
    return {};
}

Verdict verifyFolder(const QString& folder, const Model& base, const std::vector<Change>& changes) {
    Verdict verdict;
    const QStringList stored = readStored(folder, verdict.why);
    if (!verdict.why.isEmpty()) {
        return verdict;
    }
    std::vector<Model> states{base};
    for (const Change& change : changes) {
        states.push_back(states.back());
        apply(states.back(), change);
    }
    for (size_t held = states.size(); held-- > 0;) {
        if (states[held].Lines() == stored) {
            verdict.held = static_cast<int>(held);
            return verdict;
        }
    }
    // The first line that differs from the last state tells most.
    const QStringList wanted = states.back().Lines();
    int i = 0;
    while (i < wanted.size() && i < stored.size() && wanted[i] == stored[i]) {
        ++i;
    }
    verdict.why = QStringLiteral(
                      "it holds \"%1\" where \"%2\" belongs (and is none of the %3 "
                      "states before)")
                      .arg(stored.value(i, QStringLiteral("nothing")),
                           wanted.value(i, QStringLiteral("nothing")))
                      .arg(changes.size());
    return verdict;
}

// ---- The programs' frame -----------------------------------------------------------------------

Options parseOptions(const char* usage, int runs) {
    Options options;
    options.program = QCoreApplication::applicationName();
    options.runs = runs;
    options.seed = static_cast<quint64>(
        std::chrono::system_clock::now().time_since_epoch().count() % 1000000007);
    const QString listed = QLatin1String(usage);
    const QString runsOption =
        listed.section(QLatin1Char('['), 1, 1).section(QLatin1Char(' '), 0, 0);
    const QStringList arguments = QCoreApplication::arguments();
    bool valid = true;
    for (int i = 1; i < arguments.size() && valid; ++i) {
        const QString& name = arguments[i];
        const QString value =
            name == QStringLiteral("--self-test") ? QStringLiteral("") : arguments.value(++i);
        valid = listed.contains(QLatin1Char('[') + name) && !value.isNull();
        if (name == QStringLiteral("--self-test")) {
            options.selfTest = true;
        } else if (name == runsOption) {
            options.runs = value.toInt();
        } else if (name == QStringLiteral("--seconds")) {
            options.seconds = value.toInt();
        } else if (name == QStringLiteral("--seed")) {
            options.seed = value.toULongLong();
        } else if (name == QStringLiteral("--dir")) {
            options.folder = value;
            options.given = true;
        } else {
            valid = false;
        }
    }
    if (!valid || options.runs <= 0 || options.seconds <= 0) {
        std::fprintf(stderr, "%s\n", usage);
        std::exit(2);
    }
    if (!options.given) {
        QTemporaryDir temporary(QDir::temp().filePath(options.program + "-XXXXXX"));
        temporary.setAutoRemove(false);
        options.folder = temporary.path();
    }
    QDir().mkpath(options.folder);
    return options;
}

int finish(const Options& options, const QString& harness, const QString& failed) {
    const QByteArray program = options.program.toUtf8();
    const auto seed = static_cast<unsigned long long>(options.seed);
    if (!harness.isEmpty()) {
        std::printf("%s: HARNESS FAILED %s (in %s, seed %llu)\n", program.constData(),
                    qPrintable(harness), qPrintable(options.folder), seed);
        return 2;
    }
    if (!failed.isEmpty()) {
        std::printf("%s: %s\n", program.constData(), qPrintable(failed));
    }
    if (!failed.isEmpty() && (!options.selfTest || options.given)) {
        std::printf("%s: the files are kept in %s; replay with --seed %llu%s\n",
                    program.constData(), qPrintable(options.folder), seed,
                    options.selfTest ? " --self-test" : "");
    } else if (!options.given) {
        QDir(options.folder).removeRecursively();  // nothing to look into
    }
    return failed.isEmpty() ? 0 : 1;
}

int runRounds(const char* noun, const Options& options,
              const std::function<Round(int, Model&, std::mt19937_64&)>& round,
              const std::function<void()>& kept) {
    const QByteArray program = options.program.toUtf8();
    std::printf("%s: %sseed %llu, up to %d %s or %d s, in %s\n", program.constData(),
                options.selfTest ? "self-test, " : "",
                static_cast<unsigned long long>(options.seed), options.runs, noun, options.seconds,
                qPrintable(options.folder));
    std::fflush(stdout);
    std::mt19937_64 random(options.seed);
    Model model;
    int rounds = 0;
    long long verified = 0;
    long long lost = 0;
    int damaged = 0;  // rounds whose files are damaged or hold no sequence of the changes
    int losingRounds = 0;
    int inFlightKept = 0;
    QString failure;
    QString firstLoss;
    std::map<QString, std::pair<int, long long>> byLabel;  // rounds verified, changes verified
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds);
    while (rounds < options.runs && std::chrono::steady_clock::now() < deadline) {
        const Round r = round(++rounds, model, random);
        failure = r.failure;
        std::vector<Change> changes;  // the reported ones, then the one in flight
        int done = 0;
        for (const QByteArray& line : r.ended.lines) {
            if (line.startsWith("I ")) {
                changes.emplace_back();
                if (!Change::Parse(line.mid(2), changes.back())) {
                    failure = QStringLiteral("garbled report: ") + QString::fromUtf8(line);
                }
            } else if (line == "C") {
                done = static_cast<int>(changes.size());
            }
        }
        if (!failure.isEmpty()) {
            break;
        }
        const Verdict verdict = verifyFolder(r.folder, model, changes);
        if (verdict.held < done) {
            lost += done - std::max(verdict.held, 0);
            damaged += verdict.held < 0 ? 1 : 0;
            if (++losingRounds == 1) {
                firstLoss =
                    QStringLiteral("%1 %2%3, after %4 reported changes: %5")
                        .arg(QString::fromLatin1(noun).chopped(1))
                        .arg(rounds)
                        .arg(r.where)
                        .arg(done)
                        .arg(verdict.held < 0
                                 ? verdict.why
                                 : QStringLiteral("only the first %1 are there").arg(verdict.held));
            }
            if (!options.selfTest) {
                break;
            }
            continue;
        }
        for (int i = 0; i < verdict.held; ++i) {
            apply(model, changes[static_cast<size_t>(i)]);
        }
        inFlightKept += verdict.held > done ? 1 : 0;
        verified += done;
        ++byLabel[r.label].first;
        byLabel[r.label].second += done;
        if (kept) {
            kept();
        }
    }
    std::printf(
        "%s: %d %s, %lld reported changes verified, %d articles at the end; the change in "
        "flight was kept %d times\n",
        program.constData(), rounds, noun, verified, static_cast<int>(model.articles.size()),
        inFlightKept);
    for (const auto& [label, counts] : byLabel) {
        if (!label.isEmpty()) {
            std::printf("  %s: %d %s, %lld verified\n", qPrintable(label), counts.first, noun,
                        counts.second);
        }
    }
    return finish(options, failure,
                  lost + damaged == 0
                      ? QString()
                      : QStringLiteral("LOST %1 reported changes, %2 damaged, in %3 of %4 %5; "
                                       "first: %6")
                            .arg(lost)
                            .arg(damaged)
                            .arg(losingRounds)
                            .arg(rounds)
                            .arg(QLatin1String(noun), firstLoss));
}

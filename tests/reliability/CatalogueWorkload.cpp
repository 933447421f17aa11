#include "CatalogueWorkload.h"

#include <sys/wait.h>

#include <sqlite3.h>
#include <QDir>
#include <QFileInfo>
#include <QStringList>
#include <QVector>
#include <algorithm>

#include "ArticleBarcodeManager.h"
#include "ArticleBarcodes.h"
#include "ArticleEditor.h"
#include "ArticleManager.h"
#include "ArticleSeeker.h"
#include "CurrencyExchangeRate.h"
#include "DBManager.h"
#include "Globals.h"
#include "Logger.h"
#include "PriceValue.h"
#include "ScaleLabelRecognizer.h"
#include "SystemManager.h"

bool Model::operator==(const Model& other) const {
    if (articles.size() != other.articles.size()) {
        return false;
    }
    for (const auto& [plu, article] : articles) {
        const auto found = other.articles.find(plu);
        if (found == other.articles.end() || found->second.name != article.name ||
            found->second.price != article.price ||
            found->second.mainBarcode != article.mainBarcode ||
            found->second.handy != article.handy || found->second.barcodes != article.barcodes) {
            return false;
        }
    }
    return true;
}

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
            for (unsigned int i = 0; i < batchSize; ++i) {
                ModelArticle& article = model.articles[change.plu + i];
                article.name = change.text + QStringLiteral(" / %1").arg(i);
                article.price = change.price + i;
            }
            model.nextPlu = std::max(model.nextPlu, change.plu + batchSize);
            ++model.serial;
            break;
        case SearchName:
            break;
    }
}

namespace {

QString barcodeOf(unsigned int serial) {
    const QString digits =
        QStringLiteral("590%1").arg(serial % 1000000000u, 9, 10, QLatin1Char('0'));
    return digits + QString::number(SpecialBarcodeRecognizer::Ean13CheckDigit(digits));
}

}  // namespace

// The next change, chosen so that it should succeed.
Change choose(const Model& model, std::mt19937_64& random) {
    auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned int>(n)); };
    Change change;
    const int count = static_cast<int>(model.articles.size());
    const int roll = pick(100);
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
        change.text2 = pick(2) ? barcodeOf(model.serial) : QString();
        change.price = 1 + pick(100000);
        return change;
    }
    auto it = model.articles.begin();
    std::advance(it, pick(count));
    change.plu = it->first;
    const ModelArticle& article = it->second;
    if (roll < 42) {
        change.kind = AddBarcode;
        change.text = barcodeOf(model.serial);
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
        change.text = barcodeOf(model.serial);
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

Library::Library() = default;
Library::~Library() = default;

QString Library::Start(const QString& folder) {
    G::appLogger->ClearAppenders();
    articles = std::make_unique<DBManager>(QDir(folder).filePath(QStringLiteral("articles.db")),
                                           DBManager::SCHEMA_ARTICLES);
    if (articles->Open() != DB_OPERATION_SUCCESS) {
        return QStringLiteral("the article database does not open: ") + articles->GetLastError();
    }
    receipts = std::make_unique<DBManager>(QDir(folder).filePath(QStringLiteral("receipts.db")),
                                           DBManager::SCHEMA_RECEIPTS);
    if (receipts->Open() != DB_OPERATION_SUCCESS) {
        return QStringLiteral("the receipt database does not open: ") + receipts->GetLastError();
    }
    G::dbArticles = articles.get();
    G::dbReceipt = receipts.get();
    if (!SystemManager::Instance()->InitializeAll() || !G::articleManager ||
        G::articleManager->GetState() != SystemBase::STATE_READY) {
        return QStringLiteral("the article manager does not start");
    }
    return QString();
}

// ---- The worker --------------------------------------------------------------------------------

void say(int fd, const QByteArray& line) {
    const QByteArray out = line + '\n';
    if (write(fd, out.constData(), static_cast<size_t>(out.size())) != out.size()) {
        _exit(3);
    }
}

namespace {

unsigned int articleId(ArticleManager& manager, unsigned int plu) {
    Article article;
    return manager.GetSeeker()->FindPlu(plu, article, false) == 0 ? article.id : 0;
}

}  // namespace

int perform(ArticleManager& manager, const Change& change) {
    ArticleEditor* editor = manager.GetEditor();
    ArticleBarcodeManager* barcodes = manager.GetBarcodeManager();
    switch (change.kind) {
        case AddArticle: {
            Article article;
            article.pluNo = change.plu;
            article.name = change.text;
            article.price = change.price;
            article.mainBarcode = change.text2;
            article.taxRateNo = 1;
            article.deptNo = 1;
            article.unitNo = 1;
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
                Article article;
                article.pluNo = change.plu + i;
                article.name = change.text + QStringLiteral(" / %1").arg(i);
                article.price = change.price + i;
                article.taxRateNo = 1;
                article.deptNo = 1;
                article.unitNo = 1;
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
    }
    return -1;
}

// ---- The verifier ------------------------------------------------------------------------------

namespace {

// The catalogue as the library reads it, or empty with `error` set.
bool readCatalogue(ArticleManager& manager, Model& stored, QString& error) {
    QList<Article> all;
    const int result = manager.GetSeeker()->FindNextPlu(0, 0, all, false);
    if (result != 0 && result != 3) {
        error = QStringLiteral("the articles cannot be listed (%1)").arg(result);
        return false;
    }
    for (const Article& article : all) {
        ModelArticle& entry = stored.articles[article.pluNo];
        entry.name = article.name;
        entry.price = article.price;
        entry.mainBarcode = article.mainBarcode;
        entry.handy = article.onHandyList;
        ArticleBarcodes barcodes(article.id);
        if (manager.GetBarcodeManager()->Load(barcodes) != 0) {
            error = QStringLiteral("the barcodes of PLU %1 cannot be loaded").arg(article.pluNo);
            return false;
        }
        for (const Barcode* barcode : barcodes.GetBarcodes()) {
            entry.barcodes.insert(barcode->GetBarcode(), barcode->IsMain());
        }
    }
    return true;
}

QString describe(const Model& model, const Model& stored) {
    for (const auto& [plu, article] : model.articles) {
        const auto found = stored.articles.find(plu);
        if (found == stored.articles.end()) {
            return QStringLiteral("PLU %1 (%2) is missing").arg(plu).arg(article.name);
        }
        const ModelArticle& s = found->second;
        if (s.name != article.name || s.price != article.price ||
            s.mainBarcode != article.mainBarcode || s.handy != article.handy) {
            return QStringLiteral("PLU %1 is (%2, %3, %4, %5) instead of (%6, %7, %8, %9)")
                .arg(plu)
                .arg(s.name)
                .arg(s.price)
                .arg(s.mainBarcode)
                .arg(s.handy)
                .arg(article.name)
                .arg(article.price)
                .arg(article.mainBarcode)
                .arg(article.handy);
        }
        if (s.barcodes != article.barcodes) {
            return QStringLiteral("PLU %1 has barcodes %2 instead of %3")
                .arg(plu)
                .arg(QStringList(s.barcodes.keys()).join(QLatin1Char(' ')),
                     QStringList(article.barcodes.keys()).join(QLatin1Char(' ')));
        }
    }
    for (const auto& entry : stored.articles) {
        if (model.articles.find(entry.first) == model.articles.end()) {
            return QStringLiteral("PLU %1 (%2) should not be there")
                .arg(entry.first)
                .arg(entry.second.name);
        }
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
    sqlite3* raw = nullptr;
    sqlite3_open_v2(QDir(folder).filePath(QStringLiteral("articles.db")).toUtf8().constData(), &raw,
                    SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* statement = nullptr;
    int rows = -1;
    if (sqlite3_prepare_v2(raw, "SELECT count(*) FROM ArticleBarcode", -1, &statement, nullptr) ==
            SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
        rows = sqlite3_column_int(statement, 0);
    }
    sqlite3_finalize(statement);
    sqlite3_close_v2(raw);
    if (rows != barcodeRows) {
        return QStringLiteral("%1 barcode rows are stored; the articles have %2")
            .arg(rows)
            .arg(barcodeRows);
    }
    return QString();
}

QString integrity(const QString& path) {
    sqlite3* raw = nullptr;
    if (sqlite3_open_v2(path.toUtf8().constData(), &raw, SQLITE_OPEN_READWRITE, nullptr) !=
        SQLITE_OK) {
        sqlite3_close_v2(raw);
        return QStringLiteral("the file does not open");
    }
    QStringList answers;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(raw, "PRAGMA integrity_check", -1, &statement, nullptr) == SQLITE_OK) {
        while (sqlite3_step(statement) == SQLITE_ROW) {
            answers.append(QString::fromUtf8(
                reinterpret_cast<const char*>(sqlite3_column_text(statement, 0))));
        }
    }
    sqlite3_finalize(statement);
    sqlite3_close_v2(raw);
    return answers == QStringList(QStringLiteral("ok"))
               ? QString()
               : QStringLiteral("integrity_check: ") + answers.join(QStringLiteral("; "));
}

[[noreturn]] void verify(const QString& folder, const Model& base,
                         const std::vector<Change>& changes, int fd) {
    auto fail = [fd](const QString& why) {
        say(fd, why.toUtf8());
        _exit(1);
    };
    const QString path = QDir(folder).filePath(QStringLiteral("articles.db"));
    if (QFileInfo::exists(path)) {
        const QString damage = integrity(path);
        if (!damage.isEmpty()) {
            fail(damage);
        }
    }
    Library library;
    const QString error = library.Start(folder);
    if (!error.isEmpty()) {
        fail(error);
    }
    Model stored;
    QString why;
    if (!readCatalogue(*G::articleManager, stored, why)) {
        fail(why);
    }
    const QString lookups = checkLookups(*G::articleManager, stored, folder);
    if (!lookups.isEmpty()) {
        fail(lookups);
    }
    std::vector<Model> prefixes{base};
    for (const Change& change : changes) {
        prefixes.push_back(prefixes.back());
        apply(prefixes.back(), change);
    }
    for (size_t held = prefixes.size(); held-- > 0;) {
        if (prefixes[held] == stored) {
            say(fd, "H " + QByteArray::number(static_cast<qulonglong>(held)));
            _exit(0);
        }
    }
    fail(describe(prefixes.back(), stored) +
         QStringLiteral(" (and it is none of the %1 states before)").arg(changes.size()));
    _exit(1);
}

}  // namespace

Verdict verifyFolder(const QString& folder, const Model& base, const std::vector<Change>& changes) {
    int fd = -1;
    const pid_t child = spawn(fd, [&](int out) { verify(folder, base, changes, out); });
    const QList<QByteArray> lines = readLines(fd);
    close(fd);
    int status = 0;
    waitpid(child, &status, 0);
    Verdict verdict;
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0 && lines.size() == 1 &&
        lines[0].startsWith("H ")) {
        verdict.held = lines[0].mid(2).toInt();
    } else {
        verdict.why = lines.isEmpty()
                          ? QStringLiteral("the verifier crashed (status %1)").arg(status)
                          : QString::fromUtf8(lines.join(' '));
    }
    return verdict;
}

// Reads what the child wrote until it closed the pipe.
QList<QByteArray> readLines(int fd) {
    QByteArray all;
    char buffer[4096];
    ssize_t got;
    while ((got = read(fd, buffer, sizeof buffer)) > 0) {
        all.append(buffer, static_cast<int>(got));
    }
    QList<QByteArray> lines = all.split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty()) {
        lines.removeLast();
    }
    return lines;
}

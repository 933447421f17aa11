// The indexed search paths against the plain statements they stand in for: the same rows in
// the same order, on random patterns over a generated Polish catalogue.

#include <chrono>
#include <future>
#include <random>

#include "CatalogueGenerator.h"
#include "DatabaseFixture.h"

namespace {

class TextSearchIndex : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        const CatalogueGenerator generator(11, 7);
        ASSERT_EQ(0, articles->BeginTransaction());
        for (const GeneratedArticle& generated : generator.Batch(1500)) {
            AddArticle(generated.article.pluNo, generated.article.name,
                       generated.article.mainBarcode, generated.article.price);
        }
        // Names that differ only in case or in Polish letters, and ones with LIKE's own signs.
        const QStringList special = {
            QStringLiteral("ŻÓŁTY SER"),      QStringLiteral("żółty ser"),
            QStringLiteral("Żółty Ser 100%"), QStringLiteral("ser_żółty"),
            QStringLiteral("Łódź \"Śląsk\""), QStringLiteral("ĄĘĆŃ ąęćń"),
            QStringLiteral("Serek wiejski"),  QStringLiteral("50% taniej")};
        unsigned int plu = 90000;
        for (const QString& name : special) {
            AddArticle(plu, name, QStringLiteral("2900%1").arg(plu));
            ++plu;
        }
        ASSERT_EQ(0, articles->CommitTransaction());
        names = Raw().Rows(QStringLiteral("SELECT art_name FROM Article"));
    }

    QStringList ids(const QSharedPointer<DBData>& data) {
        QStringList list;
        for (const DBRow* row : *data) {
            list.append(row->GetValue(QStringLiteral("id")).toString());
        }
        return list;
    }

    QStringList ids(const DBDirectQueryResult& result) {
        QStringList list;
        for (int row = 0; row < result.RowCount(); ++row) {
            list.append(result.GetValue(row, result.ColumnIndex(QStringLiteral("id"))).toString());
        }
        return list;
    }

    // The search through DBManager::Load, as ids ("failed" when it failed).
    QStringList searched(const QString& column, const QString& pattern, const QString& order,
                         int limit) {
        QSharedPointer<DBData> query = QSharedPointer<DBData>::create();
        auto* row = new DBRow(articles->GetTable(QStringLiteral("Article")));
        row->AppendField(column, pattern);
        query->AppendRow(row);
        QSharedPointer<DBData> indexed;
        if (articles->Load(query, DBManager::LOAD_MODE_BY_KEY, indexed, true, order, limit) != 0) {
            return {QStringLiteral("failed")};
        }
        return ids(indexed);
    }

    // The search through DBManager::Load and through the plain statement, as ids.
    void expectSameAsScan(const QString& column, const QString& pattern, const QString& order,
                          int limit) {
        const QStringList indexed = searched(column, pattern, order, limit);
        QString quoted = pattern;
        quoted.replace(QLatin1Char('"'), QLatin1String("\"\""));
        const QString scan =
            QStringLiteral("SELECT * FROM Article WHERE %1 LIKE \"%2\"%3%4")
                .arg(column, quoted,
                     order.isEmpty() ? QString() : QStringLiteral(" ORDER BY %1, id").arg(order),
                     limit > 0 ? QStringLiteral(" LIMIT %1").arg(limit) : QString());
        DBDirectQueryResult scanned;
        ASSERT_EQ(0, articles->Execute(scan, &scanned)) << scan.toStdString();
        EXPECT_EQ(ids(scanned), indexed)
            << column.toStdString() << " LIKE " << pattern.toStdString();
    }

    void expectPrefixSameAsScan(const QString& prefix) {
        QSharedPointer<DBData> indexed;
        ASSERT_EQ(0, articles->LoadPrefix(QStringLiteral("Article"), QStringLiteral("art_name"),
                                          prefix, indexed, QStringLiteral("art_name"), true));
        QString escaped = prefix;
        escaped.replace(QLatin1String("\\"), QLatin1String("\\\\"))
            .replace(QLatin1String("%"), QLatin1String("\\%"))
            .replace(QLatin1String("_"), QLatin1String("\\_"))
            .replace(QLatin1String("\""), QLatin1String("\"\""));
        DBDirectQueryResult scanned;
        ASSERT_EQ(0, articles->Execute(
                         QStringLiteral("SELECT * FROM Article WHERE art_name LIKE \"%1%\" ESCAPE "
                                        "'\\' ORDER BY art_name, rowid")
                             .arg(escaped),
                         &scanned));
        EXPECT_EQ(ids(scanned), ids(indexed)) << "prefix " << prefix.toStdString();
    }

    // A piece of a stored name, its letters' case changed at random, wildcards thrown in.
    QString randomPattern(std::mt19937& random) {
        const QString name = names[static_cast<int>(random() % names.size())];
        const int length = 1 + static_cast<int>(random() % 8);
        const int start = static_cast<int>(random() % qMax(1, name.size() - 1));
        QString piece = name.mid(start, length);
        for (QChar& c : piece) {
            const int change = static_cast<int>(random() % 3);
            c = change == 0 ? c.toUpper() : change == 1 ? c.toLower() : c;
        }
        switch (random() % 5) {
            case 0:
                return piece + QLatin1Char('%');
            case 1:
                return QLatin1Char('%') + piece + QLatin1Char('%');
            case 2:
                return QLatin1Char('%') + piece.left(2) + QLatin1Char('_') + piece.mid(3) +
                       QLatin1Char('%');
            case 3:
                return QLatin1Char('%') + piece.left(3) + QLatin1Char('%') + piece.mid(3) +
                       QLatin1Char('%');
            default:
                return QLatin1Char('%') + piece + QStringLiteral("x%");
        }
    }

    QStringList names;
};

}  // namespace

TEST_F(TextSearchIndex, RandomPatternsFindWhatTheScanFinds) {
    std::mt19937 random(2026);
    for (int i = 0; i < 300; ++i) {
        const QString pattern = randomPattern(random);
        expectSameAsScan(QStringLiteral("art_name"), pattern, QStringLiteral("UPPER(art_name)"),
                         100);
        expectSameAsScan(QStringLiteral("art_name"), pattern, QString(), 0);
        if (HasFailure()) {
            return;
        }
    }
}

TEST_F(TextSearchIndex, PolishLettersFoldTheSameOnBothPaths) {
    for (const char* pattern :
         {"%żółty%", "%ŻÓŁTY%", "%Żółty ser%", "ŻÓŁ%", "%łódź%", "%ŚLĄSK\"%", "%ąęć%",
          "%ĄĘĆŃ ĄĘĆŃ%", "%ser\\_%", "%100\\%%", "%0% tan%", "%ser_żół%"}) {
        expectSameAsScan(QStringLiteral("art_name"), QString::fromUtf8(pattern),
                         QStringLiteral("UPPER(art_name)"), 100);
    }
    QSharedPointer<DBData> query = QSharedPointer<DBData>::create();
    auto* row = new DBRow(articles->GetTable(QStringLiteral("Article")));
    row->AppendField(QStringLiteral("art_name"), QStringLiteral("%żółty ser%"));
    query->AppendRow(row);
    QSharedPointer<DBData> found;
    ASSERT_EQ(0, articles->Load(query, DBManager::LOAD_MODE_BY_KEY, found, true,
                                QStringLiteral("UPPER(art_name)"), 100));
    EXPECT_EQ(3, found->RowCount()) << "ŻÓŁTY SER, Żółty Ser 100%, żółty ser";
}

TEST_F(TextSearchIndex, BarcodesAndLimitsFollowTheScan) {
    std::mt19937 random(7);
    const QStringList barcodes = Raw().Rows(QStringLiteral("SELECT main_barcode FROM Article"));
    for (int i = 0; i < 100; ++i) {
        const QString barcode = barcodes[static_cast<int>(random() % barcodes.size())];
        const QString piece =
            barcode.mid(static_cast<int>(random() % 6), 3 + static_cast<int>(random() % 6));
        expectSameAsScan(QStringLiteral("main_barcode"),
                         QLatin1Char('%') + piece + QLatin1Char('%'),
                         QStringLiteral("UPPER(main_barcode)"), 100);
        expectSameAsScan(QStringLiteral("main_barcode"), piece + QLatin1Char('%'),
                         QStringLiteral("main_barcode"), 5);
    }
    expectSameAsScan(QStringLiteral("art_name"), QStringLiteral("%ser%"),
                     QStringLiteral("UPPER(art_name)"), 100);
    expectSameAsScan(QStringLiteral("art_name"), QStringLiteral("%a%"),
                     QStringLiteral("UPPER(art_name)"), 100);
}

TEST_F(TextSearchIndex, PrefixesFindWhatTheScanFinds) {
    std::mt19937 random(99);
    for (int i = 0; i < 200; ++i) {
        const QString name = names[static_cast<int>(random() % names.size())];
        QString prefix = name.left(1 + static_cast<int>(random() % 10));
        if (random() % 2) {
            prefix = prefix.toUpper();
        }
        expectPrefixSameAsScan(prefix);
    }
    for (const char* prefix : {"ż", "Ż", "żó", "ŻÓŁT", "50%", "ser_", "łÓDŹ \"", "Zz", "%", "_"}) {
        expectPrefixSameAsScan(QString::fromUtf8(prefix));
    }
}

TEST_F(TextSearchIndex, TheIndexFollowsEveryWriter) {
    // Renames and deletions through the layer and behind its back; the same search before and
    // after each write, so that nothing remembered from the last one survives a change.
    auto searchAgain = [this] {
        expectSameAsScan(QStringLiteral("art_name"), QStringLiteral("%nowa%"),
                         QStringLiteral("UPPER(art_name)"), 100);
    };
    searchAgain();
    QSharedPointer<DBData> rename = QSharedPointer<DBData>::create();
    auto* row = new DBRow(articles->GetTable(QStringLiteral("Article")));
    row->AppendField(QStringLiteral("id"), 1);
    row->AppendField(QStringLiteral("art_name"), QStringLiteral("Zupełnie nowa nazwa"));
    rename->AppendRow(row);
    ASSERT_EQ(0, articles->Update(rename));
    searchAgain();
    Raw().Exec(QStringLiteral("UPDATE Article SET art_name = 'Świeża Ćwikła' WHERE id = 2"));
    Raw().Exec(QStringLiteral("UPDATE Article SET art_name = 'Nowa ' || art_name WHERE id = 4"));
    searchAgain();
    Raw().Exec(QStringLiteral("DELETE FROM Article WHERE id = 3"));
    AddArticle(99999, QStringLiteral("Ostatnia zupełnie nowa"), QStringLiteral("5900099999994"));
    for (const char* pattern : {"%zupełnie%", "%świeża ćw%", "%ĆWIKŁA%", "%nowa%"}) {
        expectSameAsScan(QStringLiteral("art_name"), QString::fromUtf8(pattern),
                         QStringLiteral("UPPER(art_name)"), 100);
    }
    const QStringList gone =
        Raw().Rows(QStringLiteral("SELECT art_name FROM Article WHERE id = 3"));
    EXPECT_TRUE(gone.isEmpty());
    ASSERT_EQ(0, articles->BeginTransaction());
    ASSERT_EQ(0, articles->ClearTable(QStringLiteral("Article")));
    searchAgain();
    ASSERT_EQ(0, articles->RollbackTransaction());
    searchAgain();
}

TEST_F(TextSearchIndex, FoldedIndexHoldsExactlyTheStoredArticles) {
    // Writes are only noted and folded into the index at the next search or commit; after
    // each fold the index must hold what the table holds, no more and no less.
    // rank = 1 compares the index with the table, not only with itself.
    const QString check = QStringLiteral(
        "INSERT INTO ArticleSearch (ArticleSearch, rank) VALUES ('integrity-check', 1)");
    auto searchAndCheck = [&](const char* after) {
        expectSameAsScan(QStringLiteral("art_name"), QStringLiteral("%nowa%"),
                         QStringLiteral("UPPER(art_name)"), 100);
        EXPECT_EQ(0, Raw().Exec(check)) << "after " << after;
        EXPECT_EQ(0, Raw().Count(QStringLiteral("ArticleSearchPending"))) << "after " << after;
    };
    searchAndCheck("the import");
    // An upsert on the key, then the same article renamed twice before the next search.
    QSharedPointer<DBData> upsert = QSharedPointer<DBData>::create();
    auto* row = new DBRow(articles->GetTable(QStringLiteral("Article")));
    row->AppendField(QStringLiteral("id"), 5);
    row->AppendField(QStringLiteral("plu_no"), 5);
    row->AppendField(QStringLiteral("art_name"), QStringLiteral("Nowa bułka"));
    upsert->AppendRow(row);
    ASSERT_EQ(0, articles->Insert(upsert));
    Raw().Exec(QStringLiteral("UPDATE Article SET art_name = 'Nowsza bułka' WHERE id = 5"));
    Raw().Exec(QStringLiteral("UPDATE Article SET art_name = 'Najnowsza bułka' WHERE id = 5"));
    searchAndCheck("renames");
    // A new id, a delete and an insert under the freed id, and one inserted then deleted.
    Raw().Exec(QStringLiteral("UPDATE Article SET id = 777777 WHERE id = 6"));
    Raw().Exec(QStringLiteral("DELETE FROM Article WHERE id = 7"));
    Raw().Exec(
        QStringLiteral("INSERT INTO Article (id, plu_no, art_name) VALUES (7, 777, 'Nowa')"));
    Raw().Exec(
        QStringLiteral("INSERT INTO Article (plu_no, art_name) VALUES (778, 'Nowa na chwilę')"));
    Raw().Exec(QStringLiteral("DELETE FROM Article WHERE plu_no = 778"));
    searchAndCheck("id changes");
    // A bulk write folds at its commit: the notes are gone before any search.
    ASSERT_EQ(0, articles->BeginTransaction());
    for (unsigned int plu = 200000; plu < 200050; ++plu) {
        AddArticle(plu, QStringLiteral("Nowa partia %1").arg(plu));
    }
    ASSERT_EQ(0, articles->CommitTransaction());
    EXPECT_EQ(0, Raw().Count(QStringLiteral("ArticleSearchPending")));
    searchAndCheck("a bulk write");
    ASSERT_EQ(0, articles->ClearTable(QStringLiteral("Article")));
    searchAndCheck("clearing the table");
}

TEST_F(TextSearchIndex, AFoldThatFailsLeavesTheNotesToTheSearch) {
    // Notes that cannot be cleared keep the index behind the table for the noted rows: the
    // search must read them along with it.
    Raw().FailOn(QStringLiteral("ArticleSearchPending"), QStringLiteral("DELETE"));
    Raw().Exec(QStringLiteral("UPDATE Article SET art_name = 'Nowa nazwa' WHERE id = 1"));
    expectSameAsScan(QStringLiteral("art_name"), QStringLiteral("%nowa naz%"),
                     QStringLiteral("UPPER(art_name)"), 100);
    EXPECT_EQ(1, Raw().Count(QStringLiteral("ArticleSearchPending")));
    Raw().StopFailing(QStringLiteral("ArticleSearchPending"), QStringLiteral("DELETE"));
    expectSameAsScan(QStringLiteral("art_name"), QStringLiteral("%nowa naz%"),
                     QStringLiteral("UPPER(art_name)"), 100);
    EXPECT_EQ(0, Raw().Count(QStringLiteral("ArticleSearchPending")));
    // The failed fold left nothing half done that the next one would apply twice.
    EXPECT_EQ(0, Raw().Exec(QStringLiteral("INSERT INTO ArticleSearch (ArticleSearch, rank) "
                                           "VALUES ('integrity-check', 1)")));
}

TEST_F(TextSearchIndex, ThreadedSearchDoesNotWaitForAnotherWriter) {
    // Edits leave notes that the next search would fold into the index, which takes the write
    // lock. While another connection holds that lock, searches must answer at once, from the
    // index and the notes, exactly as the scan.
    Raw().Exec(QStringLiteral("UPDATE Article SET art_name = 'Nowa nazwa' WHERE id = 1"));
    const QString goneName =
        Raw().Text(QStringLiteral("SELECT art_name FROM Article WHERE id = 3"));
    Raw().Exec(QStringLiteral("DELETE FROM Article WHERE id = 3"));
    const QString added = QString::number(
        AddArticle(99999, QStringLiteral("Nowa dostawa"), QStringLiteral("5900099999994")));
    const qint64 notes = Raw().Count(QStringLiteral("ArticleSearchPending"));
    ASSERT_EQ(3, notes);
    const QList<QPair<QString, QString>> searches = {
        {QStringLiteral("art_name"), QStringLiteral("%nowa%")},
        {QStringLiteral("art_name"), QLatin1Char('%') + goneName + QLatin1Char('%')},
        {QStringLiteral("main_barcode"), QStringLiteral("%0099999%")}};
    auto upperOf = [](const QString& column) { return QStringLiteral("UPPER(%1)").arg(column); };
    RawSqlite writer(ArticlesPath());
    ASSERT_EQ(0, writer.Exec(QStringLiteral("BEGIN IMMEDIATE")));
    auto answers = std::async(std::launch::async, [&] {
        QList<QStringList> found;
        for (const auto& search : searches) {
            found.append(searched(search.first, search.second, upperOf(search.first), 100));
        }
        QSharedPointer<DBData> prefixed;
        articles->LoadPrefix(QStringLiteral("Article"), QStringLiteral("art_name"),
                             QStringLiteral("nowa"), prefixed, QStringLiteral("art_name"), true);
        found.append(ids(prefixed));
        return found;
    });
    // Well under the connection's 5 s busy timeout: a search that waits for the lock is still
    // waiting then, however slow the machine.
    if (answers.wait_for(std::chrono::seconds(4)) != std::future_status::ready) {
        ADD_FAILURE() << "a search waited for another connection's write lock";
        writer.Exec(QStringLiteral("ROLLBACK"));
        answers.wait();
        return;
    }
    const QList<QStringList> found = answers.get();
    for (int i = 0; i < searches.size(); ++i) {
        EXPECT_EQ(searched(searches[i].first, searches[i].second, upperOf(searches[i].first), 100),
                  found[i]);
        expectSameAsScan(searches[i].first, searches[i].second, upperOf(searches[i].first), 100);
    }
    // Found only through the notes: the index still holds the old name, or nothing.
    EXPECT_TRUE(found[0].contains(QStringLiteral("1")) && found[0].contains(added));
    EXPECT_TRUE(found[2].contains(added));
    EXPECT_TRUE(found[3].contains(QStringLiteral("1")) && found[3].contains(added));
    EXPECT_FALSE(found[1].contains(QStringLiteral("3")));
    QSharedPointer<DBData> prefixed;
    ASSERT_EQ(0, articles->LoadPrefix(QStringLiteral("Article"), QStringLiteral("art_name"),
                                      QStringLiteral("nowa"), prefixed, QStringLiteral("art_name"),
                                      true));
    EXPECT_EQ(ids(prefixed), found[3]);
    expectPrefixSameAsScan(QStringLiteral("nowa"));
    // More patterns, the lock still held: the notes are read, not folded.
    std::mt19937 random(14);
    for (int i = 0; i < 40 && !HasFailure(); ++i) {
        expectSameAsScan(QStringLiteral("art_name"), randomPattern(random),
                         QStringLiteral("UPPER(art_name)"), 100);
    }
    EXPECT_EQ(notes, Raw().Count(QStringLiteral("ArticleSearchPending")));
    ASSERT_EQ(0, writer.Exec(QStringLiteral("ROLLBACK")));
    expectSameAsScan(QStringLiteral("art_name"), QStringLiteral("%nowa%"),
                     QStringLiteral("UPPER(art_name)"), 100);
    EXPECT_EQ(0, Raw().Count(QStringLiteral("ArticleSearchPending")));
}

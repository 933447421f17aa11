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
        unsigned int plu = 90000;
        for (const char* name : {"ŻÓŁTY SER", "żółty ser", "Żółty Ser 100%", "ser_żółty",
                                 "Łódź \"Śląsk\"", "ĄĘĆŃ ąęćń", "Serek wiejski", "50% taniej"}) {
            AddArticle(plu, name, QStringLiteral("2900%1").arg(plu));
            ++plu;
        }
        ASSERT_EQ(0, articles->CommitTransaction());
        names = Raw().Rows("SELECT art_name FROM Article");
    }

    // A search through DBManager::Load and through the plain statement, as ids. `order` is
    // "" for none, or a template of the column ("UPPER(%1)").
    static QString orderBy(const QString& order, const QString& column) {
        return order.isEmpty() ? QString() : order.arg(column);
    }
    QStringList searched(const QString& pattern, const QString& column, int limit,
                         const QString& order) {
        QSharedPointer<DBData> indexed;
        if (articles->Load(Rows(articles->GetTable("Article"), {{{column, pattern}}}),
                           DBManager::LOAD_MODE_BY_KEY, indexed, true, orderBy(order, column),
                           limit) != 0) {
            return {"failed"};
        }
        return Column(indexed, "id");
    }
    QStringList scanned(const QString& pattern, const QString& column, int limit,
                        const QString& order) {
        QString quoted = pattern;
        quoted.replace('"', "\"\"");
        const QString scan =
            QStringLiteral("SELECT * FROM Article WHERE %1 LIKE \"%2\"%3%4")
                .arg(column, quoted,
                     order.isEmpty() ? QString() : " ORDER BY " + orderBy(order, column) + ", id",
                     limit > 0 ? QStringLiteral(" LIMIT %1").arg(limit) : QString());
        DBDirectQueryResult result;
        EXPECT_EQ(0, articles->Execute(scan, &result)) << scan.toStdString();
        return Column(result, result.ColumnIndex("id"));
    }
    void expectSameAsScan(const QString& pattern, const QString& column = "art_name",
                          int limit = 100, const QString& order = "UPPER(%1)") {
        EXPECT_EQ(scanned(pattern, column, limit, order), searched(pattern, column, limit, order))
            << column.toStdString() << " LIKE " << pattern.toStdString();
    }

    QStringList prefixed(const QString& prefix) {
        QSharedPointer<DBData> indexed;
        EXPECT_EQ(0,
                  articles->LoadPrefix("Article", "art_name", prefix, indexed, "art_name", true));
        return indexed ? Column(indexed, "id") : QStringList{"failed"};
    }
    void expectPrefixSameAsScan(const QString& prefix) {
        QString escaped = prefix;
        escaped.replace("\\", "\\\\").replace("%", "\\%").replace("_", "\\_").replace("\"", "\"\"");
        DBDirectQueryResult scan;
        ASSERT_EQ(0, articles->Execute("SELECT id FROM Article WHERE art_name LIKE \"" + escaped +
                                           "%\" ESCAPE '\\' ORDER BY art_name, rowid",
                                       &scan));
        EXPECT_EQ(Column(scan, 0), prefixed(prefix)) << "prefix " << prefix.toStdString();
    }

    // Once a commit has folded the noted writes, the index holds exactly what the table holds
    // (rank = 1 compares it with the table, not only with itself).
    void expectFolded(const char* after) {
        ASSERT_EQ(0, articles->BeginTransaction());
        ASSERT_EQ(0, articles->CommitTransaction());
        EXPECT_EQ(0, Raw().Exec("INSERT INTO ArticleSearch (ArticleSearch, rank) "
                                "VALUES ('integrity-check', 1)"))
            << "after " << after;
        EXPECT_EQ(0, Raw().Count("ArticleSearchPending")) << "after " << after;
    }

    // A piece of a stored name, its letters' case changed at random, wildcards thrown in.
    QString randomPattern(std::mt19937& random) {
        const QString name = names[static_cast<int>(random() % names.size())];
        const int length = 1 + static_cast<int>(random() % 8);
        QString piece = name.mid(static_cast<int>(random() % qMax(1, name.size() - 1)), length);
        for (QChar& c : piece) {
            const int change = static_cast<int>(random() % 3);
            c = change == 0 ? c.toUpper() : change == 1 ? c.toLower() : c;
        }
        switch (random() % 5) {
            case 0:
                return piece + '%';
            case 1:
                return '%' + piece + '%';
            case 2:
                return '%' + piece.left(2) + '_' + piece.mid(3) + '%';
            case 3:
                return '%' + piece.left(3) + '%' + piece.mid(3) + '%';
            default:
                return '%' + piece + "x%";
        }
    }

    QStringList names;
};

}  // namespace

TEST_F(TextSearchIndex, EverySearchFindsWhatTheScanFinds) {
    std::mt19937 random(2026);
    for (int i = 0; i < 300 && !HasFailure(); ++i) {
        const QString pattern = randomPattern(random);
        expectSameAsScan(pattern);
        expectSameAsScan(pattern, "art_name", 0, "");
    }
    // Polish letters fold the same on both paths; LIKE's own signs, and patterns that match
    // more rows than the limit.
    for (const char* pattern :
         {"%żółty%", "%ŻÓŁTY%", "%Żółty ser%", "ŻÓŁ%", "%łódź%", "%ŚLĄSK\"%", "%ąęć%",
          "%ĄĘĆŃ ĄĘĆŃ%", "%ser\\_%", "%100\\%%", "%0% tan%", "%ser_żół%", "%ser%", "%a%"}) {
        expectSameAsScan(pattern);
    }
    EXPECT_EQ(3, searched("%żółty ser%", "art_name", 100, "UPPER(%1)").size())
        << "ŻÓŁTY SER, Żółty Ser 100%, żółty ser";
    const QStringList barcodes = Raw().Rows("SELECT main_barcode FROM Article");
    for (int i = 0; i < 100; ++i) {
        const QString barcode = barcodes[static_cast<int>(random() % barcodes.size())];
        const QString piece =
            barcode.mid(static_cast<int>(random() % 6), 3 + static_cast<int>(random() % 6));
        expectSameAsScan('%' + piece + '%', "main_barcode");
        expectSameAsScan(piece + '%', "main_barcode", 5, "%1");
    }
    for (int i = 0; i < 200; ++i) {
        const QString name = names[static_cast<int>(random() % names.size())];
        const QString prefix = name.left(1 + static_cast<int>(random() % 10));
        expectPrefixSameAsScan(random() % 2 ? prefix.toUpper() : prefix);
    }
    for (const char* prefix : {"ż", "Ż", "żó", "ŻÓŁT", "50%", "ser_", "łÓDŹ \"", "Zz", "%", "_"}) {
        expectPrefixSameAsScan(prefix);
    }
    // Too short for the index: one scan answers the prefix and the infix asked next, unless
    // another connection wrote in between.
    int renamed = 1;
    for (const QString run : {"a", "Ż", "er", "%"}) {
        const QString infix = '%' + run + '%';
        searched(run + '%', "art_name", 100, "UPPER(%1)");
        Raw().Exec(QStringLiteral("UPDATE Article SET art_name = '!%1' WHERE id = %2")
                       .arg(run)
                       .arg(renamed++));
        expectSameAsScan(infix);
        expectSameAsScan(run + '%');
        expectSameAsScan(infix);
        expectSameAsScan(run + '%', "art_name", 7, "%1");
        expectSameAsScan(infix, "art_name", 5, "");
    }
    // Names the scan meets early on the index ignoring case and that sort late by their bytes
    // ("_" comes before letters there, after capitals here), so that rows to keep come late.
    for (int i = 0; i < 20; ++i) {
        AddArticle(static_cast<unsigned int>(96000 + i), QStringLiteral("_a %1").arg(i));
    }
    for (const QString pattern : {"%a%", "%e%", "%_a%"}) {
        expectSameAsScan(pattern, "art_name", 7, "%1");
        expectSameAsScan(pattern);
    }
}

TEST_F(TextSearchIndex, TheIndexFollowsEveryWriter) {
    // Writes are only noted and folded into the index at the next search or commit; the same
    // searches after each kind of write, so that nothing remembered from the last one survives
    // a change.
    auto searchAndCheck = [&](const char* after) {
        for (const char* pattern : {"%nowa%", "%zupełnie%", "%świeża ćw%", "%ĆWIKŁA%"}) {
            expectSameAsScan(pattern);
        }
        expectFolded(after);
    };
    searchAndCheck("the import");
    // Through the layer: an update, and an upsert on the key; then the same article renamed
    // twice behind its back before the next search.
    ASSERT_EQ(0, articles->Update(Rows(articles->GetTable("Article"),
                                       {{{"id", 1}, {"art_name", "Zupełnie nowa nazwa"}}})));
    ASSERT_EQ(0, articles->Insert(Rows(articles->GetTable("Article"),
                                       {{{"id", 5}, {"plu_no", 5}, {"art_name", "Nowa bułka"}}})));
    Raw().Exec("UPDATE Article SET art_name = 'Nowsza bułka' WHERE id = 5");
    Raw().Exec("UPDATE Article SET art_name = 'Najnowsza bułka' WHERE id = 5");
    Raw().Exec("UPDATE Article SET art_name = 'Świeża Ćwikła' WHERE id = 2");
    Raw().Exec("UPDATE Article SET art_name = 'Nowa ' || art_name WHERE id = 4");
    searchAndCheck("renames");
    // A new id, a delete and an insert under the freed id, and one inserted then deleted.
    Raw().Exec("UPDATE Article SET id = 777777 WHERE id = 6");
    Raw().Exec("DELETE FROM Article WHERE id = 7");
    Raw().Exec("INSERT INTO Article (id, plu_no, art_name) VALUES (7, 777, 'Nowa')");
    Raw().Exec("INSERT INTO Article (plu_no, art_name) VALUES (778, 'Nowa na chwilę')");
    Raw().Exec("DELETE FROM Article WHERE plu_no = 778");
    Raw().Exec("DELETE FROM Article WHERE id = 3");
    AddArticle(99999, "Ostatnia zupełnie nowa", "5900099999994");
    searchAndCheck("id changes");
    // A bulk write folds at its commit: the notes are gone before any search.
    ASSERT_EQ(0, articles->BeginTransaction());
    for (unsigned int plu = 200000; plu < 200050; ++plu) {
        AddArticle(plu, QStringLiteral("Nowa partia %1").arg(plu));
    }
    ASSERT_EQ(0, articles->CommitTransaction());
    EXPECT_EQ(0, Raw().Count("ArticleSearchPending"));
    searchAndCheck("a bulk write");
    // A clear inside a transaction is seen by its own searches and undone by its rollback.
    ASSERT_EQ(0, articles->BeginTransaction());
    ASSERT_EQ(0, articles->ClearTable("Article"));
    expectSameAsScan("%nowa%");
    ASSERT_EQ(0, articles->RollbackTransaction());
    searchAndCheck("a rolled back clear");
    ASSERT_EQ(0, articles->ClearTable("Article"));
    searchAndCheck("clearing the table");
}

TEST_F(TextSearchIndex, NotesAreReadWhileFewOrUnfoldableAndFoldedWhenMany) {
    // Notes that cannot be cleared keep the index behind the table for the noted rows: the
    // search must read them along with it.
    Raw().FailOn("ArticleSearchPending", "DELETE");
    Raw().Exec("UPDATE Article SET art_name = 'Nowa nazwa' WHERE id = 1");
    ASSERT_EQ(0, articles->BeginTransaction());
    ASSERT_EQ(0, articles->CommitTransaction()) << "the commit folds, and goes on when it fails";
    expectSameAsScan("%nowa naz%");
    EXPECT_EQ(1, Raw().Count("ArticleSearchPending"));
    Raw().StopFailing("ArticleSearchPending", "DELETE");
    expectSameAsScan("%nowa naz%");
    // The failed fold left nothing half done that the next one would apply twice.
    expectFolded("a failed fold");

    // Folding is a durable write: a search after a few edits reads their notes instead, and
    // folds them once they are many.
    for (int id = 1; id <= 10; ++id) {
        Raw().Exec(QStringLiteral("UPDATE Article SET art_name = 'Nowa %1' WHERE id = %1").arg(id));
    }
    expectSameAsScan("%nowa%");
    EXPECT_EQ(10, Raw().Count("ArticleSearchPending"));
    Raw().Exec("UPDATE Article SET art_name = 'Nowsza ' || art_name WHERE id <= 400");
    expectSameAsScan("%nowsza%");
    EXPECT_EQ(0, Raw().Count("ArticleSearchPending"));
    expectFolded("many notes");
}

TEST_F(TextSearchIndex, ThreadedSearchDoesNotWaitForAnotherWriter) {
    // Edits leave notes that the next search would fold into the index, which takes the write
    // lock. While another connection holds that lock, searches must answer at once, from the
    // index and the notes, exactly as the scan.
    Raw().Exec("UPDATE Article SET art_name = 'Nowa nazwa' WHERE id = 1");
    const QString goneName = Raw().Text("SELECT art_name FROM Article WHERE id = 3");
    Raw().Exec("DELETE FROM Article WHERE id = 3");
    const QString added = QString::number(AddArticle(99999, "Nowa dostawa", "5900099999994"));
    const qint64 notes = Raw().Count("ArticleSearchPending");
    ASSERT_EQ(3, notes);
    const QList<QPair<QString, QString>> searches = {
        {"art_name", "%nowa%"}, {"art_name", '%' + goneName + '%'}, {"main_barcode", "%0099999%"}};
    RawSqlite writer(ArticlesPath());
    ASSERT_EQ(0, writer.Exec("BEGIN IMMEDIATE"));
    auto answers = std::async(std::launch::async, [&] {
        QList<QStringList> found;
        for (const auto& search : searches) {
            found.append(searched(search.second, search.first, 100, "UPPER(%1)"));
        }
        found.append(prefixed("nowa"));
        return found;
    });
    // Well under the connection's 5 s busy timeout: a search that waits for the lock is still
    // waiting then, however slow the machine.
    if (answers.wait_for(std::chrono::seconds(4)) != std::future_status::ready) {
        ADD_FAILURE() << "a search waited for another connection's write lock";
        writer.Exec("ROLLBACK");
        answers.wait();
        return;
    }
    const QList<QStringList> found = answers.get();
    for (int i = 0; i < searches.size(); ++i) {
        EXPECT_EQ(scanned(searches[i].second, searches[i].first, 100, "UPPER(%1)"), found[i]);
    }
    // Found only through the notes: the index still holds the old name, or nothing.
    EXPECT_TRUE(found[0].contains("1") && found[0].contains(added));
    EXPECT_TRUE(found[2].contains(added));
    EXPECT_TRUE(found[3].contains("1") && found[3].contains(added));
    EXPECT_FALSE(found[1].contains("3"));
    expectPrefixSameAsScan("nowa");
    EXPECT_EQ(prefixed("nowa"), found[3]);
    // More patterns, the lock still held: the notes are read, not folded.
    std::mt19937 random(14);
    for (int i = 0; i < 40 && !HasFailure(); ++i) {
        expectSameAsScan(randomPattern(random));
    }
    EXPECT_EQ(notes, Raw().Count("ArticleSearchPending"));
    ASSERT_EQ(0, writer.Exec("ROLLBACK"));
    expectSameAsScan("%nowa%");
    expectFolded("the writer let go");
}

TEST_F(TextSearchIndex, ANameLookupFindsWhatTheScanFinds) {
    // A text of a declared shape whose caller reads few rows is answered through the index
    // ignoring case (an exact name) or the trigram index (a pattern): the first rows of the
    // scan, in its order. Names LIKE takes for others that the index ignoring case does not
    // (KELVIN SIGN, long s, Angstrom), values that are not text, notes not folded yet.
    ASSERT_EQ(0, articles->DeclareStatementTemplate("SELECT * FROM Article WHERE art_name like \"",
                                                    {"\";"}, 3));
    unsigned int plu = 95000;
    for (const char* name : {"\u212Aefir", "KEFIR naturalny", "kefir", "\u017Fok", "Sok",
                             "\u212Bland", "ÅLAND", "Żółć ęąś żółć ĘĄŚ"}) {
        AddArticle(plu++, name);
    }
    Raw().Exec("INSERT INTO Article (plu_no, art_name) VALUES (95100, CAST('kefir' AS BLOB))");
    Raw().Exec("INSERT INTO Article (plu_no, art_name) VALUES (95101, 'Sok jabłkowy')");
    auto expectSame = [&](const QString& pattern) {
        QString quoted = pattern;
        quoted.replace('"', "\"\"");
        DBDirectQueryResult answered;
        ASSERT_EQ(0,
                  articles->Execute("SELECT * FROM Article WHERE art_name like \"" + quoted + "\";",
                                    &answered));
        DBDirectQueryResult scan;
        ASSERT_EQ(
            0, articles->Execute(
                   "SELECT * FROM Article WHERE art_name LIKE \"" + quoted + "\" LIMIT 3", &scan));
        EXPECT_EQ(scan.GetColumnNames(), answered.GetColumnNames());
        EXPECT_EQ(scan.GetRows(), answered.GetRows()) << "like " << pattern.toStdString();
        EXPECT_EQ(scan.IsEmpty(), answered.IsEmpty());
    };
    for (const char* pattern : {"kefir",
                                "KEFIR",
                                "\u212A\u212A",
                                "sok",
                                "SOK",
                                "\u017Fok",
                                "åland",
                                "ÅLAND",
                                "żółć ęąś żółć ęąś",
                                "ŻÓŁĆ ĘĄŚ ŻÓŁĆ ĘĄŚ",
                                "ĄĘĆŃ ąęćń",
                                "ser_żółty",
                                "Sok jabłkowy",
                                "nie ma takiej",
                                "",
                                "ab",
                                "\"",
                                "%kefir%",
                                "kef%",
                                "%ok"}) {
        expectSame(QString::fromUtf8(pattern));
    }
    // The scan itself against what case folding says: KELVIN SIGN is a "k" and long s an "s",
    // even in a pattern of ASCII letters only.
    for (const auto& [pattern, expected] :
         {std::pair<const char*, QString>{"%kefir%", "95000 95001 95002 95100"},
          {"SOK", "95003 95004"},
          {"s_k", "95003 95004"},
          {"%ŻÓŁĆ%", "95007"}}) {
        DBDirectQueryResult scan;
        ASSERT_EQ(0, articles->Execute(QStringLiteral("SELECT group_concat(plu_no, ' ') FROM "
                                                      "(SELECT plu_no FROM Article WHERE art_name "
                                                      "LIKE '%1' AND plu_no >= 95000 ORDER BY 1)")
                                           .arg(QString::fromUtf8(pattern)),
                                       &scan));
        EXPECT_EQ(expected, scan.GetValue(0, 0).toString()) << "like " << pattern;
    }
    // Random stored names in random case, and pieces of them with wildcards.
    std::mt19937 random(77);
    for (int i = 0; i < 200 && !HasFailure(); ++i) {
        QString name = names[static_cast<int>(random() % names.size())];
        for (QChar& c : name) {
            c = random() % 2 ? c.toUpper() : c.toLower();
        }
        expectSame(name);
        expectSame(randomPattern(random));
    }
    // Written behind the layer's back and not folded into the trigram index yet.
    Raw().Exec("UPDATE Article SET art_name = 'Kefir odświeżony' WHERE plu_no = 95001");
    expectSame("kefir odświeżony");
    expectSame("%odświeżony");
}

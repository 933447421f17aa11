// What keeps a shop's catalogue safe from a slip of the hand: nothing is created by reading,
// nothing is wiped without the receipts' word or a --force, and a copy is kept before any
// command removes or rewrites data.

#include <unistd.h>
#include <QDir>

#include "ArticlectlFixture.h"
#include "RawSqlite.h"

namespace {

QStringList Backups(const QString& folder) {
    return QDir(folder).entryList({"*.db"}, QDir::Files, QDir::Name);
}

}  // namespace

TEST_F(Articlectl, MistypedPathsCreateNothingAndAreNamed) {
    for (const QStringList& command :
         {words({"count"}), words({"search", "x"}), words({"add", "--name", "X"}),
          words({"import", "nothing.csv"})}) {
        const Outcome outcome = Do(command, "sohp.db");
        EXPECT_EQ(4, outcome.exit) << command.join(' ').toStdString();
        EXPECT_TRUE(outcome.err.contains(Path("sohp.db"))) << outcome.err.toStdString();
    }
    EXPECT_EQ(QStringList{"shop.db"}, QDir(dir.path()).entryList({"sohp*", "shop.db"}));
    EXPECT_FALSE(QFile::exists(Path("receipts.db")))
        << "the tool never makes the register's receipt database";

    // import --create makes a new catalogue set up as init sets one up, and keeps no copy of it.
    const Outcome created = Do({"import", "--create", cennik}, "new.db");
    ASSERT_EQ(0, created.exit) << created.err.toStdString();
    EXPECT_EQ(99, Json({"dept", "list", "--json"}, "new.db")["count"].toInt());
    EXPECT_FALSE(QFile::exists(Path("new.db.backups")));

    const Outcome receipts = Do(QStringList{"--receipts", Path("reciepts.db")} << "count");
    EXPECT_EQ(4, receipts.exit);
    EXPECT_TRUE(Has(receipts.err, "reciepts.db"));
}

TEST_F(Articlectl, ClearAndInitAskBeforeTheyWipeAndKeepACopy) {
    ASSERT_EQ(0, Do({"add", "--name", "Chleb", "--price", "5.49"}).exit);
    const QString backups = Path("shop.db.backups");

    EXPECT_TRUE(Says(3, Do({"clear"}), "--no-receipts"));
    const Outcome init = Do({"init"});
    EXPECT_EQ(3, init.exit);
    EXPECT_TRUE(Has(init.err, "--force"));
    EXPECT_EQ(1, Count());
    EXPECT_TRUE(Backups(backups).isEmpty()) << "a refused command keeps no copy";
    // No copy can be made (a file stands where the folder goes): nothing is wiped.
    WriteFile("shop.db.backups", "not a folder");
    EXPECT_TRUE(Says(4, Do({"clear", "--no-receipts"}), "no backup could be made"));
    WriteFile("rolls.csv", "plu,name,price\n500,Bu\xC5\x82ka,0.89\n");
    EXPECT_TRUE(Says(4, Do({"import", "rolls.csv"}), "no backup could be made"));
    EXPECT_EQ(1, Count());
    QFile::remove(backups);

    RawSqlite shop(Path("shop.db"));
    const QString deptName = "SELECT dept_name FROM Dept WHERE dept_id = 1";
    shop.Exec("UPDATE Dept SET dept_name = 'Piekarnia' WHERE dept_id = 1");
    ASSERT_EQ(0, Do({"init", "--force"}).exit);
    EXPECT_NE("Piekarnia", shop.Text(deptName));
    ASSERT_EQ(0, Do({"clear", "--no-receipts"}).exit);
    EXPECT_EQ(0, Count());
    const QStringList copies = Backups(backups);
    ASSERT_EQ(2, copies.size());

    // The first copy holds the shop as it was before init --force: restore brings it back.
    const Outcome restored = Do(words({"restore"}) << QDir(backups).filePath(copies.first()));
    ASSERT_EQ(0, restored.exit) << restored.err.toStdString();
    EXPECT_EQ(1, Count());
    EXPECT_EQ("Piekarnia", shop.Text(deptName));
    EXPECT_EQ(3, Backups(backups).size()) << "the restored-over catalogue is kept too";

    // A damaged or foreign file is never restored.
    WriteFile("garbage.db", QByteArray(8192, 'x'));
    EXPECT_EQ(3, Do(words({"restore"}) << Path("garbage.db")).exit);
    EXPECT_EQ(1, Count());

    // An import's copy, written while the rows are stored, holds the catalogue before them.
    ASSERT_EQ(0, Do({"import", "rolls.csv"}).exit);
    EXPECT_EQ(2, Count());
    EXPECT_EQ("1", RawSqlite(QDir(backups).filePath(Backups(backups).last()))
                       .Text("SELECT count(*) FROM Article"));

    for (int i = 0; i < 9; ++i) {
        ASSERT_EQ(0, Do({"backup"}).exit);
    }
    EXPECT_EQ(10, Backups(backups).size()) << "only the newest ten are kept";
    EXPECT_EQ(10, Json({"backup", "--list", "--json"})["count"].toInt());
}

// A write the database refuses, injected or on a read-only file, is reported with SQLite's own
// reason and never blamed on a line of the input.
TEST_F(Articlectl, WriteFailuresAreReportedAndNeverBlamedOnTheInput) {
    WriteFile("list.csv", "plu,name,price\n7,Chleb,5.49\n8,Bułka,0.89\n");
    WriteFile("prices.csv", "plu,price\n7,5.99\n");
    ASSERT_EQ(0, Do({"import", "list.csv"}).exit);
    {
        RawSqlite shop(Path("shop.db"));
        shop.FailOn("Article", "UPDATE");
        // Rows that change nothing are not written, so the failing update is never reached.
        EXPECT_EQ(0, Do({"import", "list.csv"}).exit);
        for (const QStringList& command :
             {words({"import", "prices.csv"}), words({"price", "set", "7", "2"})}) {
            const Outcome failed = Do(command);
            EXPECT_EQ(4, failed.exit) << command.join(' ').toStdString();
            EXPECT_TRUE(Has(failed.err, "injected"));
            EXPECT_FALSE(Has(failed.err, "prices.csv:"));
        }
        shop.StopFailing("Article", "UPDATE");
    }
    // Root writes read-only files: the tool then runs as nobody, who may only read.
    const bool asNobody = geteuid() == 0;
    if (asNobody && !QFile::exists("/usr/bin/setpriv")) {
        GTEST_SKIP() << "running as root without setpriv";
    }
    // The folder stays writable, as a shop PC's is: SQLite makes its -shm file beside a reader.
    QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                          QFile::ReadOther | QFile::WriteOther | QFile::ExeOther);
    for (const QString& name : QDir(dir.path()).entryList(QDir::Files)) {
        QFile::setPermissions(Path(name), QFile::ReadOwner | QFile::ReadOther);
    }
    const auto reader = [&](const QStringList& arguments) {
        const QStringList line = QStringList{"--db", Path("shop.db")} + arguments;
        return asNobody ? Run(words({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534",
                                     "--clear-groups"}) +
                              childCommand(QStringLiteral(ARTICLECTL_PATH), line))
                        : Tool(line);
    };
    const QByteArray before = ReadFile("shop.db");
    const Outcome shown = reader(words({"show", "7"}));
    EXPECT_EQ(0, shown.exit) << shown.err.toStdString();
    for (const QStringList& command :
         {words({"import", pricelist}), words({"import", "prices.csv"}),
          words({"price", "set", "7", "1"})}) {
        const Outcome outcome = reader(command);
        EXPECT_EQ(4, outcome.exit) << command.join(' ').toStdString();
        EXPECT_TRUE(Has(outcome.err, "read-only"));
        EXPECT_FALSE(Has(outcome.err, ".csv:"));
    }
    EXPECT_EQ(before, ReadFile("shop.db"));
}

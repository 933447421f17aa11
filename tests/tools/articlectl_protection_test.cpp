// What keeps a shop's catalogue safe from a slip of the hand: nothing is created by reading,
// nothing is wiped without the receipts' word or a --force, and a copy is kept before any
// command removes or rewrites data.

#include <unistd.h>
#include <QDir>

#include "ArticlectlFixture.h"
#include "RawSqlite.h"

namespace {

QStringList Backups(const QString& folder) {
    return QDir(folder).entryList({QStringLiteral("*.db")}, QDir::Files, QDir::Name);
}

}  // namespace

TEST_F(Articlectl, MistypedPathsCreateNothingAndAreNamed) {
    for (const QStringList& command :
         {QStringList{QStringLiteral("count")},
          {QStringLiteral("search"), QStringLiteral("x")},
          {QStringLiteral("add"), QStringLiteral("--name"), QStringLiteral("X")},
          {QStringLiteral("import"), QStringLiteral("nothing.csv")}}) {
        const Outcome outcome = Do(command, QStringLiteral("sohp.db"));
        EXPECT_EQ(4, outcome.exit) << command.join(' ').toStdString();
        EXPECT_TRUE(outcome.err.contains(Path(QStringLiteral("sohp.db"))))
            << outcome.err.toStdString();
    }
    EXPECT_EQ(QStringList{QStringLiteral("shop.db")},
              QDir(dir.path()).entryList({QStringLiteral("sohp*"), QStringLiteral("shop.db")}));
    EXPECT_FALSE(QFile::exists(Path(QStringLiteral("receipts.db"))))
        << "the tool never makes the register's receipt database";

    // import --create makes a new catalogue set up as init sets one up, and keeps no copy of it.
    const Outcome created = Do({QStringLiteral("import"), QStringLiteral("--create"),
                                QStringLiteral(ARTICLEMANAGER_SOURCE_DIR "/examples/cennik.csv")},
                               QStringLiteral("new.db"));
    ASSERT_EQ(0, created.exit) << created.err.toStdString();
    EXPECT_EQ(99, Do({QStringLiteral("dept"), QStringLiteral("list"), QStringLiteral("--json")},
                     QStringLiteral("new.db"))
                      .Json()[QStringLiteral("count")]
                      .toInt());
    EXPECT_FALSE(QFile::exists(Path(QStringLiteral("new.db.backups"))));

    const Outcome receipts = Do({QStringLiteral("--receipts"), Path(QStringLiteral("reciepts.db")),
                                 QStringLiteral("count")});
    EXPECT_EQ(4, receipts.exit);
    EXPECT_TRUE(receipts.err.contains(QStringLiteral("reciepts.db")));
}

TEST_F(Articlectl, ClearAndInitAskBeforeTheyWipeAndKeepACopy) {
    ASSERT_EQ(0, Do({QStringLiteral("add"), QStringLiteral("--name"), QStringLiteral("Chleb"),
                     QStringLiteral("--price"), QStringLiteral("5.49")})
                     .exit);
    const QString backups = Path(QStringLiteral("shop.db.backups"));

    const Outcome noReceipts = Do({QStringLiteral("clear")});
    EXPECT_EQ(3, noReceipts.exit);
    EXPECT_TRUE(noReceipts.err.contains(QStringLiteral("--no-receipts")));
    const Outcome init = Do({QStringLiteral("init")});
    EXPECT_EQ(3, init.exit);
    EXPECT_TRUE(init.err.contains(QStringLiteral("--force")));
    EXPECT_EQ(1, Count());
    EXPECT_TRUE(Backups(backups).isEmpty()) << "a refused command keeps no copy";

    RawSqlite shop(Path(QStringLiteral("shop.db")));
    shop.Exec(QStringLiteral("UPDATE Dept SET dept_name = 'Piekarnia' WHERE dept_id = 1"));
    ASSERT_EQ(0, Do({QStringLiteral("init"), QStringLiteral("--force")}).exit);
    EXPECT_NE(QStringLiteral("Piekarnia"),
              shop.Text(QStringLiteral("SELECT dept_name FROM Dept WHERE dept_id = 1")));
    ASSERT_EQ(0, Do({QStringLiteral("clear"), QStringLiteral("--no-receipts")}).exit);
    EXPECT_EQ(0, Count());
    const QStringList copies = Backups(backups);
    ASSERT_EQ(2, copies.size());

    // The first copy holds the shop as it was before init --force: restore brings it back.
    const Outcome restored =
        Do({QStringLiteral("restore"), QDir(backups).filePath(copies.first())});
    ASSERT_EQ(0, restored.exit) << restored.err.toStdString();
    EXPECT_EQ(1, Count());
    EXPECT_EQ(QStringLiteral("Piekarnia"),
              shop.Text(QStringLiteral("SELECT dept_name FROM Dept WHERE dept_id = 1")));
    EXPECT_EQ(3, Backups(backups).size()) << "the restored-over catalogue is kept too";

    // A damaged or foreign file is never restored.
    WriteFile(QStringLiteral("garbage.db"), QByteArray(8192, 'x'));
    EXPECT_EQ(3, Do({QStringLiteral("restore"), Path(QStringLiteral("garbage.db"))}).exit);
    EXPECT_EQ(1, Count());

    for (int i = 0; i < 9; ++i) {
        ASSERT_EQ(0, Do({QStringLiteral("backup")}).exit);
    }
    EXPECT_EQ(10, Backups(backups).size()) << "only the newest ten are kept";
    const Outcome listed =
        Do({QStringLiteral("backup"), QStringLiteral("--list"), QStringLiteral("--json")});
    EXPECT_EQ(10, listed.Json()[QStringLiteral("count")].toInt());
}

TEST_F(Articlectl, AReadOnlyCatalogueIsReadButNeverBlamedOnTheInput) {
    ASSERT_EQ(0, Do({QStringLiteral("add"), QStringLiteral("--plu"), QStringLiteral("7"),
                     QStringLiteral("--name"), QStringLiteral("Chleb")})
                     .exit);
    {
        // A write the database refuses is reported with SQLite's own reason.
        RawSqlite shop(Path(QStringLiteral("shop.db")));
        shop.FailOn(QStringLiteral("Article"), QStringLiteral("UPDATE"));
        const Outcome refused = Do({QStringLiteral("price"), QStringLiteral("set"),
                                    QStringLiteral("7"), QStringLiteral("2")});
        EXPECT_EQ(4, refused.exit);
        EXPECT_TRUE(refused.err.contains(QStringLiteral("injected"))) << refused.err.toStdString();
        shop.StopFailing(QStringLiteral("Article"), QStringLiteral("UPDATE"));
    }
    // Root writes read-only files: the tool then runs as nobody, who may only read.
    const bool asNobody = geteuid() == 0;
    if (asNobody && !QFile::exists(QStringLiteral("/usr/bin/setpriv"))) {
        GTEST_SKIP() << "running as root without setpriv";
    }
    // The folder stays writable, as a shop PC's is: SQLite makes its -shm file beside a reader.
    QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                          QFile::ReadOther | QFile::WriteOther | QFile::ExeOther);
    for (const QString& name : QDir(dir.path()).entryList(QDir::Files)) {
        QFile::setPermissions(Path(name), QFile::ReadOwner | QFile::ReadOther);
    }
    auto Do = [&](const QStringList& arguments) {
        QProcess process;
        process.setWorkingDirectory(dir.path());
        QStringList line{QStringLiteral("--db"), Path(QStringLiteral("shop.db"))};
        line += arguments;
        if (asNobody) {
            line = QStringList{QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                               QStringLiteral("--clear-groups"), QStringLiteral(ARTICLECTL_PATH)} +
                   line;
        }
        process.start(
            asNobody ? QStringLiteral("/usr/bin/setpriv") : QStringLiteral(ARTICLECTL_PATH), line);
        process.waitForFinished(60000);
        return Outcome{process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                       QString::fromUtf8(process.readAllStandardError())};
    };
    const QByteArray before = ReadFile(QStringLiteral("shop.db"));
    const Outcome shown = Do({QStringLiteral("show"), QStringLiteral("7")});
    EXPECT_EQ(0, shown.exit) << shown.err.toStdString();
    QFile list(QStringLiteral(ARTICLEMANAGER_SOURCE_DIR "/examples/pricelist.csv"));
    for (const QStringList& command : {QStringList{QStringLiteral("import"), list.fileName()},
                                       {QStringLiteral("price"), QStringLiteral("set"),
                                        QStringLiteral("7"), QStringLiteral("1")}}) {
        const Outcome outcome = Do(command);
        EXPECT_EQ(4, outcome.exit) << command.join(' ').toStdString();
        EXPECT_TRUE(outcome.err.contains(QStringLiteral("read-only"))) << outcome.err.toStdString();
    }
    EXPECT_EQ(before, ReadFile(QStringLiteral("shop.db")));
}

TEST_F(Articlectl, HelpIsEverywhereAndSuggestsWhatWasMeant) {
    const Outcome help = Do({QStringLiteral("help")});
    EXPECT_EQ(0, help.exit);
    EXPECT_TRUE(help.out.contains(QStringLiteral("restore")));
    for (const QStringList& words :
         {QStringList{QStringLiteral("help"), QStringLiteral("price")},
          {QStringLiteral("price"), QStringLiteral("--help")},
          {QStringLiteral("help"), QStringLiteral("price"), QStringLiteral("convert")},
          {QStringLiteral("price"), QStringLiteral("set"), QStringLiteral("--help")},
          {QStringLiteral("help"), QStringLiteral("scan")}}) {
        const Outcome outcome = Do(words);
        EXPECT_EQ(0, outcome.exit) << words.join(' ').toStdString();
        EXPECT_TRUE(outcome.out.contains(QStringLiteral("articlectl price ")) ||
                    outcome.out.contains(QStringLiteral("articlectl scan ")))
            << outcome.out.toStdString();
        EXPECT_TRUE(outcome.err.isEmpty()) << outcome.err.toStdString();
    }
    const Outcome typo = Do({QStringLiteral("serach"), QStringLiteral("chleb")});
    EXPECT_EQ(2, typo.exit);
    EXPECT_TRUE(typo.err.contains(QStringLiteral("did you mean 'search'?")))
        << typo.err.toStdString();
    const Outcome subTypo =
        Do({QStringLiteral("price"), QStringLiteral("convet"), QStringLiteral("4")});
    EXPECT_TRUE(subTypo.err.contains(QStringLiteral("did you mean 'price convert'?")))
        << subTypo.err.toStdString();

    // Global options anywhere on the line.
    QProcess process;
    process.start(QStringLiteral(ARTICLECTL_PATH),
                  {QStringLiteral("count"), QStringLiteral("--json"), QStringLiteral("--db"),
                   Path(QStringLiteral("shop.db"))});
    process.waitForFinished(60000);
    EXPECT_EQ(0, process.exitCode()) << process.readAllStandardError().toStdString();
    EXPECT_EQ(0, QJsonDocument::fromJson(process.readAllStandardOutput())
                     .object()[QStringLiteral("count")]
                     .toInt(-1));
}

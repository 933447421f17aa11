// Departments: the table, its cache, the firmware rules and the change signal.

#include "DeptDBManager.h"
#include "DatabaseFixture.h"
#include "Logger.h"

namespace {

class DeptDBManagerTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        ASSERT_TRUE(manager.Initialize(articles.get()));
        QObject::connect(&manager, &DeptDBManager::deptChanged,
                         [this](int deptId) { signalled.append(deptId); });
    }

    QStringList column(const QString& name) {
        return Raw().Rows(QStringLiteral("SELECT %1 FROM Dept ORDER BY dept_id").arg(name));
    }

    static Article ofDept(unsigned char dept) {
        Article article;
        article.deptNo = dept;
        return article;
    }

    DeptDBManager manager;
    QList<int> signalled;
};

}  // namespace

TEST_F(DeptDBManagerTest, ResetBuildsNinetyNineDepartmentsWithTheFirmwareFlags) {
    ASSERT_TRUE(manager.ResetTable());
    auto expected = [](unsigned int dept) {
        const bool blocked = dept == 15 || dept >= 90;
        const bool printer = dept <= 8 || dept >= 51;
        return QStringLiteral("%1||%2|%3|10000|10000").arg(dept).arg(blocked).arg(printer);
    };
    const QStringList rows = Raw().Rows("SELECT * FROM Dept ORDER BY dept_id");
    ASSERT_EQ(99, rows.size());
    for (unsigned int dept = 1; dept <= 99; ++dept) {
        EXPECT_EQ(expected(dept), rows[static_cast<int>(dept - 1)]);
    }
    ASSERT_EQ(99, manager.GetDepts().size());
    ASSERT_TRUE(manager.GetDept(99));
    EXPECT_TRUE(manager.GetDept(99)->isDiscountBlocked);
    EXPECT_FALSE(manager.GetDept(100));
    EXPECT_FALSE(manager.GetDept(0));
    EXPECT_TRUE(signalled.isEmpty());
    // The first sixteen get the firmware's names; others keep theirs.
    Raw().Exec("UPDATE Dept SET dept_name = 'Własna' WHERE dept_id = 17");
    ASSERT_TRUE(manager.GetDeptFirmwareInitializer()->SetFirmwareDeptNamesInDatabase());
    const QStringList names = column("dept_name");
    EXPECT_EQ("Grupa towarowa 1", names[0]);
    EXPECT_EQ("Grupa towarowa 16", names[15]);
    EXPECT_EQ("Własna", names[16]);
    EXPECT_EQ("", names[17]);
}

TEST_F(DeptDBManagerTest, PerArticleQuestionsFollowTheCacheAndTheFirmwareRules) {
    ASSERT_TRUE(manager.ResetTable());
    EXPECT_FALSE(manager.DoesDeptPermitsPriceModifications(ofDept(15)));
    EXPECT_TRUE(manager.DoesDeptPermitsPriceModifications(ofDept(16)));
    EXPECT_TRUE(manager.IsDeptForPrinterOrder(ofDept(8)));
    EXPECT_FALSE(manager.IsDeptForPrinterOrder(ofDept(9)));
    EXPECT_TRUE(manager.IsDeptSpecial(ofDept(90)));
    EXPECT_FALSE(manager.IsDeptSpecial(ofDept(89)));
    for (unsigned int dept : {15u, 90u, 95u, 99u}) {
        EXPECT_TRUE(manager.GetDeptFirmwareInitializer()->IsDeptSpecial(dept)) << dept;
    }
    for (unsigned int dept : {0u, 14u, 16u, 89u, 100u, 4294967295u}) {
        EXPECT_FALSE(manager.GetDeptFirmwareInitializer()->IsDeptSpecial(dept)) << dept;
    }
    // Departments the cache does not hold are answered safely.
    EXPECT_FALSE(manager.DoesDeptPermitsPriceModifications(ofDept(0)));
    EXPECT_FALSE(manager.IsDeptForPrinterOrder(ofDept(120)));
    // Uninitialised: every department is special, the cache still answers.
    manager.Uninitialize();
    EXPECT_TRUE(manager.IsDeptSpecial(ofDept(1)));
    EXPECT_TRUE(manager.IsDeptForPrinterOrder(ofDept(1)));
    EXPECT_EQ(99, manager.GetDepts().size());
}

TEST_F(DeptDBManagerTest, AddOrUpdateWritesReloadsAndSignalsOnce) {
    ASSERT_TRUE(manager.ResetTable());
    auto dept = QSharedPointer<const Dept>::create(12, "Nabiał", 2500, 500, true, true);
    ASSERT_EQ(0, manager.AddOrUpdateRecord(dept));
    EXPECT_EQ(QList<int>({12}), signalled);
    EXPECT_EQ(QStringList({"12|Nabiał|1|1|2500|500"}),
              Raw().Rows("SELECT * FROM Dept WHERE dept_id = 12"));
    ASSERT_TRUE(manager.GetDept(12));
    EXPECT_EQ("Nabiał", manager.GetDept(12)->GetName());
    EXPECT_EQ(2500, manager.GetDept(12)->GetMaxDiscount().GetNumberValue());
    EXPECT_EQ(99, Raw().Count("Dept"));
    // A receiver may read the cache at once: the lock is released before the signal.
    QObject::connect(&manager, &DeptDBManager::deptChanged, [this](int deptId) {
        EXPECT_TRUE(manager.GetDept(static_cast<unsigned>(deptId)));
    });
    ASSERT_EQ(0, manager.AddOrUpdateRecord(
                     QSharedPointer<const Dept>::create(1, "Pieczywo", 10000, 10000, false, true)));
    EXPECT_EQ(QList<int>({12, 1}), signalled);
}

// Refused without a database or G::dbArticles (the firmware rules need it), failed resets and
// writes reported, and nothing signalled that did not change.
TEST_F(DeptDBManagerTest, FailuresAreReportedAndSignalNothing) {
    DeptDBManager other;
    DeptFirmwareInitializer firmware;
    auto dept = QSharedPointer<const Dept>::create(3, "X", 1, 1, false, false);
    EXPECT_EQ(6, other.AddOrUpdateRecord(dept));
    EXPECT_FALSE(other.Initialize(nullptr));
    G::dbArticles = nullptr;
    EXPECT_FALSE(other.Initialize(articles.get()));
    EXPECT_FALSE(firmware.Initialize());
    EXPECT_FALSE(firmware.SetFirmwareDeptNamesInDatabase());  // refused, not a crash
    G::dbArticles = articles.get();
    EXPECT_TRUE(firmware.Initialize());

    Raw().Exec("INSERT INTO Dept (dept_id) VALUES (1)");
    Raw().FailOn("Dept", "DELETE");
    EXPECT_FALSE(manager.ResetTable());
    EXPECT_EQ(1, Raw().Count("Dept"));
    Raw().StopFailing("Dept", "DELETE");
    Raw().FailOn("Dept", "INSERT");
    EXPECT_FALSE(manager.ResetTable());
    EXPECT_EQ(4, manager.AddOrUpdateRecord(dept));
    EXPECT_EQ(0, Raw().Count("Dept"));
    for (const char* message :
         {"DeptDBManager::ResetTable(): error while clearing table.",
          "DeptDBManager::ResetTable(): error while inserting default values.",
          "DeptsDBManager: SQL error when try to insert dept to database!"}) {
        EXPECT_TRUE(log->Contains(Logger::LOG_ERROR, message)) << message;
    }
    // The insert works but leaves nothing to reload.
    Raw().StopFailing("Dept", "INSERT");
    Raw().Exec("CREATE TRIGGER wipe AFTER INSERT ON Dept BEGIN DELETE FROM Dept; END");
    EXPECT_EQ(3, manager.AddOrUpdateRecord(dept));
    EXPECT_TRUE(log->Contains(Logger::LOG_NOTICE, "DeptDBManager: Dept table is empty!"));
    EXPECT_TRUE(signalled.isEmpty());
}

TEST_F(DeptDBManagerTest, LoadingReportsEmptyAndBrokenTablesAndCachesByPosition) {
    log->Clear();
    EXPECT_EQ(3, manager.getRecordsFromDB());
    EXPECT_TRUE(manager.GetDepts().isEmpty());
    EXPECT_EQ(QStringList({"DeptDBManager: Dept table is empty!"}), log->Texts());
    EXPECT_EQ(Logger::LOG_NOTICE, log->Entries().first().level);
    // GetDept answers by the position in the cache, not by the department's number.
    Raw().Exec("INSERT INTO Dept (dept_id, dept_name) VALUES (5, 'five'), (7, 'seven')");
    ASSERT_EQ(0, manager.getRecordsFromDB());
    ASSERT_TRUE(manager.GetDept(2));
    EXPECT_EQ(7u, manager.GetDept(2)->GetId());
    EXPECT_EQ("seven", manager.GetDept(2)->GetName());
    EXPECT_FALSE(manager.GetDept(3));
    // A row without some columns keeps their defaults; field names are case-sensitive.
    DBRow row(articles->GetTable("Dept"));
    row.AppendField("dept_id", 4);
    row.AppendField("dept_name", "Napoje");
    row.AppendField("is_order_printer", 1);
    row.AppendField("DEPT_NAME", "ignored");
    const QSharedPointer<const Dept> dept = manager.extractDept(&row);
    EXPECT_EQ(4u, dept->GetId());
    EXPECT_EQ("Napoje", dept->GetName());
    EXPECT_EQ(10000, dept->GetMaxDiscount().GetNumberValue());
    EXPECT_EQ(10000, dept->GetMaxSurcharge().GetNumberValue());
    EXPECT_FALSE(dept->isDiscountBlocked);
    EXPECT_TRUE(dept->isOrderPrinter);

    Raw().Exec("DROP TABLE Dept");
    EXPECT_EQ(4, manager.getRecordsFromDB());
    EXPECT_TRUE(manager.GetDepts().isEmpty());
    EXPECT_TRUE(
        log->Contains(Logger::LOG_ERROR, "DeptDBManager: SQL error when try to load depts data!"));
    EXPECT_FALSE(DeptDBManager().Initialize(articles.get())) << "without its table";
}

TEST_F(DeptDBManagerTest, AFailedFirmwareStatementStopsItsOperation) {
    ASSERT_TRUE(manager.ResetTable());
    DeptFirmwareInitializer* firmware = manager.GetDeptFirmwareInitializer();
    // Makes every update of `column` (that `when` admits) fail, and no other.
    auto refuse = [this](const char* column, const char* when) {
        Raw().Exec("DROP TRIGGER IF EXISTS refuse");
        Raw().Exec(QStringLiteral("CREATE TRIGGER refuse BEFORE UPDATE OF %1 ON Dept %2 "
                                  "BEGIN SELECT RAISE(ABORT, 'injected'); END")
                       .arg(column, when));
    };
    // The first order-printer statement fails: every flag stays as it was.
    refuse("is_order_printer", "WHEN NEW.is_order_printer = 0");
    const QStringList before = column("is_order_printer");
    EXPECT_FALSE(firmware->setFirmwareOrderPrinterFlagsInDatabase());
    EXPECT_EQ(before, column("is_order_printer"));
    EXPECT_TRUE(log->Contains(Logger::LOG_ERROR,
                              "DeptDBManager::setFirmwareOrderPrinterFlagsInDatabase Error: while "
                              "updating data in database."));
    // The second fails: the flags were cleared and stay cleared.
    refuse("is_order_printer", "WHEN NEW.is_order_printer = 1");
    EXPECT_FALSE(firmware->setFirmwareOrderPrinterFlagsInDatabase());
    EXPECT_EQ(0, Raw().Integer("SELECT SUM(is_order_printer) FROM Dept"));
    EXPECT_FALSE(firmware->SetFirmwareFlags());

    // A failed discount maximum skips the surcharge maximum.
    Raw().Exec("UPDATE Dept SET max_discount = 1, max_surcharge = 1");
    refuse("max_discount", "");
    log->Clear();
    EXPECT_FALSE(firmware->setFirmwareDiscountAndSurchargeValuesInDatabase());
    EXPECT_EQ(1, Raw().Integer("SELECT MAX(max_surcharge) FROM Dept"));
    refuse("max_surcharge", "");
    EXPECT_FALSE(firmware->setFirmwareDiscountAndSurchargeValuesInDatabase());
    Raw().FailOn("Dept", "UPDATE");
    EXPECT_FALSE(firmware->setFirmwareBlockDiscountFlagsInDatabase());
    EXPECT_FALSE(firmware->SetFirmwareDeptNamesInDatabase());
    const QString prefix = "DeptDBManager::";
    EXPECT_EQ(QStringList({prefix + "setFirmwareDiscountAndSurchargeValuesInDatabase Error: while "
                                    "updating discounts in database.",
                           prefix + "setFirmwareDiscountAndSurchargeValuesInDatabase Error: while "
                                    "updating surcharges in database.",
                           prefix + "setFirmwareBlockDiscountFlagsInDatabase Error: while "
                                    "updating data in database.",
                           prefix + "SetFirmwareDeptNamesInDatabase Error: while updating data in "
                                    "database."}),
              log->Texts().filter(prefix));
}

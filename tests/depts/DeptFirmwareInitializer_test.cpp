// The firmware's department rules and their statements.

#include "DatabaseFixture.h"
#include "DeptDBManager.h"
#include "Logger.h"
#include "SqlRecorder.h"

namespace {

class DeptFirmwareInitializerTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        ASSERT_TRUE(depts.Initialize(articles.get()));
        ASSERT_TRUE(depts.ResetTable());
        firmware = depts.GetDeptFirmwareInitializer();
    }

    QStringList column(const QString& name) {
        return Raw().Rows(QStringLiteral("SELECT ") + name +
                          QStringLiteral(" FROM Dept ORDER BY dept_id"));
    }

    DeptDBManager depts;
    DeptFirmwareInitializer* firmware = nullptr;
};

}  // namespace

TEST_F(DeptFirmwareInitializerTest, SpecialDepartmentsAre15And90To99) {
    for (unsigned int dept : {15u, 90u, 95u, 99u}) {
        EXPECT_TRUE(firmware->IsDeptSpecial(dept)) << dept;
    }
    for (unsigned int dept : {0u, 14u, 16u, 89u, 100u, 4294967295u}) {
        EXPECT_FALSE(firmware->IsDeptSpecial(dept)) << dept;
    }
}

TEST_F(DeptFirmwareInitializerTest, FlagsAreWrittenWithTheFirmwaresStatements) {
    SqlRecorder sql(articles.get());
    ASSERT_TRUE(firmware->SetFirmwareFlags());
    EXPECT_EQ(QStringList({
                  "UPDATE Dept             SET is_discount_blocked = 1                 WHERE "
                  "dept_id == 15                 OR (dept_id >= 90 AND dept_id <= 99)",
                  "UPDATE Dept             SET is_discount_blocked = 0                 WHERE "
                  "dept_id != 15                 AND NOT (dept_id >= 90 AND dept_id <= 99)",
                  "UPDATE Dept             SET is_order_printer = 0",
                  "UPDATE Dept             SET is_order_printer = 1                 WHERE (dept_id "
                  ">= 1 AND dept_id <= 8)                 OR (dept_id >= 51 AND dept_id <= 99)",
                  "UPDATE Dept             SET max_discount =10000",
                  "UPDATE Dept             SET max_surcharge =10000",
              }),
              sql.Texts());
}

TEST_F(DeptFirmwareInitializerTest, NamesTheFirstSixteenDepartments) {
    Raw().Exec(QStringLiteral("UPDATE Dept SET dept_name = 'Własna' WHERE dept_id = 17"));
    SqlRecorder sql(articles.get());
    ASSERT_TRUE(firmware->SetFirmwareDeptNamesInDatabase());
    EXPECT_EQ(QStringList({" UPDATE Dept SET dept_name = 'Grupa towarowa ' || dept_id WHERE "
                           "(dept_id >= 1 AND dept_id <= 16)"}),
              sql.Texts());
    const QStringList names = column(QStringLiteral("dept_name"));
    EXPECT_EQ(QStringLiteral("Grupa towarowa 1"), names[0]);
    EXPECT_EQ(QStringLiteral("Grupa towarowa 7"), names[6]);
    EXPECT_EQ(QStringLiteral("Grupa towarowa 16"), names[15]);
    EXPECT_EQ(QStringLiteral("Własna"), names[16]);
    EXPECT_EQ(QStringLiteral(""), names[17]);
}

TEST_F(DeptFirmwareInitializerTest, AFailedStatementStopsItsOperation) {
    const QString orderPrinterMessage = QStringLiteral(
        "DeptDBManager::setFirmwareOrderPrinterFlagsInDatabase Error: while updating data in "
        "database.");
    // The first order-printer statement fails: every flag stays as it was.
    Raw().Exec(
        QStringLiteral("CREATE TRIGGER no_clear BEFORE UPDATE OF is_order_printer ON Dept "
                       "WHEN NEW.is_order_printer = 0 BEGIN SELECT RAISE(ABORT, 'injected'); END"));
    const QStringList before = column(QStringLiteral("is_order_printer"));
    EXPECT_FALSE(firmware->setFirmwareOrderPrinterFlagsInDatabase());
    EXPECT_EQ(before, column(QStringLiteral("is_order_printer")));
    EXPECT_TRUE(log->Contains(Logger::LOG_ERROR, orderPrinterMessage));
    Raw().Exec(QStringLiteral("DROP TRIGGER no_clear"));

    // The second fails: the flags were cleared and stay cleared.
    Raw().Exec(
        QStringLiteral("CREATE TRIGGER no_set BEFORE UPDATE OF is_order_printer ON Dept "
                       "WHEN NEW.is_order_printer = 1 BEGIN SELECT RAISE(ABORT, 'injected'); END"));
    EXPECT_FALSE(firmware->setFirmwareOrderPrinterFlagsInDatabase());
    EXPECT_EQ(0, Raw().Integer(QStringLiteral("SELECT SUM(is_order_printer) FROM Dept")));
    EXPECT_FALSE(firmware->SetFirmwareFlags());
    Raw().Exec(QStringLiteral("DROP TRIGGER no_set"));

    // A failed discount maximum skips the surcharge maximum.
    Raw().Exec(QStringLiteral("UPDATE Dept SET max_discount = 1, max_surcharge = 1"));
    Raw().Exec(
        QStringLiteral("CREATE TRIGGER no_max BEFORE UPDATE OF max_discount ON Dept "
                       "BEGIN SELECT RAISE(ABORT, 'injected'); END"));
    log->Clear();
    EXPECT_FALSE(firmware->setFirmwareDiscountAndSurchargeValuesInDatabase());
    EXPECT_EQ(1, Raw().Integer(QStringLiteral("SELECT MAX(max_surcharge) FROM Dept")));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral("DeptDBManager::setFirmwareDiscountAndSurchargeValuesInDatabase Error: "
                       "while updating discounts in database.")));
    Raw().Exec(QStringLiteral("DROP TRIGGER no_max"));
    Raw().Exec(
        QStringLiteral("CREATE TRIGGER no_max BEFORE UPDATE OF max_surcharge ON Dept "
                       "BEGIN SELECT RAISE(ABORT, 'injected'); END"));
    EXPECT_FALSE(firmware->setFirmwareDiscountAndSurchargeValuesInDatabase());
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral("DeptDBManager::setFirmwareDiscountAndSurchargeValuesInDatabase Error: "
                       "while updating surcharges in database.")));

    Raw().FailOn(QStringLiteral("Dept"), QStringLiteral("UPDATE"));
    log->Clear();
    EXPECT_FALSE(firmware->setFirmwareBlockDiscountFlagsInDatabase());
    EXPECT_FALSE(firmware->SetFirmwareDeptNamesInDatabase());
    EXPECT_EQ(QStringList({"DeptDBManager::setFirmwareBlockDiscountFlagsInDatabase Error: while "
                           "updating data in database.",
                           "DeptDBManager::SetFirmwareDeptNamesInDatabase Error: while updating "
                           "data in database."}),
              log->Texts().filter(QStringLiteral("DeptDBManager::")));
}

TEST_F(DeptFirmwareInitializerTest, InitializeNeedsTheArticleDatabase) {
    DeptFirmwareInitializer fresh;
    G::dbArticles = nullptr;
    EXPECT_FALSE(fresh.Initialize());
    EXPECT_FALSE(fresh.SetFirmwareDeptNamesInDatabase());  // refused, not a crash
    G::dbArticles = articles.get();
    EXPECT_TRUE(fresh.Initialize());
}

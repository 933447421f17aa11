// Departments: the table, its cache, the firmware defaults and the change signal.

#include "DeptDBManager.h"
#include "DatabaseFixture.h"
#include "Logger.h"
#include "SqlRecorder.h"

namespace {

class DeptDBManagerTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        ASSERT_TRUE(manager.Initialize(articles.get()));
        QObject::connect(&manager, &DeptDBManager::deptChanged,
                         [this](int deptId) { signalled.append(deptId); });
    }

    QStringList flags(const QString& where = QStringLiteral("1")) {
        return Raw().Rows(QStringLiteral("SELECT dept_id, is_discount_blocked, is_order_printer, "
                                         "max_discount, max_surcharge FROM Dept WHERE ") +
                          where + QStringLiteral(" ORDER BY dept_id"));
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
    EXPECT_EQ(99, Raw().Count(QStringLiteral("Dept")));
    EXPECT_EQ(99, Raw().Integer(QStringLiteral(
                      "SELECT COUNT(*) FROM Dept WHERE dept_name = '' AND max_discount = 10000 "
                      "AND max_surcharge = 10000")));
    auto expected = [](unsigned int dept) {
        const bool blocked = dept == 15 || dept >= 90;
        const bool printer = dept <= 8 || dept >= 51;
        return QStringLiteral("%1|%2|%3|10000|10000").arg(dept).arg(blocked).arg(printer);
    };
    const QStringList rows = flags();
    ASSERT_EQ(99, rows.size());
    for (unsigned int dept = 1; dept <= 99; ++dept) {
        EXPECT_EQ(expected(dept), rows[static_cast<int>(dept - 1)]);
    }
    ASSERT_EQ(99, manager.GetDepts().size());
    ASSERT_TRUE(manager.GetDept(99));
    EXPECT_EQ(99u, manager.GetDept(99)->GetId());
    EXPECT_TRUE(manager.GetDept(99)->isDiscountBlocked);
    EXPECT_FALSE(manager.GetDept(100));
    EXPECT_FALSE(manager.GetDept(0));
    EXPECT_TRUE(signalled.isEmpty());
}

TEST_F(DeptDBManagerTest, PerArticleQuestionsFollowTheCache) {
    ASSERT_TRUE(manager.ResetTable());
    EXPECT_FALSE(manager.DoesDeptPermitsPriceModifications(ofDept(15)));
    EXPECT_TRUE(manager.DoesDeptPermitsPriceModifications(ofDept(16)));
    EXPECT_TRUE(manager.IsDeptForPrinterOrder(ofDept(8)));
    EXPECT_FALSE(manager.IsDeptForPrinterOrder(ofDept(9)));
    EXPECT_TRUE(manager.IsDeptSpecial(ofDept(90)));
    EXPECT_FALSE(manager.IsDeptSpecial(ofDept(89)));
    // Departments the cache does not hold are answered safely.
    EXPECT_FALSE(manager.DoesDeptPermitsPriceModifications(ofDept(0)));
    EXPECT_FALSE(manager.IsDeptForPrinterOrder(ofDept(120)));
    // Uninitialised: every department is special, the cache still answers.
    manager.Uninitialize();
    EXPECT_TRUE(manager.IsDeptSpecial(ofDept(1)));
    EXPECT_TRUE(manager.IsDeptForPrinterOrder(ofDept(1)));
    EXPECT_EQ(99, manager.GetDepts().size());
}

TEST_F(DeptDBManagerTest, CachePositionNotNumberAnswersGetDept) {
    Raw().Exec(
        QStringLiteral("INSERT INTO Dept (dept_id, dept_name) VALUES (5, 'five'), (7, 'seven')"));
    ASSERT_EQ(0, manager.getRecordsFromDB());
    ASSERT_TRUE(manager.GetDept(2));
    EXPECT_EQ(7u, manager.GetDept(2)->GetId());
    EXPECT_EQ(QStringLiteral("seven"), manager.GetDept(2)->GetName());
    EXPECT_FALSE(manager.GetDept(3));
}

TEST_F(DeptDBManagerTest, AddOrUpdateWritesReloadsAndSignalsOnce) {
    ASSERT_TRUE(manager.ResetTable());
    auto dept =
        QSharedPointer<const Dept>::create(12, QStringLiteral("Nabiał"), 2500, 500, true, true);
    ASSERT_EQ(0, manager.AddOrUpdateRecord(dept));
    EXPECT_EQ(QList<int>({12}), signalled);
    EXPECT_EQ(QStringList({"12|Nabiał|1|1|2500|500"}),
              Raw().Rows(QStringLiteral("SELECT * FROM Dept WHERE dept_id = 12")));
    ASSERT_TRUE(manager.GetDept(12));
    EXPECT_EQ(QStringLiteral("Nabiał"), manager.GetDept(12)->GetName());
    EXPECT_EQ(2500, manager.GetDept(12)->GetMaxDiscount().GetNumberValue());
    EXPECT_EQ(99, Raw().Count(QStringLiteral("Dept")));
    // A receiver may read the cache at once: the lock is released before the signal.
    QObject::connect(&manager, &DeptDBManager::deptChanged, [this](int deptId) {
        EXPECT_TRUE(manager.GetDept(static_cast<unsigned>(deptId)));
    });
    ASSERT_EQ(0, manager.AddOrUpdateRecord(QSharedPointer<const Dept>::create(
                     1, QStringLiteral("Pieczywo"), 10000, 10000, false, true)));
    EXPECT_EQ(QList<int>({12, 1}), signalled);
}

TEST_F(DeptDBManagerTest, FailedWritesSignalNothing) {
    DeptDBManager fresh;
    auto dept = QSharedPointer<const Dept>::create(3, QStringLiteral("X"), 1, 1, false, false);
    EXPECT_EQ(6, fresh.AddOrUpdateRecord(dept));

    ASSERT_TRUE(manager.ResetTable());
    Raw().FailOn(QStringLiteral("Dept"), QStringLiteral("INSERT"));
    log->Clear();
    EXPECT_EQ(4, manager.AddOrUpdateRecord(dept));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral("DeptsDBManager: SQL error when try to insert dept to database!")));
    EXPECT_TRUE(signalled.isEmpty());
    EXPECT_EQ(QStringLiteral(""),
              Raw().Text(QStringLiteral("SELECT dept_name FROM Dept WHERE dept_id = 3")));
}

TEST_F(DeptDBManagerTest, FailedReloadReturnsItsResultWithoutSignal) {
    // The insert works but leaves nothing to reload.
    Raw().Exec(
        QStringLiteral("CREATE TRIGGER wipe AFTER INSERT ON Dept BEGIN DELETE FROM Dept; END"));
    EXPECT_EQ(3, manager.AddOrUpdateRecord(QSharedPointer<const Dept>::create(
                     3, QStringLiteral("X"), 1, 1, false, false)));
    EXPECT_TRUE(signalled.isEmpty());
    EXPECT_TRUE(
        log->Contains(Logger::LOG_NOTICE, QStringLiteral("DeptDBManager: Dept table is empty!")));
}

TEST_F(DeptDBManagerTest, LoadingReportsEmptyAndBrokenTables) {
    log->Clear();
    EXPECT_EQ(3, manager.getRecordsFromDB());
    EXPECT_TRUE(manager.GetDepts().isEmpty());
    EXPECT_EQ(QStringList({"DeptDBManager: Dept table is empty!"}), log->Texts());
    EXPECT_EQ(Logger::LOG_NOTICE, log->Entries().first().level);
    ASSERT_TRUE(manager.ResetTable());
    Raw().Exec(QStringLiteral("DROP TABLE Dept"));
    EXPECT_EQ(4, manager.getRecordsFromDB());
    EXPECT_TRUE(manager.GetDepts().isEmpty());
    EXPECT_TRUE(
        log->Contains(Logger::LOG_ERROR,
                      QStringLiteral("DeptDBManager: SQL error when try to load depts data!")));
}

TEST_F(DeptDBManagerTest, ExtractDeptKeepsDefaultsForMissingColumns) {
    DBRow row(articles->GetTable(QStringLiteral("Dept")));
    row.AppendField(QStringLiteral("dept_id"), 4);
    row.AppendField(QStringLiteral("dept_name"), QStringLiteral("Napoje"));
    row.AppendField(QStringLiteral("is_order_printer"), 1);
    row.AppendField(QStringLiteral("DEPT_NAME"),
                    QStringLiteral("ignored: names are case-sensitive"));
    const QSharedPointer<const Dept> dept = manager.extractDept(&row);
    EXPECT_EQ(4u, dept->GetId());
    EXPECT_EQ(QStringLiteral("Napoje"), dept->GetName());
    EXPECT_EQ(10000, dept->GetMaxDiscount().GetNumberValue());
    EXPECT_EQ(10000, dept->GetMaxSurcharge().GetNumberValue());
    EXPECT_FALSE(dept->isDiscountBlocked);
    EXPECT_TRUE(dept->isOrderPrinter);
}

TEST_F(DeptDBManagerTest, ResetFailuresAreReported) {
    Raw().Exec(QStringLiteral("INSERT INTO Dept (dept_id) VALUES (1)"));
    Raw().FailOn(QStringLiteral("Dept"), QStringLiteral("DELETE"));
    EXPECT_FALSE(manager.ResetTable());
    EXPECT_TRUE(
        log->Contains(Logger::LOG_ERROR,
                      QStringLiteral("DeptDBManager::ResetTable(): error while clearing table.")));
    Raw().StopFailing(QStringLiteral("Dept"), QStringLiteral("DELETE"));
    Raw().FailOn(QStringLiteral("Dept"), QStringLiteral("INSERT"));
    EXPECT_FALSE(manager.ResetTable());
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral("DeptDBManager::ResetTable(): error while inserting default values.")));
    EXPECT_EQ(0, Raw().Count(QStringLiteral("Dept")));
}

TEST_F(DeptDBManagerTest, BindsThroughItsBaseAndAnswersMetaCasts) {
    AbstractDatabaseTableManager* base = &manager;
    EXPECT_TRUE(base->IsInitialized());
    EXPECT_EQ(QStringLiteral("Dept"), base->GetTableName());
    EXPECT_EQ(static_cast<void*>(base), manager.qt_metacast("AbstractDatabaseTableManager"));
    EXPECT_EQ(static_cast<void*>(&manager), manager.qt_metacast("DeptDBManager"));
    EXPECT_STREQ("DeptDBManager", manager.metaObject()->className());
    EXPECT_TRUE(base->Uninitialize());
    EXPECT_FALSE(base->IsInitialized());

    DeptDBManager other;
    G::dbArticles = nullptr;
    EXPECT_FALSE(other.Initialize(articles.get())) << "the firmware rules need G::dbArticles";
    G::dbArticles = articles.get();
    Raw().Exec(QStringLiteral("DROP TABLE Dept"));
    EXPECT_FALSE(other.Initialize(articles.get()));
    EXPECT_FALSE(other.Initialize(nullptr));
}

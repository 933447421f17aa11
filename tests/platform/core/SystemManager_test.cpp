// Starting systems in the order of their dependencies.

#include <gtest/gtest.h>

#include <QStringList>

#include "QtPrinters.h"
#include "SystemInitializer.h"
#include "SystemManager.h"

namespace {

// A system and its initializer: ready when started, or not ready while `blocked`; each start
// and stop noted in the journal.
class FakeSystem : public SystemBase, public SystemInitializer {
public:
    FakeSystem(const QString& name, SystemsNames number, QVector<SystemsNames> needs,
               QStringList* journal)
        : SystemBase(name), SystemInitializer(this), journal(journal) {
        SetSystemNumber(number);
        for (SystemsNames need : needs) {
            AddDependency(need);
        }
    }
    int Initialize() override {
        journal->append("init " + GetName());
        SetState(blocked ? STATE_NOT_READY : STATE_READY);
        return GetState();
    }
    int Uninitialize() override {
        journal->append("down " + GetName());
        SetState(STATE_UNINITIALIZED);
        return STATE_UNINITIALIZED;
    }
    bool blocked = false;

private:
    QStringList* journal;
};

class SystemManagerTest : public ::testing::Test {
protected:
    // Only systems registered by the test take part (the test binary registers no other).
    void SetUp() override {
        before = manager->GetSystemInitializers();
        for (SystemInitializer* initializer : before) {
            manager->UnregisterSystemInitializer(initializer);
        }
    }
    void TearDown() override {
        for (SystemInitializer* added : {&payment, &articles, &logger}) {
            manager->UnregisterSystemInitializer(added);
        }
        for (SystemInitializer* initializer : before) {
            manager->RegisterSystemInitializer(initializer);
        }
        EXPECT_EQ(before, manager->GetSystemInitializers());
    }

    SystemManager* manager = SystemManager::Instance();
    QList<SystemInitializer*> before;
    QStringList journal;
    FakeSystem articles{"articles",
                        SystemBase::SYSTEM_ARTICLE_MANAGER,
                        {SystemBase::SYSTEM_APP_LOGGER, SystemBase::SYSTEM_PAYMENT},
                        &journal};
    FakeSystem payment{
        "payment", SystemBase::SYSTEM_PAYMENT, {SystemBase::SYSTEM_APP_LOGGER}, &journal};
    FakeSystem logger{"logger", SystemBase::SYSTEM_APP_LOGGER, {}, &journal};
};

}  // namespace

TEST_F(SystemManagerTest, StartsDependenciesFirstRetriesTheNotReadyAndStopsThemLast) {
    manager->RegisterSystemInitializer(&articles);
    manager->RegisterSystemInitializer(&payment);
    manager->RegisterSystemInitializer(&logger);
    manager->RegisterSystemInitializer(&logger);
    EXPECT_EQ(3, manager->GetSystemInitializers().size());
    payment.blocked = true;
    EXPECT_FALSE(manager->InitializeAll());
    EXPECT_EQ(SystemBase::STATE_NOT_READY, payment.GetState());
    EXPECT_EQ(QStringList({"init logger", "init payment"}), journal.mid(0, 2));
    payment.blocked = false;
    journal.clear();
    EXPECT_TRUE(manager->InitializeAll()) << "retried at the next call";
    EXPECT_EQ(QStringList({"init payment"}), journal.filter("payment"));
    EXPECT_EQ(SystemBase::STATE_READY, articles.GetState());
    journal.clear();
    EXPECT_TRUE(manager->InitializeAll()) << "ready systems are left alone";
    EXPECT_TRUE(journal.isEmpty());
    manager->UninitializeAll();
    EXPECT_EQ(QStringList({"down articles", "down payment", "down logger"}), journal);
    journal.clear();
    EXPECT_FALSE(manager->InitializeAll()) << "uninitialised systems stay down";
    EXPECT_TRUE(journal.isEmpty());
}

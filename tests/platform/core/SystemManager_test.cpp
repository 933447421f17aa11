// Starting systems in the order of their dependencies.

#include <gtest/gtest.h>

#include <QStringList>

#include "QtPrinters.h"
#include "SystemInitializer.h"
#include "SystemManager.h"

namespace {

// A system that becomes ready when what it needs is ready, or stays not ready while `blocked`.
class FakeSystem : public SystemBase {
public:
    FakeSystem(const QString& name, SystemsNames number, QVector<SystemsNames> needs)
        : SystemBase(name) {
        SetSystemNumber(number);
        for (SystemsNames need : needs) {
            AddDependency(need);
        }
    }
};

class FakeInitializer : public SystemInitializer {
public:
    FakeInitializer(FakeSystem* system, QStringList* journal)
        : SystemInitializer(system), journal(journal) {}
    int Initialize() override {
        journal->append(QStringLiteral("init ") + system->GetName());
        system->SetState(blocked ? SystemBase::STATE_NOT_READY : SystemBase::STATE_READY);
        return system->GetState();
    }
    int Uninitialize() override {
        journal->append(QStringLiteral("down ") + system->GetName());
        system->SetState(SystemBase::STATE_UNINITIALIZED);
        return SystemBase::STATE_UNINITIALIZED;
    }
    bool blocked = false;

private:
    QStringList* journal;
};

class SystemManagerTest : public ::testing::Test {
protected:
    void SetUp() override { before = SystemManager::Instance()->GetSystemInitializers(); }
    void TearDown() override {
        for (SystemInitializer* added : {&payment, &articles, &logger}) {
            SystemManager::Instance()->UnregisterSystemInitializer(added);
        }
        EXPECT_EQ(before, SystemManager::Instance()->GetSystemInitializers());
    }

    QList<SystemInitializer*> before;
    QStringList journal;
    FakeSystem articleSystem{QStringLiteral("articles"),
                             SystemBase::SYSTEM_ARTICLE_MANAGER,
                             {SystemBase::SYSTEM_APP_LOGGER, SystemBase::SYSTEM_PAYMENT}};
    FakeSystem paymentSystem{
        QStringLiteral("payment"), SystemBase::SYSTEM_PAYMENT, {SystemBase::SYSTEM_APP_LOGGER}};
    FakeSystem loggerSystem{QStringLiteral("logger"), SystemBase::SYSTEM_APP_LOGGER, {}};
    FakeInitializer articles{&articleSystem, &journal};
    FakeInitializer payment{&paymentSystem, &journal};
    FakeInitializer logger{&loggerSystem, &journal};
};

}  // namespace

TEST_F(SystemManagerTest, StartsDependenciesFirstAndStopsThemLast) {
    // Only systems registered here take part (the test binary registers no other).
    SystemManager* manager = SystemManager::Instance();
    for (SystemInitializer* initializer : before) {
        manager->UnregisterSystemInitializer(initializer);
    }
    manager->RegisterSystemInitializer(&articles);
    manager->RegisterSystemInitializer(&payment);
    manager->RegisterSystemInitializer(&logger);
    manager->RegisterSystemInitializer(&logger);
    EXPECT_EQ(3, manager->GetSystemInitializers().size());
    EXPECT_TRUE(manager->InitializeAll());
    EXPECT_EQ(QStringList({"init logger", "init payment", "init articles"}), journal);
    journal.clear();
    EXPECT_TRUE(manager->InitializeAll()) << "ready systems are left alone";
    EXPECT_TRUE(journal.isEmpty());
    manager->UninitializeAll();
    EXPECT_EQ(QStringList({"down articles", "down payment", "down logger"}), journal);
    journal.clear();
    EXPECT_FALSE(manager->InitializeAll()) << "uninitialised systems stay down";
    EXPECT_TRUE(journal.isEmpty());
    for (SystemInitializer* initializer : before) {
        manager->RegisterSystemInitializer(initializer);
    }
}

TEST_F(SystemManagerTest, NotReadySystemsAreRetriedAtTheNextCall) {
    SystemManager* manager = SystemManager::Instance();
    for (SystemInitializer* initializer : before) {
        manager->UnregisterSystemInitializer(initializer);
    }
    manager->RegisterSystemInitializer(&articles);
    manager->RegisterSystemInitializer(&payment);
    payment.blocked = true;
    EXPECT_FALSE(manager->InitializeAll());
    EXPECT_EQ(SystemBase::STATE_NOT_READY, paymentSystem.GetState());
    payment.blocked = false;
    journal.clear();
    EXPECT_TRUE(manager->InitializeAll());
    EXPECT_EQ(QStringList({"init payment"}), journal.filter(QStringLiteral("payment")));
    EXPECT_EQ(SystemBase::STATE_READY, articleSystem.GetState());
    for (SystemInitializer* initializer : before) {
        manager->RegisterSystemInitializer(initializer);
    }
}

TEST(SystemInitializerDefaults, ZeroTheStateAndChangeNothingOnTheWayDown) {
    class Plain : public SystemInitializer {
    public:
        using SystemInitializer::SystemInitializer;
    };
    SystemBase system(QStringLiteral("plain"));
    Plain plain(&system);
    EXPECT_EQ(1, system.GetState());
    EXPECT_EQ(0, plain.Uninitialize());
    EXPECT_EQ(1, system.GetState());
    EXPECT_EQ(0, plain.Initialize());
    EXPECT_EQ(0, system.GetState());
}

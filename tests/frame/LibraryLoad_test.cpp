// Loading libArticleManager.so.1 into a process that does not link it: the article manager
// exists and its initializer is registered before anything else runs.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "SystemBase.h"
#include "SystemManager.h"

TEST(LibraryLoad, PublishesTheManagerAndRegistersItsInitializer) {
    EXPECT_TRUE(SystemManager::Instance()->GetSystemInitializers().isEmpty());
    void* library = dlopen(ARTICLEMANAGER_LIBRARY_FILE, RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(nullptr, library) << dlerror();
    // G::articleManager, by its C++ name.
    auto** articleManager = static_cast<SystemBase**>(dlsym(library, "_ZN1G14articleManagerE"));
    ASSERT_NE(nullptr, articleManager) << dlerror();
    ASSERT_NE(nullptr, *articleManager);
    EXPECT_EQ(SystemBase::SYSTEM_ARTICLE_MANAGER, (*articleManager)->GetSystemNumber());
    EXPECT_EQ(SystemBase::STATE_CONSTRUCTED, (*articleManager)->GetState());
    EXPECT_EQ("ArticleManager", (*articleManager)->GetName());
    const QList<SystemInitializer*> initializers =
        SystemManager::Instance()->GetSystemInitializers();
    ASSERT_EQ(1, initializers.size());
    EXPECT_EQ(*articleManager, initializers.first()->GetSystem());
    EXPECT_EQ(0, dlclose(library));
}

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

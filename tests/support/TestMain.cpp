#include <gtest/gtest.h>

#include <QCoreApplication>

// Qt's meta-object features (signals, QSignalSpy) want an application object.
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

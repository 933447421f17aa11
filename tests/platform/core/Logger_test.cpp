// The application logger and its appenders.

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <thread>
#include <vector>

#include "CallbackLogAppender.h"
#include "FileLogAppender.h"
#include "Globals.h"
#include "LogCapture.h"
#include "Logger.h"

TEST(Logger, AppendersReceiveTheLevelsTheirThresholdAdmits) {
    Logger logger;
    QStringList notices;
    QStringList errors;
    logger.AddAppender(QSharedPointer<CallbackLogAppender>::create(
        [&](int level, const QString& text) { notices.append(QString::number(level) + text); }, 3));
    auto errorsOnly = QSharedPointer<CallbackLogAppender>::create(
        [&](int, const QString& text) { errors.append(text); }, 5);
    logger.AddAppender(errorsOnly);
    logger.Log(1, "debug");
    logger.Log(3, "notice");
    logger.Log(5, "failure");
    logger.RemoveAppender(errorsOnly);
    logger.Log(5, "after removal");
    EXPECT_EQ(QStringList({"3notice", "5failure", "5after removal"}), notices);
    EXPECT_EQ(QStringList({"failure"}), errors);
}

TEST(Logger, FileLinesCarryTimeLevelTextAndVariables) {
    QTemporaryDir dir;
    const QString path = dir.filePath("register.log");
    Logger logger;
    QStringList texts;
    logger.AddAppender(QSharedPointer<FileLogAppender>::create(path, 0));
    logger.AddAppender(QSharedPointer<CallbackLogAppender>::create(
        [&](int, const QString& text) { texts.append(text); }));
    logger.SetVariable("serial", "ABC123");
    logger.Log(5, "Coś poszło nie tak");
    logger.SetVariable("serial", QString());
    logger.Log(3, "ok");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(2, lines.size());
    EXPECT_TRUE(lines[0].endsWith("[ERROR] Coś poszło nie tak serial=ABC123"))
        << lines[0].toStdString();
    EXPECT_TRUE(lines[1].endsWith("[NOTICE] ok"));
    // Appenders that want the text get it as it was logged.
    EXPECT_EQ(QStringList({"Coś poszło nie tak", "ok"}), texts);
}

TEST(Logger, TheLibraryLoggerIsReadyAndKeepsLinesFromManyThreadsWhole) {
    ASSERT_NE(nullptr, G::appLogger);
    EXPECT_EQ(3, G::appLogger->GetState());
    LogCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i) {
                G::appLogger->Log(3, QStringLiteral("thread %1 line %2").arg(t).arg(i));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const QStringList texts = capture.Texts();
    EXPECT_EQ(800, texts.size());
    EXPECT_TRUE(texts.contains("thread 3 line 199"));
}

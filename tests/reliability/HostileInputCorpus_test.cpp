// Replays the fuzz harness's seed corpus through the same checks the fuzzer makes, so that
// every build tries each kind of hostile text on every entry point without needing clang.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "HostileInput.h"
#include "QtPrinters.h"

TEST(HostileInputCorpus, EverySeedIsAnsweredAsTheStoredRowsSayAndChangesOnlyWhatItNames) {
    const QDir corpus(QStringLiteral(ARTICLEMANAGER_SOURCE_DIR "/fuzz/corpus/hostile_input"));
    const QStringList files = corpus.entryList(QDir::Files, QDir::Name);
    ASSERT_FALSE(files.isEmpty()) << corpus.path().toStdString();
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    HostileInput checker(folder.path());
    ASSERT_EQ(QString(), checker.StartError());
    for (const QString& name : files) {
        QFile file(corpus.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
        EXPECT_EQ(QString(), checker.Check(file.readAll())) << name.toStdString();
    }
}

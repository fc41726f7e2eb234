#include "core/atomic_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace tovin;

TEST(AtomicFile, ReplacesWholeAndCreatesTheFolder) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("a/b/file.json"));
    ASSERT_TRUE(writeFileAtomically(path, "first, and longer"));
    ASSERT_TRUE(writeFileAtomically(path, "second"));
    EXPECT_EQ(readWholeFile(path, 1024), QByteArray("second"));
    // Nothing but the file is left behind.
    EXPECT_EQ(QDir(dir.filePath(QStringLiteral("a/b"))).entryList(QDir::Files).size(), 1);
}

TEST(AtomicFile, FailedWriteLeavesTheOldFile) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("file.json"));
    ASSERT_TRUE(writeFileAtomically(path, "kept"));
    if (::geteuid() != 0) {
        // A folder we may not write into refuses the temporary file.
        QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::ExeOwner);
        EXPECT_FALSE(writeFileAtomically(path, "lost"));
        QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    // A path whose parent is a file cannot be written at all.
    EXPECT_FALSE(writeFileAtomically(path + u"/child", "nope"));
    EXPECT_EQ(readWholeFile(path, 1024), QByteArray("kept"));
    // A folder someone made where the file should be is a failure, not something to replace.
    const QString folder = dir.filePath(QStringLiteral("folder.json"));
    ASSERT_TRUE(QDir().mkpath(folder));
    EXPECT_FALSE(writeFileAtomically(folder, "nope"));
    EXPECT_TRUE(QFileInfo(folder).isDir());
}

TEST(AtomicFile, ReaderRefusesWhatIsNotASmallRegularFile) {
    QTemporaryDir dir;
    EXPECT_FALSE(readWholeFile(dir.filePath(QStringLiteral("missing")), 1024));
    EXPECT_FALSE(readWholeFile(dir.path(), 1024));
    const QString big = dir.filePath(QStringLiteral("big"));
    ASSERT_TRUE(writeFileAtomically(big, QByteArray(2048, 'x')));
    EXPECT_FALSE(readWholeFile(big, 1024));
    EXPECT_EQ(readWholeFile(big, 2048)->size(), 2048);
    // A FIFO in the file's place must not block the reader waiting for a writer.
    const QByteArray fifo = QFile::encodeName(dir.filePath(QStringLiteral("fifo")));
    ASSERT_EQ(::mkfifo(fifo.constData(), 0600), 0);
    EXPECT_FALSE(readWholeFile(QFile::decodeName(fifo), 1024));
}

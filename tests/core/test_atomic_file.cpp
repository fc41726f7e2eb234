#include "core/atomic_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace tovin;

// Refusals by a full or read-only disk are the hostile-disk tests' (on a tmpfs of their own).
TEST(AtomicFile, ReplacesAFileWholeButNeverAFolder) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("a/b/file.json"));
    ASSERT_TRUE(writeFileAtomically(path, "first, and longer"));
    ASSERT_TRUE(writeFileAtomically(path, "second"));
    EXPECT_EQ(readWholeFile(path, 1024), QByteArray("second"));
    // A folder someone made where the file should be is a failure, not something to replace.
    const QString folder = dir.filePath(QStringLiteral("a/b/folder.json"));
    ASSERT_TRUE(QDir().mkpath(folder));
    EXPECT_FALSE(writeFileAtomically(folder, "nope"));
    EXPECT_TRUE(QFileInfo(folder).isDir());
    // No temporary file is left behind, whether the rename happened or failed.
    EXPECT_EQ(QDir(QFileInfo(path).path()).entryList(QDir::Files | QDir::Hidden).size(), 1);
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

// The person's files on a disk that refuses them, for real: a tiny tmpfs filled to the last
// byte, and the same tmpfs remounted read-only. For every writer (ledger, week, settings,
// journal): the old file stays byte for byte, nothing acknowledged is lost once the disk takes
// writes again, and the person is told once.
#include "core/atomic_file.h"
#include "journal/journal.h"
#include "journal/save_failures.h"
#include "promises/promise_ledger.h"
#include "schedule/schedule_store.h"
#include "schedule/settings.h"
#include "schedule/settings_store.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

using namespace tovin;

namespace {

// A 256 KiB tmpfs of our own. Mounting needs root (the test machines run as root); elsewhere
// the tests that need it say why they skip.
class SmallDisk {
public:
    SmallDisk() {
        path_ = dir_.filePath(QStringLiteral("disk"));
        QDir().mkpath(path_);
        if (::mount("tmpfs", QFile::encodeName(path_).constData(), "tmpfs", 0, "size=256k") != 0)
            error_ = QString::fromLocal8Bit(std::strerror(errno));
    }
    ~SmallDisk() {
        if (error_.isEmpty())
            ::umount2(QFile::encodeName(path_).constData(), MNT_DETACH);
    }
    bool mounted() const { return error_.isEmpty(); }
    QString error() const { return error_; }
    QString file(const char* name) const { return path_ + u'/' + QString::fromLatin1(name); }

    // Takes every free byte, as a full disk would.
    void fill() {
        const int fd = ::open(QFile::encodeName(file("filler")).constData(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        ASSERT_GE(fd, 0);
        const QByteArray chunk(4096, 'x');
        while (::write(fd, chunk.constData(), size_t(chunk.size())) > 0) {
        }
        for (int size = 2048; size > 0; size /= 2)
            while (::write(fd, chunk.constData(), size_t(size)) > 0) {
            }
        ::close(fd);
    }
    void makeRoom() { QFile::remove(file("filler")); }
    void setReadOnly(bool readOnly) {
        const unsigned long flags = MS_REMOUNT | (readOnly ? MS_RDONLY : 0);
        ASSERT_EQ(::mount("tmpfs", QFile::encodeName(path_).constData(), "tmpfs", flags, "size=256k"), 0)
            << std::strerror(errno);
    }

private:
    QTemporaryDir dir_;
    QString path_;
    QString error_;
};

QByteArray bytesOf(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

PromiseRecord kept(int day) {
    return {QDateTime(QDate(2026, 3, day), QTime(9, 0), QTimeZone::utc()), PromiseRecord::Outcome::Tovin,
            QStringLiteral("Squat"), 12, 12, std::nullopt, false};
}

class HostileDisk : public ::testing::Test {
protected:
    void SetUp() override {
        if (!disk.mounted())
            GTEST_SKIP() << "can't mount a tmpfs here (" << disk.error().toStdString() << "); run as root";
        // The journal lives elsewhere, so its lines can be read whatever the disk does.
        Journal::setOverrideURL(journalDir.filePath(QStringLiteral("tovin.log")));
        Journal::resetForTesting();
        SaveFailures::setNotifier([this](const QString& title, const QString& body) { told.append(title + u" | " + body); });
    }
    void TearDown() override {
        SaveFailures::setNotifier(nullptr);
        Journal::setOverrideURL(std::nullopt);
        Settings::setStore(nullptr);
    }
    QStringList journal() const { return Journal::tail(1000); }

    SmallDisk disk;
    QTemporaryDir journalDir;
    QStringList told;
};

} // namespace

TEST_F(HostileDisk, AnAtomicWriteNeverReplacesTheOldFileAndSaysWhy) {
    const QString path = disk.file("promises.json");
    const QByteArray old(3000, 'o');
    ASSERT_TRUE(writeFileAtomically(path, old));
    disk.fill();
    for (const qsizetype size : {qsizetype(1), qsizetype(4096), qsizetype(200'000)}) {
        QString why;
        EXPECT_FALSE(writeFileAtomically(path, QByteArray(size, 'n'), &why)) << size;
        EXPECT_EQ(why, u"No space left on device") << size;
        EXPECT_EQ(bytesOf(path), old) << size << " bytes: the old file, whole";
        EXPECT_EQ(QDir(QFileInfo(path).absolutePath()).entryList(QDir::Files | QDir::Hidden).size(), 2)
            << "no temporary file left behind";
    }
    disk.makeRoom();
    disk.setReadOnly(true);
    QString why;
    EXPECT_FALSE(writeFileAtomically(path, "new", &why));
    EXPECT_EQ(why, u"Read-only file system");
    EXPECT_EQ(bytesOf(path), old);
}

TEST_F(HostileDisk, TheLedgerKeepsEveryPromiseUntilTheDiskTakesItAndTellsThePersonOnce) {
    const QString path = disk.file("promises.json");
    PromiseLedger ledger(path);
    ledger.record(kept(1), false);
    ledger.record(kept(2), false);
    const QByteArray before = bytesOf(path);
    disk.fill();

    ledger.record(kept(3), false);
    ledger.record(kept(4), false);
    EXPECT_EQ(bytesOf(path), before) << "the saved ledger is untouched";
    EXPECT_EQ(ledger.records().size(), 4) << "nothing acknowledged is dropped";
    EXPECT_TRUE(SaveFailures::isPending(path));
    ASSERT_EQ(told.size(), 1) << "told once, not once per record";
    EXPECT_TRUE(told[0].contains(u"No space left on device")) << told[0].toStdString();
    EXPECT_EQ(journal().filter(u"(now 4 tovin / 4 total) — not saved yet"_qs).size(), 1);

    SaveFailures::retryPending(); // a tick while still full
    EXPECT_EQ(bytesOf(path), before);
    disk.makeRoom();
    SaveFailures::retryPending(); // the next tick
    EXPECT_FALSE(SaveFailures::isPending(path));
    EXPECT_EQ(PromiseLedger(path).records().size(), 4) << "everything is on disk now";
    EXPECT_EQ(journal().filter(u"[ledger] saved " + path + u" after all").size(), 1);
    EXPECT_EQ(told.size(), 1);
}

TEST_F(HostileDisk, AnUnreadableLedgerThatCannotBeCopiedAsideIsNeverOverwritten) {
    const QString path = disk.file("promises.json");
    const QByteArray damaged = "[{\"date\": \"2026-03-01T09:00:00Z\", \"outcome\": \"tov" + QByteArray(60'000, ' ');
    ASSERT_TRUE(writeFileAtomically(path, damaged));
    PromiseLedger ledger(path);
    ASSERT_TRUE(ledger.records().isEmpty());
    disk.fill();
    ledger.record(kept(3), false);
    EXPECT_EQ(bytesOf(path), damaged) << "the only copy of the person's history stays";
    disk.makeRoom();
    SaveFailures::retryPending();
    EXPECT_EQ(PromiseLedger(path).records().size(), 1);
    const QStringList copies = QDir(QFileInfo(path).absolutePath()).entryList({QStringLiteral("promises.json.unreadable-*")});
    ASSERT_EQ(copies.size(), 1);
    EXPECT_EQ(bytesOf(QFileInfo(path).absolutePath() + u'/' + copies[0]), damaged);
}

TEST_F(HostileDisk, AWeekAndSettingsWrittenToAReadOnlyFolderArriveOnceItIsWritable) {
    const QString week = disk.file("schedule.json");
    const QString settingsPath = disk.file("settings.json");
    ScheduleStore::saveAll({}, week);
    Settings::setStore(std::make_shared<JsonFileSettingsStore>(settingsPath));
    Settings::setSnoozeMinutes(5);
    const QByteArray weekBefore = bytesOf(week), settingsBefore = bytesOf(settingsPath);
    disk.setReadOnly(true);

    const QList<Block> plan{Block{QStringLiteral("10:30"), QStringLiteral("Plan"), Block::Kind::Workout, {}, {}}};
    EXPECT_FALSE(ScheduleStore::saveWorkoutPlan(plan, week));
    Settings::setSnoozeMinutes(7);
    EXPECT_EQ(Settings::snoozeMinutes(), 7) << "the change holds in memory";
    EXPECT_EQ(bytesOf(week), weekBefore);
    EXPECT_EQ(bytesOf(settingsPath), settingsBefore);
    EXPECT_EQ(told.filter(u"Read-only file system"_qs).size(), 2) << told.join(u'\n').toStdString();
    EXPECT_EQ(told.filter(u"your week"_qs).size(), 1);

    disk.setReadOnly(false);
    SaveFailures::retryPending();
    EXPECT_EQ(ScheduleStore::load(week).size(), 1);
    EXPECT_EQ(JsonFileSettingsStore(settingsPath).value(QStringLiteral("snoozeMinutes")).toDouble(), 7);
}

TEST_F(HostileDisk, AFullDiskLeavesTheJournalAsItWasAndNeverCrashes) {
    Journal::setOverrideURL(disk.file("tovin.log"));
    Journal::note(QStringLiteral("schedule"), QStringLiteral("before the disk filled"));
    const QByteArray before = bytesOf(disk.file("tovin.log"));
    disk.fill();
    for (int i = 0; i < 50; ++i)
        Journal::note(QStringLiteral("schedule"), QString(1500, u'x'));
    // What the last page still held took whole lines; the rest took nothing, not half a line.
    const QByteArray after = bytesOf(disk.file("tovin.log"));
    EXPECT_TRUE(after.startsWith(before));
    EXPECT_TRUE(after.endsWith('\n'));
    for (const QByteArray& line : after.mid(before.size()).split('\n'))
        EXPECT_TRUE(line.isEmpty() || line.endsWith(QByteArray(1500, 'x'))) << "torn: " << line.size() << " bytes";
    EXPECT_LT(after.size(), before.size() + 50 * 1550) << "the disk was full";
    disk.makeRoom();
    Journal::note(QStringLiteral("schedule"), QStringLiteral("room again"));
    EXPECT_TRUE(Journal::tail(1).first().endsWith(u"[schedule] room again"));
}

// The person's files on a disk that refuses them, for real: a tiny tmpfs filled to the last
// byte, and the same tmpfs remounted read-only. For every writer (ledger, week, settings,
// journal): the old file stays byte for byte, nothing acknowledged is lost once the disk takes
// writes again, and the person is told once.
#include "core/atomic_file.h"
#include "resident/records/journal.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/save_failures.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"
#include "resident/records/settings_store.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTimeZone>

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/mount.h>

using namespace tovin;

namespace {

QByteArray bytesOf(const QString& path) {
    return readWholeFile(path, 1 << 20).value_or(QByteArray());
}

PromiseRecord kept(int day) {
    return {QDateTime(QDate(2026, 3, day), QTime(9, 0), QTimeZone::utc()),
            PromiseRecord::Outcome::Tovin,
            QStringLiteral("Squat"),
            12,
            12,
            std::nullopt,
            false};
}

// Each test gets a 256 KiB tmpfs of its own. Mounting needs root (the test machines run as
// root); elsewhere the tests say why they skip.
class HostileDisk : public ::testing::Test {
protected:
    void SetUp() override {
        QDir().mkpath(disk);
        if (::mount("tmpfs", QFile::encodeName(disk).constData(), "tmpfs", 0, "size=256k") != 0)
            GTEST_SKIP() << "can't mount a tmpfs (" << std::strerror(errno) << "); run as root";
        mounted = true;
        QObject::connect(&failures, &SaveFailures::tellPerson,
                         [this](const QString& title, const QString& body) {
                             told.append(title + u" | " + body);
                         });
    }
    void TearDown() override {
        if (mounted)
            ::umount2(QFile::encodeName(disk).constData(), MNT_DETACH);
    }
    QString file(const char* name) const { return disk + u'/' + QString::fromLatin1(name); }

    // Takes every free byte, as a full disk would (tmpfs hands out whole pages).
    void fill() {
        QFile filler(file("filler"));
        ASSERT_TRUE(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        while (filler.write(QByteArray(4096, 'x')) > 0) {
        }
    }
    void makeRoom() { QFile::remove(file("filler")); }
    void setReadOnly(bool readOnly) {
        const unsigned long flags = MS_REMOUNT | (readOnly ? MS_RDONLY : 0);
        ASSERT_EQ(
            ::mount("tmpfs", QFile::encodeName(disk).constData(), "tmpfs", flags, "size=256k"), 0)
            << std::strerror(errno);
    }

    QTemporaryDir root;
    QString disk = root.filePath(QStringLiteral("disk"));
    bool mounted = false;
    // The journal lives elsewhere, so its lines can be read whatever the disk does.
    QTemporaryDir journalDir;
    Journal journal{journalDir.filePath(QStringLiteral("tovin.log"))};
    SaveFailures failures{journal};
    QStringList told;
};

} // namespace

TEST_F(HostileDisk, AnAtomicWriteToAFullDiskNeverReplacesTheOldFileAndSaysWhy) {
    const QString path = file("promises.json");
    const QByteArray old(3000, 'o');
    ASSERT_TRUE(writeFileAtomically(path, old));
    fill();
    for (const qsizetype size : {qsizetype(1), qsizetype(4096), qsizetype(200'000)}) {
        QString why;
        EXPECT_FALSE(writeFileAtomically(path, QByteArray(size, 'n'), &why)) << size;
        EXPECT_EQ(why, u"No space left on device") << size;
        EXPECT_EQ(bytesOf(path), old) << size << " bytes: the old file, whole";
        EXPECT_EQ(QDir(disk).entryList(QDir::Files | QDir::Hidden).size(), 2)
            << "no temporary file left";
    }
}

TEST_F(HostileDisk, TheLedgerKeepsEveryPromiseUntilTheDiskTakesItAndTellsThePersonOnce) {
    const QString path = file("promises.json");
    PromiseLedger ledger(path, &journal, &failures);
    for (const int day : {1, 2})
        ledger.record(kept(day), false);
    const QByteArray before = bytesOf(path);
    fill();

    for (const int day : {3, 4})
        ledger.record(kept(day), false);
    EXPECT_EQ(bytesOf(path), before) << "the saved ledger is untouched";
    EXPECT_TRUE(failures.isPending(path));
    ASSERT_EQ(told.size(), 1) << "told once, not once per record";
    EXPECT_TRUE(told[0].contains(u"No space left on device")) << told[0].toStdString();
    EXPECT_EQ(journal.tail(1000).filter(u"(now 4 tovin / 4 total) — not saved yet"_qs).size(), 1);

    failures.retryPending(); // a tick while still full
    EXPECT_EQ(bytesOf(path), before);
    makeRoom();
    failures.retryPending(); // the next tick
    EXPECT_FALSE(failures.isPending(path));
    EXPECT_EQ(PromiseLedger(path).records().size(), 4) << "nothing acknowledged was dropped";
    EXPECT_EQ(journal.tail(1000).filter(u"[ledger] saved " + path + u" after all").size(), 1);
    EXPECT_EQ(told.size(), 1);
}

TEST_F(HostileDisk, AnUnreadableLedgerThatCannotBeCopiedAsideIsNeverOverwritten) {
    const QString path = file("promises.json");
    const QByteArray damaged =
        "[{\"date\": \"2026-03-01T09:00:00Z\", \"outcome\": \"tov" + QByteArray(60'000, ' ');
    ASSERT_TRUE(writeFileAtomically(path, damaged));
    PromiseLedger ledger(path, &journal, &failures);
    ASSERT_TRUE(ledger.records().isEmpty());
    fill();
    ledger.record(kept(3), false);
    EXPECT_EQ(bytesOf(path), damaged) << "the only copy of the person's history stays";
    makeRoom();
    failures.retryPending();
    EXPECT_EQ(PromiseLedger(path).records().size(), 1);
    const QStringList copies = QDir(disk).entryList({QStringLiteral("promises.json.unreadable-*")});
    ASSERT_EQ(copies.size(), 1);
    EXPECT_EQ(bytesOf(disk + u'/' + copies[0]), damaged);
}

TEST_F(HostileDisk, AWeekAndSettingsWrittenToAReadOnlyFolderArriveOnceItIsWritable) {
    const QString week = file("schedule.json");
    const QString settingsPath = file("settings.json");
    ScheduleStore weekStore(week, &failures);
    weekStore.saveAll({});
    JsonFileSettingsStore settingsStore(settingsPath, &failures);
    Preferences prefs(settingsStore);
    prefs.setSnoozeMinutes(5);
    const QByteArray weekBefore = bytesOf(week), settingsBefore = bytesOf(settingsPath);
    setReadOnly(true);

    const QList<Block> plan{
        Block{QStringLiteral("10:30"), QStringLiteral("Plan"), Block::Kind::Workout, {}, {}}};
    EXPECT_FALSE(weekStore.saveWorkoutPlan(plan));
    prefs.setSnoozeMinutes(7);
    EXPECT_EQ(prefs.snoozeMinutes(), 7) << "the change holds in memory";
    EXPECT_EQ(bytesOf(week), weekBefore);
    EXPECT_EQ(bytesOf(settingsPath), settingsBefore);
    EXPECT_EQ(told.filter(u"Read-only file system"_qs).size(), 2) << told.join(u'\n').toStdString();
    EXPECT_EQ(told.filter(u"your week"_qs).size(), 1);

    setReadOnly(false);
    failures.retryPending();
    EXPECT_EQ(ScheduleStore::load(week).size(), 1);
    EXPECT_EQ(JsonFileSettingsStore(settingsPath).value(QStringLiteral("snoozeMinutes")).toDouble(),
              7);
}

TEST_F(HostileDisk, AFullDiskLeavesTheJournalAsItWasAndNeverCrashes) {
    Journal journal(file("tovin.log"));
    journal.note(QStringLiteral("schedule"), QStringLiteral("before the disk filled"));
    const QByteArray before = bytesOf(file("tovin.log"));
    fill();
    for (int i = 0; i < 50; ++i)
        journal.note(QStringLiteral("schedule"), QString(1500, u'x'));
    // What the last page still held took whole lines; the rest took nothing, not half a line.
    const QByteArray after = bytesOf(file("tovin.log"));
    EXPECT_TRUE(after.startsWith(before));
    EXPECT_TRUE(after.endsWith('\n'));
    for (const QByteArray& line : after.mid(before.size()).split('\n'))
        EXPECT_TRUE(line.isEmpty() || line.endsWith(QByteArray(1500, 'x')))
            << "torn: " << line.size() << " bytes";
    EXPECT_LT(after.size(), before.size() + 50 * 1550) << "the disk was full";
    makeRoom();
    journal.note(QStringLiteral("schedule"), QStringLiteral("room again"));
    EXPECT_TRUE(journal.tail(1).first().endsWith(u"[schedule] room again"));
}

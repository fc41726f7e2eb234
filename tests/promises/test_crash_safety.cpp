#include "core/atomic_file.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings_store.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>

using namespace tovin;

// A SIGKILL at any instant, mid-save included, must leave every file whole (old or new, never
// torn or empty), and every promise the writer acknowledged must be in the ledger.
TEST(CrashSafety, KillNineNeverTearsAFileNorLosesAnAcknowledgedPromise) {
    QTemporaryDir dir;
    const QString ledgerPath = dir.filePath(QStringLiteral("promises.json"));
    const QString schedulePath = dir.filePath(QStringLiteral("schedule.json"));
    const QString settingsPath = dir.filePath(QStringLiteral("settings.json"));
    QRandomGenerator random(20261123);
    qint64 acknowledged = 0;

    for (int round = 0; round < 120; ++round) {
        QProcess writer;
        writer.start(QStringLiteral(CRASH_WRITER_PATH), {dir.path()});
        // Once it is writing, let it run a random few milliseconds so the kill lands anywhere
        // in its loop: inside a record, a schedule save or a settings write.
        ASSERT_TRUE(writer.waitForReadyRead(10000)) << "round " << round;
        std::this_thread::sleep_for(std::chrono::microseconds(random.bounded(8000)));
        ::kill(pid_t(writer.processId()), SIGKILL);
        ASSERT_TRUE(writer.waitForFinished(10000));

        for (const QByteArray& line : writer.readAllStandardOutput().split('\n')) {
            if (line.startsWith("ack "))
                acknowledged = std::max(acknowledged, line.split(' ').value(1).toLongLong());
        }

        const auto ledgerBytes = readWholeFile(ledgerPath, 1 << 28);
        ASSERT_TRUE(ledgerBytes) << "round " << round;
        const auto records = PromiseJson::decode(*ledgerBytes);
        ASSERT_TRUE(records) << "ledger torn in round " << round;
        ASSERT_GE(records->size(), acknowledged) << "acknowledged promise lost in round " << round;
        for (qsizetype i = 0; i < records->size(); ++i)
            ASSERT_EQ((*records)[i].reps, i + 1) << "round " << round;

        if (QFileInfo::exists(schedulePath)) {
            const auto bytes = readWholeFile(schedulePath, 1 << 20);
            ASSERT_TRUE(bytes && ScheduleStore::decode(*bytes)) << "schedule torn, round " << round;
        }
        if (QFileInfo::exists(settingsPath)) {
            bool readable = false;
            JsonFileSettingsStore::parse(*readWholeFile(settingsPath, 1 << 20), &readable);
            ASSERT_TRUE(readable) << "settings torn in round " << round;
        }
    }
    EXPECT_GT(acknowledged, 120); // the writer really ran between kills
}

// Two copies of Tovin recording into one ledger at once (a layout check beside the watcher),
// each holding the file in memory: neither may write over a record of the other's.
TEST(CrashSafety, TwoCopiesRecordingAtOnceLoseNothing) {
    QTemporaryDir dir;
    const QStringList names{QStringLiteral("first"), QStringLiteral("second")};
    QProcess writers[2];
    qint64 acknowledged[2] = {0, 0};
    for (int i = 0; i < 2; ++i) {
        writers[i].start(QStringLiteral(CRASH_WRITER_PATH), {dir.path(), names[i]});
        ASSERT_TRUE(writers[i].waitForStarted());
    }
    while (acknowledged[0] < 60 || acknowledged[1] < 60) {
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(writers[i].state(), QProcess::Running);
            writers[i].waitForReadyRead(50);
            while (writers[i].canReadLine())
                acknowledged[i] = writers[i].readLine().split(' ').value(2).trimmed().toLongLong();
        }
    }
    for (QProcess& w : writers) {
        ::kill(pid_t(w.processId()), SIGKILL);
        w.waitForFinished(10000);
    }
    for (int i = 0; i < 2; ++i) // what was printed after the last read counts too
        for (const QByteArray& line : writers[i].readAllStandardOutput().split('\n'))
            if (line.startsWith("ack "))
                acknowledged[i] = line.split(' ').value(2).toLongLong();

    const auto records =
        PromiseJson::decode(*readWholeFile(dir.filePath(QStringLiteral("promises.json")), 1 << 28));
    ASSERT_TRUE(records);
    for (int i = 0; i < 2; ++i) {
        const auto mine =
            std::count_if(records->begin(), records->end(),
                          [&](const PromiseRecord& r) { return r.exercise == names[i]; });
        // Every acknowledged record, and at most the one it was killed while writing.
        EXPECT_GE(mine, acknowledged[i]) << names[i].toStdString();
        EXPECT_LE(mine, acknowledged[i] + 1) << names[i].toStdString();
    }
}

#include "journal/diagnostics.h"

#include "journal/instance_record.h"
#include "journal/journal.h"
#include "promises/promise_ledger.h"
#include "schedule/schedule_store.h"
#include "schedule/settings.h"
#include "support/fake_clock.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

using namespace tovin;

namespace {

class WhyTest : public ::testing::Test {
protected:
    void SetUp() override {
        Settings::setStore(std::make_shared<MemorySettingsStore>());
        Journal::setOverrideURL(dir.filePath(QStringLiteral("tovin-journal-test-why.log")));
        Journal::resetForTesting();
    }
    void TearDown() override {
        Settings::setStore(nullptr);
        Journal::setOverrideURL(std::nullopt);
    }
    QStringList report() {
        return Diagnostics::why({schedule, instance, &ledger}, clock, Calendar::utc())
            .split(u'\n');
    }

    QTemporaryDir dir;
    QString schedule = dir.filePath(QStringLiteral("schedule.json"));
    QString instance = dir.filePath(QStringLiteral("instance.json"));
    PromiseLedger ledger{dir.filePath(QStringLiteral("promises.json"))};
    // Monday 2 March 2026, 12:00 UTC.
    fakes::FakeClock clock{QDateTime(QDate(2026, 3, 2), QTime(12, 0), QTimeZone::utc())};
};

} // namespace

TEST_F(WhyTest, FreshInstallExplainsItself) {
    const QStringList lines = report();
    EXPECT_EQ(lines[1], u"  now: Mon 2 Mar 12:00:00");
    EXPECT_TRUE(lines[2].startsWith(u"  running: NO")) << lines[2].toStdString();
    EXPECT_TRUE(lines.contains(u"  empty — nothing will ever fire"));
    EXPECT_TRUE(lines.contains(u"  idle — no blocks in schedule"));
    EXPECT_TRUE(lines.contains(u"  onboarded: NO — setup never completed"));
    // An empty journal gets its two readings spelled out: never journalled, or stopped ticking.
    EXPECT_TRUE(lines.contains(u"  empty — which means one of two things, and they are not the same:"));
}

TEST_F(WhyTest, ScheduleLinesAndAMissedBlock) {
    Block walk{QStringLiteral("16:30"), QStringLiteral("Walk"), Block::Kind::Away, 15,
               QList<int>{1}};
    Block classic{QStringLiteral("9:00"), QStringLiteral("The Classic 7"), Block::Kind::Workout,
                  {}, QList<int>{2, 3, 4, 5, 6}};
    ScheduleStore::saveAll({walk, classic}, schedule);
    Journal::note(QStringLiteral("schedule"), QStringLiteral("reloaded — 2 block(s)"));

    const QStringList lines = report();
    // Sorted by time of day, whatever order the file holds them in.
    const qsizetype nine = lines.indexOf(u"  9:00  The Classic 7  [workout]  Mon,Tue,Wed,Thu,Fri");
    ASSERT_GE(nine, 0);
    EXPECT_EQ(lines[nine + 1], u"  16:30  Walk  [away 15min]  Sun");
    // A missed block is called designed behaviour, so nobody goes hunting for a bug.
    const qsizetype missed = lines.indexOf(
        u"  idle — missed past the 90-min grace: The Classic 7 — not queued, by design");
    ASSERT_GE(missed, 0);
    EXPECT_TRUE(lines[missed + 1].startsWith(u"  ^ this is the designed behaviour"));
    EXPECT_TRUE(lines.contains(u"Journal — last 1 line(s)  (" + Journal::url() + u')'));
}

TEST_F(WhyTest, BusyMarkHoldsTheDecisionAndShowsInGuards) {
    ScheduleStore::saveAll({Block{QStringLiteral("11:30"), QStringLiteral("A"),
                                  Block::Kind::Workout, {}, {}}},
                           schedule);
    Settings::setBusyUntil(clock.now().addSecs(120));
    QStringList lines = report();
    EXPECT_TRUE(lines.contains(u"  holding A — marked busy"));
    EXPECT_TRUE(lines.contains(u"  busy: YES — no reason given, until 12:02:00"));
    Settings::setBusyReason(QStringLiteral("mid-workout"));
    lines = report();
    EXPECT_TRUE(lines.contains(u"  holding A — mid-workout"));
    EXPECT_TRUE(lines.contains(u"  quiet hours allow now: yes"));
}

TEST_F(WhyTest, ARetestIsOverdueOnlyWhileTheSchedulerWouldFireIt) {
    Settings::setRetestDueInDays(0);
    for (const auto& [daysAgo, overdue] : {std::pair{1, true}, std::pair{6, true}, std::pair{7, false}, std::pair{8, false}}) {
        Settings::setRetestReportedAt(clock.now().addDays(-daysAgo));
        EXPECT_EQ(report().filter(u"  retest: overdue as of"_qs).size(), overdue ? 1 : 0) << daysAgo << " days ago";
    }
}

TEST(InstanceRecord, AStaleRecordIsIgnored) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("instance.json"));
    EXPECT_FALSE(InstanceRecord::readLive(path));
    // Pid 0x3fffffff is above any pid Linux hands out.
    ASSERT_TRUE((InstanceRecord{0x3ffffffe, std::nullopt}.write(path)));
    EXPECT_FALSE(InstanceRecord::readLive(path));
    ASSERT_TRUE((InstanceRecord{::getpid(), std::nullopt}.write(path)));
    const auto live = InstanceRecord::readLive(path);
    ASSERT_TRUE(live);
    EXPECT_EQ(live->pid, ::getpid());
    EXPECT_FALSE(live->launchedAt);
}

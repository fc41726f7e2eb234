#include "core/atomic_file.h"
#include "resident/records/diagnostics.h"
#include "resident/records/instance_record.h"
#include "resident/records/journal.h"
#include "resident/records/settings.h"
#include "support/fake_clock.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <unistd.h>

using namespace tovin;

namespace {

class WhyTest : public ::testing::Test {
protected:
    QString report() {
        return Diagnostics::why({schedule, instance}, prefs, journal, clock, Calendar::utc());
    }

    QTemporaryDir dir;
    QString schedule = dir.filePath(QStringLiteral("schedule.json"));
    QString instance = dir.filePath(QStringLiteral("instance.json"));
    // Monday 2 March 2026, 12:00 UTC.
    fakes::FakeClock clock{QDateTime(QDate(2026, 3, 2), QTime(12, 0), QTimeZone::utc())};
    MemorySettingsStore store;
    Preferences prefs{store};
    Journal journal{dir.filePath(QStringLiteral("tovin-journal-test-why.log")), clock};
};

} // namespace

TEST_F(WhyTest, FreshInstallExplainsItself) {
    const QString text = report();
    EXPECT_TRUE(text.contains(u"  running: NO")) << text.toStdString();
    EXPECT_TRUE(text.contains(u"  empty — nothing will ever fire\n"));
    EXPECT_TRUE(text.contains(u"  onboarded: NO — setup never completed\n"));
    // An empty journal gets its two readings spelled out: never journalled, or stopped ticking.
    EXPECT_TRUE(text.contains(u"  empty — which means one of two things"));
}

TEST_F(WhyTest, TheWeekInTimeOrderAndAMissedBlockCalledDesigned) {
    // Out of order, as a hand edit may leave it.
    ASSERT_TRUE(writeFileAtomically(schedule, R"({"blocks":[
        {"at":"16:30","label":"Walk","kind":"away","minutes":15,"days":[1]},
        {"at":"9:00","label":"The Classic 7","kind":"workout","days":[2,3,4,5,6]}]})"));
    journal.note(QStringLiteral("schedule"), QStringLiteral("reloaded — 2 block(s)"));
    const QString text = report();
    EXPECT_TRUE(text.contains(u"  9:00  The Classic 7  [workout]  Mon,Tue,Wed,Thu,Fri\n"
                              u"  16:30  Walk  [away 15min]  Sun\n"));
    // A missed block is called designed behaviour, so nobody goes hunting for a bug.
    EXPECT_TRUE(text.contains(u"grace: The Classic 7 — not queued, by design\n"
                              u"  ^ this is the designed behaviour"));
    EXPECT_TRUE(text.contains(u"Journal — last 1 line(s)  (" + journal.url() + u")\n  "));
}

TEST_F(WhyTest, ABusyMarkHoldsTheDecisionAndShowsInGuards) {
    ASSERT_TRUE(writeFileAtomically(schedule,
                                    R"({"blocks":[{"at":"11:30","label":"A","kind":"workout"}]})"));
    prefs.setBusyUntil(clock.now().addSecs(120));
    const QString text = report();
    EXPECT_TRUE(text.contains(u"  holding A — marked busy\n"));
    EXPECT_TRUE(text.contains(u"  busy: YES — no reason given, until 12:02:00\n"));
    prefs.setBusyReason(QStringLiteral("mid-workout"));
    EXPECT_TRUE(report().contains(u"  holding A — mid-workout\n"));
}

// A report older than a week is stale: the scheduler never fires it, so it is not overdue here.
TEST_F(WhyTest, ARetestIsOverdueOnlyWhileTheSchedulerWouldFireIt) {
    prefs.setRetestDueInDays(0);
    for (const auto& [daysAgo, overdue] : {std::pair{6, true}, {7, false}}) {
        prefs.setRetestReportedAt(clock.now().addDays(-daysAgo));
        EXPECT_EQ(report().contains(u"  retest: overdue as of"), overdue) << daysAgo << " days";
    }
}

TEST(InstanceRecord, OnlyALiveProcessCounts) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("instance.json"));
    EXPECT_FALSE(InstanceRecord::readLive(path));
    // Pid 0x3ffffffe is above any pid Linux hands out.
    ASSERT_TRUE((InstanceRecord{0x3ffffffe, std::nullopt}.write(path)));
    EXPECT_FALSE(InstanceRecord::readLive(path));
    const InstanceRecord self{::getpid(), std::nullopt};
    ASSERT_TRUE(self.write(path));
    EXPECT_EQ(InstanceRecord::readLive(path), self);
}

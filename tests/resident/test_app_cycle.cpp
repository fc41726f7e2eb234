#include "cycle_fixture.h"

#include <QPushButton>
#include <QTest>

using namespace tovin;
using tovin::fakes::CycleTest;

TEST_F(CycleTest, HoldOffReasonsInTheirOrder) {
    setWeek({block("09:00", "Nine")});
    AppController& c = launch();
    EXPECT_EQ(c.holdOffReason(), std::nullopt);

    prefs.setLockoutWorkoutID(std::nullopt);
    EXPECT_EQ(c.holdOffReason(), u"setup isn't finished — nothing chosen to run");
    idle.seconds = 1199;
    EXPECT_EQ(c.holdOffReason(), u"setup isn't finished — nothing chosen to run");
    idle.seconds = 1200;
    EXPECT_EQ(c.holdOffReason(), u"nobody at the desk — idle 20 min");

    prefs.setBusyUntil(clock.now().addSecs(60));
    EXPECT_EQ(c.holdOffReason(), u"you're mid-session");
    prefs.setBusyReason(QStringLiteral("on set 3 of 5"));
    EXPECT_EQ(c.holdOffReason(), u"on set 3 of 5");

    probe->camera = true;
    probe->mic = true;
    EXPECT_EQ(c.holdOffReason(), u"Mic and camera are live — you're on a call.");

    // The setup window holds off only while focused, visible, the app active and touched in the
    // last 2 min.
    EXPECT_TRUE(Presence::usingSetupWindow(true, true, true, 119));
    EXPECT_FALSE(Presence::usingSetupWindow(true, true, true, 120));
    EXPECT_FALSE(Presence::usingSetupWindow(false, true, true, 0));
    EXPECT_FALSE(Presence::usingSetupWindow(true, false, true, 0));
    EXPECT_FALSE(Presence::usingSetupWindow(true, true, false, 0));
}

TEST_F(CycleTest, ASnoozeHoldsTheBlockForSnoozeMinutesThenTheBudgetIsSpent) {
    prefs.setSnoozesPerLockout(1);
    prefs.setTriggerAfterMinutes(5); // the usage path must not cut the snooze short either
    setWeek({block("09:00", "Nine")});
    AppController& c = launch();
    c.startScheduleWatch();
    countdown.snooze();
    EXPECT_EQ(journalLines(QStringLiteral("defer")).size(), 1);

    // The block stays due all the while, but only the deferral brings it back: back any earlier,
    // its countdown would have run out and raised by now.
    clock.advance(10 * 60 - 30);
    EXPECT_FALSE(countdown.isShowing());
    EXPECT_TRUE(raises.isEmpty());
    clock.advance(30);
    ASSERT_TRUE(countdown.isShowing());
    EXPECT_EQ(countdown.panel()->findChildren<QPushButton*>().size(), 1)
        << "only Start now: the budget is spent";

    clock.advance(60);
    ASSERT_EQ(raises.size(), 1);
    EXPECT_EQ(raises[0]->label, u"Nine"); // the snoozed block is still the one served
}

TEST_F(CycleTest, AUsageLockoutOutsideTheHoursIsDroppedNotQueued) {
    clock.set(QDateTime(QDate(2026, 3, 2), QTime(20, 0), QTimeZone::utc()));
    setWeek({}); // nothing of the schedule's own could fire later
    AppController& c = launch();
    c.startScheduleWatch(); // ticks run: a queued lockout would come back through them
    c.lockoutBecameDue();
    EXPECT_FALSE(countdown.isShowing());
    EXPECT_TRUE(journalLines(QStringLiteral("defer")).isEmpty());
    clock.set(QDateTime(QDate(2026, 3, 3), QTime(10, 0), QTimeZone::utc()));
    clock.advance(3600);
    EXPECT_TRUE(raises.isEmpty());
}

TEST_F(CycleTest, AnEditedWeekReloadsOnceAndClearsOnlyTheInMemoryServedSet) {
    setWeek({block("12:00", "Noon")});
    AppController& c = launch();
    c.startScheduleWatch();
    // The person's editor writes the file directly.
    ASSERT_TRUE(writeFileAtomically(
        schedulePath, R"({"blocks": [{"at": "09:00", "kind": "workout", "label": "Nine"},
                                     {"at": "12:00", "kind": "workout", "label": "Noon"}]})"));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return !journalLines(QStringLiteral("schedule")).filter(u"reloaded — 2").isEmpty(); },
        5000));
    clock.advance(30 + 60); // the edited week's due block fires at the next tick, and is served
    ASSERT_EQ(raises.size(), 1);
    ASSERT_EQ(prefs.firedBlocks().size(), 1);

    // A save of Tovin's own reloads at once, and is announced once, not again by the file's change.
    setWeek({block("09:00", "Nine"), block("10:00", "Ten"), block("12:00", "Noon")});
    EXPECT_EQ(prefs.firedBlocks().size(), 1); // the stored set is untouched
    QTest::qWait(ScheduleFileWatch::settleMs * 3);
    const QStringList reloads = journalLines(QStringLiteral("schedule")).filter(u"reloaded");
    ASSERT_EQ(reloads.size(), 2);
    EXPECT_TRUE(reloads[1].endsWith(u"reloaded — 3 block(s)"));
}

TEST_F(CycleTest, DeferralsReplaceOneAnotherAndAnEndedLockoutGatesThemAndTheTick) {
    setWeek({block("09:00", "Nine"), block("10:00", "Ten")});
    AppController& c = launch();
    c.deferLockout(3, QStringLiteral("first"));
    c.deferLockout(5, QStringLiteral("second"));
    EXPECT_EQ(clock.activeTimers(), 1);
    clock.advance(3 * 60);
    EXPECT_FALSE(countdown.isShowing()); // the first was replaced
    clock.advance(2 * 60);
    EXPECT_TRUE(countdown.isShowing());
    c.pauseAnHour(); // the countdown goes with the pause
    c.resumeWatching();

    c.startScheduleWatch();
    clock.advance(60);
    ASSERT_EQ(raises.size(), 1);
    shield().lower();
    c.end({Ending::Kind::TimedOut});
    EXPECT_EQ(c.phase(), AppController::Phase::Ending);
    EXPECT_EQ(c.pendingBlock(), std::nullopt);

    c.deferLockout(3, QStringLiteral("pending"));
    c.lockoutBecameDue();
    clock.advance(3 * 60);
    EXPECT_FALSE(countdown.isShowing());
    clock.advance(60 * 60); // "Ten" is due now, but the round has ended
    EXPECT_EQ(raises.size(), 1);

    c.raiseLockout(false); // only a new raise clears the gate
    EXPECT_EQ(c.phase(), AppController::Phase::Raised);
}

TEST_F(CycleTest, AnOverdueRetestBecomesABlockAtThisMinute) {
    AppController& c = launch();
    clock.set(QDateTime(QDate(2026, 3, 2), QTime(11, 7), QTimeZone::utc()));
    c.checkSchedule();
    EXPECT_EQ(c.pendingBlock(), std::nullopt); // no report at all
    prefs.setRetestDueInDays(0);
    prefs.setRetestReportedAt(clock.now().addDays(-8));
    c.checkSchedule();
    EXPECT_EQ(c.pendingBlock(), std::nullopt); // stale
    prefs.setRetestDueInDays(1);
    prefs.setRetestReportedAt(clock.now().addDays(-1));
    c.checkSchedule();
    EXPECT_EQ(c.pendingBlock(), std::nullopt); // not owed yet
    prefs.setRetestDueInDays(0);
    c.checkSchedule();
    EXPECT_EQ(c.pendingBlock().value_or(Block{}).key(), u"11:07|Fitness test|retest");
    EXPECT_TRUE(countdown.isShowing());
}

TEST_F(CycleTest, ACallStartingOnTheLastSecondCancelsAndDefersTheFullThreeMinutes) {
    setWeek({block("09:00", "Nine")});
    prefs.setWarningSeconds(10);
    AppController& c = launch();
    c.startScheduleWatch();
    clock.advance(9);
    probe->camera = true;
    clock.advance(1);
    EXPECT_TRUE(raises.isEmpty());
    probe->camera = false;
    // The call ends at once, yet the block waits out its deferral rather than the next tick.
    clock.advance(3 * 60 - 1);
    EXPECT_FALSE(countdown.isShowing());
    clock.advance(1);
    ASSERT_TRUE(countdown.isShowing());
    clock.advance(60);
    ASSERT_EQ(raises.size(), 1);
    EXPECT_EQ(raises[0]->label, u"Nine");
}

TEST_F(CycleTest, AnUnconfiguredInstallIsHeldAndAWakeTicksAtOnce) {
    setWeek({block("09:00", "Nine")});
    prefs.setLockoutWorkoutID(std::nullopt); // the block is held until setup is finished
    AppController& c = launch();
    c.machineDidWake();
    EXPECT_TRUE(journalLines(QStringLiteral("schedule")).isEmpty())
        << "a launch that watches no schedule (a rehearsal, a probe) ticks on no wake";

    c.startScheduleWatch();
    c.lockoutBecameDue(); // the usage path is held off as well as the schedule's
    clock.advance(20 * 60);
    EXPECT_TRUE(raises.isEmpty());
    c.machineWillSleep();
    clock.sleep(47 * 60 + 30);
    prefs.setLockoutWorkoutID(QStringLiteral("classic-7")); // set up while it slept
    c.machineDidWake();
    EXPECT_TRUE(journalLines(QStringLiteral("power")).last().endsWith(u"woke after 47 min asleep"));
    EXPECT_TRUE(countdown.isShowing()) << "the wake ticks at once, before the next timer";
    countdown.dismiss();

    // A wake nobody announced: the next tick comes late by the wall clock.
    clock.sleep(2 * 3600);
    clock.advance(30);
    EXPECT_TRUE(
        journalLines(QStringLiteral("power")).last().endsWith(u"woke after 120 min asleep"));
}

#include "cycle_fixture.h"

#include "promises/promise_ledger.h"
#include "shield/shield_window.h"

#include <QCoreApplication>

using namespace tovin;
using tovin::fakes::CycleTest;
using Outcome = PromiseRecord::Outcome;

namespace {
class LifecycleTest : public CycleTest {
protected:
    // A lockout raised for a due block of this kind at 09:00.
    AppController& raised(Block::Kind kind = Block::Kind::Workout, std::optional<int> minutes = {}) {
        Block b = block("09:00", kind == Block::Kind::Away ? "Walk" : "Nine", kind);
        b.minutes = minutes;
        week({b});
        AppController& c = launch();
        c.startScheduleWatch();
        clock.advance(60); // the countdown runs out
        EXPECT_TRUE(shieldOf(c).isUp());
        return c;
    }
};
} // namespace

TEST_F(LifecycleTest, EachEndingWritesExactlyItsRecord) {
    const struct {
        const char* ending;
        std::function<void(AppController&)> end;
        std::optional<PromiseRecord> expected;
        const char16_t* journalled;
    } cases[] = {
        {"completed", [](AppController& c) { c.workoutCompleted(QStringLiteral("Squat"), 12); },
         PromiseRecord{{}, Outcome::Tovin, QStringLiteral("Squat"), 12, 12, std::nullopt, false},
         u"lockout ended — workout completed"},
        {"broken", [](AppController& c) { shieldOf(c).lower(); c.shieldWasBroken(PromiseRecord::Reason::Urgent); },
         PromiseRecord{{}, Outcome::Broken, QStringLiteral("Nine"), 0, 0, PromiseRecord::Reason::Urgent, std::nullopt},
         u"lockout ended — promise broken (Genuinely urgent)"},
        {"panic", [](AppController& c) { shieldOf(c).lower(); c.shieldPanicked(); }, std::nullopt,
         u"lockout ended — panic (Esc ×5), nothing recorded"},
        {"yield", [](AppController& c) { shieldOf(c).yieldNow(); }, std::nullopt,
         u"lockout ended — yielded to the system, nothing recorded"},
        {"valve", [this](AppController&) { clock.advance(15 * 60); }, std::nullopt,
         u"lockout ended — the safety valve released the screen, nothing recorded"},
        {"failed page", [](AppController& c) { c.workoutWebFailed(QStringLiteral("net::ERR")); }, std::nullopt,
         u"released — the workout screen failed: net::ERR"},
    };
    for (const auto& c : cases) {
        QFile::remove(ledger.url());
        ledger = PromiseLedger(ledger.url());
        Settings::setFiredBlocks({});
        AppController& app = raised();
        // The page's mid-workout mark: no ending may leave it to hold off the next block.
        Settings::setBusyUntil(clock.now().addSecs(180));
        Settings::setBusyReason(QStringLiteral("mid-workout"));
        c.end(app);
        clock.advance(3.1); // completion lowers after 3 s
        EXPECT_FALSE(Settings::isBusy(clock.now())) << c.ending;
        EXPECT_EQ(journal(QStringLiteral("shield")).last(), QString::fromUtf16(c.journalled)) << c.ending;
        EXPECT_FALSE(shieldOf(app).isUp()) << c.ending;
        EXPECT_TRUE(app.lockoutIsOver()) << c.ending;
        if (c.expected) {
            ASSERT_EQ(ledger.records().size(), 1) << c.ending;
            PromiseRecord got = ledger.records()[0];
            got.date = {};
            EXPECT_EQ(got, *c.expected) << c.ending;
        } else {
            EXPECT_TRUE(ledger.records().isEmpty()) << c.ending;
        }
    }
    EXPECT_EQ(terminations, 2); // the panic, and the failed page's explanation
    EXPECT_TRUE(alerts.last().startsWith(u"The workout screen didn't load."));
}

TEST_F(LifecycleTest, RacingEndingsActOnce) {
    AppController& c = raised();
    c.workoutCompleted(QStringLiteral("Squat"), 12);
    c.workoutCompleted(QStringLiteral("Squat"), 12);
    c.workoutWebFailed(QStringLiteral("late"));
    clock.advance(3.1);
    c.workoutCompleted(QStringLiteral("Squat"), 12); // the shield is down now
    EXPECT_EQ(ledger.records().size(), 1);
    EXPECT_TRUE(alerts.isEmpty());
    // The completion raised nothing twice and lowered once.
    EXPECT_FALSE(shieldOf(c).isUp());
}

TEST_F(LifecycleTest, TheAwayBlockCountsWhenPresentAndItsValveIsCapped) {
    AppController& c = raised(Block::Kind::Away, 15);
    EXPECT_EQ(contents.last().page.kind, LockoutPage::Kind::Away);
    EXPECT_EQ(contents.last().page.awayLabel, u"Walk");
    EXPECT_EQ(shieldOf(c).valveMinutes(), 15.0); // min(15, 15 + 2)
    idle.seconds = 15 * 60 + 300; // walked away for the whole block: still present
    clock.advance(15 * 60);
    EXPECT_FALSE(shieldOf(c).isUp());
    ASSERT_EQ(ledger.records().size(), 1);
    EXPECT_EQ(ledger.records()[0].exercise, u"Walk");
    EXPECT_EQ(ledger.records()[0].attested, true);
}

TEST_F(LifecycleTest, AnAwayBlockOnAMachineIdleThroughoutRecordsNothing) {
    Settings::setMaxShieldMinutes(45);
    AppController& c = raised(Block::Kind::Away, 10);
    EXPECT_EQ(shieldOf(c).valveMinutes(), 12.0); // the held time plus two minutes
    idle.seconds = 10 * 60 + 301;
    clock.advance(10 * 60);
    EXPECT_TRUE(ledger.records().isEmpty());
    // One second past the five minutes' benefit of the doubt.
    EXPECT_TRUE(journal(QStringLiteral("ledger")).last().startsWith(u"Walk not recorded — machine already idle 15 min"));
}

TEST_F(LifecycleTest, ARehearsalRecordsNothingAndReopensTheSetupWindow) {
    AppController& c = launch();
    c.raiseLockout(true);
    EXPECT_TRUE(shieldOf(c).isRehearsal());
    c.raiseLockout(false); // a second raise while up does nothing
    EXPECT_EQ(raises.size(), 1);
    Settings::setBusyUntil(clock.now().addSecs(180));
    c.workoutCompleted(QStringLiteral("Squat"), 12);
    clock.advance(3.1);
    EXPECT_FALSE(Settings::isBusy(clock.now()));
    EXPECT_TRUE(ledger.records().isEmpty());
    EXPECT_EQ(journal(QStringLiteral("ledger")).last(), u"rehearsal — Squat not recorded");
    EXPECT_EQ(setupWanted, 1);
}

TEST_F(LifecycleTest, ABreakWithNoBlockAndNoWorkoutIsRecordedAsWorkout) {
    AppController& c = launch();
    c.raiseLockout(false); // "Lock Me Out Now": no pending block
    Settings::setLockoutWorkoutID(std::nullopt);
    shieldOf(c).lower();
    c.shieldWasBroken(std::nullopt);
    ASSERT_EQ(ledger.records().size(), 1);
    EXPECT_EQ(ledger.records()[0].exercise, u"Workout");
    EXPECT_EQ(ledger.records()[0].reason, std::nullopt);
}

TEST_F(LifecycleTest, RefusalsBeforeALockIsTaken) {
    Settings::setLockoutWorkoutID(std::nullopt);
    AppController& c = launch();
    c.raiseLockout(false);
    EXPECT_FALSE(shieldOf(c).isUp());
    EXPECT_EQ(setupWanted, 1);
    EXPECT_TRUE(alerts.last().startsWith(u"Choose a workout first. | Tovin won't lock your screen"));

    Settings::setLockoutWorkoutID(QStringLiteral("classic-7"));
    c.setWebRoot(dir.filePath(QStringLiteral("nowhere")));
    c.raiseLockout(true);
    EXPECT_FALSE(shieldOf(c).isUp());
    EXPECT_TRUE(alerts.last().startsWith(u"Workout UI is missing."));
    EXPECT_EQ(terminations, 1);
    c.setRehearsalOnly(true); // the self-check's mode: printed, not shown, no quit
    c.raiseLockout(true);
    EXPECT_EQ(terminations, 1);
}

TEST_F(LifecycleTest, PauseAndResume) {
    AppController& c = launch();
    c.usage().start();
    c.pauseAnHour();
    EXPECT_FALSE(c.usage().isRunning());
    clock.advance(30 * 60 + 30);
    EXPECT_EQ(c.statusLine(), u"Paused — 29 min left");
    clock.advance(30 * 60);
    EXPECT_EQ(c.pausedUntil(), std::nullopt); // the hour is up
    EXPECT_TRUE(c.usage().isRunning());
}

TEST_F(LifecycleTest, TheCountdownBuildsThePageAheadAndASnoozeDropsIt) {
    week({block("09:00", "Nine")});
    AppController& c = launch();
    c.startScheduleWatch();
    ASSERT_TRUE(c.countdown().isShowing());
    ASSERT_TRUE(screensOf(c).prebuiltContent()); // built while the countdown runs
    EXPECT_EQ(contents.size(), 1);
    EXPECT_EQ(contents[0].page.native.value(u"blockLabel").toString(), u"Nine");
    EXPECT_TRUE(contents[0].prepared) << "a page behind the countdown must not start its workout";
    QPointer<QWidget> early = screensOf(c).prebuiltContent();
    clock.advance(60);
    ASSERT_TRUE(shieldOf(c).isUp());
    EXPECT_EQ(contents.size(), 1) << "the lockout used the page built ahead";
    EXPECT_EQ(shieldOf(c).windows().first()->content(), early.data());

    shieldOf(c).lower();
    c.shieldTimedOut();
    c.raiseLockout(false);
    shieldOf(c).lower();
    c.shieldTimedOut();
    // A snoozed countdown leaves no page behind.
    c.warnThenLock();
    ASSERT_TRUE(screensOf(c).prebuiltContent());
    QPointer<QWidget> dropped = screensOf(c).prebuiltContent();
    c.countdown().snooze();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(dropped.isNull());
    // Nor does a pause during a countdown.
    c.warnThenLock();
    dropped = screensOf(c).prebuiltContent();
    ASSERT_TRUE(dropped);
    c.pauseAnHour();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(dropped.isNull());
    EXPECT_FALSE(c.countdown().isShowing());
}

TEST(StatusLine, Rules) {
    using In = AppController::StatusInputs;
    const Block lunch{QStringLiteral("12:00"), QStringLiteral("Lunch"), Block::Kind::Workout, {}, {}};
    auto next = [&](int m) { return std::optional<Schedule::Upcoming>(Schedule::Upcoming{lunch, m}); };
    const struct {
        In in;
        const char16_t* line;
    } cases[] = {
        {{.shieldUp = true, .pausedSecondsLeft = 60}, u"Locked out now"},
        {{.pausedSecondsLeft = 59 * 60 + 59}, u"Paused — 59 min left"},
        {{.pausedSecondsLeft = -3}, u"Paused — 0 min left"},
        {{}, u"Not set up — nothing will happen"},
        {{.workoutChosen = true}, u"Not watching"},
        {{.hoursAllow = false, .workoutChosen = true}, u"Outside your hours — won't interrupt"},
        {{.next = next(1)}, u"Lunch — any minute"},
        {{.next = next(2)}, u"Lunch in 2 min"},
        {{.usageRunning = true, .workoutChosen = true, .triggerSeconds = 3000, .continuousUseSeconds = 3000}, u"Due — waiting for a good moment"},
        {{.next = next(30), .usageRunning = true, .workoutChosen = true, .triggerSeconds = 3000, .continuousUseSeconds = 1200}, u"Lunch in 30 min"},
        {{.next = next(31), .usageRunning = true, .workoutChosen = true, .triggerSeconds = 3000, .continuousUseSeconds = 1200}, u"Next lockout in about 30 min"},
        {{.usageRunning = true, .workoutChosen = true, .triggerSeconds = 3000, .continuousUseSeconds = 2990}, u"Next lockout in about 1 min"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(AppController::statusLine(c.in), QString::fromUtf16(c.line)) << QString::fromUtf16(c.line).toStdString();

    EXPECT_EQ(AppController::standingLine(0, 0, 0, 0), u"No promises yet");
    EXPECT_EQ(AppController::standingLine(4, 0, 3, 1), u"Streak broken · 3 tovin · 1 broken");
    EXPECT_EQ(AppController::standingLine(4, 2, 3, 1), u"2 in a row · 3 tovin · 1 broken");
}

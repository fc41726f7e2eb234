#include "cycle_fixture.h"
#include "resident/menu_words.h"
#include "resident/records/promise_ledger.h"
#include "screens/shield/shield_window.h"

#include <QCoreApplication>
#include <QFileInfo>

using namespace tovin;
using tovin::fakes::CycleTest;
using Outcome = PromiseRecord::Outcome;

namespace {
class LifecycleTest : public CycleTest {
protected:
    // A lockout raised for a due block of this kind at 09:00.
    AppController& raised(Block::Kind kind = Block::Kind::Workout,
                          std::optional<int> minutes = {}) {
        Block b = block("09:00", kind == Block::Kind::Away ? "Walk" : "Nine", kind);
        b.minutes = minutes;
        setWeek({b});
        prefs.setFiredBlocks({});
        AppController& c = launch();
        c.startScheduleWatch();
        clock.advance(60); // the countdown runs out
        EXPECT_TRUE(shield().isUp());
        return c;
    }
};
} // namespace

// How each ending shows on screen and in the journal is the whole app's check; here, the record
// each leaves, and that none leaves the page's mid-workout mark to hold off the next block.
TEST_F(LifecycleTest, EachEndingWritesExactlyItsRecordAndClearsTheMidWorkoutMark) {
    const struct {
        const char* ending;
        std::function<void(AppController&)> end;
        std::optional<PromiseRecord> expected;
    } cases[] = {
        {"completed",
         [](AppController& c) {
             c.end({Ending::Kind::WorkoutCompleted, QStringLiteral("Squat"), 12, 12});
         },
         PromiseRecord{{}, Outcome::Tovin, QStringLiteral("Squat"), 12, 12, std::nullopt, false}},
        {"broken",
         [this](AppController& c) {
             shield().lower();
             c.end({Ending::Kind::Broken, {}, 0, 0, PromiseRecord::Reason::Urgent});
         },
         PromiseRecord{{},
                       Outcome::Broken,
                       QStringLiteral("Nine"),
                       0,
                       0,
                       PromiseRecord::Reason::Urgent,
                       std::nullopt}},
        {"panic",
         [this](AppController& c) {
             shield().lower();
             c.end({Ending::Kind::Panicked});
         },
         std::nullopt},
        {"yield", [this](AppController&) { shield().yieldNow(); }, std::nullopt},
        {"valve", [this](AppController&) { clock.advance(15 * 60); }, std::nullopt},
        {"failed page",
         [](AppController& c) {
             c.end({Ending::Kind::PageFailed, {}, 0, 0, {}, QStringLiteral("net::ERR")});
         },
         std::nullopt},
    };
    for (const auto& c : cases) {
        QFile::remove(ledger.url());
        ledger = PromiseLedger(ledger.url(), &journal, &saveFailures);
        AppController& app = raised();
        prefs.setBusyUntil(clock.now().addSecs(180));
        prefs.setBusyReason(QStringLiteral("mid-workout"));
        c.end(app);
        clock.advance(3.1); // completion lowers after 3 s
        EXPECT_FALSE(prefs.isBusy(clock.now())) << c.ending;
        EXPECT_FALSE(shield().isUp()) << c.ending;
        EXPECT_TRUE(app.phase() == AppController::Phase::Ending) << c.ending;
        EXPECT_FALSE(QFileInfo::exists(markPath))
            << c.ending << ": a designed ending is no cut-short lockout";
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
    EXPECT_EQ(alerts.last(), u"The workout screen didn't load.");
}

TEST_F(LifecycleTest, RacingRaisesAndEndingsActOnce) {
    AppController& c = raised();
    c.end({Ending::Kind::WorkoutCompleted, QStringLiteral("Squat"), 12, 12});
    c.raiseLockout(false); // "Lock Me Out Now" while the standing shows
    c.end({Ending::Kind::WorkoutCompleted, QStringLiteral("Squat"), 12, 12});
    c.end({Ending::Kind::PageFailed, {}, 0, 0, {}, QStringLiteral("late")});
    // The seconds the kept promise stays up: a break, a coach's finish, a panic, the valve.
    c.end({Ending::Kind::Broken, {}, 0, 0, PromiseRecord::Reason::DidntFeelLikeIt});
    c.end({Ending::Kind::CoachFinished, QStringLiteral("coach:squats"), 5, 5});
    c.end({Ending::Kind::Panicked});
    c.end({Ending::Kind::TimedOut});
    clock.advance(3.1);
    c.end({Ending::Kind::WorkoutCompleted, QStringLiteral("Squat"), 12,
           12}); // the shield is down now
    EXPECT_EQ(ledger.records().size(), 1);
    EXPECT_EQ(ledger.records()[0].outcome, Outcome::Tovin);
    EXPECT_EQ(terminations, 0);
    EXPECT_TRUE(alerts.isEmpty());
    EXPECT_FALSE(shield().isUp());
}

// Ending Tovin is no way out. Its helper killed from outside is a broken promise at once; Tovin
// itself killed leaves the lockout's mark on disk, a broken promise at the next launch; a crash
// or hang of the helper, and any rehearsal, stay unrecorded; a designed ending takes the mark.
TEST_F(LifecycleTest, ALockoutCutShortFromOutsideIsOnTheRecord) {
    const auto stopped = [this](qsizetype n) {
        return ledger.records().size() == n && ledger.records().last().outcome == Outcome::Broken &&
               ledger.records().last().reason == PromiseRecord::Reason::Stopped &&
               ledger.records().last().exercise == u"Nine";
    };
    raised();
    EXPECT_TRUE(QFileInfo::exists(markPath));
    Q_EMIT screens->screensLost(QStringLiteral("the screen helper crashed"), false);
    EXPECT_TRUE(ledger.records().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(markPath));

    raised();
    Q_EMIT screens->screensLost(
        QStringLiteral("the screen helper was stopped from outside (signal 9)"), true);
    EXPECT_TRUE(stopped(1));
    EXPECT_FALSE(QFileInfo::exists(markPath));

    launch().raiseLockout(true); // a rehearsal is never marked
    EXPECT_FALSE(QFileInfo::exists(markPath));
    Q_EMIT screens->screensLost(
        QStringLiteral("the screen helper was stopped from outside (signal 9)"), true);
    EXPECT_EQ(ledger.records().size(), 1);

    raised();
    const QDateTime raisedAt = clock.now();
    controller.reset(); // Tovin killed under its lockout: nothing ran to take the mark
    launch().startScheduleWatch();
    EXPECT_TRUE(stopped(2));
    EXPECT_EQ(ledger.records().last().date,
              QDateTime::fromSecsSinceEpoch(raisedAt.toSecsSinceEpoch(), QTimeZone::utc()));
    EXPECT_FALSE(QFileInfo::exists(markPath));
    EXPECT_TRUE(
        journalLines(QStringLiteral("shield"))
            .last()
            .contains(
                u"Tovin was stopped during the lockout (found at launch), recorded as broken"));
}

TEST_F(LifecycleTest, AnAwayBlockCountsOnlyWhenSomeoneWasThereAndItsValveIsCapped) {
    prefs.setMaxShieldMinutes(45);
    raised(Block::Kind::Away, 10);
    EXPECT_EQ(shield().valveMinutes(), 12.0); // the held time plus two minutes
    idle.seconds = 10 * 60 + 301; // one second past the five minutes' benefit of the doubt
    clock.advance(10 * 60);
    EXPECT_FALSE(shield().isUp());
    EXPECT_TRUE(ledger.records().isEmpty()) << "idle since before the block began";

    prefs.setMaxShieldMinutes(15); // shorter than the held time plus two
    raised(Block::Kind::Away, 15);
    EXPECT_EQ(shield().valveMinutes(), 15.0);
    idle.seconds = 15 * 60 + 300; // walked away for the whole block: still present
    clock.advance(15 * 60);
    ASSERT_EQ(ledger.records().size(), 1);
    EXPECT_EQ(ledger.records()[0].attested, true);
}

TEST_F(LifecycleTest, RefusalsBeforeALockIsTaken) {
    prefs.setLockoutWorkoutID(std::nullopt);
    AppController& c = launch();
    c.raiseLockout(false);
    EXPECT_FALSE(shield().isUp());
    EXPECT_EQ(setupWanted, 1);
    EXPECT_EQ(alerts.last(), u"Choose a workout first.");

    prefs.setLockoutWorkoutID(QStringLiteral("classic-7"));
    c.setWebRoot(dir.filePath(QStringLiteral("nowhere")));
    c.raiseLockout(true);
    EXPECT_FALSE(shield().isUp());
    EXPECT_EQ(alerts.last(), u"Workout UI is missing.");
    EXPECT_EQ(terminations, 1);
    c.setRehearsalOnly(true); // the self-check's mode: printed, not shown, no quit
    c.raiseLockout(true);
    EXPECT_EQ(terminations, 1);
}

TEST_F(LifecycleTest, TheCountdownBuildsThePageAheadAndASnoozeOrAPauseDropsIt) {
    setWeek({block("09:00", "Nine")});
    AppController& c = launch();
    c.startScheduleWatch();
    ASSERT_TRUE(screens->prebuiltContent()); // built while the countdown runs
    ASSERT_EQ(built.size(), 1);
    EXPECT_EQ(built[0].first.native.value(u"blockLabel").toString(), u"Nine");
    QPointer<QWidget> early = screens->prebuiltContent();
    clock.advance(60);
    ASSERT_TRUE(shield().isUp());
    EXPECT_EQ(shield().windows().first()->content(), early.data())
        << "the lockout used the page built ahead";
    shield().lower();
    c.end({Ending::Kind::TimedOut});

    // A snoozed countdown leaves no page behind, nor does a pause during one.
    using Leave = std::function<void(AppController&)>;
    for (const Leave& leave : {Leave([this](AppController&) { countdown.snooze(); }),
                               Leave([](AppController& a) { a.pauseAnHour(); })}) {
        c.warnThenLock();
        QPointer<QWidget> dropped = screens->prebuiltContent();
        ASSERT_TRUE(dropped);
        leave(c);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_TRUE(dropped.isNull());
        EXPECT_FALSE(countdown.isShowing());
    }
    // The paused hour stops the usage path and starts it again when it is up.
    EXPECT_FALSE(c.usage().isRunning());
    clock.advance(3600);
    EXPECT_EQ(c.pausedUntil(), std::nullopt);
    EXPECT_TRUE(c.usage().isRunning());
}

TEST(StatusLine, Rules) {
    using In = MenuWords::StatusInputs;
    const Block lunch{
        QStringLiteral("12:00"), QStringLiteral("Lunch"), Block::Kind::Workout, {}, {}};
    auto next = [&](int m) {
        return std::optional<Schedule::Upcoming>(Schedule::Upcoming{lunch, m});
    };
    const struct {
        In in;
        const char16_t* line;
    } cases[] = {
        {{.shieldUp = true, .pausedSecondsLeft = 60}, u"Locked out now"},
        {{.pausedSecondsLeft = -3}, u"Paused — 0 min left"},
        {{}, u"Not set up — nothing will happen"},
        {{.workoutChosen = true}, u"Not watching"},
        {{.hoursAllow = false, .workoutChosen = true}, u"Outside your hours — won't interrupt"},
        {{.next = next(1)}, u"Lunch — any minute"},
        {{.next = next(2)}, u"Lunch in 2 min"},
        {{.usageRunning = true,
          .workoutChosen = true,
          .triggerSeconds = 3000,
          .continuousUseSeconds = 3000},
         u"Due — waiting for a good moment"},
        {{.next = next(30),
          .usageRunning = true,
          .workoutChosen = true,
          .triggerSeconds = 3000,
          .continuousUseSeconds = 1200},
         u"Lunch in 30 min"},
        {{.next = next(31),
          .usageRunning = true,
          .workoutChosen = true,
          .triggerSeconds = 3000,
          .continuousUseSeconds = 1200},
         u"Next lockout in about 30 min"},
        {{.usageRunning = true,
          .workoutChosen = true,
          .triggerSeconds = 3000,
          .continuousUseSeconds = 2990},
         u"Next lockout in about 1 min"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(MenuWords::status(c.in), QString::fromUtf16(c.line))
            << QString::fromUtf16(c.line).toStdString();

    EXPECT_EQ(MenuWords::standing(4, 0, 3, 1), u"Streak broken · 3 tovin · 1 broken");
    EXPECT_EQ(MenuWords::standing(4, 2, 3, 1), u"2 in a row · 3 tovin · 1 broken");
}

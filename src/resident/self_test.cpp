#include "resident/self_test.h"

#include "core/atomic_file.h"
#include "core/manual_clock.h"
#include "resident/app_controller.h"
#include "resident/countdown_panel.h"
#include "resident/guards/call_detector.h"
#include "resident/records/journal.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/save_failures.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"
#include "resident/screen_helper.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimeZone>

#include <csignal>
#include <cstdio>
#include <functional>

namespace tovin {

namespace {

// The desk is never empty during the self-check: someone is running it.
class AtTheDesk final : public IdleSource {
public:
    double secondsSinceLastInput() override { return 0; }
    QString name() const override { return QStringLiteral("self-check"); }
};

// Lets the real event loop run (web pages load in another process) until `done` or a timeout.
bool waitFor(const std::function<bool()>& done, int ms = 20000) {
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
}

class Suite {
public:
    int passed = 0;
    int failed = 0;
    void check(const char* name, bool ok, const QString& detail = {}) {
        if (ok) {
            ++passed;
            std::printf("ok   %s\n", name);
        } else {
            ++failed;
            std::printf("FAIL %s%s%s\n", name, detail.isEmpty() ? "" : " — ",
                        detail.toUtf8().constData());
        }
        std::fflush(stdout);
    }
};

} // namespace

int runSelfTest() {
    QTemporaryDir dir;
    if (!dir.isValid()) {
        std::printf("0 passed, 1 failed\n");
        return 1;
    }
    // Everything the check touches is its own: a throw-away settings store, journal, week and
    // ledger, and a call probe that is never busy. The person's files are never opened.
    ManualClock clock(QDateTime(QDate(2026, 3, 2), QTime(9, 0), QTimeZone::utc()));
    MemorySettingsStore store(QStringLiteral("dev.tovin.selftest"));
    Preferences prefs(store);
    prefs.setLockoutWorkoutID(QStringLiteral("two-minute-spark"));
    prefs.setWarningSeconds(10);
    Journal journal(dir.filePath(QStringLiteral("tovin-journal-test-selfcheck.log")), clock);
    SaveFailures failures(journal);
    CallDetector calls;
    calls.setForcedState(CallDetector::State{});
    AtTheDesk idle;
    PromiseLedger ledger(dir.filePath(QStringLiteral("promises.json")), &journal, &failures);
    ScheduleStore week(dir.filePath(QStringLiteral("schedule.json")), &failures);
    week.saveAll({Block{
        QStringLiteral("09:00"), QStringLiteral("Self-check"), Block::Kind::Workout, {}, {}}});
    CountdownPanel countdown(clock, calls);
    countdown.placeAt(QPoint(-30000, -30000));

    Suite suite;
    int setupOpened = 0;
    int terminated = 0;
    {
        // The real screen helper, drawing offscreen; this side keeps a hand-moved clock.
        ScreenHelper screens(clock);
        AppController c({clock, idle, calls, screens, countdown, week, prefs, ledger, journal,
                         failures, dir.filePath(QStringLiteral("lockout-underway.json"))});
        c.setCalendar(Calendar::utc());
        c.setRehearsalOnly(true);
        QObject::connect(&c, &AppController::setupWindowWanted, [&] { ++setupOpened; });
        QObject::connect(&c, &AppController::quitRequested, [&] { ++terminated; });
        QObject::connect(&c, &AppController::alertRequested,
                         [](const QString& title, const QString& detail) {
                             std::printf("alert (suppressed under --self-test): %s — %s\n",
                                         qPrintable(title), qPrintable(detail));
                         });
        bool preparedLoaded = false;
        bool covered = false;
        QObject::connect(&screens, &Screens::pageLoaded, [&](PageRole role) {
            preparedLoaded = preparedLoaded || role == PageRole::Prepared;
        });
        QObject::connect(&screens, &ScreenHelper::covered, [&](bool up) { covered = up; });
        const auto over = [&c] { return c.phase() == AppController::Phase::Ending; };
        const auto completed = [&c] {
            c.end({Ending::Kind::WorkoutCompleted, QStringLiteral("Two-Minute Spark"), 22, 22});
        };

        c.startScheduleWatch();
        suite.check("a due block starts the countdown, not the shield",
                    countdown.isShowing() && !screens.isUp());
        suite.check("the screen helper prepares the workout page behind the countdown",
                    waitFor([&] { return preparedLoaded; }));
        clock.advance(10);
        suite.check("the countdown's end raises the lockout (a rehearsal) and serves the block",
                    screens.isUp() && screens.isRehearsal() &&
                        prefs.firedBlocks().contains(QStringLiteral("09:00|Self-check|workout")) &&
                        waitFor([&] { return covered; }));
        completed();
        clock.advance(3.1);
        suite.check(
            "a completed rehearsal records nothing, says so, lowers and stands down",
            ledger.records().isEmpty() && !screens.isUp() && over() && setupOpened == 1 &&
                journal.tail(5).join(u'\n').contains(u"rehearsal — Two-Minute Spark not recorded"));
        suite.check("with nothing to show, the screen helper ends",
                    waitFor([&] { return !screens.isRunning(); }, 8000));

        c.setRehearsalOnly(false);
        c.raiseLockout(false);
        completed();
        clock.advance(3.1);
        suite.check("a completed real lockout records one promise kept",
                    ledger.records().size() == 1 &&
                        ledger.records()[0].outcome == PromiseRecord::Outcome::Tovin &&
                        ledger.records()[0].reps == 22 && !screens.isUp());

        c.setRehearsalOnly(true);
        covered = false;
        c.raiseLockout(true);
        waitFor([&] { return covered; });
        // The helper here answers no reminder (its clock is the real one): it is ended.
        clock.advance(prefs.maxShieldMinutes() * 60 + ScreenHelper::valveGrace);
        clock.advance(ScreenHelper::valveAnswerSeconds);
        suite.check("a shield still up past the safety valve is ended from here",
                    !screens.isUp() && over() && !screens.isRunning());

        covered = false;
        c.raiseLockout(true);
        const bool up = waitFor([&] { return covered; });
        if (const qint64 pid = screens.helperPid(); pid > 0)
            ::kill(pid_t(pid), SIGKILL);
        suite.check("a screen helper killed mid-lockout releases it, says so, records nothing",
                    up && waitFor([&] { return !screens.isUp(); }) && over() &&
                        ledger.records().size() == 1 &&
                        journal.tail(5).join(u'\n').contains(u"released — the screen helper"));
        suite.check("nothing ended Tovin", terminated == 0);
    }

    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    std::printf("%d passed, %d failed\n", suite.passed, suite.failed);
    return suite.failed == 0 ? 0 : 1;
}

} // namespace tovin

#include "app/self_test.h"

#include "app/app_controller.h"
#include "core/atomic_file.h"
#include "core/manual_clock.h"
#include "guards/call_detector.h"
#include "journal/journal.h"
#include "promises/promise_ledger.h"
#include "schedule/schedule_store.h"
#include "schedule/settings.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QTemporaryDir>
#include <QTimeZone>
#include <QWebEnginePage>

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

// True once the lockout's page has finished loading (connected right after the raise: a
// page takes tens of milliseconds to load, in another process).
std::shared_ptr<bool> watchLoad(AppController& c) {
    auto loaded = std::make_shared<bool>(false);
    if (WorkoutWebView* web = c.workoutWeb())
        QObject::connect(web->page(), &QWebEnginePage::loadFinished, web, [loaded] { *loaded = true; });
    return loaded;
}

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
    Settings::setStore(std::make_shared<MemorySettingsStore>(QStringLiteral("dev.tovin.selftest")));
    Journal::setOverrideURL(dir.filePath(QStringLiteral("tovin-journal-test-selfcheck.log")));
    CallDetector::setForcedState(CallDetector::State{false, false});
    Settings::setLockoutWorkoutID(QStringLiteral("two-minute-spark"));
    Settings::setWarningSeconds(10);

    ManualClock clock(QDateTime(QDate(2026, 3, 2), QTime(9, 0), QTimeZone::utc()));
    Journal::setClock(&clock);
    AtTheDesk idle;
    PromiseLedger ledger(dir.filePath(QStringLiteral("promises.json")));
    const QString schedule = dir.filePath(QStringLiteral("schedule.json"));
    ScheduleStore::saveAll({Block{QStringLiteral("09:00"), QStringLiteral("Self-check"),
                                  Block::Kind::Workout, {}, {}}},
                           schedule);

    Suite suite;
    int setupOpened = 0;
    int terminated = 0;
    {
        AppController c(clock, idle);
        c.setCalendar(Calendar::utc());
        c.setScheduleURL(schedule);
        c.setLedger(&ledger);
        c.setRehearsalOnly(true);
        c.openSetupWindow = [&] { ++setupOpened; };
        c.terminate = [&] { ++terminated; };
        c.showAlert = [](const QString& title, const QString& detail) {
            std::printf("alert (suppressed under --self-test): %s — %s\n", qPrintable(title), qPrintable(detail));
        };
        CountdownPanel::offscreenForTests = true;

        c.startScheduleWatch();
        suite.check("a due block starts the countdown, not the shield",
                    c.countdown().isShowing() && !c.shield().isUp());
        clock.advance(10);
        suite.check("the countdown's end raises the lockout (a rehearsal) and serves the block",
                    c.shield().isUp() && c.shield().isRehearsal() &&
                        c.firedToday().contains(QStringLiteral("09:00|Self-check|workout")));
        c.shield().moveOffscreenForTests();
        const auto workoutLoaded = watchLoad(c);
        suite.check("the workout page loads in the lockout", waitFor([&] { return *workoutLoaded; }));
        c.workoutCompleted(QStringLiteral("Two-Minute Spark"), 22);
        clock.advance(3.1);
        suite.check("a completed rehearsal records nothing, says so, lowers and stands down",
                    ledger.records().isEmpty() && !c.shield().isUp() && c.lockoutIsOver() &&
                        setupOpened == 1 &&
                        Journal::tail(5).join(u'\n').contains(u"rehearsal — Two-Minute Spark not recorded"));

        c.setRehearsalOnly(false);
        c.raiseLockout(false);
        c.shield().moveOffscreenForTests();
        c.workoutCompleted(QStringLiteral("Two-Minute Spark"), 22);
        clock.advance(3.1);
        suite.check("a completed real lockout records one promise kept",
                    ledger.records().size() == 1 &&
                        ledger.records()[0].outcome == PromiseRecord::Outcome::Tovin &&
                        ledger.records()[0].reps == 22 && !c.shield().isUp());

        c.setRehearsalOnly(true);
        c.raiseLockout(true);
        clock.advance(Settings::maxShieldMinutes() * 60);
        suite.check("the safety valve lowers the shield after its limit", !c.shield().isUp() &&
                                                                              c.lockoutIsOver());

        c.raiseLockout(true);
        for (int i = 0; i < 5; ++i) {
            QKeyEvent esc(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
            c.shield().handle(&esc);
            clock.advance(0.2);
        }
        suite.check("Esc five times drops the shield at once and ends the app",
                    !c.shield().isUp() && terminated == 1 && ledger.records().size() == 1);

        const QString blank = dir.filePath(QStringLiteral("blank-web"));
        writeFileAtomically(blank + u"/index.html", "<!doctype html><body> </body>");
        c.setWebRoot(blank);
        c.raiseLockout(true);
        c.shield().moveOffscreenForTests();
        const auto blankLoaded = watchLoad(c);
        waitFor([&] { return *blankLoaded; });
        clock.advance(15);
        suite.check("a page that renders nothing releases the screen",
                    waitFor([&] { return !c.shield().isUp(); }) && ledger.records().size() == 1);
    }

    // Pages go before the browser profile they belong to.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    Journal::setClock(nullptr);
    Journal::setOverrideURL(std::nullopt);
    CallDetector::setForcedState(std::nullopt);
    Settings::setStore(nullptr);
    std::printf("%d passed, %d failed\n", suite.passed, suite.failed);
    return suite.failed == 0 ? 0 : 1;
}

} // namespace tovin

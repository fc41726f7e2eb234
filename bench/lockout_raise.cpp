// From the countdown's last second to every screen covered and the workout page rendered, with
// the real controller, shield and web app on a private two-monitor Xvfb. The countdown runs on
// a hand-moved clock; the page is built during it, as in the app.
//
//   lockout_raise [runs = 5]

#include "app/app_controller.h"
#include "core/manual_clock.h"
#include "guards/call_detector.h"
#include "journal/journal.h"
#include "promises/promise_ledger.h"
#include "schedule/schedule_store.h"
#include "schedule/settings.h"
#include "shield/shield_window.h"
#include "support/xvfb.h"
#include "workoutweb/bundle_scheme_handler.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimeZone>
#include <QWebEnginePage>
#include <QWindow>

#include <cstdio>

using namespace tovin;

namespace {
class AtTheDesk final : public IdleSource {
public:
    double secondsSinceLastInput() override { return 0; }
    QString name() const override { return QStringLiteral("bench"); }
};

void spin(int ms) {
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}
} // namespace

int main(int argc, char* argv[]) {
    fakes::XvfbSession xvfb;
    if (!xvfb.startTwoMonitors())
        return 1;
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    BundleSchemeHandler::registerScheme();
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 5;

    QTemporaryDir dir;
    Settings::setStore(std::make_shared<MemorySettingsStore>());
    Settings::setLockoutWorkoutID(QStringLiteral("classic-7"));
    Settings::setWarningSeconds(10);
    Journal::setOverrideURL(dir.filePath(QStringLiteral("tovin-journal-bench.log")));
    CallDetector::setForcedState(CallDetector::State{});
    PromiseLedger ledger(dir.filePath(QStringLiteral("promises.json")));
    ManualClock clock(QDateTime(QDate(2026, 3, 2), QTime(9, 0), QTimeZone::utc()));
    AtTheDesk idle;
    CountdownPanel::offscreenForTests = true;

    for (int i = 0; i < runs; ++i) {
        AppController c(clock, idle);
        c.setCalendar(Calendar::utc());
        c.setLedger(&ledger);
        c.setRehearsalOnly(true);
        c.warnThenLock();
        spin(2000); // the page loads while the countdown runs
        QElapsedTimer timer;
        timer.start();
        clock.advance(10); // the countdown's last second
        double coveredMs = -1;
        double renderedMs = -1;
        bool asked = false;
        while (timer.elapsed() < 10000 && renderedMs < 0) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
            const auto windows = c.shield().windows();
            if (coveredMs < 0 && !windows.isEmpty() &&
                std::all_of(windows.begin(), windows.end(), [](ShieldWindow* w) {
                    return w->windowHandle() && w->windowHandle()->isExposed();
                }))
                coveredMs = double(timer.nsecsElapsed()) / 1e6;
            if (coveredMs >= 0 && !asked && c.workoutWeb()) {
                asked = true;
                c.workoutWeb()->page()->runJavaScript(
                    QStringLiteral("document.querySelector('h1') ? 1 : 0"), [&](const QVariant& v) {
                        if (v.toInt() == 1)
                            renderedMs = double(timer.nsecsElapsed()) / 1e6;
                        asked = false;
                    });
            }
        }
        std::printf("run %d: countdown end → every screen covered %.1f ms → workout page rendered %.1f ms\n",
                    i + 1, coveredMs, renderedMs);
        c.shield().lower();
        spin(300);
    }
    Journal::setOverrideURL(std::nullopt);
    return 0;
}

// Time from ShieldController::raise to every shield window mapped and painted, on a private
// Xvfb with two monitors. Prints the median and the slowest of the runs.
//
//   shield_raise [runs = 40]

#include "screens/shield/shield_controller.h"
#include "screens/shield/shield_window.h"
#include "support/xvfb.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QSet>
#include <QWindow>

#include <algorithm>
#include <cstdio>

using namespace tovin;

namespace {
// Notes the first paint of every shield window.
class PaintWatch final : public QObject {
public:
    QSet<QObject*> painted;
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Paint && qobject_cast<ShieldWindow*>(watched))
            painted.insert(watched);
        return false;
    }
};
} // namespace

int main(int argc, char* argv[]) {
    fakes::XvfbSession xvfb;
    if (!xvfb.startTwoMonitors())
        return 1;
    qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 40;

    ShieldController shield(Clock::system());
    PaintWatch watch;
    app.installEventFilter(&watch);
    QList<double> ms;
    for (int i = 0; i < runs; ++i) {
        watch.painted.clear();
        QElapsedTimer timer;
        timer.start();
        shield.raise(new QLabel(QStringLiteral("workout")), false, 15);
        const auto windows = shield.windows();
        for (;;) {
            app.processEvents(QEventLoop::AllEvents, 1);
            const bool done = std::all_of(windows.begin(), windows.end(), [&](ShieldWindow* w) {
                return w->windowHandle() && w->windowHandle()->isExposed() &&
                       watch.painted.contains(w);
            });
            if (done || timer.elapsed() > 5000)
                break;
        }
        ms.append(double(timer.nsecsElapsed()) / 1e6);
        shield.lower();
        // Let the windows go before the next run.
        for (int k = 0; k < 20; ++k)
            app.processEvents(QEventLoop::AllEvents, 5);
    }
    std::sort(ms.begin(), ms.end());
    std::printf("shield raise → every window exposed and painted (%d screens, %d runs)\n",
                int(QGuiApplication::screens().size()), runs);
    std::printf("  median %.2f ms, p90 %.2f ms, slowest %.2f ms (one frame at 60 Hz: 16.7 ms)\n",
                ms[ms.size() / 2], ms[int(ms.size() * 0.9)], ms.last());
    return 0;
}

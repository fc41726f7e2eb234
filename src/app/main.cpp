#include "app/app_shell.h"
#include "app/self_test.h"
#include "guards/call_detector.h"
#include "guards/platform_guards.h"
#include "guards/sleep_watcher.h"
#include "journal/diagnostics.h"
#include "updater/dry_run.h"
#include "workoutweb/bundle_scheme_handler.h"

#include <QApplication>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

#include <unistd.h>

using namespace tovin;

namespace {

bool hasSwitch(int argc, char* argv[], const char* name) {
    for (int i = 1; i < argc; ++i) {
        if (qstrcmp(argv[i], name) == 0)
            return true;
    }
    return false;
}

const char* const helpText =
    "Usage: tovin [switch]\n"
    "Holds you to the breaks you promised yourself. With no switch, Tovin starts watching\n"
    "(in the tray, with its setup window) and locks your screens when a block falls due.\n"
    "\n"
    "  --why              why it did or didn't fire: the schedule, the decision, the journal\n"
    "  --probe-call       print once a second whether a call would hold a lockout off\n"
    "  --rehearse         run a rehearsal lockout in a window now (nothing is recorded)\n"
    "  --layout-check     show the start window\n"
    "  --self-test        run the built-in self-check against throw-away files\n"
    "  --update-dry-run   check for an update without installing it\n"
    "  --version          print the version\n"
    "  --help             print this help\n";

// One line a second: what the microphone and camera are doing and whether a lockout could
// start now.
void probeCall(QCoreApplication& app, QTimer& timer) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    static QTextStream out(stdout);
    const int inputs = CallDetector::inputDeviceCount();
    out << "recording-capable audio devices: " << inputs << '\n';
    if (inputs == 0)
        out << "  ⚠︎ none found — the microphone check cannot fire\n";
    out << "watching mic + camera — Ctrl-C to stop\n\n";
    out.flush();
    QObject::connect(&timer, &QTimer::timeout, &app, [] {
        const CallDetector::State s = CallDetector::current();
        out << (s.mic ? "mic LIVE " : "mic idle ") << ' '
            << (s.camera ? "camera LIVE " : "camera idle") << "  "
            << (CallDetector::isBusy(s.mic, s.camera) ? "→ WOULD NOT LOCK" : "→ free to lock")
            << '\n';
        out.flush();
    });
    timer.start(1000);
}

} // namespace

int main(int argc, char* argv[]) {
    if (hasSwitch(argc, argv, "--help") || hasSwitch(argc, argv, "-h")) {
        std::fputs(helpText, stdout);
        return 0;
    }
    if (hasSwitch(argc, argv, "--version")) {
        std::printf("tovin %s\n", TOVIN_VERSION);
        return 0;
    }
    if (hasSwitch(argc, argv, "--why")) {
        QCoreApplication app(argc, argv);
        QTextStream(stdout) << Diagnostics::why();
        return 0;
    }
    if (hasSwitch(argc, argv, "--update-dry-run")) {
        QCoreApplication app(argc, argv);
        QTextStream out(stdout);
        return Diagnostics::updateDryRun(out);
    }
    const bool selfTest = hasSwitch(argc, argv, "--self-test");
    const bool layoutCheck = hasSwitch(argc, argv, "--layout-check");
    if (selfTest) {
        // The self-check never shows anything; as root, Chromium's sandbox cannot run at all.
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        if (::geteuid() == 0)
            qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    }

    BundleSchemeHandler::registerScheme();
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tovin"));
    QApplication::setApplicationVersion(QStringLiteral(TOVIN_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("dev.tovin.Tovin"));
    // Closing the windows never quits: Tovin keeps watching from the tray.
    QApplication::setQuitOnLastWindowClosed(false);

    if (selfTest)
        return runSelfTest();

    CallDetector::setProbe(createPlatformCallProbe());
    const auto idle = createPlatformIdleSource();
    AppShell shell(Clock::system(), *idle, hasSwitch(argc, argv, "--rehearse"));
    if (!layoutCheck && !shell.claimSingleInstance())
        return 0;

    SleepWatcher sleep;
    QObject::connect(&sleep, &SleepWatcher::willSleep, &app, [&] { shell.controller().machineWillSleep(); });
    QObject::connect(&sleep, &SleepWatcher::didWake, &app, [&] { shell.controller().machineDidWake(); });

    QTimer probeTimer;
    if (layoutCheck)
        shell.buildStartWindow();
    else if (hasSwitch(argc, argv, "--probe-call"))
        probeCall(app, probeTimer);
    else if (hasSwitch(argc, argv, "--rehearse"))
        shell.controller().raiseLockout(true);
    else
        shell.launch();
    return app.exec();
}

#include "core/paths.h"
#include "desktop/desktop_hold.h"
#include "desktop/shield_style.h"
#include "desktop/window_system.h"
#include "resident/app_shell.h"
#include "resident/countdown_panel.h"
#include "resident/guards/call_detector.h"
#include "resident/guards/platform_guards.h"
#include "resident/guards/sleep_watcher.h"
#include "resident/launch_at_login.h"
#include "resident/launch_switches.h"
#include "resident/records/diagnostics.h"
#include "resident/records/instance_record.h"
#include "resident/records/journal.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/save_failures.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"
#include "resident/screen_helper.h"
#include "resident/self_test.h"
#include "resident/updater/dry_run.h"
#include "resident/updater/updater.h"

#include <QApplication>
#include <QNetworkAccessManager>
#include <QTextStream>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sys/resource.h>
#include <unistd.h>

using namespace tovin;
using namespace Qt::Literals::StringLiterals;

namespace {

const char* const helpText =
    "Usage: tovin [switch]\n"
    "Holds you to the breaks you promised yourself. With no switch, Tovin starts watching\n"
    "(in the tray, with its setup window) and locks your screens when a block falls due.\n"
    "\n"
    "  --why              why it did or didn't fire: the schedule, the decision, the journal\n"
    "  --probe-call       print once a second whether a call would hold a lockout off\n"
    "  --probe-idle       print once a second how long since the last key or pointer input\n"
    "  --rehearse         run a rehearsal lockout in a window now (nothing is recorded)\n"
    "  --layout-check     show the start window\n"
    "  --self-test        run the built-in self-check against throw-away files\n"
    "  --update-dry-run   check for an update without installing it\n"
    "  --version          print the version\n"
    "  --help             print this help\n";

// One line a second: what the microphone, the camera and the screen are doing and whether a
// lockout could start now.
void probeCall(QCoreApplication& app, QTimer& timer, const CallDetector& calls) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    static QTextStream out(stdout);
    writeProbeHeader(out, calls.inputDeviceCount(), calls.sources());
    out.flush();
    QObject::connect(&timer, &QTimer::timeout, &app, [&calls] {
        out << probeLine(calls.current()) << '\n';
        out.flush();
    });
    timer.start(1000);
}

// What --why says of calls: whether one would hold a lockout off now, then what this desktop
// lets Tovin see.
QStringList callLines() {
    const auto probe = createPlatformCallProbe();
    const CallState now = probe->read();
    return QStringList{u"now: " + (CallDetector::isBusy(now) ? u"YES — "_s : u"no — "_s) +
                       CallDetector::explanation(now)} +
           probe->sources();
}

// What --why says of idle time: where it comes from on this desktop, and what it reads now.
QString idleLine() {
    const auto idle = createPlatformIdleSource();
    if (idle->name() == u"none")
        return QStringLiteral("none — this desktop tells Tovin nothing of input, so nobody is "
                              "ever judged away from the desk");
    // The compositor's notifications count from when their listener began, which for this
    // report is now: what it would read means nothing yet.
    if (idle->name().startsWith(u"the compositor's"))
        return idle->name() + u" — `tovin --probe-idle` shows the reading"_s;
    return idle->name() + QStringLiteral(" (%1 s since the last input)")
                              .arg(qRound(idle->secondsSinceLastInput()));
}

// One line a second, from the same source the usage watcher asks, until interrupted.
int probeIdle(QCoreApplication& app) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const auto idle = createPlatformIdleSource();
    std::printf("idle source: %s\n", qPrintable(idle->name()));
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &app,
                     [&idle] { std::printf("idle %d s\n", int(idle->secondsSinceLastInput())); });
    timer.start(1000);
    return app.exec();
}

// The single-instance socket and record live in a folder only this user may enter. When the
// folder there is somebody else's, anyone could answer for Tovin or sit in its place: better
// not to run, and say why, than to watch the schedule through a stranger's socket.
bool runtimeFolderIsSafe() {
    QString why;
    if (!paths::runtimeDir(&why).isEmpty())
        return true;
    const QString text = u"Tovin will not start: its runtime folder is not private — " + why +
                         u". Remove it, or set XDG_RUNTIME_DIR to a folder of your own.";
    std::fprintf(stderr, "%s\n", qPrintable(text));
    Journal().note(QStringLiteral("launch"), text);
    return false;
}

// Chromium refuses to start sandboxed as root, and a screen helper that dies at once shows
// nothing at all. As root (test machines, some people's own), the engine runs unsandboxed, and
// the journal and --why say so.
const bool asRoot = ::geteuid() == 0;
const QString rootNote =
    QStringLiteral("running as root, so the web engine runs without its sandbox");

// Sockets, the helper's pipe and the X connection all need descriptors; the soft limit is often
// a fraction of what the system allows this user, and running out must never be what ends a
// lockout.
void raiseDescriptorLimit() {
    struct rlimit limit {};
    constexpr rlim_t enough = 16384;
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 &&
        limit.rlim_cur < std::min(limit.rlim_max, enough)) {
        limit.rlim_cur = std::min(limit.rlim_max, enough);
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace

int main(int argc, char* argv[]) {
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const LaunchMode mode = launchModeFor(arguments);
    switch (mode) {
    case LaunchMode::Help:
        std::fputs(helpText, stdout);
        return 0;
    case LaunchMode::Version:
        std::printf("tovin %s\n", TOVIN_VERSION);
        return 0;
    case LaunchMode::Why: {
        QCoreApplication app(argc, argv);
        // Read only: the report changes nothing, so nothing here is told of a failed save.
        const Journal journal;
        JsonFileSettingsStore store(Settings::defaultStorePath());
        const Preferences prefs(store);
        const PromiseLedger ledger(PromiseLedger::defaultPath());
        const Diagnostics::WhySources sources{ScheduleStore::defaultPath(),
                                              InstanceRecord::defaultPath(),
                                              &ledger,
                                              Updater::feedSummary(),
                                              WindowSystem::describeHold() +
                                                  (asRoot ? u"; " + rootNote : QString()),
                                              idleLine(),
                                              callLines()};
        QTextStream(stdout) << Diagnostics::why(sources, prefs, journal, Clock::system(),
                                                Calendar::system());
        return 0;
    }
    case LaunchMode::ProbeIdle: {
        QCoreApplication app(argc, argv);
        return probeIdle(app);
    }
    case LaunchMode::UpdateDryRun: {
        QCoreApplication app(argc, argv);
        QTextStream out(stdout);
        Journal journal;
        QNetworkAccessManager network;
        return Diagnostics::updateDryRun(out, {network, journal});
    }
    case LaunchMode::SelfTest:
        // The self-check never shows anything; as root, Chromium's sandbox cannot run at all.
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        break;
    default:
        break;
    }
    if (asRoot)
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");

    if (checksSingleInstance(mode) && !runtimeFolderIsSafe())
        return 1;
    raiseDescriptorLimit();

    // "Open at Login" alone decides whether Tovin starts with a session: a desktop's session
    // manager is not told of it, so it never restores it (nor the helper, which inherits this).
    qunsetenv("SESSION_MANAGER");
    // Chosen here so the screen helper, started from this process, inherits the same choice.
    const QString platformNote = WindowSystem::chooseNativePlatform();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tovin"));
    QApplication::setApplicationVersion(QStringLiteral(TOVIN_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("dev.tovin.Tovin"));
    // Closing the windows never quits: Tovin keeps watching from the tray.
    QApplication::setQuitOnLastWindowClosed(false);
    applyTovinLook(app);

    if (mode == LaunchMode::SelfTest)
        return runSelfTest();

    // Every collaborator of the resident is made here, once, and handed in.
    Clock& clock = Clock::system();
    Journal journal;
    SaveFailures saveFailures(journal);
    JsonFileSettingsStore settingsStore(Settings::defaultStorePath(), &saveFailures);
    Preferences preferences(settingsStore);
    ScheduleStore week(ScheduleStore::defaultPath(), &saveFailures);
    PromiseLedger::migrateLegacy(PromiseLedger::defaultPath(), paths::legacyLedgerFile());
    PromiseLedger ledger(PromiseLedger::defaultPath(), &journal, &saveFailures);
    const auto idle = createPlatformIdleSource();
    // Everything that draws more than a notice lives in the screen helper, started when needed.
    ScreenHelper screens(clock);
    // The helper's camera (the coach) and microphone are Tovin's own, never a call.
    CallDetector calls(createPlatformCallProbe([&screens] {
        const qint64 helper = screens.helperPid();
        return helper > 0 ? QList<qint64>{helper} : QList<qint64>{};
    }));
    CountdownPanel countdown(clock, calls);
    LaunchAtLogin login(LaunchAtLogin::defaultEntryPath(), LaunchAtLogin::thisExecutable(),
                        journal);
    QNetworkAccessManager network;
    AppShell shell(
        {clock, *idle, calls, screens, countdown, week, preferences, ledger, journal, saveFailures},
        login, network, launchedForRehearsal(arguments));
    if (checksSingleInstance(mode) && !shell.claimSingleInstance(mode == LaunchMode::Normal))
        return 0;

    QTimer probeTimer;
    std::unique_ptr<SleepWatcher> sleep;
    // A copy that does not watch the schedule carries no tray: once nothing of it shows, the
    // person has nothing left to reach it by, so it ends rather than run on unseen.
    if (mode == LaunchMode::LayoutCheck || mode == LaunchMode::Rehearse)
        QObject::connect(&screens, &Screens::nothingShows, &shell, &AppShell::quit);
    // Every copy that may hold a real lockout (a layout check's Begin) takes its mark with it
    // when it crashes.
    shell.controller().clearMarkOnCrash();
    switch (mode) {
    case LaunchMode::LayoutCheck:
        shell.showStartWindow();
        break;
    case LaunchMode::ProbeCall:
        probeCall(app, probeTimer, calls);
        break;
    case LaunchMode::Rehearse:
        shell.controller().raiseLockout(true);
        break;
    default:
        // Only the copy that watches the schedule cares about sleep and wake.
        if (!platformNote.isEmpty())
            journal.note(QStringLiteral("shield"), platformNote);
        // The desktop's own means of keeping the shield on top: KWin's is loaded each start.
        if (WindowSystem::session() == WindowSystem::Session::Wayland)
            journal.note(QStringLiteral("shield"),
                         DesktopHold::desktop() == DesktopHold::Desktop::Kde
                             ? DesktopHold::loadKWinScript()
                             : DesktopHold::describe());
        if (asRoot)
            journal.note(QStringLiteral("shield"), rootNote);
        sleep = std::make_unique<SleepWatcher>();
        QObject::connect(sleep.get(), &SleepWatcher::willSleep, &app,
                         [&] { shell.controller().machineWillSleep(); });
        QObject::connect(sleep.get(), &SleepWatcher::didWake, &app,
                         [&] { shell.controller().machineDidWake(); });
        shell.launch();
        break;
    }
    return app.exec();
}

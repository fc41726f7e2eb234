#include "screens/screen_host.h"

#include "core/bundle_routes.h"
#include "core/screen_protocol.h"
#include "screens/shield/shield_window.h"

#include <QCoreApplication>
#include <QScreen>
#include <QWindow>

#include <algorithm>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tovin {

using namespace ScreenProtocol;

ScreenHost::ScreenHost(LocalScreens& screens, QObject* parent)
    : QObject(parent)
    , screens_(screens) {
    connect(&socket_, &QLocalSocket::readyRead, this, &ScreenHost::readCommands);
    connect(&socket_, &QLocalSocket::disconnected, this, &ScreenHost::residentGone);
    heartbeat_.setInterval(heartbeatMs);
    connect(&heartbeat_, &QTimer::timeout, this, [this] { send(Event::Alive{}); });

    // "up" is told once every shield window is exposed where its display is (or after two
    // seconds, whatever the display says), so the resident and the benchmarks see what a
    // person sees.
    coverWatch_.setInterval(1);
    connect(&coverWatch_, &QTimer::timeout, this, [this] {
        const auto windows = screens_.shield().windows();
        // Every window exposed, and (a shield's, not a rehearsal's) where its screen is.
        const bool covered = std::all_of(windows.begin(), windows.end(), [this](ShieldWindow* w) {
            return w && w->windowHandle() && w->windowHandle()->isExposed() &&
                   (screens_.isRehearsal() || !w->screen() ||
                    w->geometry() == w->screen()->geometry());
        });
        if (!screens_.isUp() || (!covered && coverSince_.elapsed() < 2000))
            return;
        coverWatch_.stop();
        send(Event::Up{true});
    });
    connect(&screens_.shield(), &ShieldController::upChanged, this, [this](bool up) {
        if (up) {
            coverSince_.start();
            coverWatch_.start();
            return;
        }
        coverWatch_.stop();
        send(Event::Up{false});
    });
    connect(&screens_, &Screens::shieldWasBroken, this,
            [this](std::optional<PromiseRecord::Reason> reason) { send(Event::Broken{reason}); });
    connect(&screens_, &Screens::shieldTimedOut, this, [this] { send(Event::TimedOut{}); });
    connect(&screens_, &Screens::shieldPanicked, this, [this] { send(Event::Panicked{}); });
    connect(&screens_, &Screens::shieldYielded, this, [this] { send(Event::Yielded{}); });
    connect(&screens_, &Screens::quitAsked, this, [this] { send(Event::QuitAsked{}); });
    connect(&screens_, &Screens::pageMessage, this,
            [this](PageRole role, const QJsonObject& message) {
                send(Event::PageMessage{role, message});
            });
    connect(&screens_, &Screens::pageFailed, this, [this](PageRole role, const QString& detail) {
        send(Event::PageFailed{role, detail});
    });
    connect(&screens_, &Screens::pageLoaded, this,
            [this](PageRole role) { send(Event::PageLoaded{role}); });
    connect(&screens_, &Screens::coachFinished, this,
            [this](const QString& exercise, qint64 reps, qint64 clean) {
                send(Event::CoachFinished{exercise, reps, clean});
            });
    connect(&screens_, &Screens::actionChosen, this,
            [this](const QString& name, const QString& value) {
                send(Event::Action{name, value});
            });
    // One journal, written by the resident alone.
    connect(&screens_, &Screens::noted, this, [this](const QString& tag, const QString& text) {
        send(Event::Note{tag, text});
    });
    // Only a change is told: focus moves often, and the resident asks about it every tick.
    connect(&screens_, &LocalScreens::setupChanged, this, [this] { reportSetup(false); });
}

bool ScreenHost::attach(int fd, QString* why) {
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISSOCK(st.st_mode)) {
        *why = QStringLiteral("descriptor %1 is not a socket").arg(fd);
        return false;
    }
    // The web engine and whatever else this process starts must not hold the resident's line
    // open after this process is gone.
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
#ifdef SO_PEERCRED
    struct ucred peer {};
    socklen_t size = sizeof peer;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != ::getuid() ||
        peer.pid != ::getppid()) {
        *why =
            QStringLiteral("the other end of descriptor %1 is not the resident that started this "
                           "helper (pid %2, uid %3)")
                .arg(fd)
                .arg(peer.pid)
                .arg(peer.uid);
        return false;
    }
#endif
    if (!socket_.setSocketDescriptor(fd)) {
        *why = socket_.errorString();
        return false;
    }
    send(Event::Hello{qint64(::getpid())});
    heartbeat_.start();
    return true;
}

void ScreenHost::send(const AnyEvent& event) {
    if (socket_.state() != QLocalSocket::ConnectedState)
        return;
    socket_.write(encode(event));
    socket_.flush();
}

void ScreenHost::readCommands() {
    while (socket_.canReadLine()) {
        if (const auto command = decodeCommand(socket_.readLine()))
            run(*command);
    }
}

namespace {
// The one folder this helper serves: the web app bundled beside it, whatever anybody asks.
LockoutPage bundled(LockoutPage page) {
    page.webRoot = BundleRoutes::bundledRoot().value_or(QString());
    return page;
}
} // namespace

void ScreenHost::run(const AnyCommand& command) {
    std::visit(
        [this](const auto& c) {
            using C = std::decay_t<decltype(c)>;
            if constexpr (std::is_same_v<C, Command::Prepare>) {
                screens_.prepare(bundled(c.page));
            } else if constexpr (std::is_same_v<C, Command::Drop>) {
                screens_.dropPrepared();
            } else if constexpr (std::is_same_v<C, Command::Raise>) {
                screens_.raise(bundled(c.page), c.rehearsal, c.valveMinutes);
            } else if constexpr (std::is_same_v<C, Command::Lower>) {
                screens_.lower();
            } else if constexpr (std::is_same_v<C, Command::Valve>) {
                screens_.enforceValve(c.now);
            } else if constexpr (std::is_same_v<C, Command::Standing>) {
                screens_.showStanding(c.json);
            } else if constexpr (std::is_same_v<C, Command::CoachDone>) {
                screens_.coachDone(c.streak);
            } else if constexpr (std::is_same_v<C, Command::OpenSetup>) {
                // Reports from now on answer this opening; the resident drops any older one.
                setupGeneration_ = c.generation;
                screens_.openSetup(BundleRoutes::bundledRoot().value_or(QString()), c.native,
                                   c.strip, c.geometry);
                // Every opening gets its first report, changed or not: until it arrives the
                // resident counts the window as in use.
                setupOpened_.start();
                QTimer::singleShot(firstReportWithinMs, this, [this] { reportSetup(false); });
            } else if constexpr (std::is_same_v<C, Command::UpdateStrip>) {
                screens_.updateStrip(c.strip);
            } else if constexpr (std::is_same_v<C, Command::HideSetup>) {
                screens_.hideSetup();
            } else if constexpr (std::is_same_v<C, Command::ShowStart>) {
                screens_.showStart(c.card);
            } else {
                static_assert(std::is_same_v<C, Command::Quit>);
                QCoreApplication::quit();
            }
        },
        command);
}

void ScreenHost::reportSetup(bool always) {
    const bool active = screens_.setupIsActive();
    const bool visible = screens_.setupIsVisible();
    // Just opened, the window waits for the window manager to hand it the keyboard: until it
    // has it (or two seconds pass), "not in use" would be a guess the resident acts on.
    if (setupOpened_.isValid()) {
        if (visible && !active && setupOpened_.elapsed() < firstReportWithinMs)
            return;
        setupOpened_.invalidate();
        always = true;
    }
    if (!always && active == lastActive_ && visible == lastVisible_)
        return;
    lastActive_ = active;
    lastVisible_ = visible;
    send(Event::SetupState{active, visible, setupGeneration_});
}

void ScreenHost::residentGone() {
    // Nobody is left to watch this shield or to record how it ends: it comes down now.
    heartbeat_.stop();
    screens_.lower();
    QCoreApplication::quit();
}

} // namespace tovin

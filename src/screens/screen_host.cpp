#include "screens/screen_host.h"

#include "core/iso_date.h"
#include "journal/journal.h"
#include "screens/screen_protocol.h"
#include "shield/shield_window.h"
#include "workoutweb/bundle_routes.h"

#include <QCoreApplication>
#include <QScreen>
#include <QWindow>

#include <algorithm>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tovin {

namespace {
QJsonObject eventNamed(const char* name) {
    return {{QStringLiteral("ev"), QString::fromLatin1(name)}};
}
} // namespace

ScreenHost::ScreenHost(LocalScreens& screens, QObject* parent) : QObject(parent), screens_(screens) {
    using namespace ScreenProtocol;
    connect(&socket_, &QLocalSocket::readyRead, this, &ScreenHost::readCommands);
    connect(&socket_, &QLocalSocket::disconnected, this, &ScreenHost::residentGone);
    heartbeat_.setInterval(heartbeatMs);
    connect(&heartbeat_, &QTimer::timeout, this, [this] { send(eventNamed("alive")); });

    // "up" is told once every shield window is exposed where its display is (or after two
    // seconds, whatever the display says), so the resident and the benchmarks see what a
    // person sees.
    coverWatch_.setInterval(1);
    connect(&coverWatch_, &QTimer::timeout, this, [this] {
        const auto windows = screens_.shield().windows();
        // Every window exposed, and (a shield's, not a rehearsal's) where its screen is.
        const bool covered = std::all_of(windows.begin(), windows.end(), [this](ShieldWindow* w) {
            return w && w->windowHandle() && w->windowHandle()->isExposed() &&
                   (screens_.isRehearsal() || !w->screen() || w->geometry() == w->screen()->geometry());
        });
        if (!screens_.isUp() || (!covered && coverSince_.elapsed() < 2000))
            return;
        coverWatch_.stop();
        send({{QStringLiteral("ev"), QStringLiteral("up")}, {QStringLiteral("up"), true}});
    });
    connect(&screens_.shield(), &ShieldController::upChanged, this, [this](bool up) {
        if (up) {
            coverSince_.start();
            coverWatch_.start();
            return;
        }
        coverWatch_.stop();
        send({{QStringLiteral("ev"), QStringLiteral("up")}, {QStringLiteral("up"), false}});
    });
    connect(&screens_, &Screens::shieldWasBroken, this, [this](std::optional<PromiseRecord::Reason> reason) {
        QJsonObject e = eventNamed("broken");
        if (reason)
            e.insert(u"reason", toString(*reason));
        send(e);
    });
    connect(&screens_, &Screens::shieldTimedOut, this, [this] { send(eventNamed("timedOut")); });
    connect(&screens_, &Screens::shieldPanicked, this, [this] { send(eventNamed("panicked")); });
    connect(&screens_, &Screens::shieldYielded, this, [this] { send(eventNamed("yielded")); });
    connect(&screens_, &Screens::quitAsked, this, [this] { send(eventNamed("quitAsked")); });
    connect(&screens_, &Screens::pageMessage, this, [this](PageRole role, const QJsonObject& message) {
        send({{QStringLiteral("ev"), QStringLiteral("page")}, {QStringLiteral("role"), roleName(role)}, {QStringLiteral("message"), message}});
    });
    connect(&screens_, &Screens::pageFailed, this, [this](PageRole role, const QString& detail) {
        send({{QStringLiteral("ev"), QStringLiteral("failed")}, {QStringLiteral("role"), roleName(role)}, {QStringLiteral("detail"), detail}});
    });
    connect(&screens_, &Screens::pageLoaded, this,
            [this](PageRole role) { send({{QStringLiteral("ev"), QStringLiteral("loaded")}, {QStringLiteral("role"), roleName(role)}}); });
    connect(&screens_, &Screens::coachFinished, this, [this](const QString& exercise, qint64 reps, qint64 clean) {
        send({{QStringLiteral("ev"), QStringLiteral("coachFinished")}, {QStringLiteral("exercise"), exercise}, {QStringLiteral("reps"), reps}, {QStringLiteral("clean"), clean}});
    });
    connect(&screens_, &Screens::actionChosen, this, [this](const QString& name, const QString& value) {
        send({{QStringLiteral("ev"), QStringLiteral("action")}, {QStringLiteral("name"), name}, {QStringLiteral("value"), value}});
    });
    // Only a change is told: focus moves often, and the resident asks about it every tick.
    connect(&screens_, &LocalScreens::setupChanged, this, [this] { reportSetup(false); });
    // One journal, written by the resident alone.
    Journal::setForward([this](const QString& tag, const QString& text) {
        send({{QStringLiteral("ev"), QStringLiteral("note")}, {QStringLiteral("tag"), tag}, {QStringLiteral("text"), text}});
    });
}

ScreenHost::~ScreenHost() {
    Journal::setForward(nullptr);
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
    send({{QStringLiteral("ev"), QStringLiteral("hello")}, {QStringLiteral("pid"), qint64(::getpid())}});
    heartbeat_.start();
    return true;
}

void ScreenHost::send(const QJsonObject& event) {
    if (socket_.state() != QLocalSocket::ConnectedState)
        return;
    socket_.write(ScreenProtocol::line(event));
    socket_.flush();
}

void ScreenHost::readCommands() {
    while (socket_.canReadLine()) {
        const QByteArray line = socket_.readLine();
        if (const auto command = ScreenProtocol::parse(line))
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

void ScreenHost::run(const QJsonObject& c) {
    using namespace ScreenProtocol;
    const QString name = c.value(u"do").toString();
    if (name == u"prepare")
        screens_.prepare(bundled(decodePage(c.value(u"page").toObject())));
    else if (name == u"drop")
        screens_.dropPrepared();
    else if (name == u"raise")
        screens_.raise(bundled(decodePage(c.value(u"page").toObject())),
                       c.value(u"rehearsal").toBool(), c.value(u"valve").toDouble(15));
    else if (name == u"lower")
        screens_.lower();
    else if (name == u"valve") {
        if (const auto now = parseIsoInstant(c.value(u"now").toString()))
            screens_.enforceValve(*now);
    } else if (name == u"standing")
        screens_.showStanding(c.value(u"json").toString());
    else if (name == u"coachDone")
        screens_.coachDone(c.value(u"streak").toInt());
    else if (name == u"setup") {
        // Reports from now on answer this opening; the resident drops any older one.
        setupGeneration_ = c.value(u"gen").toInteger();
        screens_.openSetup(BundleRoutes::bundledRoot().value_or(QString()),
                           c.value(u"native").toObject(), decodeStrip(c.value(u"strip").toObject()),
                           QByteArray::fromBase64(c.value(u"geometry").toString().toLatin1()));
        // Every opening gets its first report, changed or not: until it arrives the resident
        // counts the window as in use.
        setupOpened_.start();
        QTimer::singleShot(firstReportWithinMs, this, [this] { reportSetup(false); });
    } else if (name == u"strip")
        screens_.updateStrip(decodeStrip(c.value(u"strip").toObject()));
    else if (name == u"hideSetup")
        screens_.hideSetup();
    else if (name == u"start")
        screens_.showStart(decodeCard(c.value(u"card").toObject()));
    else if (name == u"quit")
        QCoreApplication::quit();
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
    send({{QStringLiteral("ev"), QStringLiteral("setup")},
          {QStringLiteral("active"), active},
          {QStringLiteral("visible"), visible},
          {QStringLiteral("gen"), setupGeneration_}});
}

void ScreenHost::residentGone() {
    // Nobody is left to watch this shield or to record how it ends: it comes down now.
    heartbeat_.stop();
    Journal::setForward(nullptr);
    screens_.lower();
    QCoreApplication::quit();
}

} // namespace tovin

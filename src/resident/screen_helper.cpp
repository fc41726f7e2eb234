#include "resident/screen_helper.h"

#include "core/paths.h"

#include <QCoreApplication>
#include <QLocalSocket>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tovin {

using namespace ScreenProtocol;

ScreenHelper::ScreenHelper(Clock& clock, QString program, QObject* parent)
    : Screens(parent)
    , clock_(clock)
    , program_(std::move(program)) {
    // The helper runs in real time whatever clock drives the schedule, so its silence is
    // measured on a real one.
    watch_.setInterval(1000);
    connect(&watch_, &QTimer::timeout, this, &ScreenHelper::checkAlive);
}

ScreenHelper::~ScreenHelper() {
    // Closing the socket is the helper's signal to lower everything and end; it gets a moment
    // for that before QProcess ends it outright.
    if (socket_) {
        socket_->disconnect(this);
        socket_->disconnectFromServer();
    }
    if (process_) {
        process_->disconnect(this);
        process_->waitForFinished(1000);
    }
}

QString ScreenHelper::defaultProgram() {
    return paths::installedProgram(QStringLiteral("tovin-screens"));
}

qint64 ScreenHelper::helperPid() const {
    return process_ ? process_->processId() : 0;
}

void ScreenHelper::ensureRunning() {
    if (process_)
        return;
    // The two ends of one socket, made here: the helper inherits its end, so there is no name
    // anybody else could call, listen at or replace, and whoever speaks on this end is the
    // process started below.
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        const QString why =
            u"the screen helper could not start — " + QString::fromLocal8Bit(std::strerror(errno));
        // Nothing was shown, and nothing will be: say so rather than claim a shield.
        QMetaObject::invokeMethod(
            this,
            [this, why, wasShowing = showsAnything()] {
                if (wasShowing)
                    Q_EMIT screensLost(why);
            },
            Qt::QueuedConnection);
        release();
        return;
    }
    const int ours = ends[0];
    const int theirs = ends[1];
    auto* p = new QProcess(this);
    p->setProgram(program_);
    p->setArguments({QStringLiteral("--fd"), QString::number(theirs)});
    p->setProcessChannelMode(QProcess::ForwardedChannels);
    // Only the helper keeps its end across exec; every other child of ours (the web engine's,
    // an update's script) gets neither.
    p->setChildProcessModifier([theirs] { ::fcntl(theirs, F_SETFD, 0); });
    connect(p, &QProcess::finished, this, [this, p](int code, QProcess::ExitStatus status) {
        if (p == process_) {
            // For a crash exit the code is the signal. The resident's own kills (a hang, the
            // valve, a slow quit) let go of the process first and never come here.
            const bool killed = status == QProcess::CrashExit &&
                                (code == SIGKILL || code == SIGTERM || code == SIGINT ||
                                 code == SIGHUP || code == SIGQUIT);
            if (killed)
                processEnded(u"the screen helper was stopped from outside (signal " +
                                 QString::number(code) + u')',
                             true);
            else
                processEnded(status == QProcess::CrashExit
                                 ? QStringLiteral("the screen helper crashed")
                                 : u"the screen helper ended (code " + QString::number(code) +
                                       u')');
        }
        p->deleteLater();
    });
    connect(p, &QProcess::errorOccurred, this, [this, p](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        // Its end of the pair may have closed first and ended it already; either way it goes.
        if (p == process_)
            processEnded(u"the screen helper could not start — " + p->errorString());
        p->deleteLater();
    });
    auto* s = new QLocalSocket(this);
    s->setSocketDescriptor(ours);
    socket_ = s;
    connect(s, &QLocalSocket::readyRead, this, &ScreenHelper::readEvents);
    connect(s, &QLocalSocket::disconnected, this, [this, s] {
        if (s != socket_)
            return;
        // The process's own end usually follows at once and says how it ended (killed from
        // outside, or crashed); it gets a second before the closed line alone decides.
        QTimer::singleShot(1000, this, [this, s] {
            // A busy resident may come here before it has looked at the exit: a process already
            // gone is reaped now, and its own end is told (the finished handler runs in here).
            if (s == socket_ && process_ && process_->waitForFinished(100))
                return;
            if (s == socket_)
                processEnded(QStringLiteral("the screen helper's connection closed"));
        });
    });
    process_ = p;
    greeted_ = false;
    lastHeard_.start();
    watch_.start();
    p->start();
    ::close(theirs);
}

void ScreenHelper::send(const AnyCommand& command, bool startIfNeeded) {
    if (startIfNeeded)
        ensureRunning();
    if (!process_)
        return;
    const QByteArray line = encode(command);
    if (socket_ && greeted_) {
        socket_->write(line);
        socket_->flush();
    } else {
        pending_.append(line);
    }
}

void ScreenHelper::readEvents() {
    while (socket_ && socket_->canReadLine()) {
        lastHeard_.start();
        if (const auto event = decodeEvent(socket_->readLine()))
            handle(*event);
    }
    // No event is anywhere near this long: whatever sends it is not a working helper.
    if (socket_ && !socket_->canReadLine() && socket_->bytesAvailable() > maxLineBytes)
        processEnded(QStringLiteral("the screen helper sent garbled events"));
}

void ScreenHelper::handle(const AnyEvent& event) {
    if (const auto* hello = std::get_if<Event::Hello>(&event)) {
        // Only the process started here holds the other end; one that says it is somebody
        // else is not the helper this resident knows.
        if (!process_ || hello->pid != process_->processId()) {
            processEnded(QStringLiteral("the screen helper named another process as itself"));
            return;
        }
        greeted_ = true;
        for (const QByteArray& line : std::exchange(pending_, {}))
            socket_->write(line);
        socket_->flush();
        return;
    }
    if (!greeted_)
        return;
    std::visit([this](const auto& e) { handleGreeted(e); }, event);
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::Hello&) {
}
void ScreenHelper::handleGreeted(const ScreenProtocol::Event::Alive&) {
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::Up& e) {
    Q_EMIT covered(e.up);
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::Broken& e) {
    if (shieldEnded())
        Q_EMIT shieldWasBroken(e.reason);
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::TimedOut&) {
    if (shieldEnded())
        Q_EMIT shieldTimedOut();
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::Panicked&) {
    if (shieldEnded())
        Q_EMIT shieldPanicked();
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::Yielded&) {
    if (shieldEnded())
        Q_EMIT shieldYielded();
}

bool ScreenHelper::shieldEnded() {
    // Crossed a lower already sent: the lockout has its ending, and gets no second one.
    if (!up_)
        return false;
    up_ = false;
    valveTimer_.reset();
    stopWhenIdle();
    return true;
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::QuitAsked&) {
    Q_EMIT quitAsked();
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::PageMessage& e) {
    Q_EMIT pageMessage(e.role, e.message);
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::PageFailed& e) {
    Q_EMIT pageFailed(e.role, e.detail);
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::PageLoaded& e) {
    Q_EMIT pageLoaded(e.role);
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::CoachFinished& e) {
    Q_EMIT coachFinished(e.exercise, e.reps, e.cleanReps);
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::Action& e) {
    if (e.action == u"startClosed") {
        startShown_ = false;
        stopWhenIdle();
    }
    Q_EMIT actionChosen(e.action, e.value);
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::SetupState& e) {
    // A report from before the latest opening says nothing about the window now.
    if (e.generation < setupGeneration_)
        return;
    setupActive_ = e.active;
    setupVisible_ = e.visible;
    stopWhenIdle();
}

void ScreenHelper::handleGreeted(const ScreenProtocol::Event::Note& e) {
    Q_EMIT noted(e.tag, e.text);
}

void ScreenHelper::checkAlive() {
    if (!process_) {
        watch_.stop();
        return;
    }
    // Lines already waiting count: a resident that was busy itself must not blame the helper.
    readEvents();
    if (!process_)
        return;
    const double limit = greeted_ ? silence : startupSilence;
    if (lastHeard_.elapsed() >= qint64(limit * 1000))
        processEnded(u"the screen helper stopped answering for " + QString::number(qint64(limit)) +
                     u" seconds");
}

void ScreenHelper::processEnded(const QString& why, bool stoppedFromOutside) {
    if (!process_)
        return;
    const bool wasShowing = showsAnything();
    // A hung helper is ended here; its windows and keyboard grab go with it.
    letGo(Parting::Kill);
    release();
    if (wasShowing)
        Q_EMIT screensLost(why, stoppedFromOutside);
    // Unless the loss itself brought something back (a rehearsal's end opens the setup window).
    if (!showsAnything())
        Q_EMIT nothingShows();
}

void ScreenHelper::letGo(Parting how) {
    QProcess* p = std::exchange(process_, nullptr);
    QLocalSocket* s = std::exchange(socket_, nullptr);
    pending_.clear();
    watch_.stop();
    if (!p)
        return;
    // Its last lines are read no more, and how it ends is no news any more. Deleted once it
    // has ended: a process stuck in the kernel must not stall the resident.
    p->disconnect(this);
    if (p->state() == QProcess::NotRunning)
        p->deleteLater();
    else
        connect(p, &QProcess::finished, p, &QObject::deleteLater);
    if (s)
        s->disconnect(this);
    if (how == Parting::Quit) {
        // The line stays open until the helper has read "quit" and ended; one that does not
        // end on its own is ended in a few seconds.
        if (s && p->state() == QProcess::NotRunning)
            s->deleteLater();
        else if (s)
            connect(p, &QProcess::finished, s, &QObject::deleteLater);
        QTimer::singleShot(5000, p, [p] { p->kill(); });
        return;
    }
    if (s) {
        s->abort();
        s->deleteLater();
    }
    if (p->state() != QProcess::NotRunning)
        p->kill();
}

void ScreenHelper::release() {
    up_ = false;
    valveAskedAt_.reset();
    rehearsal_ = false;
    prepared_ = false;
    setupVisible_ = false;
    setupActive_ = false;
    startShown_ = false;
    valveTimer_.reset();
}

bool ScreenHelper::showsAnything() const {
    return up_ || prepared_ || setupVisible_ || startShown_;
}

void ScreenHelper::stopWhenIdle() {
    // Later in this turn of the loop: an ending is often followed at once by something new to
    // show (the setup window after a rehearsal), which must not pay for a fresh start.
    if (stopQueued_)
        return;
    stopQueued_ = true;
    QTimer::singleShot(0, this, [this] {
        stopQueued_ = false;
        if (!process_ || showsAnything())
            return;
        // A helper that has not said hello cannot hear "quit" yet; it is simply ended.
        if (greeted_) {
            send(Command::Quit{});
            letGo(Parting::Quit);
        } else {
            letGo(Parting::Kill);
        }
        Q_EMIT nothingShows();
    });
}

void ScreenHelper::prepare(const LockoutPage& page) {
    prepared_ = true;
    send(Command::Prepare{page}, true);
}

void ScreenHelper::dropPrepared() {
    if (!prepared_)
        return;
    prepared_ = false;
    send(Command::Drop{});
    stopWhenIdle();
}

void ScreenHelper::raise(const LockoutPage& page, bool rehearsal, double valveMinutes) {
    if (up_)
        return;
    up_ = true;
    rehearsal_ = rehearsal;
    prepared_ = false;
    raisedAt_ = clock_.now();
    valveAskedAt_.reset();
    valveMinutes_ = valveMinutes;
    valveTimer_ =
        clock_.singleShot(valveMinutes * 60 + valveGrace, [this] { enforceValve(clock_.now()); });
    send(Command::Raise{page, rehearsal, valveMinutes}, true);
}

void ScreenHelper::lower() {
    if (!up_)
        return;
    up_ = false;
    valveTimer_.reset();
    send(Command::Lower{});
    stopWhenIdle();
}

void ScreenHelper::enforceValve(const QDateTime& now) {
    if (!up_)
        return;
    send(Command::Valve{now});
    if (raisedAt_.msecsTo(now) < qint64((valveMinutes_ * 60 + valveGrace) * 1000))
        return;
    // Past it by the wall clock, perhaps only because the machine slept through it: the helper
    // gets a few seconds to lower on this reminder before it is ended.
    if (!valveAskedAt_ || valveAskedAt_->msecsTo(now) < qint64(valveAnswerSeconds * 1000)) {
        if (!valveAskedAt_)
            valveAskedAt_ = now;
        valveTimer_ = clock_.singleShot(valveAnswerSeconds, [this] { enforceValve(clock_.now()); });
        return;
    }
    // The helper should have lowered by itself; whatever kept it from that, the valve holds.
    Q_EMIT noted(QStringLiteral("shield"),
                 QStringLiteral("the screen helper held the screen past the safety valve — "
                                "ended it"));
    letGo(Parting::Kill);
    release();
    Q_EMIT shieldTimedOut();
    if (!showsAnything())
        Q_EMIT nothingShows();
}

void ScreenHelper::showStanding(const QString& json) {
    send(Command::Standing{json});
}

void ScreenHelper::coachDone(int streak) {
    send(Command::CoachDone{streak});
}

void ScreenHelper::openSetup(const QString& /*webRoot: the helper serves its own*/,
                             const QJsonObject& native, const SetupStrip& strip,
                             const QByteArray& geometry) {
    setupVisible_ = true;
    // In use until the helper says otherwise: a block due the moment Tovin opens must not go
    // straight to its countdown over a window the person may be typing in.
    setupActive_ = true;
    send(Command::OpenSetup{++setupGeneration_, native, strip, geometry}, true);
}

void ScreenHelper::updateStrip(const SetupStrip& strip) {
    if (setupVisible_)
        send(Command::UpdateStrip{strip});
}

void ScreenHelper::hideSetup() {
    if (!setupVisible_)
        return;
    send(Command::HideSetup{});
}

void ScreenHelper::showStart(const StartCard& card) {
    startShown_ = true;
    send(Command::ShowStart{card}, true);
}

} // namespace tovin

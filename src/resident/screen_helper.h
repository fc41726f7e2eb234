#pragma once

#include "core/clock.h"
#include "core/screen_protocol.h"
#include "core/screens.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QProcess>
#include <QTimer>

#include <memory>
#include <optional>

class QLocalSocket;

namespace tovin {

// The screens, drawn by the screen helper: a second process that holds the web engine, the
// camera and the pose model only while something shows. Started by the first thing that must
// show, told to quit when nothing does; every command and event crosses a socket pair made
// for that one child, which inherits its end (see ScreenProtocol).
//
// Nothing is ever held without a watcher: a helper that ends unasked or falls silent for a
// few seconds is treated as lost (a silent one is killed first, taking its windows and its
// keyboard grab with it), and a shield still up after its safety valve is ended from here, by
// the wall clock.
class ScreenHelper final : public Screens {
    Q_OBJECT
public:
    // Seconds of silence before the helper counts as hung: at start-up (a web engine to load),
    // and once it has said hello.
    static constexpr double startupSilence = 30;
    static constexpr double silence = 10;
    // How far past the valve a shield may stay before the helper is ended, and how long it
    // then has to answer the reminder.
    static constexpr double valveGrace = 30;
    static constexpr double valveAnswerSeconds = 5;
    // The longest event line taken from the socket.
    static constexpr qint64 maxLineBytes = 1 << 20;

    explicit ScreenHelper(Clock& clock, QString program = defaultProgram(),
                          QObject* parent = nullptr);
    ~ScreenHelper() override;

    // tovin-screens beside this executable.
    static QString defaultProgram();

    void prepare(const LockoutPage& page) override;
    void dropPrepared() override;
    void raise(const LockoutPage& page, bool rehearsal, double valveMinutes) override;
    void lower() override;
    bool isUp() const override { return up_; }
    bool isRehearsal() const override { return rehearsal_; }
    void enforceValve(const QDateTime& now) override;
    void showStanding(const QString& json) override;
    void coachDone(int streak) override;

    void openSetup(const QString& webRoot, const QJsonObject& native, const SetupStrip& strip,
                   const QByteArray& geometry) override;
    void updateStrip(const SetupStrip& strip) override;
    void hideSetup() override;
    bool setupIsActive() const override { return setupActive_; }
    bool setupIsVisible() const override { return setupVisible_; }

    void showStart(const StartCard& card) override;

    bool isRunning() const { return process_ != nullptr; }
    qint64 helperPid() const;

Q_SIGNALS:
    // The shield covers every display (true), or is gone: as the helper reports it.
    void covered(bool up);

private:
    void ensureRunning();
    void send(const ScreenProtocol::AnyCommand& command, bool startIfNeeded = false);
    void readEvents();
    void handle(const ScreenProtocol::AnyEvent& event);
    // One per event, once the helper has said hello.
    void handleGreeted(const ScreenProtocol::Event::Hello&);
    void handleGreeted(const ScreenProtocol::Event::Alive&);
    void handleGreeted(const ScreenProtocol::Event::Up& e);
    void handleGreeted(const ScreenProtocol::Event::Broken& e);
    void handleGreeted(const ScreenProtocol::Event::TimedOut&);
    void handleGreeted(const ScreenProtocol::Event::Panicked&);
    void handleGreeted(const ScreenProtocol::Event::Yielded&);
    void handleGreeted(const ScreenProtocol::Event::QuitAsked&);
    void handleGreeted(const ScreenProtocol::Event::PageMessage& e);
    void handleGreeted(const ScreenProtocol::Event::PageFailed& e);
    void handleGreeted(const ScreenProtocol::Event::PageLoaded& e);
    void handleGreeted(const ScreenProtocol::Event::CoachFinished& e);
    void handleGreeted(const ScreenProtocol::Event::Action& e);
    void handleGreeted(const ScreenProtocol::Event::SetupState& e);
    void handleGreeted(const ScreenProtocol::Event::Note& e);
    // The shield's ending as the helper tells it: false when a lower crossed it.
    bool shieldEnded();
    void checkAlive();
    void processEnded(const QString& why, bool stoppedFromOutside = false);
    // Every way of parting from a running helper: asked to quit (it ends by itself, or is
    // ended in a few seconds), or ended now.
    enum class Parting { Quit, Kill };
    void letGo(Parting how);
    void release();
    void stopWhenIdle();
    bool showsAnything() const;

    Clock& clock_;
    QString program_;
    QPointer<QProcess> process_;
    QPointer<QLocalSocket> socket_;
    QList<QByteArray> pending_;
    QTimer watch_;
    QElapsedTimer lastHeard_;
    bool greeted_ = false;
    std::unique_ptr<Timer> valveTimer_;
    QDateTime raisedAt_;
    std::optional<QDateTime> valveAskedAt_;
    qint64 setupGeneration_ = 0;
    double valveMinutes_ = 0;
    bool up_ = false;
    bool rehearsal_ = false;
    bool prepared_ = false;
    bool setupVisible_ = false;
    bool setupActive_ = false;
    bool startShown_ = false;
    bool stopQueued_ = false;
};

} // namespace tovin

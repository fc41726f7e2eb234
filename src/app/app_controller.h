#pragma once

#include "app/countdown_panel.h"
#include "core/calendar.h"
#include "core/clock.h"
#include "guards/idle_source.h"
#include "guards/usage_watcher.h"
#include "schedule/schedule.h"

#include <QObject>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

namespace tovin {

// The one object that decides when the person is interrupted. Every 30 seconds it asks the
// schedule for a decision; a due block is checked against the hold-off guard, then announced by
// the countdown, whose end raises the lockout. A hold-off, a snooze or a cancelled countdown
// becomes the single pending deferral, which comes back through the same guard.
//
// Everything runs on the main thread. Time and timers come from the Clock, idle seconds from
// the IdleSource, so the whole cycle runs under test with simulated hours.
class AppController final : public QObject {
    Q_OBJECT
public:
    // Every deferral after a hold-off or a cancelled countdown, in minutes.
    static constexpr double tovinPause = 3.0;
    static constexpr double scheduleInterval = 30.0;
    // How far beyond its interval a tick may be late before the machine is taken to have slept.
    static constexpr double wakeJumpSeconds = 90.0;

    // What raising and holding a lockout needs from the shield. Until the shield is wired in,
    // tests observe these.
    struct ShieldSeam {
        std::function<bool()> isUp;
        std::function<void(const QDateTime&)> enforceValve;
        std::function<void(bool rehearsal, const std::optional<Block>& block)> raised;
    };

    AppController(Clock& clock, IdleSource& idle, QObject* parent = nullptr);
    ~AppController() override;

    void setShieldSeam(ShieldSeam seam) { shield_ = std::move(seam); }
    // Pins the calendar (tests); otherwise the system's, followed when its zone changes.
    void setCalendar(const Calendar& calendar) { pinnedCalendar_ = calendar; }
    void setSetupWindow(QWidget* window) { setupWindow_ = window; }
    void setScheduleURL(const QString& path) { scheduleURL_ = path; }

    // The loop.
    void startScheduleWatch();
    void checkSchedule();
    std::optional<QString> holdOffReason();
    void lockoutBecameDue();
    void deferLockout(double minutes, const QString& because);
    void warnThenLock();
    void markServed(const Block& block);
    std::optional<Block> overdueRetestBlock();

    // The setup window holds a lockout off only while the person is really using it.
    static bool usingSetupWindow(bool isKey, bool isVisible, bool appActive, double idleSeconds,
                                 double activeWithin = 120);
    static bool nobodyHome(double idleSeconds, double threshold = 1200);

    // Raising, and the endings that need nothing but the cycle itself.
    void raiseLockout(bool rehearsal);
    void shieldYielded();
    void shieldTimedOut();
    void standDown();

    // Sleep and wake, from the system's signal or a wall-clock jump.
    void machineWillSleep();
    void machineDidWake();

    bool lockoutIsOver() const { return finished_; }
    bool hasPendingDeferral() const { return deferTimer_ && deferTimer_->isActive(); }
    std::optional<QDateTime> pausedUntil() const { return pausedUntil_; }
    void setPausedUntil(std::optional<QDateTime> until) { pausedUntil_ = std::move(until); }
    int snoozesUsed() const { return snoozesUsed_; }
    const FiredSet& firedToday() const { return firedToday_; }
    const std::optional<Block>& pendingBlock() const { return pendingBlock_; }
    const Schedule& schedule() const { return schedule_; }
    bool rehearsalOnly() const { return rehearsalOnly_; }
    void setRehearsalOnly(bool on) { rehearsalOnly_ = on; }

    CountdownPanel& countdown() { return countdown_; }
    UsageWatcher& usage() { return usage_; }
    Clock& clock() { return clock_; }

private:
    Calendar calendar();
    void reloadSchedule();
    void onScheduleTimer();
    bool shieldIsUp() const { return shield_.isUp && shield_.isUp(); }

    Clock& clock_;
    IdleSource& idle_;
    ShieldSeam shield_;
    std::optional<Calendar> pinnedCalendar_;
    std::optional<Calendar> systemCalendar_;
    QString scheduleURL_;

    Schedule schedule_;
    FiredSet firedToday_;
    qint64 firedDay_ = -1;
    std::optional<Block> pendingBlock_;
    int snoozesUsed_ = 0;
    bool rehearsalOnly_ = false;
    std::optional<QDateTime> pausedUntil_;
    std::optional<QDateTime> sleptAt_;
    std::optional<QDateTime> lastTickAt_;
    bool finished_ = false;

    std::unique_ptr<Timer> scheduleTimer_;
    std::unique_ptr<Timer> deferTimer_;
    QMetaObject::Connection scheduleChanged_;

    CountdownPanel countdown_;
    UsageWatcher usage_;
    QPointer<QWidget> setupWindow_;
};

} // namespace tovin

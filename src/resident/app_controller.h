#pragma once

#include "resident/countdown_panel.h"
#include "resident/lockout_mark.h"
#include "core/calendar.h"
#include "core/clock.h"
#include "resident/guards/idle_source.h"
#include "resident/guards/usage_watcher.h"
#include "core/schedule.h"
#include "resident/records/schedule_file_watch.h"
#include "core/screens.h"
#include "resident/records/bridge_messages.h"

#include <QObject>

#include <functional>
#include <memory>
#include <optional>

namespace tovin {

class PromiseLedger;

// What the controller works with, handed in once: the clock and idle seconds it decides by,
// the screens it raises, the ledger it records to, and the week it reads.
struct AppDependencies {
    Clock& clock;
    IdleSource& idle;
    Screens& screens;
    PromiseLedger& ledger;
    QString scheduleURL;
    // Where a real lockout that is up is marked on disk; by default in tovin's data folder.
    QString lockoutMarkURL = {};
};

// The one object that decides when the person is interrupted. Every 30 seconds it asks the
// schedule for a decision; a due block is checked against the hold-off guard, then announced by
// the countdown, whose end raises the lockout. A hold-off, a snooze or a cancelled countdown
// becomes the single pending deferral, which comes back through the same guard.
//
// It only decides: what a lockout shows is asked of the Screens, and everything the screens
// report (an ending, a page's message, a failure) comes back here to be judged and written.
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

    explicit AppController(const AppDependencies& deps, QObject* parent = nullptr);
    ~AppController() override;

    // The web app's folder; by default the bundled one.
    void setWebRoot(std::optional<QString> root) { webRoot_ = std::move(root); }
    // Pins the calendar (tests); otherwise the system's, followed when its zone changes.
    void setCalendar(const Calendar& calendar) { pinnedCalendar_ = calendar; }

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

    // Raising and every way a lockout ends.
    void raiseLockout(bool rehearsal);
    void awayBlockTovin(const Block& block);
    static bool wasPresent(double idleAtEnd, double heldMinutes, double margin = 300);
    void standDown();
    void explainAndQuit(const QString& title, const QString& detail);

    void shieldWasBroken(std::optional<PromiseRecord::Reason> reason);
    void shieldTimedOut();
    void shieldPanicked();
    void shieldYielded();
    void workoutCompleted(const QString& exercise, qint64 reps);
    void workoutWebFailed(const QString& detail);
    void screensLost(const QString& why, bool stoppedFromOutside);
    // The camera coach's ending.
    void finishTovin(const QString& exercise, qint64 reps, qint64 cleanReps);
    // A page's message through its bridge, applied here: the person's files are written here.
    void pageMessage(PageRole role, const QJsonObject& message);
    void pageFailed(PageRole role, const QString& detail);

    // The data a page boots with (TOVIN_NATIVE), from the settings, the week and the ledger.
    QJsonObject nativeFor(PageMode mode, bool shown, const std::optional<QString>& blockLabel) const;
    // A lockout or its countdown is under way: nothing else may interrupt.
    bool lockoutUnderway() const { return screens_.isUp() || countdown_.isShowing(); }

    // While an update installs, Tovin is about to end and start again as the new version: no
    // countdown or lockout starts (the new copy serves whatever is due).
    void standAsideForUpdate(bool on) { standingAside_ = on; }

    // Pause and resume (an hour at most); each announced by pausedChanged.
    void pauseAnHour();
    void resumeWatching();

    // The two lines of the menu: what happens next, and how the promises stand.
    QString statusLine();
    QString standingLine() const;
    struct StatusInputs {
        bool shieldUp = false;
        std::optional<double> pausedSecondsLeft;
        std::optional<Schedule::Upcoming> next;
        bool hoursAllow = true;
        bool usageRunning = false;
        bool workoutChosen = false;
        double triggerSeconds = 0;
        double continuousUseSeconds = 0;
    };
    static QString statusLine(const StatusInputs& in);
    static QString standingLine(qsizetype records, int streak, int tovin, int broken);

    // Sleep and wake, from the system's signal or a wall-clock jump.
    void machineWillSleep();
    void machineDidWake();

    bool lockoutIsOver() const { return finished_; }
    // A crash of this process (a fault, not a kill) takes the lockout's mark with it: Tovin's
    // own faults are not broken promises.
    void clearMarkOnCrash() { mark_.clearOnCrash(); }
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
    Screens& screens() { return screens_; }
    PromiseLedger& ledger() const { return ledger_; }
    const QString& scheduleURL() const { return scheduleURL_; }
    UsageWatcher& usage() { return usage_; }
    Clock& clock() { return clock_; }

    // The person's calendar: pinned in tests, else the system's.
    Calendar calendar();

Q_SIGNALS:
    void pausedChanged(bool paused);
    // Something the person must be told (a modal box, by default), and the program's end.
    void alertRequested(const QString& title, const QString& detail);
    void quitRequested();
    // The setup window should open (or come forward).
    void setupWindowWanted();
    // The person's settings or week changed: whatever shows them is drawn again.
    void settingsChanged();
    // One turn of the schedule's loop: what else needs a look now and then takes it here.
    void ticked();

private:
    void reloadSchedule();
    void onScheduleTimer();
    bool shieldIsUp() const { return screens_.isUp(); }
    std::optional<QString> webRoot() const;
    std::optional<LockoutPage> workoutPage() const;
    void prebuild();
    void dropPrebuilt();
    void preparedPageFailed(const QString& detail);
    void clearLockoutMark();
    void journalEnding(const QString& how);
    bool choseCameraCoach() const;
    void record(PromiseRecord promise);
    QString lockoutExercise() const;
    void recordCutShort(const QString& exercise, const QDateTime& when, const QString& how);

    Clock& clock_;
    IdleSource& idle_;
    Screens& screens_;
    PromiseLedger& ledger_;
    QString scheduleURL_;
    LockoutMark mark_;
    BridgeMessages bridge_;
    std::optional<QString> webRoot_;
    std::optional<Calendar> pinnedCalendar_;
    std::optional<Calendar> systemCalendar_;

    Schedule schedule_;
    FiredSet firedToday_;
    qint64 firedDay_ = -1;
    std::optional<Block> pendingBlock_;
    int snoozesUsed_ = 0;
    bool rehearsalOnly_ = false;
    bool rehearsing_ = false;
    bool raised_ = false;
    bool prepared_ = false;
    std::optional<QDateTime> pausedUntil_;
    std::optional<QDateTime> sleptAt_;
    std::optional<QDateTime> lastTickAt_;
    bool finished_ = false;
    bool standingAside_ = false;
    bool toldScreensLost_ = false;

    std::unique_ptr<Timer> scheduleTimer_;
    std::unique_ptr<ScheduleFileWatch> scheduleFileWatch_;
    std::unique_ptr<Timer> deferTimer_;
    QString deferReason_;
    std::unique_ptr<Timer> awayTimer_;
    std::unique_ptr<Timer> pauseTimer_;
    std::unique_ptr<Timer> lowerTimer_;
    QMetaObject::Connection scheduleChanged_;

    CountdownPanel countdown_;
    UsageWatcher usage_;
};

} // namespace tovin

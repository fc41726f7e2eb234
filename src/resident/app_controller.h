#pragma once

#include "core/calendar.h"
#include "core/clock.h"
#include "core/schedule.h"
#include "core/screens.h"
#include "resident/countdown.h"
#include "resident/guards/idle_source.h"
#include "resident/guards/usage_watcher.h"
#include "resident/lockout_mark.h"
#include "resident/records/bridge_messages.h"
#include "resident/records/schedule_file_watch.h"

#include <QObject>

#include <memory>
#include <optional>

namespace tovin {

class CallDetector;
class Journal;
class Preferences;
class PromiseLedger;
class SaveFailures;
class ScheduleStore;

// Everything the controller works with, handed in once and built by main alone (tests build
// their own): the clock and idle seconds it decides by, the calls that hold it off, the screens
// it raises and the notice before them, the person's week, preferences and promises, the
// journal it explains itself in, and the saves still owed to the disk.
struct AppDependencies {
    Clock& clock;
    IdleSource& idle;
    CallDetector& calls;
    Screens& screens;
    Countdown& countdown;
    ScheduleStore& week;
    Preferences& preferences;
    PromiseLedger& ledger;
    Journal& journal;
    SaveFailures& saveFailures;
    // Where a real lockout that is up is marked on disk; by default in tovin's data folder.
    QString lockoutMarkURL = {};
};

// How a lockout ended, as whatever reported it says; each kind is one row of the table of
// endings (what is journalled, what is recorded, how the screen comes back).
struct Ending {
    enum class Kind {
        WorkoutCompleted, // the page's workout finished
        CoachFinished,    // the camera coach counted every rep
        AwayServed,       // an away block's time ran out
        Broken,           // out through the break warning, with the reason given
        TimedOut,         // the safety valve
        Panicked,         // Esc ×5, or a rehearsal window closed
        Yielded,          // the system took the screen
        HelperLost,       // the screen helper went, and the shield with it
        PageFailed,       // the lockout's page failed over the shield
    };
    Kind kind;
    QString exercise; // a workout's or the coach's
    qint64 reps = 0;
    qint64 cleanReps = 0;
    std::optional<PromiseRecord::Reason> reason; // a broken promise's
    QString detail;                              // why the helper went, or how the page failed
    bool stoppedFromOutside = false;             // the helper was killed, not crashed or hung
};

// The one object that decides when the person is interrupted. Every 30 seconds it asks the
// schedule for a decision; a due block is checked against the hold-off guard, then announced by
// the countdown, whose end raises the lockout. A hold-off, a snooze or a cancelled countdown
// becomes the single pending deferral, which comes back through the same guard.
//
// It runs as four phases, each entered and left in one place: idle (watching), countdown (the
// notice shows), raised (a lockout is up) and ending (a lockout ended: the round is over, and
// nothing more locks by itself until a lockout is raised by hand or Tovin starts again). Every
// ending goes through end(), once.
//
// It only decides: what a lockout shows is asked of the Screens, and everything the screens
// report (an ending, a page's message, a failure) comes back here to be judged and written.
// Everything runs on the main thread. Time and timers come from the Clock, idle seconds from
// the IdleSource, so the whole cycle runs under test with simulated hours.
class AppController final : public QObject {
    Q_OBJECT
public:
    enum class Phase { Idle, Countdown, Raised, Ending };

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
    // A copy that only rehearses (--self-test, --rehearse) never takes the screens.
    void setRehearsalOnly(bool on) { rehearsalOnly_ = on; }

    // The loop: the schedule's tick every 30 seconds, the usage path, and the countdown.
    void startScheduleWatch();
    void checkSchedule();
    void lockoutBecameDue();
    std::optional<QString> holdOffReason();
    // The one pending deferral: the lockout comes back through the guard in `minutes`.
    void deferLockout(double minutes, const QString& because);
    void warnThenLock();
    void raiseLockout(bool rehearsal);
    // Every way a lockout ends; a second ending of the same lockout changes nothing.
    void end(const Ending& ending);

    // Pause and resume (an hour at most); each announced by pausedChanged.
    void pauseAnHour();
    void resumeWatching();
    // While an update installs, Tovin is about to end and start again as the new version: no
    // countdown or lockout starts (the new copy serves whatever is due).
    void standAsideForUpdate(bool on) { standingAside_ = on; }
    // Sleep and wake, from the system's signal or a wall-clock jump.
    void machineWillSleep();
    void machineDidWake();

    Phase phase() const { return phase_; }
    // A lockout or its countdown is under way: nothing else may interrupt.
    bool lockoutUnderway() const { return screens_.isUp() || countdown_.isShowing(); }
    std::optional<QDateTime> pausedUntil() const { return pausedUntil_; }
    const std::optional<Block>& pendingBlock() const { return pendingBlock_; }
    UsageWatcher& usage() { return usage_; }
    // The two lines of the menu: what happens next, and how the promises stand.
    QString statusLine();
    QString standingLine() const;
    // The data a page boots with (TOVIN_NATIVE), from the settings, the week and the ledger.
    QJsonObject nativeFor(PageMode mode, bool shown,
                          const std::optional<QString>& blockLabel) const;
    // A crash of this process (a fault, not a kill) takes the lockout's mark with it: Tovin's
    // own faults are not broken promises.
    void clearMarkOnCrash() { mark_.clearOnCrash(); }

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
    // Entering a phase does what that phase begins with; leaving the countdown returns to the
    // phase it interrupted.
    void enter(Phase phase);
    void leaveCountdown();
    void noticeGoneUnasked();
    // The round is over: an ending happened since the last raise (a countdown in between
    // does not change that).
    bool roundIsOver() const;

    void reloadSchedule();
    void onScheduleTimer();
    void markServed(const Block& block);
    std::optional<Block> overdueRetestBlock();
    Calendar calendar();
    std::optional<QString> webRoot() const;
    std::optional<LockoutPage> workoutPage() const;
    LockoutPage pageFor(LockoutPage::Kind kind, const QString& root) const;
    void prebuild();
    void dropPrebuilt();
    void pageMessage(PageRole role, const QJsonObject& message);
    void pageFailed(PageRole role, const QString& detail);
    void screensLost(const QString& why, bool stoppedFromOutside);
    void explainAndQuit(const QString& title, const QString& detail);
    void clearBusyMark();
    void record(PromiseRecord promise);
    QString lockoutExercise() const;
    void recordCutShort(const QString& exercise, const QDateTime& when, const QString& how);
    void standDown();

    Clock& clock_;
    IdleSource& idle_;
    CallDetector& calls_;
    Screens& screens_;
    Countdown& countdown_;
    ScheduleStore& week_;
    Preferences& prefs_;
    PromiseLedger& ledger_;
    Journal& journal_;
    SaveFailures& saveFailures_;
    LockoutMark mark_;
    BridgeMessages bridge_;
    UsageWatcher usage_;
    std::optional<QString> webRoot_;
    std::optional<Calendar> pinnedCalendar_;
    std::optional<Calendar> systemCalendar_;

    Phase phase_ = Phase::Idle;
    Phase beforeCountdown_ = Phase::Idle;

    Schedule schedule_;
    FiredSet firedToday_;
    qint64 firedDay_ = -1;
    // The block the countdown and the lockout serve; none for the usage path.
    std::optional<Block> pendingBlock_;
    int snoozesUsed_ = 0;
    bool rehearsalOnly_ = false;
    bool rehearsing_ = false;
    bool prepared_ = false;
    bool standingAside_ = false;
    bool toldScreensLost_ = false;
    bool settingsChangeQueued_ = false;
    std::optional<QDateTime> pausedUntil_;
    std::optional<QDateTime> sleptAt_;
    std::optional<QDateTime> lastTickAt_;

    std::unique_ptr<Timer> scheduleTimer_;
    std::unique_ptr<ScheduleFileWatch> scheduleFileWatch_;
    QMetaObject::Connection weekChanged_;
    std::unique_ptr<Timer> deferTimer_;
    QString deferReason_;
    std::unique_ptr<Timer> awayTimer_;
    std::unique_ptr<Timer> pauseTimer_;
    std::unique_ptr<Timer> lowerTimer_;
};

} // namespace tovin

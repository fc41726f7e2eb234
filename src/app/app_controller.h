#pragma once

#include "app/countdown_panel.h"
#include "coach/coach_session.h"
#include "core/calendar.h"
#include "shield/shield_controller.h"
#include "workoutweb/workout_web_view.h"
#include "core/clock.h"
#include "guards/idle_source.h"
#include "guards/usage_watcher.h"
#include "schedule/schedule.h"
#include "schedule/schedule_file_watch.h"

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
class AppController final : public QObject, public ShieldDelegate, public WorkoutWebDelegate {
    Q_OBJECT
public:
    // Every deferral after a hold-off or a cancelled countdown, in minutes.
    static constexpr double tovinPause = 3.0;
    static constexpr double scheduleInterval = 30.0;
    // How far beyond its interval a tick may be late before the machine is taken to have slept.
    static constexpr double wakeJumpSeconds = 90.0;

    // What a lockout shows: the workout page (or, for an away block, the away screen). Made by
    // the default factory from the bundled web app; tests hand in lighter content.
    struct LockoutContent {
        bool away = false;
        WorkoutWebView::Mode mode = WorkoutWebView::Mode::Locked;
        std::optional<QString> blockLabel;
        QString label;        // the away block's label
        QDateTime endsAt;     // when the away block ends
        QString webRoot;
        // Built behind the countdown: the page starts nothing until the shield shows it.
        bool prepared = false;
    };
    using ContentFactory = std::function<QWidget*(const LockoutContent&, AppController&)>;

    AppController(Clock& clock, IdleSource& idle, QObject* parent = nullptr);
    ~AppController() override;

    void setContentFactory(ContentFactory factory) { contentFactory_ = std::move(factory); }
    // The web app's folder; by default the bundled one.
    void setWebRoot(std::optional<QString> root) { webRoot_ = std::move(root); }
    // How an alert is shown and how the application ends (a modal box and quit, by default).
    std::function<void(const QString& title, const QString& detail)> showAlert;
    std::function<void()> terminate;
    // Opens (or brings forward) the setup window; set by the shell.
    std::function<void()> openSetupWindow;
    // Where a camera coach gets its frames and its model (the default camera and the bundled
    // model); tests hand in pictures, or nothing to see the fallback.
    std::function<std::unique_ptr<FrameSource>()> frameSourceFactory;
    std::function<std::unique_ptr<PoseModel>(QString* error)> poseModelFactory;
    // The coach's voice: the desktop's speech service unless a test sets another speaker.
    void setSpeaker(Speaker* speaker);
    Coachbox& voice();
    CoachSession* coachSession() const { return coach_; }
    std::function<void()> hideSetupWindow;
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

    // Raising and every way a lockout ends.
    void raiseLockout(bool rehearsal);
    void awayBlockTovin(const Block& block);
    static bool wasPresent(double idleAtEnd, double heldMinutes, double margin = 300);
    void standDown();
    void explainAndQuit(const QString& title, const QString& detail);

    void shieldWasBroken(std::optional<PromiseRecord::Reason> reason) override;
    void shieldTimedOut() override;
    void shieldPanicked() override;
    void shieldYielded() override;
    void shieldKeyPressed(const QString& key) override;
    void workoutCompleted(const QString& exercise, qint64 reps) override;
    void workoutWebFailed(const QString& detail) override;

    // The camera coach's ending, its keys, and its panel after a reset.
    void finishTovin();
    void refreshPanel();

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
    ShieldController& shield() { return shield_; }
    WorkoutWebView* workoutWeb() const { return workoutWeb_; }
    QWidget* prebuiltContent() const { return prebuilt_; }
    PromiseLedger& ledger() const;
    void setLedger(PromiseLedger* ledger) { ledger_ = ledger; }
    UsageWatcher& usage() { return usage_; }
    Clock& clock() { return clock_; }

    // The person's calendar: pinned in tests, else the system's.
    Calendar calendar();

Q_SIGNALS:
    void pausedChanged(bool paused);

private:
    void reloadSchedule();
    void onScheduleTimer();
    bool shieldIsUp() const { return shield_.isUp(); }
    std::optional<LockoutContent> workoutContent() const;
    void prebuild();
    void dropPrebuilt();
    void preparedPageFailed(const QString& detail);
    void clearLockoutMark();
    void journalEnding(const QString& how);
    bool choseCameraCoach() const;
    void record(PromiseRecord promise);
    QWidget* coachLockout(const QString& workoutID, const LockoutContent& webContent);
    void coachGaveUp(const QString& reason, const LockoutContent& webContent);
    void stopCoach();

    Clock& clock_;
    IdleSource& idle_;
    ContentFactory contentFactory_;
    std::optional<QString> webRoot_;
    PromiseLedger* ledger_ = nullptr;
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
    std::unique_ptr<ScheduleFileWatch> scheduleFileWatch_;
    std::unique_ptr<Timer> deferTimer_;
    QString deferReason_;
    std::unique_ptr<Timer> awayTimer_;
    std::unique_ptr<Timer> pauseTimer_;
    std::unique_ptr<Timer> lowerTimer_;
    QPointer<CoachSession> coach_;
    QPointer<QWidget> coachContainer_;
    std::unique_ptr<Speaker> ownSpeaker_;
    Speaker* speaker_ = nullptr;
    std::unique_ptr<Coachbox> voice_;
    QPointer<WorkoutWebView> workoutWeb_;
    // The lockout's page, built while the countdown runs so it is already rendered when the
    // shield rises; dropped if the countdown is snoozed or cancelled.
    QPointer<QWidget> prebuilt_;
    LockoutContent prebuiltFor_;
    // The prepared page reports here until the shield shows it: a failure then costs nothing
    // but the page, which the raise builds again.
    struct PreparedPageDelegate final : WorkoutWebDelegate {
        AppController* owner = nullptr;
        void workoutCompleted(const QString&, qint64) override {}
        void workoutWebFailed(const QString& detail) override { owner->preparedPageFailed(detail); }
    } preparedDelegate_;
    QMetaObject::Connection scheduleChanged_;

    ShieldController shield_;
    CountdownPanel countdown_;
    UsageWatcher usage_;
    QPointer<QWidget> setupWindow_;
};

} // namespace tovin

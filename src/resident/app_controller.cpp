#include "resident/app_controller.h"

#include "core/bundle_routes.h"
#include "core/coaches.h"
#include "resident/guards/call_detector.h"
#include "resident/guards/presence.h"
#include "resident/menu_words.h"
#include "resident/records/journal.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/save_failures.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"

#include <QFileInfo>
#include <QTimer>

#include <cmath>
#include <cstdio>

namespace tovin {

namespace {

// Whole minutes for log text, truncated toward zero.
QString wholeMinutes(double minutes) {
    Q_ASSERT(std::isfinite(minutes));
    return QString::number(qint64(std::trunc(minutes)));
}

// What follows an ending once it is journalled and recorded.
enum class Then {
    StandDown,          // the screen comes back (it has already) and the watch goes on
    LowerThenStandDown, // the page shows its last word for a moment first
    LowerThenQuit,      // the coach's panel says the streak, then Tovin ends as it promised
    Quit,               // the panic: Tovin ends at once
    ExplainAndQuit,     // the person is told why, then Tovin ends
};

// The table of endings: whether the shield must still be up for the report to count (a page's
// word from a page already gone does not), the words of the journal's "lockout ended" line
// (none: the ending writes its own, or nothing at all), what goes on the record, and what
// follows.
struct EndingRule {
    bool needsShieldUp;
    const char* words;
    std::optional<PromiseRecord::Outcome> recorded;
    Then then;
};

EndingRule ruleFor(Ending::Kind kind) {
    using K = Ending::Kind;
    using O = PromiseRecord::Outcome;
    switch (kind) {
    case K::WorkoutCompleted:
        return {true, "workout completed", O::Tovin, Then::LowerThenStandDown};
    case K::CoachFinished:
        return {true, "camera coach finished", O::Tovin, Then::LowerThenQuit};
    case K::AwayServed:
        return {false, "away block served", O::Tovin, Then::StandDown};
    case K::Broken:
        return {false, nullptr, O::Broken, Then::StandDown};
    case K::TimedOut:
        return {false, "the safety valve released the screen, nothing recorded", std::nullopt,
                Then::StandDown};
    case K::Panicked:
        // The way out that leaves no trace, as the start window promises: not even a line.
        return {false, nullptr, std::nullopt, Then::Quit};
    case K::Yielded:
        return {false, "yielded to the system, nothing recorded", std::nullopt, Then::StandDown};
    case K::HelperLost:
        return {false, nullptr, std::nullopt, Then::StandDown};
    case K::PageFailed:
        return {true, nullptr, std::nullopt, Then::ExplainAndQuit};
    }
    return {false, nullptr, std::nullopt, Then::StandDown};
}

} // namespace

AppController::AppController(const AppDependencies& deps, QObject* parent)
    : QObject(parent)
    , clock_(deps.clock)
    , idle_(deps.idle)
    , calls_(deps.calls)
    , screens_(deps.screens)
    , countdown_(deps.countdown)
    , week_(deps.week)
    , prefs_(deps.preferences)
    , ledger_(deps.ledger)
    , journal_(deps.journal)
    , saveFailures_(deps.saveFailures)
    , mark_(deps.lockoutMarkURL.isEmpty() ? LockoutMark::defaultPath() : deps.lockoutMarkURL)
    , bridge_(week_, ledger_, prefs_, clock_)
    , usage_(clock_, idle_, prefs_) {
    // A lockout already owed (snoozed, or waiting out a hold-off) comes back through its own
    // deferral; the usage path neither doubles it nor cuts it short.
    connect(&usage_, &UsageWatcher::due, this, [this] {
        if (!deferTimer_ || !deferTimer_->isActive())
            lockoutBecameDue();
    });
    connect(&countdown_, &Countdown::fired, this, [this] {
        leaveCountdown();
        snoozesUsed_ = 0;
        raiseLockout(rehearsalOnly_);
    });
    connect(&countdown_, &Countdown::snoozed, this, [this] {
        leaveCountdown();
        dropPrebuilt();
        ++snoozesUsed_;
        deferLockout(prefs_.snoozeMinutes(), QStringLiteral("you asked for a few more minutes"));
    });
    connect(&countdown_, &Countdown::cancelled, this, [this](const QString& reason) {
        leaveCountdown();
        dropPrebuilt();
        deferLockout(tovinPause, reason);
    });
    connect(&bridge_, &BridgeMessages::workoutCompleted, this,
            [this](const QString& exercise, qint64 reps) {
                end({Ending::Kind::WorkoutCompleted, exercise, reps, reps});
            });
    // Whatever shows the person's settings is drawn again once per turn of the event loop,
    // however many values one save wrote.
    connect(&prefs_, &Preferences::changed, this, [this] {
        if (std::exchange(settingsChangeQueued_, true))
            return;
        QTimer::singleShot(0, this, [this] {
            settingsChangeQueued_ = false;
            Q_EMIT settingsChanged();
        });
    });

    using K = Ending::Kind;
    connect(&screens_, &Screens::shieldWasBroken, this,
            [this](std::optional<PromiseRecord::Reason> reason) {
                Ending ending{K::Broken};
                ending.reason = reason;
                end(ending);
            });
    connect(&screens_, &Screens::shieldTimedOut, this, [this] { end({K::TimedOut}); });
    connect(&screens_, &Screens::shieldPanicked, this, [this] { end({K::Panicked}); });
    connect(&screens_, &Screens::shieldYielded, this, [this] { end({K::Yielded}); });
    connect(&screens_, &Screens::coachFinished, this,
            [this](const QString& exercise, qint64 reps, qint64 cleanReps) {
                end({K::CoachFinished, exercise, reps, cleanReps});
            });
    connect(&screens_, &Screens::pageMessage, this, &AppController::pageMessage);
    connect(&screens_, &Screens::pageFailed, this, &AppController::pageFailed);
    connect(&screens_, &Screens::screensLost, this, &AppController::screensLost);
    // What draws keeps no journal: its lines are written here.
    connect(&screens_, &Screens::noted, this,
            [this](const QString& tag, const QString& text) { journal_.note(tag, text); });
}

AppController::~AppController() = default;

// ---- phases -------------------------------------------------------------------------------

void AppController::enter(Phase phase) {
    switch (phase) {
    case Phase::Idle:
        break;
    case Phase::Countdown:
        beforeCountdown_ = phase_;
        countdown_.show(prefs_.warningSeconds(),
                        std::max(0, prefs_.snoozesPerLockout() - snoozesUsed_));
        break;
    case Phase::Raised:
        countdown_.dismiss();
        deferTimer_.reset();
        awayTimer_.reset(); // an earlier away block's end never ends this lockout
        break;
    case Phase::Ending:
        mark_.clear();
        break;
    }
    phase_ = phase;
}

void AppController::leaveCountdown() {
    if (phase_ != Phase::Countdown)
        return;
    countdown_.dismiss();
    phase_ = beforeCountdown_;
}

void AppController::noticeGoneUnasked() {
    // A notice closed from outside the controller (nothing in the app does) must not leave the
    // phase behind, or no countdown would ever show again.
    if (phase_ == Phase::Countdown && !countdown_.isShowing())
        phase_ = beforeCountdown_;
}

bool AppController::roundIsOver() const {
    return phase_ == Phase::Ending ||
           (phase_ == Phase::Countdown && beforeCountdown_ == Phase::Ending);
}

// ---- the loop -----------------------------------------------------------------------------

Calendar AppController::calendar() {
    if (pinnedCalendar_)
        return *pinnedCalendar_;
    // The person may travel: follow the system's zone, but keep the calendar (and its offset
    // cache) while the zone stays the same.
    const QByteArray zone = QTimeZone::systemTimeZoneId();
    if (!systemCalendar_ || systemCalendar_->zone().id() != zone)
        systemCalendar_ = Calendar::system();
    return *systemCalendar_;
}

void AppController::reloadSchedule() {
    schedule_ = Schedule(week_.load());
}

void AppController::startScheduleWatch() {
    // A lockout the last copy left up: Tovin was killed under it, or the machine restarted.
    if (const auto cut = mark_.takeAbandoned())
        recordCutShort(cut->exercise, cut->raisedAt.isValid() ? cut->raisedAt : clock_.now(),
                       QStringLiteral("Tovin was stopped during the lockout (found at launch)"));
    week_.writeExampleIfMissing();
    reloadSchedule();

    scheduleTimer_ = clock_.createTimer([this] { onScheduleTimer(); });
    scheduleTimer_->start(scheduleInterval, true);
    // The person may edit the week by hand: that counts as soon as it is saved, like a save
    // from the setup page.
    scheduleFileWatch_ = std::make_unique<ScheduleFileWatch>(week_);
    disconnect(weekChanged_);
    weekChanged_ = connect(&week_, &ScheduleStore::changed, this, [this] {
        reloadSchedule();
        Q_EMIT settingsChanged();
        firedToday_.clear(); // in memory only; the stored set stays
        journal_.note(QStringLiteral("schedule"),
                      u"reloaded — " + QString::number(schedule_.blocks().size()) + u" block(s)");
    });
    checkSchedule();
}

void AppController::onScheduleTimer() {
    // Timers stop while the machine sleeps. When the sleep signal never came (no logind, or it
    // was missed), a tick arriving far later by the wall clock than its interval is the wake.
    const QDateTime now = clock_.now();
    if (sleptAt_) {
        machineDidWake();
        return;
    }
    if (lastTickAt_ &&
        lastTickAt_->msecsTo(now) > qint64((scheduleInterval + wakeJumpSeconds) * 1000)) {
        sleptAt_ = lastTickAt_;
        machineDidWake();
        return;
    }
    checkSchedule();
}

void AppController::machineWillSleep() {
    sleptAt_ = clock_.now();
    journal_.note(QStringLiteral("power"), QStringLiteral("sleeping"));
}

void AppController::machineDidWake() {
    const QDateTime now = clock_.now();
    if (sleptAt_)
        journal_.note(QStringLiteral("power"),
                      u"woke after " + wholeMinutes(double(sleptAt_->msecsTo(now)) / 60000.0) +
                          u" min asleep");
    else
        journal_.note(QStringLiteral("power"), QStringLiteral("woke"));
    sleptAt_.reset();
    // Only a launch that watches the schedule ticks; a rehearsal or a probe has none to run.
    if (scheduleTimer_)
        checkSchedule();
}

void AppController::checkSchedule() {
    const QDateTime now = clock_.now();
    lastTickAt_ = now;
    noticeGoneUnasked();
    // The valve holds even if its timer slept with the machine.
    if (screens_.isUp())
        screens_.enforceValve(now);
    // Whatever could not be saved (a full disk, a read-only folder) is tried again.
    saveFailures_.retryPending();
    Q_EMIT ticked();

    const Calendar cal = calendar();
    const qint64 today = cal.dayNumber(now);
    if (today != firedDay_) {
        firedDay_ = today;
        firedToday_ = prefs_.firedBlocksDay() == today ? prefs_.firedBlocks() : FiredSet();
        prefs_.setFiredBlocksDay(today);
        prefs_.setFiredBlocks(firedToday_);
        journal_.note(QStringLiteral("day"),
                      firedToday_.isEmpty() ? QStringLiteral("rolled over — fired set cleared")
                                            : u"resumed — " + QString::number(firedToday_.size()) +
                                                  u" block(s) already served today");
    }

    TickState state;
    state.shieldUp = screens_.isUp();
    state.countdownShowing = phase_ == Phase::Countdown;
    state.finished = roundIsOver();
    state.pausedUntil = pausedUntil_;
    state.retest = overdueRetestBlock();

    Tick tick = schedule_.tick(now, firedToday_, state, cal);
    // The guards are asked only when a block is due: asking costs a round trip to the sound
    // server and a look at every process's open files, which a resident that waits all day
    // must not pay twice a minute.
    if (tick.isFire()) {
        state.holdOff = holdOffReason();
        // A block snoozed or cancelled at its countdown waits for its deferral, however long
        // the schedule still calls it due: the deferral, not the next tick, brings it back.
        if (!state.holdOff && pendingBlock_ && deferTimer_ && deferTimer_->isActive())
            state.holdOff = u"deferred — " + deferReason_;
        if (state.holdOff)
            tick = schedule_.tick(now, firedToday_, state, cal);
    }
    journal_.state(QStringLiteral("schedule"), tick.summary());

    switch (tick.kind()) {
    case Tick::Case::Fire: {
        const Block& block = *tick.block();
        journal_.note(QStringLiteral("schedule"), u"firing " + block.label);
        pendingBlock_ = block;
        warnThenLock();
        break;
    }
    case Tick::Case::Holding:
        journal_.state(QStringLiteral("hold"), tick.block()->label + u" held — " + tick.reason());
        break;
    case Tick::Case::Idle:
        break;
    }
}

std::optional<QString> AppController::holdOffReason() {
    const CallDetector::State call = calls_.current();
    if (CallDetector::isBusy(call))
        return CallDetector::explanation(call);
    if (prefs_.isBusy(clock_.now()))
        return prefs_.busyReason().value_or(QStringLiteral("you're mid-session"));

    const double idle = idle_.secondsSinceLastInput();
    // Whatever draws the setup window knows whether it has the keyboard.
    const bool isKey = screens_.setupIsActive();
    if (Presence::usingSetupWindow(isKey, screens_.setupIsVisible(), isKey, idle))
        return QStringLiteral("you're using the setup window");
    if (Presence::nobodyHome(idle))
        return u"nobody at the desk — idle " + wholeMinutes(idle / 60.0) + u" min";
    if (!prefs_.lockoutWorkoutID())
        return QStringLiteral("setup isn't finished — nothing chosen to run");
    return std::nullopt;
}

void AppController::lockoutBecameDue() {
    // Once a lockout has ended, the usage path and every pending deferral stay inert until a
    // lockout is raised again. Deliberate: an ending is final for this round.
    if (screens_.isUp() || roundIsOver())
        return;
    if (const auto reason = holdOffReason()) {
        deferLockout(tovinPause, *reason);
        return;
    }
    if (!prefs_.scheduleAllows(clock_.now(), calendar())) {
        journal_.state(QStringLiteral("usage"),
                       QStringLiteral("outside the hours you set — dropped, not queued"));
        return;
    }
    warnThenLock();
}

void AppController::deferLockout(double minutes, const QString& because) {
    journal_.note(QStringLiteral("defer"),
                  u"usage lockout deferred " + wholeMinutes(minutes) + u"m — " + because);
    // Replacing the timer destroys the old one: there is never more than one deferral.
    deferReason_ = because;
    deferTimer_ = clock_.singleShot(minutes * 60.0, [this] { lockoutBecameDue(); });
}

void AppController::warnThenLock() {
    noticeGoneUnasked();
    if (phase_ == Phase::Countdown || phase_ == Phase::Raised)
        return;
    if (standingAside_) {
        journal_.state(QStringLiteral("update"),
                       QStringLiteral("installing — no lockout starts until the new version runs"));
        return;
    }
    enter(Phase::Countdown);
    prebuild();
}

void AppController::markServed(const Block& block) {
    firedToday_.insert(block.key());
    prefs_.setFiredBlocksDay(calendar().dayNumber(clock_.now()));
    prefs_.setFiredBlocks(firedToday_);
}

std::optional<Block> AppController::overdueRetestBlock() {
    if (prefs_.retestDueInDays() >= 1)
        return std::nullopt;
    const auto reportedAt = prefs_.retestReportedAt();
    const QDateTime now = clock_.now();
    // A report older than a week is stale; without any report there is nothing to retest.
    if (!reportedAt || reportedAt->secsTo(now) >= Settings::retestStaleAfterSeconds)
        return std::nullopt;
    const auto local = calendar().localTime(now);
    if (!local)
        return std::nullopt;
    return Block{QString::asprintf("%02d:%02d", local->hour, local->minute),
                 QStringLiteral("Fitness test"), Block::Kind::Retest, std::nullopt, std::nullopt};
}

// ---- what a lockout shows -----------------------------------------------------------------

std::optional<QString> AppController::webRoot() const {
    return webRoot_ ? webRoot_ : BundleRoutes::bundledRoot();
}

QJsonObject AppController::nativeFor(PageMode mode, bool shown,
                                     const std::optional<QString>& blockLabel) const {
    return BridgeMessages::nativeState(mode, shown, blockLabel, week_, ledger_, prefs_);
}

LockoutPage AppController::pageFor(LockoutPage::Kind kind, const QString& root) const {
    LockoutPage page;
    page.kind = kind;
    page.webRoot = root;
    // What the shield around the page says, decided here: whatever draws reads no file.
    page.standing = ledger_.standing();
    page.escapePhrase = prefs_.escapePhrase();
    page.hintDelay = prefs_.hintDelay();
    return page;
}

std::optional<LockoutPage> AppController::workoutPage() const {
    const auto root = webRoot();
    if (!root || (pendingBlock_ && pendingBlock_->kind == Block::Kind::Away))
        return std::nullopt;
    const bool retest = pendingBlock_ && pendingBlock_->kind == Block::Kind::Retest;
    std::optional<QString> label;
    if (pendingBlock_ && pendingBlock_->kind == Block::Kind::Workout)
        label = pendingBlock_->label;
    LockoutPage page =
        pageFor(retest ? LockoutPage::Kind::Retest : LockoutPage::Kind::Workout, *root);
    page.native = nativeFor(retest ? PageMode::Retest : PageMode::Locked, true, label);
    // The camera coach, when chosen, runs from every path but the fitness check.
    const auto workout = prefs_.lockoutWorkoutID();
    if (!retest && workout && isCoachWorkout(*workout)) {
        page.kind = LockoutPage::Kind::Coach;
        page.coachWorkout = *workout;
        page.requiredCleanReps = prefs_.requiredCleanReps();
    }
    return page;
}

void AppController::prebuild() {
    dropPrebuilt();
    const auto page = workoutPage();
    if (!page || !prefs_.lockoutWorkoutID())
        return;
    // The camera coach opens the camera only once the shield is up; nothing to prepare for it.
    if (page->kind == LockoutPage::Kind::Coach)
        return;
    screens_.prepare(*page);
    prepared_ = true;
}

void AppController::dropPrebuilt() {
    if (!prepared_)
        return;
    prepared_ = false;
    screens_.dropPrepared();
}

void AppController::raiseLockout(bool rehearsal) {
    if (screens_.isUp() || standingAside_)
        return;
    if (!prefs_.lockoutWorkoutID() && !rehearsal) {
        dropPrebuilt();
        Q_EMIT setupWindowWanted();
        Q_EMIT alertRequested(
            QStringLiteral("Choose a workout first."),
            QStringLiteral("Tovin won't lock your screen until you've picked what the lockout "
                           "should run. Pick one in the setup window and it'll start holding "
                           "you to it."));
        return;
    }
    const auto root = webRoot();
    if (!root || !QFileInfo(*root + u"/index.html").isFile()) {
        dropPrebuilt();
        explainAndQuit(QStringLiteral("Workout UI is missing."),
                       QStringLiteral("Tovin couldn't find its bundled web app, so it didn't lock "
                                      "anything. Rebuild with ./scripts/run.sh, which stages it "
                                      "beside the app."));
        return;
    }
    enter(Phase::Raised);
    rehearsing_ = rehearsal;
    // On disk while it is up: a lockout cut short from outside is found at the next launch.
    if (!rehearsal)
        mark_.set(lockoutExercise(), clock_.now());
    // The break warning's standing counts what another copy of Tovin recorded too.
    ledger_.refresh();
    screens_.hideSetup();

    if (pendingBlock_ && pendingBlock_->kind == Block::Kind::Away) {
        const Block block = *pendingBlock_;
        markServed(block);
        dropPrebuilt();
        const double held = Schedule::heldMinutes(block);
        LockoutPage page = pageFor(LockoutPage::Kind::Away, *root);
        page.awayLabel = block.label;
        page.awayEndsAt = clock_.now().addMSecs(qint64(held * 60'000));
        awayTimer_ = clock_.singleShot(held * 60.0, [this, block] {
            end({Ending::Kind::AwayServed, block.label});
        });
        // The valve outlasts the away time by two minutes, unless the setting is shorter.
        screens_.raise(page, rehearsal, std::min(prefs_.maxShieldMinutes(), held + 2));
        return;
    }
    if (pendingBlock_)
        markServed(*pendingBlock_);
    // The page prepared behind the countdown serves when it is the one this lockout needs;
    // whatever draws judges that.
    prepared_ = false;
    screens_.raise(*workoutPage(), rehearsal, prefs_.maxShieldMinutes());
}

// ---- endings ------------------------------------------------------------------------------

void AppController::end(const Ending& ending) {
    const EndingRule rule = ruleFor(ending.kind);
    // Once: a second ending (a break finished in the seconds a completed workout stays up, a
    // panic after it) finds the lockout over and changes nothing.
    if (phase_ != Phase::Raised || (rule.needsShieldUp && !screens_.isUp()))
        return;
    enter(Phase::Ending);
    const QString exercise = ending.exercise.isEmpty() ? lockoutExercise() : ending.exercise;
    const QString rehearsalNote = rehearsing_ ? QStringLiteral(" (rehearsal)") : QString();
    // Every ending but the panic leaves a line, so --why can tell what happened to it.
    const auto journalEnding = [&](const QString& how) {
        journal_.note(QStringLiteral("shield"), u"lockout ended — " + how + rehearsalNote);
    };
    if (rule.words)
        journalEnding(QString::fromUtf8(rule.words));

    switch (ending.kind) {
    case Ending::Kind::AwayServed: {
        // Walking away for the whole block is what was promised; being idle since long before
        // it began (a machine left on all morning) is not.
        const double idle = idle_.secondsSinceLastInput();
        const double held = pendingBlock_ ? Schedule::heldMinutes(*pendingBlock_) : 0;
        if (Presence::wasPresent(idle, held))
            record({{}, PromiseRecord::Outcome::Tovin, exercise, 0, 0, std::nullopt, true});
        else
            journal_.note(QStringLiteral("ledger"),
                          exercise + u" not recorded — machine already idle " +
                              wholeMinutes(idle / 60.0) + u" min when the block began");
        screens_.lower();
        break;
    }
    case Ending::Kind::Broken:
        journalEnding(
            u"promise broken (" +
            (ending.reason ? toString(*ending.reason) : QStringLiteral("no reason given")) + u')');
        record({{}, PromiseRecord::Outcome::Broken, exercise, 0, 0, ending.reason, std::nullopt});
        break;
    case Ending::Kind::HelperLost:
        // The screen is back (the windows went with the process). Killed from outside, it is a
        // way out like any other and on the record; a crash or a hang is Tovin's own fault.
        journal_.note(QStringLiteral("shield"), u"released — " + ending.detail);
        if (ending.stoppedFromOutside && !rehearsing_)
            recordCutShort(exercise, clock_.now(),
                           QStringLiteral("its screen helper was stopped from outside"));
        else
            journalEnding(QStringLiteral("the screen went with its helper, nothing recorded"));
        break;
    case Ending::Kind::PageFailed:
        // Never hold a machine for a blank window: the screen comes back first.
        screens_.lower();
        journal_.note(QStringLiteral("shield"), u"released — the workout screen failed: " +
                                                    ending.detail.section(u'\n', 0, 0));
        break;
    default:
        if (rule.recorded)
            record(
                {{}, *rule.recorded, exercise, ending.reps, ending.cleanReps, std::nullopt, false});
        break;
    }

    switch (rule.then) {
    case Then::StandDown:
        standDown();
        break;
    case Then::LowerThenStandDown:
        if (!rehearsing_)
            screens_.showStanding(ledger_.standingJSON());
        // Long enough to see the new standing on the page before the screen comes back.
        lowerTimer_ = clock_.singleShot(3.0, [this] {
            screens_.lower();
            standDown();
        });
        break;
    case Then::LowerThenQuit:
        screens_.coachDone(ledger_.streak());
        clearBusyMark();
        lowerTimer_ = clock_.singleShot(2.6, [this] {
            screens_.lower();
            Q_EMIT quitRequested();
        });
        break;
    case Then::Quit:
        clearBusyMark();
        Q_EMIT quitRequested();
        break;
    case Then::ExplainAndQuit:
        clearBusyMark();
        explainAndQuit(QStringLiteral("The workout screen didn't load."),
                       u"Tovin released your screen rather than hold it for a blank window.\n\n" +
                           ending.detail);
        break;
    }
    if (ending.kind == Ending::Kind::HelperLost) {
        // Said as it is: like every ending, this one is final until Tovin starts again, so the
        // person is told how to have it watch again.
        const QString onRecord =
            ending.stoppedFromOutside && !rehearsing_
                ? QStringLiteral("It was stopped from outside, so this lockout is on the "
                                 "record as a broken promise. ")
                : QString();
        Q_EMIT alertRequested(QStringLiteral("The workout screen stopped."),
                              u"Tovin released your screen rather than hold it without a "
                              u"watcher. " +
                                  onRecord +
                                  u"Nothing more locks until you quit Tovin and open it again, "
                                  u"or choose Lock Me Out Now.");
    }
}

void AppController::record(PromiseRecord promise) {
    promise.date = clock_.now();
    ledger_.record(std::move(promise), rehearsing_);
}

QString AppController::lockoutExercise() const {
    return pendingBlock_ ? pendingBlock_->label
                         : prefs_.lockoutWorkoutID().value_or(QStringLiteral("Workout"));
}

void AppController::recordCutShort(const QString& exercise, const QDateTime& when,
                                   const QString& how) {
    // Ending Tovin is not a way out: only the designed endings, and the panic, leave no record.
    journal_.note(QStringLiteral("shield"), u"lockout ended — " + how + u", recorded as broken");
    PromiseRecord promise{when, PromiseRecord::Outcome::Broken, exercise,    0,
                          0,    PromiseRecord::Reason::Stopped, std::nullopt};
    ledger_.record(std::move(promise), false);
}

void AppController::clearBusyMark() {
    // The page marks the person mid-workout while it runs; once its lockout has ended that mark
    // must not hold off whatever comes next.
    if (prefs_.busyUntil() || prefs_.busyReason()) {
        prefs_.setBusyUntil(std::nullopt);
        prefs_.setBusyReason(std::nullopt);
    }
}

void AppController::standDown() {
    clearBusyMark();
    awayTimer_.reset();
    lowerTimer_.reset();
    pendingBlock_.reset();
    if (rehearsing_)
        Q_EMIT setupWindowWanted();
    usage_.reset();
    if (!usage_.isRunning())
        usage_.start();
}

void AppController::explainAndQuit(const QString& title, const QString& detail) {
    if (rehearsalOnly_) {
        const QString line =
            u"explainAndQuit (suppressed under --self-test): " + title + u" — " + detail;
        std::printf("%s\n", line.toUtf8().constData());
        std::fflush(stdout);
        return;
    }
    Q_EMIT alertRequested(title, detail);
    Q_EMIT quitRequested();
}

// ---- what the screens report --------------------------------------------------------------

void AppController::pageMessage(PageRole role, const QJsonObject& message) {
    // Only the page over the shield finishes a lockout; the others' messages are the same
    // settings and week the person edits.
    if (role != PageRole::Lockout && message.value(u"type").toString() == u"workoutComplete")
        return;
    bridge_.apply(message);
}

void AppController::pageFailed(PageRole role, const QString& detail) {
    switch (role) {
    case PageRole::Prepared:
        // No screen was taken, so there is nothing to release and no reason to quit: the raise
        // builds the page again, and a page that fails over the shield ends the lockout.
        journal_.note(QStringLiteral("shield"),
                      u"the prepared workout screen failed before the shield rose; building it "
                      u"again at the raise — " +
                          detail.section(u'\n', 0, 0));
        dropPrebuilt();
        break;
    case PageRole::Lockout: {
        Ending ending{Ending::Kind::PageFailed};
        ending.detail = detail;
        end(ending);
        break;
    }
    case PageRole::Setup:
        // No screen is held, so nothing is released and the watch goes on.
        journal_.note(QStringLiteral("shield"),
                      u"the setup screen failed — " + detail.section(u'\n', 0, 0));
        screens_.hideSetup();
        Q_EMIT alertRequested(QStringLiteral("The setup screen didn't load."),
                              u"Nothing was locked. Open the setup window again to retry.\n\n" +
                                  detail);
        break;
    }
}

void AppController::screensLost(const QString& why, bool stoppedFromOutside) {
    prepared_ = false;
    if (phase_ == Phase::Raised) {
        Ending ending{Ending::Kind::HelperLost};
        ending.detail = why;
        ending.stoppedFromOutside = stoppedFromOutside;
        end(ending);
        return;
    }
    // Only a setup window or a prepared page went; the next need starts a fresh helper.
    journal_.note(QStringLiteral("shield"), why + u" — nothing was held");
    // A window that vanishes (or never comes) is never left unexplained, but said once: a
    // helper that cannot start at all would otherwise say it at every try.
    if (!toldScreensLost_) {
        toldScreensLost_ = true;
        Q_EMIT alertRequested(QStringLiteral("Tovin couldn't show its window."),
                              u"Its screen helper stopped (" + why +
                                  u"). Open the setup window to try again; tovin --why and the "
                                  u"journal have the details.");
    }
}

// ---- pause and the menu's words -----------------------------------------------------------

void AppController::pauseAnHour() {
    pausedUntil_ = clock_.now().addSecs(3600);
    usage_.stop();
    deferTimer_.reset();
    leaveCountdown();
    dropPrebuilt(); // a paused hour holds no page ready in the background
    pauseTimer_ = clock_.singleShot(3600, [this] { resumeWatching(); });
    Q_EMIT pausedChanged(true);
}

void AppController::resumeWatching() {
    pausedUntil_.reset();
    pauseTimer_.reset();
    usage_.reset();
    if (!usage_.isRunning())
        usage_.start();
    Q_EMIT pausedChanged(false);
}

QString AppController::statusLine() {
    const QDateTime now = clock_.now();
    MenuWords::StatusInputs in;
    in.shieldUp = screens_.isUp();
    if (pausedUntil_)
        in.pausedSecondsLeft = double(now.msecsTo(*pausedUntil_)) / 1000.0;
    const Calendar cal = calendar();
    in.next = schedule_.upcoming(now, firedToday_, cal);
    in.hoursAllow = prefs_.scheduleAllows(now, cal);
    in.usageRunning = usage_.isRunning();
    in.workoutChosen = prefs_.lockoutWorkoutID().has_value();
    in.triggerSeconds = prefs_.triggerAfterMinutes() * 60.0;
    in.continuousUseSeconds = usage_.continuousUseSeconds();
    return MenuWords::status(in);
}

QString AppController::standingLine() const {
    return MenuWords::standing(ledger_.records().size(), ledger_.streak(), ledger_.tovin(),
                               ledger_.broken());
}

} // namespace tovin

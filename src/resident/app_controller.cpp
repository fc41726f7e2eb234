#include "resident/app_controller.h"

#include "core/coaches.h"
#include "resident/guards/call_detector.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/journal.h"
#include "resident/records/save_failures.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"
#include "core/bundle_routes.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <cstdio>

#include <cmath>

namespace tovin {

namespace {

// Whole minutes for log text, truncated toward zero.
QString wholeMinutes(double minutes) {
    Q_ASSERT(std::isfinite(minutes));
    return QString::number(qint64(std::trunc(minutes)));
}

} // namespace

AppController::AppController(const AppDependencies& deps, QObject* parent)
    : QObject(parent)
    , clock_(deps.clock)
    , idle_(deps.idle)
    , screens_(deps.screens)
    , ledger_(deps.ledger)
    , scheduleURL_(deps.scheduleURL.isEmpty() ? ScheduleStore::url() : deps.scheduleURL)
    , mark_(deps.lockoutMarkURL.isEmpty() ? LockoutMark::defaultPath() : deps.lockoutMarkURL)
    , bridge_(scheduleURL_, ledger_, clock_)
    , countdown_(clock_)
    , usage_(clock_, idle_) {
    // A lockout already owed (snoozed, or waiting out a hold-off) comes back through its own
    // deferral; the usage path neither doubles it nor cuts it short.
    connect(&usage_, &UsageWatcher::due, this, [this] {
        if (!hasPendingDeferral())
            lockoutBecameDue();
    });
    connect(&countdown_, &CountdownPanel::fired, this, [this] {
        snoozesUsed_ = 0;
        raiseLockout(rehearsalOnly_);
    });
    connect(&countdown_, &CountdownPanel::snoozed, this, [this] {
        dropPrebuilt();
        ++snoozesUsed_;
        deferLockout(Settings::snoozeMinutes(), QStringLiteral("you asked for a few more minutes"));
    });
    connect(&countdown_, &CountdownPanel::cancelled, this, [this](const QString& reason) {
        dropPrebuilt();
        deferLockout(tovinPause, reason);
    });
    connect(&bridge_, &BridgeMessages::workoutCompleted, this, &AppController::workoutCompleted);
    connect(&bridge_, &BridgeMessages::settingsSaved, this, &AppController::settingsChanged);
    connect(&screens_, &Screens::shieldWasBroken, this, &AppController::shieldWasBroken);
    connect(&screens_, &Screens::shieldTimedOut, this, &AppController::shieldTimedOut);
    connect(&screens_, &Screens::shieldPanicked, this, &AppController::shieldPanicked);
    connect(&screens_, &Screens::shieldYielded, this, &AppController::shieldYielded);
    connect(&screens_, &Screens::pageMessage, this, &AppController::pageMessage);
    connect(&screens_, &Screens::pageFailed, this, &AppController::pageFailed);
    connect(&screens_, &Screens::coachFinished, this, &AppController::finishTovin);
    connect(&screens_, &Screens::screensLost, this, &AppController::screensLost);
    // What draws keeps no journal: its lines are written here.
    connect(&screens_, &Screens::noted, this, &Journal::note);
}

AppController::~AppController() {
    disconnect(scheduleChanged_);
}

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
    schedule_ = Schedule(ScheduleStore::load(scheduleURL_));
}

void AppController::startScheduleWatch() {
    // A lockout the last copy left up: Tovin was killed under it, or the machine restarted.
    if (const auto cut = mark_.takeAbandoned())
        recordCutShort(cut->exercise, cut->raisedAt.isValid() ? cut->raisedAt : clock_.now(),
                       QStringLiteral("Tovin was stopped during the lockout (found at launch)"));
    ScheduleStore::writeExampleIfMissing(scheduleURL_);
    reloadSchedule();

    scheduleTimer_ = clock_.createTimer([this] { onScheduleTimer(); });
    scheduleTimer_->start(scheduleInterval, true);
    // The person may edit the week by hand: that counts as soon as it is saved, like a save
    // from the setup page.
    scheduleFileWatch_ = std::make_unique<ScheduleFileWatch>(scheduleURL_);

    disconnect(scheduleChanged_);
    scheduleChanged_ = connect(ScheduleChangeNotifier::instance(),
                               &ScheduleChangeNotifier::tovinScheduleChanged, this, [this] {
                                   reloadSchedule();
                                   Q_EMIT settingsChanged();
                                   firedToday_.clear(); // in memory only; the stored set stays
                                   Journal::note(QStringLiteral("schedule"),
                                                 u"reloaded — " +
                                                     QString::number(schedule_.blocks().size()) +
                                                     u" block(s)");
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
    Journal::note(QStringLiteral("power"), QStringLiteral("sleeping"));
}

void AppController::machineDidWake() {
    const QDateTime now = clock_.now();
    if (sleptAt_)
        Journal::note(QStringLiteral("power"),
                      u"woke after " + wholeMinutes(double(sleptAt_->msecsTo(now)) / 60000.0) +
                          u" min asleep");
    else
        Journal::note(QStringLiteral("power"), QStringLiteral("woke"));
    sleptAt_.reset();
    // Only a launch that watches the schedule ticks; a rehearsal or a probe has none to run.
    if (scheduleTimer_)
        checkSchedule();
}

void AppController::checkSchedule() {
    const QDateTime now = clock_.now();
    lastTickAt_ = now;
    screens_.enforceValve(now);
    // Whatever could not be saved (a full disk, a read-only folder) is tried again.
    SaveFailures::retryPending();
    Q_EMIT ticked();

    const Calendar cal = calendar();
    const qint64 today = cal.dayNumber(now);
    if (today != firedDay_) {
        firedDay_ = today;
        firedToday_ = Settings::firedBlocksDay() == today ? Settings::firedBlocks() : FiredSet();
        Settings::setFiredBlocksDay(today);
        Settings::setFiredBlocks(firedToday_);
        Journal::note(QStringLiteral("day"),
                      firedToday_.isEmpty()
                          ? QStringLiteral("rolled over — fired set cleared")
                          : u"resumed — " + QString::number(firedToday_.size()) +
                                u" block(s) already served today");
    }

    TickState state;
    state.shieldUp = shieldIsUp();
    state.countdownShowing = countdown_.isShowing();
    state.finished = finished_;
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
        if (!state.holdOff && pendingBlock_ && hasPendingDeferral())
            state.holdOff = u"deferred — " + deferReason_;
        if (state.holdOff)
            tick = schedule_.tick(now, firedToday_, state, cal);
    }
    Journal::state(QStringLiteral("schedule"), tick.summary());

    switch (tick.kind()) {
    case Tick::Case::Fire: {
        const Block& block = *tick.block();
        Journal::note(QStringLiteral("schedule"), u"firing " + block.label);
        pendingBlock_ = block;
        warnThenLock();
        break;
    }
    case Tick::Case::Holding:
        Journal::state(QStringLiteral("hold"), tick.block()->label + u" held — " + tick.reason());
        break;
    case Tick::Case::Idle:
        break;
    }
}

std::optional<QString> AppController::holdOffReason() {
    const CallDetector::State call = CallDetector::current();
    if (CallDetector::isBusy(call))
        return CallDetector::explanation(call);
    if (Settings::isBusy(clock_.now()))
        return Settings::busyReason().value_or(QStringLiteral("you're mid-session"));

    const double idle = idle_.secondsSinceLastInput();
    // Whatever draws the setup window knows whether it has the keyboard.
    const bool isKey = screens_.setupIsActive();
    if (usingSetupWindow(isKey, screens_.setupIsVisible(), isKey, idle))
        return QStringLiteral("you're using the setup window");
    if (nobodyHome(idle))
        return u"nobody at the desk — idle " + wholeMinutes(idle / 60.0) + u" min";
    if (!Settings::lockoutWorkoutID())
        return QStringLiteral("setup isn't finished — nothing chosen to run");
    return std::nullopt;
}

bool AppController::usingSetupWindow(bool isKey, bool isVisible, bool appActive,
                                     double idleSeconds, double activeWithin) {
    return isKey && isVisible && appActive && idleSeconds < activeWithin;
}

bool AppController::nobodyHome(double idleSeconds, double threshold) {
    return idleSeconds >= threshold;
}

void AppController::lockoutBecameDue() {
    // Once a lockout has ended, the usage path and every pending deferral stay inert until the
    // schedule raises the next lockout. Deliberate: an ending is final for this round.
    if (shieldIsUp() || finished_)
        return;
    if (const auto reason = holdOffReason()) {
        deferLockout(tovinPause, *reason);
        return;
    }
    if (!Settings::scheduleAllows(clock_.now(), calendar())) {
        Journal::state(QStringLiteral("usage"),
                       QStringLiteral("outside the hours you set — dropped, not queued"));
        return;
    }
    warnThenLock();
}

void AppController::deferLockout(double minutes, const QString& because) {
    Journal::note(QStringLiteral("defer"),
                  u"usage lockout deferred " + wholeMinutes(minutes) + u"m — " + because);
    // Replacing the timer destroys the old one: there is never more than one deferral.
    deferReason_ = because;
    deferTimer_ = clock_.singleShot(minutes * 60.0, [this] { lockoutBecameDue(); });
}

void AppController::warnThenLock() {
    if (countdown_.isShowing())
        return;
    if (standingAside_) {
        Journal::state(QStringLiteral("update"),
                       QStringLiteral("installing — no lockout starts until the new version runs"));
        return;
    }
    const int snoozesLeft = std::max(0, Settings::snoozesPerLockout() - snoozesUsed_);
    countdown_.show(Settings::warningSeconds(), snoozesLeft);
    prebuild();
}

std::optional<QString> AppController::webRoot() const {
    return webRoot_ ? webRoot_ : BundleRoutes::bundledRoot();
}

QJsonObject AppController::nativeFor(PageMode mode, bool shown, const std::optional<QString>& blockLabel) const {
    return BridgeMessages::nativeState(mode, shown, blockLabel, scheduleURL_, ledger_);
}

std::optional<LockoutPage> AppController::workoutPage() const {
    const auto root = webRoot();
    if (!root || (pendingBlock_ && pendingBlock_->kind == Block::Kind::Away))
        return std::nullopt;
    const bool retest = pendingBlock_ && pendingBlock_->kind == Block::Kind::Retest;
    std::optional<QString> label;
    if (pendingBlock_ && pendingBlock_->kind == Block::Kind::Workout)
        label = pendingBlock_->label;
    LockoutPage page;
    page.kind = retest ? LockoutPage::Kind::Retest : LockoutPage::Kind::Workout;
    page.webRoot = *root;
    page.native = nativeFor(retest ? PageMode::Retest : PageMode::Locked, true, label);
    page.standing = ledger_.standing();
    page.escapePhrase = Settings::escapePhrase();
    page.hintDelay = Settings::hintDelay();
    // The camera coach, when chosen, runs from every path but the fitness check.
    if (!retest && choseCameraCoach()) {
        page.kind = LockoutPage::Kind::Coach;
        page.coachWorkout = *Settings::lockoutWorkoutID();
        page.requiredCleanReps = Settings::requiredCleanReps();
    }
    return page;
}

bool AppController::choseCameraCoach() const {
    const auto id = Settings::lockoutWorkoutID();
    return id && isCoachWorkout(*id);
}

void AppController::prebuild() {
    dropPrebuilt();
    const auto page = workoutPage();
    if (!page || !Settings::lockoutWorkoutID())
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

void AppController::preparedPageFailed(const QString& detail) {
    // No screen was taken, so there is nothing to release and no reason to quit: the raise
    // builds the page again, and a page that fails over the shield ends the lockout as usual.
    Journal::note(QStringLiteral("shield"), u"the prepared workout screen failed before the shield "
                                            u"rose; building it again at the raise — " +
                                                detail.section(u'\n', 0, 0));
    dropPrebuilt();
}

void AppController::journalEnding(const QString& how) {
    // Every ending leaves one line, so --why can tell what happened to the last lockout.
    Journal::note(QStringLiteral("shield"),
                  u"lockout ended — " + how + (rehearsing_ ? QStringLiteral(" (rehearsal)") : QString()));
}

void AppController::clearLockoutMark() {
    // The page marks the person mid-workout while it runs; once its lockout has ended that mark
    // must not hold off whatever comes next.
    if (Settings::busyUntil() || Settings::busyReason()) {
        Settings::setBusyUntil(std::nullopt);
        Settings::setBusyReason(std::nullopt);
    }
}

void AppController::markServed(const Block& block) {
    firedToday_.insert(block.key());
    Settings::setFiredBlocksDay(calendar().dayNumber(clock_.now()));
    Settings::setFiredBlocks(firedToday_);
}

std::optional<Block> AppController::overdueRetestBlock() {
    if (Settings::retestDueInDays() >= 1)
        return std::nullopt;
    const auto reportedAt = Settings::retestReportedAt();
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

void AppController::raiseLockout(bool rehearsal) {
    if (shieldIsUp() || standingAside_)
        return;
    if (!Settings::lockoutWorkoutID() && !rehearsal) {
        dropPrebuilt();
        Q_EMIT setupWindowWanted();
        Q_EMIT alertRequested(QStringLiteral("Choose a workout first."),
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
    finished_ = false;
    raised_ = true;
    rehearsing_ = rehearsal;
    // On disk while it is up: a lockout cut short from outside is found at the next launch.
    if (!rehearsal)
        mark_.set(lockoutExercise(), clock_.now());
    // The break warning's standing counts what another copy of Tovin recorded too.
    ledger_.refresh();
    deferTimer_.reset();
    countdown_.dismiss();
    screens_.hideSetup();

    if (pendingBlock_ && pendingBlock_->kind == Block::Kind::Away) {
        const Block block = *pendingBlock_;
        markServed(block);
        dropPrebuilt();
        const double held = Schedule::heldMinutes(block);
        LockoutPage page;
        page.kind = LockoutPage::Kind::Away;
        page.webRoot = *root;
        page.awayLabel = block.label;
        page.awayEndsAt = clock_.now().addMSecs(qint64(held * 60'000));
        page.standing = ledger_.standing();
        page.escapePhrase = Settings::escapePhrase();
        page.hintDelay = Settings::hintDelay();
        awayTimer_ = clock_.singleShot(held * 60.0, [this, block] { awayBlockTovin(block); });
        // The valve outlasts the away time by two minutes, unless the setting is shorter.
        screens_.raise(page, rehearsal, std::min(Settings::maxShieldMinutes(), held + 2));
        return;
    }
    if (pendingBlock_)
        markServed(*pendingBlock_);
    // The page prepared behind the countdown serves when it is the one this lockout needs;
    // whatever draws judges that.
    prepared_ = false;
    screens_.raise(*workoutPage(), rehearsal, Settings::maxShieldMinutes());
}

bool AppController::wasPresent(double idleAtEnd, double heldMinutes, double margin) {
    return idleAtEnd <= heldMinutes * 60.0 + margin;
}

void AppController::record(PromiseRecord promise) {
    promise.date = clock_.now();
    ledger_.record(std::move(promise), rehearsing_);
}

void AppController::awayBlockTovin(const Block& block) {
    if (finished_)
        return;
    finished_ = true;
    mark_.clear();
    const double idle = idle_.secondsSinceLastInput();
    // Walking away for the whole block is what was promised; being idle since long before it
    // began (a machine left on all morning) is not.
    journalEnding(QStringLiteral("away block served"));
    if (wasPresent(idle, Schedule::heldMinutes(block)))
        record({{}, PromiseRecord::Outcome::Tovin, block.label, 0, 0, std::nullopt, true});
    else
        Journal::note(QStringLiteral("ledger"), block.label + u" not recorded — machine already idle " +
                                                    wholeMinutes(idle / 60.0) +
                                                    u" min when the block began");
    screens_.lower();
    standDown();
}

void AppController::workoutCompleted(const QString& exercise, qint64 reps) {
    if (!shieldIsUp() || finished_)
        return;
    finished_ = true;
    mark_.clear();
    journalEnding(QStringLiteral("workout completed"));
    record({{}, PromiseRecord::Outcome::Tovin, exercise, reps, reps, std::nullopt, false});
    if (!rehearsing_)
        screens_.showStanding(ledger_.standingJSON());
    // Long enough to see the new standing on the page before the screen comes back.
    lowerTimer_ = clock_.singleShot(3.0, [this] {
        screens_.lower();
        standDown();
    });
}

// Every ending acts once: a second one (a break finished in the seconds a completed workout
// stays up, a panic after it) finds the lockout over and changes nothing.
void AppController::shieldWasBroken(std::optional<PromiseRecord::Reason> reason) {
    if (finished_)
        return;
    finished_ = true;
    mark_.clear();
    journalEnding(u"promise broken (" + (reason ? toString(*reason) : QStringLiteral("no reason given")) + u')');
    record({{}, PromiseRecord::Outcome::Broken, lockoutExercise(), 0, 0, reason, std::nullopt});
    standDown();
}

QString AppController::lockoutExercise() const {
    return pendingBlock_ ? pendingBlock_->label
                         : Settings::lockoutWorkoutID().value_or(QStringLiteral("Workout"));
}

void AppController::recordCutShort(const QString& exercise, const QDateTime& when,
                                   const QString& how) {
    // Ending Tovin is not a way out: only the designed endings, and the panic, leave no record.
    Journal::note(QStringLiteral("shield"), u"lockout ended — " + how + u", recorded as broken");
    PromiseRecord promise{when, PromiseRecord::Outcome::Broken, exercise,    0,
                          0,    PromiseRecord::Reason::Stopped, std::nullopt};
    ledger_.record(std::move(promise), false);
}

void AppController::shieldPanicked() {
    if (finished_)
        return;
    finished_ = true;
    mark_.clear();
    // The way out that leaves no trace, as the start window promises: not even a journal line.
    clearLockoutMark();
    Q_EMIT quitRequested();
}

void AppController::shieldYielded() {
    if (finished_)
        return;
    finished_ = true;
    mark_.clear();
    journalEnding(QStringLiteral("yielded to the system, nothing recorded"));
    standDown();
}

void AppController::shieldTimedOut() {
    if (finished_)
        return;
    finished_ = true;
    mark_.clear();
    journalEnding(QStringLiteral("the safety valve released the screen, nothing recorded"));
    standDown();
}

void AppController::finishTovin(const QString& exercise, qint64 reps, qint64 cleanReps) {
    if (!shieldIsUp() || finished_)
        return;
    finished_ = true;
    mark_.clear();
    journalEnding(QStringLiteral("camera coach finished"));
    record({{}, PromiseRecord::Outcome::Tovin, exercise, reps, cleanReps, std::nullopt, false});
    screens_.coachDone(ledger_.streak());
    clearLockoutMark();
    lowerTimer_ = clock_.singleShot(2.6, [this] {
        screens_.lower();
        Q_EMIT quitRequested();
    });
}

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
        preparedPageFailed(detail);
        break;
    case PageRole::Lockout:
        workoutWebFailed(detail);
        break;
    case PageRole::Setup:
        // No screen is held, so nothing is released and the watch goes on.
        Journal::note(QStringLiteral("shield"), u"the setup screen failed — " + detail.section(u'\n', 0, 0));
        screens_.hideSetup();
        Q_EMIT alertRequested(QStringLiteral("The setup screen didn't load."),
                              u"Nothing was locked. Open the setup window again to retry.\n\n" +
                                  detail);
        break;
    }
}

void AppController::screensLost(const QString& why, bool stoppedFromOutside) {
    prepared_ = false;
    if (!raised_ || finished_) {
        // Only a setup window or a prepared page went; the next need starts a fresh helper.
        Journal::note(QStringLiteral("shield"), why + u" — nothing was held");
        // A window that vanishes (or never comes) is never left unexplained, but said once: a
        // helper that cannot start at all would otherwise say it at every try.
        if (!toldScreensLost_) {
            toldScreensLost_ = true;
            Q_EMIT alertRequested(QStringLiteral("Tovin couldn't show its window."),
                                  u"Its screen helper stopped (" + why +
                                      u"). Open the setup window to try again; tovin --why and the "
                                      u"journal have the details.");
        }
        return;
    }
    // The screen is back (the windows went with the process). Killed from outside, it is a way
    // out like any other and on the record; a crash or a hang is Tovin's own fault, and not.
    finished_ = true;
    mark_.clear();
    Journal::note(QStringLiteral("shield"), u"released — " + why);
    if (stoppedFromOutside && !rehearsing_)
        recordCutShort(lockoutExercise(), clock_.now(),
                       QStringLiteral("its screen helper was stopped from outside"));
    else
        journalEnding(QStringLiteral("the screen went with its helper, nothing recorded"));
    standDown();
    // Said as it is: like every ending, this one is final until Tovin starts again (the gate on
    // finished lockouts), so the person is told how to have it watch again.
    const QString record =
        stoppedFromOutside && !rehearsing_
            ? QStringLiteral("It was stopped from outside, so this lockout is on the "
                             "record as a broken promise. ")
            : QString();
    Q_EMIT alertRequested(
        QStringLiteral("The workout screen stopped."),
        u"Tovin released your screen rather than hold it without a watcher. " + record +
            u"Nothing more locks until you quit Tovin and open it again, or choose "
            u"Lock Me Out Now.");
}

void AppController::workoutWebFailed(const QString& detail) {
    if (!shieldIsUp() || finished_)
        return;
    finished_ = true;
    mark_.clear();
    clearLockoutMark();
    // Never hold a machine for a blank window: the screen comes back first.
    screens_.lower();
    Journal::note(QStringLiteral("shield"),
                  u"released — the workout screen failed: " + detail.section(u'\n', 0, 0));
    explainAndQuit(QStringLiteral("The workout screen didn't load."),
                   u"Tovin released your screen rather than hold it for a blank window.\n\n" +
                       detail);
}

void AppController::standDown() {
    clearLockoutMark();
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
        QString line = u"explainAndQuit (suppressed under --self-test): " + title + u" — " + detail;
        std::printf("%s\n", line.toUtf8().constData());
        std::fflush(stdout);
        return;
    }
    Q_EMIT alertRequested(title, detail);
    Q_EMIT quitRequested();
}

void AppController::pauseAnHour() {
    pausedUntil_ = clock_.now().addSecs(3600);
    usage_.stop();
    deferTimer_.reset();
    countdown_.dismiss();
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
    StatusInputs in;
    in.shieldUp = shieldIsUp();
    if (pausedUntil_)
        in.pausedSecondsLeft = double(now.msecsTo(*pausedUntil_)) / 1000.0;
    const Calendar cal = calendar();
    in.next = schedule_.upcoming(now, firedToday_, cal);
    in.hoursAllow = Settings::scheduleAllows(now, cal);
    in.usageRunning = usage_.isRunning();
    in.workoutChosen = Settings::lockoutWorkoutID().has_value();
    in.triggerSeconds = Settings::triggerAfterMinutes() * 60.0;
    in.continuousUseSeconds = usage_.continuousUseSeconds();
    return statusLine(in);
}

QString AppController::statusLine(const StatusInputs& in) {
    auto describe = [](const Schedule::Upcoming& next) {
        if (next.minutesAway < 2)
            return QString(next.block.label + u" — any minute");
        return QString(next.block.label + u" in " + QString::number(next.minutesAway) + u" min");
    };
    if (in.shieldUp)
        return QStringLiteral("Locked out now");
    if (in.pausedSecondsLeft)
        return u"Paused — " + QString::number(std::max<qint64>(0, qint64(*in.pausedSecondsLeft / 60))) +
               u" min left";
    if (in.usageRunning && in.workoutChosen) {
        const double left = in.triggerSeconds - in.continuousUseSeconds;
        const qint64 usageLeft = std::max<qint64>(1, qint64(left / 60.0));
        if (left <= 0 && !in.next)
            return QStringLiteral("Due — waiting for a good moment");
        if (in.next && in.next->minutesAway <= usageLeft)
            return describe(*in.next);
        return u"Next lockout in about " + QString::number(usageLeft) + u" min";
    }
    if (in.next)
        return describe(*in.next);
    if (!in.workoutChosen)
        return QStringLiteral("Not set up — nothing will happen");
    return in.hoursAllow ? QStringLiteral("Not watching")
                         : QStringLiteral("Outside your hours — won't interrupt");
}

QString AppController::standingLine() const {
    const PromiseLedger& l = ledger_;
    return standingLine(l.records().size(), l.streak(), l.tovin(), l.broken());
}

QString AppController::standingLine(qsizetype records, int streak, int tovin, int broken) {
    if (records == 0)
        return QStringLiteral("No promises yet");
    const QString prefix = streak > 0 ? QString::number(streak) + u" in a row · "
                                      : QStringLiteral("Streak broken · ");
    return prefix + QString::number(tovin) + u" tovin · " + QString::number(broken) + u" broken";
}

} // namespace tovin

#include "app/app_controller.h"

#include "guards/call_detector.h"
#include "journal/journal.h"
#include "schedule/schedule_store.h"
#include "schedule/settings.h"

#include <QGuiApplication>

#include <cmath>

namespace tovin {

namespace {

// Whole minutes for log text, truncated toward zero.
QString wholeMinutes(double minutes) {
    Q_ASSERT(std::isfinite(minutes));
    return QString::number(qint64(std::trunc(minutes)));
}

} // namespace

AppController::AppController(Clock& clock, IdleSource& idle, QObject* parent)
    : QObject(parent), clock_(clock), idle_(idle), scheduleURL_(ScheduleStore::url()),
      countdown_(clock), usage_(clock, idle) {
    usage_.onDue = [this] { lockoutBecameDue(); };
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
    ScheduleStore::writeExampleIfMissing(scheduleURL_);
    reloadSchedule();

    scheduleTimer_ = clock_.createTimer([this] { onScheduleTimer(); });
    scheduleTimer_->start(scheduleInterval, true);

    disconnect(scheduleChanged_);
    scheduleChanged_ = connect(ScheduleChangeNotifier::instance(),
                               &ScheduleChangeNotifier::tovinScheduleChanged, this, [this] {
                                   reloadSchedule();
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
    checkSchedule();
}

void AppController::checkSchedule() {
    const QDateTime now = clock_.now();
    lastTickAt_ = now;
    if (shield_.enforceValve)
        shield_.enforceValve(now);

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
    state.holdOff = holdOffReason();
    state.retest = overdueRetestBlock();

    const Tick tick = schedule_.tick(now, firedToday_, state, cal);
    Journal::state(QStringLiteral("schedule"), tick.summary());

    switch (tick.kind()) {
    case Tick::Case::Fire: {
        const Block& block = *tick.block();
        Journal::note(QStringLiteral("schedule"), u"firing " + block.label);
        if (const auto reason = holdOffReason()) {
            deferLockout(tovinPause, *reason);
            return;
        }
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
    if (CallDetector::isBusy(call.mic, call.camera))
        return CallDetector::explanation(call.mic, call.camera);
    if (Settings::isBusy(clock_.now()))
        return Settings::busyReason().value_or(QStringLiteral("you're mid-session"));

    const double idle = idle_.secondsSinceLastInput();
    const bool isKey = setupWindow_ && setupWindow_->isActiveWindow();
    const bool isVisible = setupWindow_ && setupWindow_->isVisible();
    const bool appActive = QGuiApplication::applicationState() == Qt::ApplicationActive;
    if (usingSetupWindow(isKey, isVisible, appActive, idle))
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
    deferTimer_ = clock_.singleShot(minutes * 60.0, [this] { lockoutBecameDue(); });
}

void AppController::warnThenLock() {
    if (countdown_.isShowing())
        return;
    const int snoozesLeft = std::max(0, Settings::snoozesPerLockout() - snoozesUsed_);
    countdown_.onFire = [this] {
        snoozesUsed_ = 0;
        raiseLockout(rehearsalOnly_);
    };
    countdown_.onSnooze = [this] {
        ++snoozesUsed_;
        deferLockout(Settings::snoozeMinutes(), QStringLiteral("you asked for a few more minutes"));
    };
    countdown_.onCancel = [this](const QString& reason) { deferLockout(tovinPause, reason); };
    countdown_.show(Settings::warningSeconds(), snoozesLeft);
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
    if (!reportedAt || reportedAt->msecsTo(now) >= 604800LL * 1000)
        return std::nullopt;
    const auto local = calendar().localTime(now);
    if (!local)
        return std::nullopt;
    return Block{QString::asprintf("%02d:%02d", local->hour, local->minute),
                 QStringLiteral("Fitness test"), Block::Kind::Retest, std::nullopt, std::nullopt};
}

void AppController::raiseLockout(bool rehearsal) {
    if (shieldIsUp())
        return;
    if (!Settings::lockoutWorkoutID() && !rehearsal)
        return;
    finished_ = false;
    deferTimer_.reset();
    countdown_.dismiss();
    if (pendingBlock_)
        markServed(*pendingBlock_);
    if (shield_.raised)
        shield_.raised(rehearsal, pendingBlock_);
}

void AppController::shieldYielded() {
    finished_ = true;
    standDown();
}

void AppController::shieldTimedOut() {
    finished_ = true;
    standDown();
}

void AppController::standDown() {
    pendingBlock_.reset();
    usage_.reset();
    if (!usage_.isRunning())
        usage_.start();
}

} // namespace tovin

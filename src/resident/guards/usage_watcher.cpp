#include "resident/guards/usage_watcher.h"

#include "resident/records/settings.h"

namespace tovin {

UsageWatcher::UsageWatcher(Clock& clock, IdleSource& idle, const Preferences& preferences,
                           QObject* parent)
    : QObject(parent)
    , clock_(clock)
    , idle_(idle)
    , prefs_(preferences)
    , lastTick_(clock.now()) {
}

void UsageWatcher::start() {
    if (running_)
        return;
    running_ = true;
    activeSeconds_ = 0;
    lastTick_ = clock_.now();
    timer_ = clock_.createTimer([this] { sample(); });
    timer_->start(sampleSeconds, true);
}

void UsageWatcher::stop() {
    running_ = false;
    timer_.reset();
}

void UsageWatcher::reset() {
    activeSeconds_ = 0;
    lastTick_ = clock_.now();
}

void UsageWatcher::sample() {
    const QDateTime now = clock_.now();
    const double elapsed = double(lastTick_.msecsTo(now)) / 1000.0;
    lastTick_ = now;
    const double idle = idle_.secondsSinceLastInput();
    const double resetAfter = prefs_.idleResetsAfterMinutes() * 60.0;

    // Away long enough, or the machine slept (or the timer stalled) that long: start again.
    if (idle >= resetAfter || elapsed >= resetAfter) {
        activeSeconds_ = 0;
        return;
    }
    if (idle < 30.0) {
        activeSeconds_ += elapsed;
        if (activeSeconds_ >= prefs_.triggerAfterMinutes() * 60.0) {
            activeSeconds_ = 0;
            Q_EMIT due();
        }
    }
}

} // namespace tovin

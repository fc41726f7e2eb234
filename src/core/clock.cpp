#include "core/clock.h"

#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <limits>

namespace tovin {

namespace {

class QtTimer final : public Timer {
public:
    explicit QtTimer(std::function<void()> onTimeout) {
        QObject::connect(&timer_, &QTimer::timeout, &timer_, std::move(onTimeout));
    }
    void start(double seconds, bool repeating) override {
        const double ms =
            std::clamp(seconds * 1000.0, 0.0, double(std::numeric_limits<int>::max()));
        // Timers of a second or more may be coalesced with the system's other wake-ups (5%);
        // the scheduler does not need more precision and the machine sleeps more.
        timer_.setTimerType(ms >= 1000 ? Qt::CoarseTimer : Qt::PreciseTimer);
        timer_.setSingleShot(!repeating);
        timer_.start(int(std::lround(ms)));
    }
    void stop() override { timer_.stop(); }
    bool isActive() const override { return timer_.isActive(); }

private:
    QTimer timer_;
};

class SystemClock final : public Clock {
public:
    SystemClock() { monotonic_.start(); }
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }
    double elapsedSeconds() const override { return double(monotonic_.nsecsElapsed()) / 1e9; }
    std::unique_ptr<Timer> createTimer(std::function<void()> onTimeout) override {
        return std::make_unique<QtTimer>(std::move(onTimeout));
    }

private:
    QElapsedTimer monotonic_;
};

} // namespace

Clock& Clock::system() {
    static SystemClock clock;
    return clock;
}

std::unique_ptr<Timer> Clock::singleShot(double seconds, std::function<void()> onTimeout) {
    auto timer = createTimer(std::move(onTimeout));
    timer->start(seconds, false);
    return timer;
}

} // namespace tovin

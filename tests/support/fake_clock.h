#pragma once

#include "core/clock.h"

#include <QTimeZone>

#include <algorithm>
#include <cmath>
#include <vector>

namespace tovin::fakes {

// A clock that stands still until the test moves it. Its timers fire, in deadline order, only
// while advance() moves time across their deadlines, with now() reading each deadline as it
// fires; so a test runs hours of timers in milliseconds and knows exactly when each one ran.
class FakeClock final : public Clock {
public:
    explicit FakeClock(QDateTime start = QDateTime(QDate(2026, 3, 2), QTime(9, 0),
                                                   QTimeZone::utc()))
        : now_(std::move(start)) {}
    ~FakeClock() override {
        for (FakeTimer* t : timers_)
            t->clock_ = nullptr;
    }

    QDateTime now() const override { return now_; }
    void set(QDateTime at) { now_ = std::move(at); }

    std::unique_ptr<Timer> createTimer(std::function<void()> onTimeout) override {
        return std::make_unique<FakeTimer>(this, std::move(onTimeout));
    }

    // Moves time forward, firing every timer whose deadline is passed on the way.
    void advance(double seconds) {
        const qint64 target = monotonicMs_ + qint64(std::llround(seconds * 1000.0));
        for (;;) {
            FakeTimer* next = nullptr;
            for (FakeTimer* t : timers_) {
                if (t->active_ && t->deadlineMs_ <= target &&
                    (!next || t->deadlineMs_ < next->deadlineMs_ ||
                     (t->deadlineMs_ == next->deadlineMs_ && t->sequence_ < next->sequence_)))
                    next = t;
            }
            if (!next)
                break;
            moveTo(next->deadlineMs_);
            if (next->repeating_) {
                next->deadlineMs_ += std::max<qint64>(next->intervalMs_, 1);
                next->sequence_ = ++sequence_;
            } else {
                next->active_ = false;
            }
            auto callback = next->onTimeout_; // the timer may be destroyed by its own callback
            callback();
        }
        moveTo(target);
    }

    // The machine sleeps: the wall clock jumps, but timers (on the monotonic clock, which stops
    // during suspend) fire as late as they would on a real machine.
    void sleep(double seconds) {
        now_ = now_.addMSecs(qint64(std::llround(seconds * 1000.0)));
    }

    int activeTimers() const {
        return int(std::count_if(timers_.begin(), timers_.end(),
                                 [](const FakeTimer* t) { return t->active_; }));
    }

private:
    class FakeTimer final : public Timer {
    public:
        FakeTimer(FakeClock* clock, std::function<void()> onTimeout)
            : clock_(clock), onTimeout_(std::move(onTimeout)) {
            clock_->timers_.push_back(this);
        }
        ~FakeTimer() override {
            if (clock_)
                std::erase(clock_->timers_, this);
        }
        void start(double seconds, bool repeating) override {
            intervalMs_ = qint64(std::llround(seconds * 1000.0));
            deadlineMs_ = clock_->monotonicMs_ + intervalMs_;
            repeating_ = repeating;
            active_ = true;
            sequence_ = ++clock_->sequence_;
        }
        void stop() override { active_ = false; }
        bool isActive() const override { return active_; }

        FakeClock* clock_;
        std::function<void()> onTimeout_;
        qint64 intervalMs_ = 0;
        qint64 deadlineMs_ = 0;
        quint64 sequence_ = 0;
        bool repeating_ = false;
        bool active_ = false;
    };

    void moveTo(qint64 monotonicMs) {
        now_ = now_.addMSecs(monotonicMs - monotonicMs_);
        monotonicMs_ = monotonicMs;
    }

    QDateTime now_;
    qint64 monotonicMs_ = 0;
    quint64 sequence_ = 0;
    std::vector<FakeTimer*> timers_;
};

} // namespace tovin::fakes

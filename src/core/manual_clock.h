#pragma once

#include "core/clock.h"

#include <QTimeZone>

#include <algorithm>
#include <cmath>
#include <vector>

namespace tovin {

// A clock that stands still until it is moved by hand. Its timers fire, in deadline order, only
// while advance() moves time across their deadlines, with now() reading each deadline as it
// fires: the self-check and the tests run hours of schedule in milliseconds and know exactly
// when each timer ran.
class ManualClock final : public Clock {
public:
    explicit ManualClock(QDateTime start = QDateTime(QDate(2026, 3, 2), QTime(9, 0),
                                                     QTimeZone::utc()))
        : wallAtZero_(std::move(start)) {}
    ~ManualClock() override {
        for (FakeTimer* t : timers_)
            t->clock_ = nullptr;
    }

    QDateTime now() const override { return wallAtZero_.addMSecs(monotonicUs_ / 1000); }
    double elapsedSeconds() const override { return double(monotonicUs_) / 1e6; }
    // Sets the wall clock; pending timers keep their places on the monotonic clock.
    void set(const QDateTime& at) { wallAtZero_ = at.addMSecs(-(monotonicUs_ / 1000)); }

    std::unique_ptr<Timer> createTimer(std::function<void()> onTimeout) override {
        return std::make_unique<FakeTimer>(this, std::move(onTimeout));
    }

    // Moves time forward, firing every timer whose deadline is passed on the way.
    void advance(double seconds) {
        const qint64 target = monotonicUs_ + qint64(std::llround(seconds * 1e6));
        for (;;) {
            FakeTimer* next = nullptr;
            for (FakeTimer* t : timers_) {
                if (t->active_ && t->deadlineUs_ <= target &&
                    (!next || t->deadlineUs_ < next->deadlineUs_ ||
                     (t->deadlineUs_ == next->deadlineUs_ && t->sequence_ < next->sequence_)))
                    next = t;
            }
            if (!next)
                break;
            moveTo(next->deadlineUs_);
            if (next->repeating_) {
                next->deadlineUs_ += std::max<qint64>(next->intervalUs_, 1);
                next->sequence_ = ++sequence_;
            } else {
                next->active_ = false;
            }
            auto callback = next->onTimeout_; // the timer may be destroyed by its own callback
            callback();
        }
        moveTo(target);
    }

    // The event loop was busy for this long: time passes with no timer firing, then every
    // overdue timer fires once, late, as Qt's do (a repeating one does not catch up).
    void stall(double seconds) {
        moveTo(monotonicUs_ + qint64(std::llround(seconds * 1e6)));
        std::vector<FakeTimer*> overdue;
        for (FakeTimer* t : timers_) {
            if (t->active_ && t->deadlineUs_ <= monotonicUs_)
                overdue.push_back(t);
        }
        std::sort(overdue.begin(), overdue.end(), [](const FakeTimer* a, const FakeTimer* b) {
            return a->deadlineUs_ < b->deadlineUs_ ||
                   (a->deadlineUs_ == b->deadlineUs_ && a->sequence_ < b->sequence_);
        });
        for (FakeTimer* t : overdue) {
            // An earlier callback may have stopped or destroyed a later one.
            if (std::find(timers_.begin(), timers_.end(), t) == timers_.end() || !t->active_)
                continue;
            if (t->repeating_)
                t->deadlineUs_ = monotonicUs_ + std::max<qint64>(t->intervalUs_, 1);
            else
                t->active_ = false;
            auto callback = t->onTimeout_;
            callback();
        }
    }

    // The machine sleeps: the wall clock jumps, but timers (on the monotonic clock, which stops
    // during suspend) fire as late as they would on a real machine.
    void sleep(double seconds) {
        wallAtZero_ = wallAtZero_.addMSecs(qint64(std::llround(seconds * 1000.0)));
    }

    int activeTimers() const {
        return int(std::count_if(timers_.begin(), timers_.end(),
                                 [](const FakeTimer* t) { return t->active_; }));
    }

private:
    class FakeTimer final : public Timer {
    public:
        FakeTimer(ManualClock* clock, std::function<void()> onTimeout)
            : clock_(clock)
            , onTimeout_(std::move(onTimeout)) {
            clock_->timers_.push_back(this);
        }
        ~FakeTimer() override {
            if (clock_)
                std::erase(clock_->timers_, this);
        }
        void start(double seconds, bool repeating) override {
            intervalUs_ = qint64(std::llround(seconds * 1e6));
            deadlineUs_ = clock_->monotonicUs_ + intervalUs_;
            repeating_ = repeating;
            active_ = true;
            sequence_ = ++clock_->sequence_;
        }
        void stop() override { active_ = false; }
        bool isActive() const override { return active_; }

        ManualClock* clock_;
        std::function<void()> onTimeout_;
        qint64 intervalUs_ = 0;
        qint64 deadlineUs_ = 0;
        quint64 sequence_ = 0;
        bool repeating_ = false;
        bool active_ = false;
    };

    // Timers keep microseconds (a 1/60 s tick must not drift); the wall clock shows millis.
    void moveTo(qint64 monotonicUs) { monotonicUs_ = monotonicUs; }

    QDateTime wallAtZero_;
    qint64 monotonicUs_ = 0;
    quint64 sequence_ = 0;
    std::vector<FakeTimer*> timers_;
};

} // namespace tovin

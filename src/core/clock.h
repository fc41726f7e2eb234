#pragma once

#include <QDateTime>

#include <functional>
#include <memory>

namespace tovin {

// A timer made by a Clock. Its callback runs on the event loop of the thread that made it.
// Destroying the timer stops it, so an owner that holds its timers by value can never be called
// back after it is gone.
class Timer {
public:
    virtual ~Timer() = default;
    // Starts, or restarts from now, with the given interval.
    virtual void start(double seconds, bool repeating) = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;
};

// Where "now" and every timer come from. Tests hand in a clock they move by hand, so hours of
// schedule run in milliseconds and nothing ever sleeps to wait for a timer.
class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;
    // Seconds on a clock that only moves forward (the wall clock may be set back), for
    // measuring how long something took.
    virtual double elapsedSeconds() const = 0;
    virtual std::unique_ptr<Timer> createTimer(std::function<void()> onTimeout) = 0;

    // The wall clock, in UTC, and Qt's timers.
    static Clock& system();

    // One-shot convenience: a timer that fires once after `seconds`.
    std::unique_ptr<Timer> singleShot(double seconds, std::function<void()> onTimeout);
};

} // namespace tovin

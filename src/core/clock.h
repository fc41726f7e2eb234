#pragma once

#include <QDateTime>

namespace tovin {

// Where "now" comes from. Everything that compares against the current instant asks a Clock,
// so tests can run hours of schedule in milliseconds by handing in one they move by hand.
class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;

    // The wall clock, in UTC.
    static const Clock& system();
};

} // namespace tovin

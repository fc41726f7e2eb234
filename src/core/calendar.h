#pragma once

#include <QDateTime>
#include <QTimeZone>

#include <limits>
#include <optional>

namespace tovin {

// The three readings the schedule takes from the calendar. Weekdays count 1 = Sunday,
// 2 = Monday … 7 = Saturday everywhere in Tovin.
struct LocalTime {
    int weekday = 0;
    int hour = 0;
    int minute = 0;

    int minuteOfDay() const { return hour * 60 + minute; }
    bool operator==(const LocalTime&) const = default;
};

// A time zone seen as the person's calendar. The schedule's pure rules take one as an argument
// so tests pin the zone and never depend on the machine's.
//
// Converting an instant to local time is on the scheduler's hot path, so the zone's offset is
// remembered until its next transition: most calls are integer arithmetic. The cache makes a
// Calendar a value for one thread; copy it to use it on another.
class Calendar {
public:
    explicit Calendar(QTimeZone zone);

    static Calendar system();
    static Calendar utc() { return Calendar(QTimeZone::utc()); }

    const QTimeZone& zone() const { return zone_; }

    // Weekday, hour and minute of the instant; none when the instant is invalid.
    std::optional<LocalTime> localTime(const QDateTime& instant) const;

    // The local Julian day number of the instant (it changes at local midnight); 0 when the
    // instant is invalid. This is the day stamp of the served-blocks set.
    qint64 dayNumber(const QDateTime& instant) const;

    // Local seconds since 1970-01-01T00:00 for the instant (UTC seconds plus the zone offset).
    std::optional<qint64> localSeconds(const QDateTime& instant) const;

private:
    int offsetAt(qint64 utcSeconds) const;

    QTimeZone zone_;
    mutable qint64 cachedFrom_ = std::numeric_limits<qint64>::max();
    mutable qint64 cachedUntil_ = std::numeric_limits<qint64>::min();
    mutable int cachedOffset_ = 0;
};

} // namespace tovin

#include "core/calendar.h"

namespace tovin {

namespace {
constexpr qint64 secondsPerDay = 86400;
constexpr qint64 julianDayOfEpoch = 2440588; // 1970-01-01

qint64 floorDiv(qint64 a, qint64 b) {
    qint64 q = a / b;
    return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}
} // namespace

Calendar::Calendar(QTimeZone zone)
    : zone_(std::move(zone)) {
}

Calendar Calendar::system() {
    return Calendar(QTimeZone::systemTimeZone());
}

int Calendar::offsetAt(qint64 utcSeconds) const {
    if (utcSeconds >= cachedFrom_ && utcSeconds < cachedUntil_)
        return cachedOffset_;
    const QDateTime at = QDateTime::fromSecsSinceEpoch(utcSeconds, QTimeZone::utc());
    cachedOffset_ = zone_.isValid() ? zone_.offsetFromUtc(at) : 0;
    cachedFrom_ = utcSeconds;
    cachedUntil_ = std::numeric_limits<qint64>::max();
    if (zone_.isValid() && zone_.hasTransitions()) {
        const QTimeZone::OffsetData next = zone_.nextTransition(at);
        if (next.atUtc.isValid())
            cachedUntil_ = next.atUtc.toSecsSinceEpoch();
        // A zone whose rules end in the data (or a broken answer) is asked again next time.
        if (cachedUntil_ <= utcSeconds)
            cachedUntil_ = utcSeconds + 1;
    }
    return cachedOffset_;
}

std::optional<qint64> Calendar::localSeconds(const QDateTime& instant) const {
    if (!instant.isValid())
        return std::nullopt;
    const qint64 utc = instant.toSecsSinceEpoch();
    return utc + offsetAt(utc);
}

std::optional<LocalTime> Calendar::localTime(const QDateTime& instant) const {
    const auto local = localSeconds(instant);
    if (!local)
        return std::nullopt;
    const qint64 days = floorDiv(*local, secondsPerDay);
    const qint64 secondOfDay = *local - days * secondsPerDay;
    // 1970-01-01 was a Thursday: day 0 is weekday 5 when Sunday is 1.
    const int weekday = int(((days + 4) % 7 + 7) % 7) + 1;
    return LocalTime{weekday, int(secondOfDay / 3600), int(secondOfDay % 3600 / 60)};
}

qint64 Calendar::dayNumber(const QDateTime& instant) const {
    const auto local = localSeconds(instant);
    if (!local)
        return 0;
    return floorDiv(*local, secondsPerDay) + julianDayOfEpoch;
}

} // namespace tovin

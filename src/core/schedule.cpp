#include "core/schedule.h"

#include <QStringList>

#include <algorithm>
#include <cmath>

namespace tovin {

namespace {

int graceMinutes(double graceSeconds) {
    // Truncated toward zero: 5454 s (90.9 min) is 90 minutes of grace.
    const double minutes = std::trunc(graceSeconds / 60.0);
    if (!(minutes > 0))
        return 0;
    return minutes > 1e6 ? 1'000'000 : int(minutes);
}

} // namespace

Schedule::Schedule(QList<Block> blocks)
    : blocks_(std::move(blocks)) {
    derived_.reserve(blocks_.size());
    for (const Block& block : blocks_) {
        Derived d;
        d.minute = block.minuteOfDay().value_or(-1);
        for (int weekday = 1; weekday <= 7; ++weekday) {
            if (block.runsOn(weekday))
                d.weekdays |= quint8(1u << weekday);
        }
        d.key = block.key();
        derived_.append(std::move(d));
    }
}

const Schedule& Schedule::empty() {
    static const Schedule none;
    return none;
}

double Schedule::heldMinutes(const Block& block) {
    if (!block.minutes)
        return 10.0;
    return double(std::clamp(*block.minutes, 1, 60));
}

std::optional<Block> Schedule::due(const QDateTime& now, const FiredSet& firedToday,
                                   const Calendar& calendar, double grace) const {
    const auto local = calendar.localTime(now);
    if (!local)
        return std::nullopt;
    const int nowMinute = local->minuteOfDay();
    const int window = graceMinutes(grace);

    qsizetype best = -1;
    for (qsizetype i = 0; i < blocks_.size(); ++i) {
        const int m = derived_[i].minute;
        // Strictly greater: among equal minutes the first in schedule order stays. The served
        // check, a string lookup, comes last because few blocks get that far.
        if (m < 0 || nowMinute - m < 0 || nowMinute - m > window || !runsOn(i, local->weekday))
            continue;
        if ((best < 0 || m > derived_[best].minute) && !served(i, firedToday))
            best = i;
    }
    if (best < 0)
        return std::nullopt;
    return blocks_[best];
}

std::optional<Schedule::Upcoming> Schedule::upcoming(const QDateTime& now,
                                                     const FiredSet& firedToday,
                                                     const Calendar& calendar) const {
    const auto local = calendar.localTime(now);
    if (!local)
        return std::nullopt;
    const int nowMinute = local->minuteOfDay();

    qsizetype best = -1;
    for (qsizetype i = 0; i < blocks_.size(); ++i) {
        const int m = derived_[i].minute;
        if (m <= nowMinute || !runsOn(i, local->weekday))
            continue;
        if ((best < 0 || m < derived_[best].minute) && !served(i, firedToday))
            best = i;
    }
    if (best < 0)
        return std::nullopt;
    return Upcoming{blocks_[best], derived_[best].minute - nowMinute};
}

QString Schedule::nothingDueReason(const QDateTime& now, const FiredSet& firedToday,
                                   const Calendar& calendar, double grace) const {
    const auto local = calendar.localTime(now);
    if (!local)
        return QStringLiteral("clock unreadable");
    if (blocks_.isEmpty())
        return QStringLiteral("no blocks in schedule");

    const int nowMinute = local->minuteOfDay();
    const int window = graceMinutes(grace);
    qsizetype todays = 0;
    QStringList pendingLabels;
    bool allMissed = true;
    for (qsizetype i = 0; i < blocks_.size(); ++i) {
        if (!runsOn(i, local->weekday))
            continue;
        ++todays;
        if (served(i, firedToday))
            continue;
        pendingLabels.append(blocks_[i].label);
        const int m = derived_[i].minute;
        // A malformed time is not "missed": it is simply never decided on.
        if (m < 0 || nowMinute - m <= window)
            allMissed = false;
    }

    if (todays == 0)
        return QStringLiteral("no blocks scheduled today");
    if (pendingLabels.isEmpty())
        return u"all " + QString::number(todays) + u" of today's blocks already done";
    if (allMissed)
        return u"missed past the " + QString::number(window) + u"-min grace: " +
               pendingLabels.join(u", ") + u" — not queued, by design";
    if (const auto next = upcoming(now, firedToday, calendar))
        return u"next is " + next->block.label + u" at " + next->block.at;
    return QString::number(pendingLabels.size()) + u" block(s) pending, none in window";
}

Tick Schedule::tick(const QDateTime& now, const FiredSet& firedToday, const TickState& state,
                    const Calendar& calendar, double grace) const {
    if (state.shieldUp)
        return Tick::idle(QStringLiteral("shield already up"));
    if (state.countdownShowing)
        return Tick::idle(QStringLiteral("countdown already showing"));
    if (state.finished)
        return Tick::idle(QStringLiteral("block already finished"));
    if (state.pausedUntil && *state.pausedUntil > now) {
        const qint64 minutesLeft = now.msecsTo(*state.pausedUntil) / 60'000;
        return Tick::idle(u"paused for another " + QString::number(minutesLeft) + u" min");
    }

    // An overdue retest outranks whatever the week says.
    std::optional<Block> candidate =
        state.retest ? state.retest : due(now, firedToday, calendar, grace);
    if (!candidate)
        return Tick::idle(nothingDueReason(now, firedToday, calendar, grace));
    if (state.holdOff)
        return Tick::holding(std::move(*candidate), *state.holdOff);
    return Tick::fire(std::move(*candidate));
}

} // namespace tovin

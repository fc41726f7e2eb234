#include "schedule/schedule.h"

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

// The blocks still to serve today, in schedule order.
template <typename Visit>
void forEachPendingToday(const QList<Block>& blocks, const FiredSet& firedToday, int weekday,
                         Visit visit) {
    for (const Block& block : blocks) {
        if (block.runsOn(weekday) && !firedToday.contains(block.key()))
            visit(block);
    }
}

} // namespace

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

    const Block* best = nullptr;
    int bestMinute = -1;
    forEachPendingToday(blocks, firedToday, local->weekday, [&](const Block& block) {
        const auto m = block.minuteOfDay();
        if (!m)
            return;
        const int late = nowMinute - *m;
        // Strictly greater: among equal minutes the first in schedule order stays.
        if (late >= 0 && late <= window && *m > bestMinute) {
            best = &block;
            bestMinute = *m;
        }
    });
    if (!best)
        return std::nullopt;
    return *best;
}

std::optional<Schedule::Upcoming> Schedule::upcoming(const QDateTime& now,
                                                     const FiredSet& firedToday,
                                                     const Calendar& calendar) const {
    const auto local = calendar.localTime(now);
    if (!local)
        return std::nullopt;
    const int nowMinute = local->minuteOfDay();

    const Block* best = nullptr;
    int bestAway = 0;
    forEachPendingToday(blocks, firedToday, local->weekday, [&](const Block& block) {
        const auto m = block.minuteOfDay();
        if (!m || *m <= nowMinute)
            return;
        const int away = *m - nowMinute;
        if (!best || away < bestAway) {
            best = &block;
            bestAway = away;
        }
    });
    if (!best)
        return std::nullopt;
    return Upcoming{*best, bestAway};
}

QString Schedule::nothingDueReason(const QDateTime& now, const FiredSet& firedToday,
                                   const Calendar& calendar, double grace) const {
    const auto local = calendar.localTime(now);
    if (!local)
        return QStringLiteral("clock unreadable");
    if (blocks.isEmpty())
        return QStringLiteral("no blocks in schedule");

    const int nowMinute = local->minuteOfDay();
    const int window = graceMinutes(grace);
    qsizetype todays = 0;
    QStringList pendingLabels;
    bool allMissed = true;
    for (const Block& block : blocks) {
        if (!block.runsOn(local->weekday))
            continue;
        ++todays;
        if (firedToday.contains(block.key()))
            continue;
        pendingLabels.append(block.label);
        const auto m = block.minuteOfDay();
        // A malformed time is not "missed": it is simply never decided on.
        if (!m || nowMinute - *m <= window)
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

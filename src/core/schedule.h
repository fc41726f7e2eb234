#pragma once

#include "core/block.h"
#include "core/calendar.h"
#include "core/tick.h"

#include <QDateTime>
#include <QList>
#include <QSet>

#include <optional>

namespace tovin {

using FiredSet = QSet<QString>;

// The person's week and the pure questions asked of it. Nothing here reads a file or a clock:
// the instant, the blocks served today and the calendar all come from the caller.
//
// Blocks are never queued: a block missed by longer than the grace window is gone for the day.
//
// A Schedule is immutable. The scheduler asks it the same questions every tick, so each block's
// minute, weekdays and key are derived once, when the week is made, not on every question.
class Schedule {
public:
    static constexpr double defaultGrace = 5400; // seconds

    struct Upcoming {
        Block block;
        int minutesAway = 0;
        bool operator==(const Upcoming&) const = default;
    };

    Schedule() = default;
    Schedule(QList<Block> blocks); // NOLINT(google-explicit-constructor): a week is its blocks

    static const Schedule& empty();

    const QList<Block>& blocks() const { return blocks_; }

    // How long the block's break is held, in minutes: 10 when unset, else within 1…60.
    static double heldMinutes(const Block& block);

    // The most recent block whose minute lies within [now − grace, now] today and that has not
    // been served; the first in schedule order on a tie. No wrap across midnight.
    std::optional<Block> due(const QDateTime& now, const FiredSet& firedToday,
                             const Calendar& calendar, double grace = defaultGrace) const;

    // The nearest block later today that has not been served; a block at this minute is not
    // upcoming.
    std::optional<Upcoming> upcoming(const QDateTime& now, const FiredSet& firedToday,
                                     const Calendar& calendar) const;

    // Why nothing is due, as a text that only changes when the state does.
    QString nothingDueReason(const QDateTime& now, const FiredSet& firedToday,
                             const Calendar& calendar, double grace = defaultGrace) const;

    // One scheduler tick: the first applicable of shield up, countdown showing, finished,
    // paused, nothing due, held off, or fire.
    Tick tick(const QDateTime& now, const FiredSet& firedToday, const TickState& state,
              const Calendar& calendar, double grace = defaultGrace) const;

    bool operator==(const Schedule& other) const { return blocks_ == other.blocks_; }

private:
    struct Derived {
        int minute = -1;     // -1 for a malformed time
        quint8 weekdays = 0; // bit d set when the block runs on weekday d
        QString key;
    };

    bool runsOn(qsizetype i, int weekday) const { return derived_[i].weekdays & (1u << weekday); }
    bool served(qsizetype i, const FiredSet& firedToday) const {
        return !firedToday.isEmpty() && firedToday.contains(derived_[i].key);
    }

    QList<Block> blocks_;
    QList<Derived> derived_;
};

} // namespace tovin

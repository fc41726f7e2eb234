#include "core/schedule.h"

#include <QTimeZone>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

const Calendar cal = Calendar::utc();
const QDateTime nine(QDate(2026, 3, 2), QTime(9, 10), QTimeZone::utc());
const Block classic{
    QStringLiteral("09:00"), QStringLiteral("The Classic 7"), Block::Kind::Workout, {}, {}};
const Block retest{
    QStringLiteral("09:10"), QStringLiteral("Fitness test"), Block::Kind::Retest, {}, {}};
const Schedule week{{classic}};

} // namespace

TEST(Tick, FirstApplicableCheckDecides) {
    const struct {
        const char* name;
        Schedule schedule;
        TickState state;
        Tick expected;
    } cases[] = {
        {"due", week, {}, Tick::fire(classic)},
        {"held off",
         week,
         {.holdOff = QStringLiteral("you're on a call")},
         Tick::holding(classic, QStringLiteral("you're on a call"))},
        {"shield beats everything",
         week,
         {.shieldUp = true,
          .countdownShowing = true,
          .finished = true,
          .holdOff = QStringLiteral("x"),
          .retest = retest},
         Tick::idle(QStringLiteral("shield already up"))},
        {"countdown",
         week,
         {.countdownShowing = true, .finished = true},
         Tick::idle(QStringLiteral("countdown already showing"))},
        {"finished",
         week,
         {.finished = true, .pausedUntil = nine.addSecs(600)},
         Tick::idle(QStringLiteral("block already finished"))},
        {"paused",
         week,
         {.pausedUntil = nine.addMSecs(42.5 * 60'000), .retest = retest},
         Tick::idle(QStringLiteral("paused for another 42 min"))},
        {"pause ending this instant", week, {.pausedUntil = nine}, Tick::fire(classic)},
        {"retest outranks the week", week, {.retest = retest}, Tick::fire(retest)},
        {"retest held off too",
         Schedule{},
         {.holdOff = QStringLiteral("busy"), .retest = retest},
         Tick::holding(retest, QStringLiteral("busy"))},
        {"nothing due beats hold-off",
         Schedule{},
         {.holdOff = QStringLiteral("busy")},
         Tick::idle(QStringLiteral("no blocks in schedule"))},
    };
    for (const auto& c : cases) {
        const Tick tick = c.schedule.tick(nine, {}, c.state, cal);
        EXPECT_EQ(tick, c.expected) << c.name << ": " << tick.summary().toStdString();
    }
}

#include "schedule/schedule.h"

#include <QTimeZone>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

const Calendar cal = Calendar::utc();
const QDateTime nine(QDate(2026, 3, 2), QTime(9, 10), QTimeZone::utc());
const Block classic{QStringLiteral("09:00"), QStringLiteral("The Classic 7"),
                    Block::Kind::Workout, {}, {}};
const Block retest{QStringLiteral("09:10"), QStringLiteral("Fitness test"), Block::Kind::Retest,
                   {}, {}};
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
        {"held off", week, {.holdOff = QStringLiteral("you're on a call")},
         Tick::holding(classic, QStringLiteral("you're on a call"))},
        {"shield beats everything", week,
         {.shieldUp = true, .countdownShowing = true, .finished = true,
          .holdOff = QStringLiteral("x"), .retest = retest},
         Tick::idle(QStringLiteral("shield already up"))},
        {"countdown", week, {.countdownShowing = true, .finished = true},
         Tick::idle(QStringLiteral("countdown already showing"))},
        {"finished", week, {.finished = true, .pausedUntil = nine.addSecs(600)},
         Tick::idle(QStringLiteral("block already finished"))},
        {"paused", week, {.pausedUntil = nine.addMSecs(42.5 * 60'000), .retest = retest},
         Tick::idle(QStringLiteral("paused for another 42 min"))},
        {"pause over", week, {.pausedUntil = nine.addSecs(-1)}, Tick::fire(classic)},
        {"pause ending this instant", week, {.pausedUntil = nine}, Tick::fire(classic)},
        {"retest outranks the week", week, {.retest = retest}, Tick::fire(retest)},
        {"retest held off too", Schedule{}, {.holdOff = QStringLiteral("busy"), .retest = retest},
         Tick::holding(retest, QStringLiteral("busy"))},
        {"nothing due beats hold-off", Schedule{}, {.holdOff = QStringLiteral("busy")},
         Tick::idle(QStringLiteral("no blocks in schedule"))},
    };
    for (const auto& c : cases) {
        const Tick tick = c.schedule.tick(nine, {}, c.state, cal);
        EXPECT_EQ(tick, c.expected) << c.name << ": " << tick.summary().toStdString();
    }
}

TEST(Tick, SummariesAreTheJournalsStableTexts) {
    EXPECT_EQ(Tick::fire(classic).summary(), u"FIRE The Classic 7 (workout, due 09:00)");
    EXPECT_EQ(Tick::holding(classic, QStringLiteral("you're on a call")).summary(),
              u"holding The Classic 7 — you're on a call");
    EXPECT_EQ(Tick::idle(QStringLiteral("shield already up")).summary(),
              u"idle — shield already up");
    EXPECT_EQ(Schedule{}.tick(nine, {}, {}, cal).summary(), u"idle — no blocks in schedule");
    const Tick missed = week.tick(nine.addSecs(3 * 3600), {}, {}, cal);
    EXPECT_TRUE(missed.summary().startsWith(u"idle — missed past the")) << missed.summary().toStdString();
    EXPECT_TRUE(Tick::fire(classic).isFire());
    EXPECT_FALSE(Tick::holding(classic, {}).isFire());
    EXPECT_FALSE(Tick::idle({}).isFire());
}

TEST(Tick, PausedMinutesCountDownAsWholeMinutes) {
    const TickState paused{.pausedUntil = nine.addSecs(10 * 60)};
    EXPECT_EQ(week.tick(nine, {}, paused, cal).reason(), u"paused for another 10 min");
    EXPECT_EQ(week.tick(nine.addSecs(1), {}, paused, cal).reason(), u"paused for another 9 min");
    EXPECT_EQ(week.tick(nine.addSecs(9 * 60 + 59), {}, paused, cal).reason(),
              u"paused for another 0 min");
}

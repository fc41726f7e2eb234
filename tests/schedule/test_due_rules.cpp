#include "core/schedule.h"

#include <QTimeZone>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

// Monday 2026-03-02 in Berlin; tests read "at HH:MM" as Berlin wall-clock time.
const Calendar berlin{QTimeZone("Europe/Berlin")};

QDateTime at(int hour, int minute, int dayOffset = 0) {
    return QDateTime(QDate(2026, 3, 2).addDays(dayOffset), QTime(hour, minute, 30), berlin.zone());
}

Block block(const char* time, const char* label, Block::Kind kind = Block::Kind::Workout,
            std::optional<QList<int>> days = {}) {
    return Block{QString::fromUtf8(time), QString::fromUtf8(label), kind, {}, std::move(days)};
}

} // namespace

// The grace is truncated to whole minutes: 90.9 minutes of grace is 90.
TEST(Due, WindowRunsFromTheBlocksMinuteThroughTheGrace) {
    const Schedule week{{block("09:00", "Nine")}};
    const struct {
        int h, m;
        double grace;
        bool due;
    } cases[] = {{8, 59, 5400, false},  {9, 0, 5400, true},    {10, 30, 5400, true},
                 {10, 31, 5400, false}, {10, 31, 5454, false}, {9, 0, 0, true}};
    for (const auto& c : cases)
        EXPECT_EQ(week.due(at(c.h, c.m), {}, berlin, c.grace).has_value(), c.due)
            << c.h << ':' << c.m << " grace " << c.grace;
}

TEST(Due, MostRecentPendingBlockWinsAndTiesGoToScheduleOrder) {
    const Schedule week{{block("09:00", "Early"), block("09:30", "Late"),
                         block("09:30", "Late twin"), block("10:00", "Future")}};
    const auto due = [&](const FiredSet& f) { return week.due(at(9, 45), f, berlin)->label; };
    const QString late = week.blocks()[1].key();
    EXPECT_EQ(due({}), u"Late");
    // Serving the later one leaves its twin, then the earlier block.
    EXPECT_EQ(due({late}), u"Late twin");
    EXPECT_EQ(due({late, week.blocks()[2].key()}), u"Early");
}

TEST(Due, NeverOnAnotherWeekdayAcrossMidnightOrAtAMalformedTime) {
    const Schedule week{{block("09:00", "Mon only", Block::Kind::Workout, QList<int>{2}),
                         block("23:30", "Late night"), block("noon", "Broken")}};
    EXPECT_TRUE(week.due(at(9, 10), {}, berlin));     // Monday
    EXPECT_FALSE(week.due(at(9, 10, 1), {}, berlin)); // Tuesday
    EXPECT_FALSE(week.due(at(0, 10, 1), {}, berlin)); // neither Monday's 23:30 nor "noon"
}

TEST(Due, FollowsTheCalendarZoneNotUtc) {
    const Schedule week{{block("09:00", "Nine")}};
    // 08:10 UTC is 09:10 in Berlin (winter), but only 08:10 in UTC.
    const QDateTime instant(QDate(2026, 3, 2), QTime(8, 10), QTimeZone::utc());
    EXPECT_TRUE(week.due(instant, {}, berlin));
    EXPECT_FALSE(week.due(instant, {}, Calendar::utc()));
}

TEST(Upcoming, NearestLaterBlockTodayOnly) {
    const Schedule week{{block("13:00", "Lunch"), block("11:00", "Eleven"),
                         block("11:00", "Eleven twin"), block("10:00", "Now")}};
    // A block at this very minute is not upcoming.
    EXPECT_EQ(week.upcoming(at(10, 0), {}, berlin), (Schedule::Upcoming{week.blocks()[1], 60}));
    EXPECT_FALSE(week.upcoming(at(13, 0), {}, berlin));
    const FiredSet served{week.blocks()[1].key()};
    EXPECT_EQ(week.upcoming(at(10, 0), served, berlin)->block.label, u"Eleven twin");
}

TEST(NothingDueReason, EachReasonInItsTurn) {
    const Block six = block("06:00", "Dawn run");
    const Block seven = block("07:00", "Stretch");
    const struct {
        const char* name;
        Schedule week;
        FiredSet fired;
        QDateTime now;
        const char16_t* reason;
    } cases[] = {
        {"clock", Schedule{{six}}, {}, QDateTime(), u"clock unreadable"},
        {"empty", Schedule{}, {}, at(12, 0), u"no blocks in schedule"},
        {"other day",
         Schedule{{block("9:00", "Sat", Block::Kind::Away, QList<int>{7})}},
         {},
         at(12, 0),
         u"no blocks scheduled today"},
        {"all done",
         Schedule{{six, seven}},
         {six.key(), seven.key()},
         at(12, 0),
         u"all 2 of today's blocks already done"},
        {"missed",
         Schedule{{six, seven}},
         {},
         at(12, 0),
         u"missed past the 90-min grace: Dawn run, Stretch — not queued, by design"},
        {"missed, one done",
         Schedule{{six, seven}},
         {six.key()},
         at(12, 0),
         u"missed past the 90-min grace: Stretch — not queued, by design"},
        {"next",
         Schedule{{six, block("9:05", "Later")}},
         {six.key()},
         at(8, 0),
         u"next is Later at 9:05"},
        {"malformed is not missed",
         Schedule{{six, block("25:00", "Bad")}},
         {},
         at(12, 0),
         u"2 block(s) pending, none in window"},
        {"malformed counts as today's",
         Schedule{{six, block("noon", "Bad")}},
         {six.key()},
         at(12, 0),
         u"1 block(s) pending, none in window"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.week.nothingDueReason(c.now, c.fired, berlin), QString::fromUtf16(c.reason))
            << c.name;
}

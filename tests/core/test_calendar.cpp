#include "core/calendar.h"

#include <QTimeZone>

#include <gtest/gtest.h>

using namespace tovin;

namespace {
QDateTime utc(int y, int mo, int d, int h, int mi, int s = 0) {
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), QTimeZone::utc());
}
} // namespace

TEST(Calendar, WeekdaysCountFromSunday) {
    const Calendar cal = Calendar::utc();
    // 2026-03-01 is a Sunday; the following six days run through Saturday.
    for (int day = 0; day < 7; ++day) {
        const auto local = cal.localTime(utc(2026, 3, 1 + day, 12, 0));
        ASSERT_TRUE(local);
        EXPECT_EQ(local->weekday, day + 1) << "2026-03-0" << 1 + day;
    }
    // Before 1970 too (floor division, not truncation).
    EXPECT_EQ(cal.localTime(utc(1969, 12, 31, 23, 59))->weekday, 4); // Wednesday
    EXPECT_EQ(cal.localTime(utc(1969, 12, 31, 23, 59))->hour, 23);
}

TEST(Calendar, AgreesWithQtAcrossDaylightSavingTransitions) {
    // The cached offset must follow the zone's transitions in both directions of travel.
    for (const char* id : {"Europe/Berlin", "America/New_York", "Australia/Lord_Howe",
                           "Asia/Kolkata", "Pacific/Chatham"}) {
        const QTimeZone zone(id);
        ASSERT_TRUE(zone.isValid()) << id;
        const Calendar cal(zone);
        QDateTime at = utc(2026, 1, 1, 0, 7);
        const QDateTime end = utc(2027, 1, 1, 0, 0);
        for (; at < end; at = at.addSecs(3 * 3600 + 17 * 60)) {
            const QDateTime local = at.toTimeZone(zone);
            const auto mine = cal.localTime(at);
            ASSERT_TRUE(mine);
            ASSERT_EQ(mine->hour, local.time().hour()) << id << ' ' << at.toString().toStdString();
            ASSERT_EQ(mine->minute, local.time().minute()) << id;
            ASSERT_EQ(mine->weekday, local.date().dayOfWeek() % 7 + 1) << id;
            ASSERT_EQ(cal.dayNumber(at), local.date().toJulianDay()) << id;
        }
        // And going backwards, the cache must not answer for an earlier offset.
        const auto winter = cal.localTime(utc(2026, 1, 15, 12, 0));
        EXPECT_EQ(winter->hour, utc(2026, 1, 15, 12, 0).toTimeZone(zone).time().hour()) << id;
    }
}

TEST(Calendar, DayNumberChangesAtLocalMidnight) {
    const Calendar berlin(QTimeZone("Europe/Berlin"));
    // 22:59:59 UTC is 23:59:59 in Berlin in winter; one second later is the next local day.
    const QDateTime before = utc(2026, 1, 14, 22, 59, 59);
    EXPECT_EQ(berlin.dayNumber(before.addSecs(1)), berlin.dayNumber(before) + 1);
    EXPECT_EQ(berlin.dayNumber(before), QDate(2026, 1, 14).toJulianDay());
}

TEST(Calendar, InvalidInstantReadsAsUnavailable) {
    const Calendar cal = Calendar::utc();
    EXPECT_FALSE(cal.localTime(QDateTime()));
    EXPECT_EQ(cal.dayNumber(QDateTime()), 0);
}

#include "core/calendar.h"

#include <QTimeZone>

#include <gtest/gtest.h>

using namespace tovin;

namespace {
QDateTime utc(int y, int mo, int d, int h, int mi, int s = 0) {
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), QTimeZone::utc());
}
} // namespace

// Weekdays count from Sunday = 1. Before 1970 the day must come from floor division, not
// truncation, or every pre-epoch instant lands on the wrong day.
TEST(Calendar, WeekdaysBeforeTheEpochAndAnUnreadableClock) {
    const Calendar cal = Calendar::utc();
    EXPECT_EQ(cal.localTime(utc(1969, 12, 31, 23, 59)).value().weekday, 4); // a Wednesday
    EXPECT_EQ(cal.dayNumber(utc(1969, 12, 31, 23, 59)), QDate(1969, 12, 31).toJulianDay());
    EXPECT_FALSE(cal.localTime(QDateTime()));
    EXPECT_EQ(cal.dayNumber(QDateTime()), 0);
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
        // And going back to the other half of the year, the cache must not answer for it.
        const auto midyear = cal.localTime(utc(2026, 7, 15, 12, 0));
        EXPECT_EQ(midyear->hour, utc(2026, 7, 15, 12, 0).toTimeZone(zone).time().hour()) << id;
    }
}

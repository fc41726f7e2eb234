#include "core/iso_date.h"

#include <QTimeZone>

#include <gtest/gtest.h>

using namespace tovin;

TEST(IsoDate, WritesWholeSecondsInUtcWhateverTheZone) {
    const QDateTime at(QDate(2026, 3, 2), QTime(10, 15, 0, 999), QTimeZone("Europe/Berlin"));
    EXPECT_EQ(formatIsoSeconds(at), u"2026-03-02T09:15:00Z");
}

TEST(IsoDate, StrictParserAcceptsOnlyWholeSecondsWithAZone) {
    const QDateTime expected(QDate(2026, 3, 2), QTime(9, 15, 0), QTimeZone::utc());
    EXPECT_EQ(parseIsoSeconds(u"2026-03-02T10:15:00+01:00"), expected);
    EXPECT_EQ(parseIsoSeconds(u"2026-03-02T04:45:00-04:30"), expected);
    for (const char16_t* bad :
         {u"2026-03-02T09:15:00.000Z", u"2026-03-02T09:15:00", u"2026-03-02 09:15:00Z",
          u"2026-02-30T09:15:00Z", u"2026-03-02T24:00:00Z", u"2026-03-02T09:15:60Z",
          u"2026-03-02T09:15:00z", u"2026-03-02T09:15:00+0100", u"2026-03-02T09:15:00Z ",
          u"1772442900", u"", u"２０２６-03-02T09:15:00Z",
          // valid text, but the instant leaves the years this form can write
          u"9999-12-31T23:59:59-01:00", u"0001-01-01T00:00:00+00:01"}) {
        EXPECT_FALSE(parseIsoSeconds(bad)) << QString::fromUtf16(bad).toStdString();
    }
}

TEST(IsoDate, LenientParserTakesFractions) {
    const QDateTime base(QDate(2026, 3, 2), QTime(9, 15, 0), QTimeZone::utc());
    EXPECT_EQ(parseIsoInstant(u"2026-03-02T09:15:00.5Z"), base.addMSecs(500));
    EXPECT_EQ(parseIsoInstant(u"2026-03-02T09:15:00.123456789+00:00"), base.addMSecs(123));
    EXPECT_EQ(parseIsoInstant(formatIsoMillis(base.addMSecs(42))), base.addMSecs(42));
    EXPECT_FALSE(parseIsoInstant(u"2026-03-02T09:15:00.Z"));
    EXPECT_FALSE(parseIsoInstant(u"2026-03-02T09:15:00.25"));
}

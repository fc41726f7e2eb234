#include "core/manual_clock.h"
#include "resident/screen_helper.h"
#include "support/xvfb.h"

#include <QTest>

#include <gtest/gtest.h>

// The resident's ScreenHelper and the real screen helper (LocalScreens behind its ScreenHost,
// in its own process on a private X server), talking over the socket pair the resident makes:
// commands go one way and their answers come back as events, through the one codec both
// ends use.

using namespace tovin;

TEST(ScreenHelperWire, ALockoutCrossesARealSocketPairAndItsEndingComesBack) {
    fakes::XvfbSession xvfb;
    ASSERT_TRUE(xvfb.startTwoMonitors());
    qputenv("QT_QPA_PLATFORM", "xcb"); // for the helper; this process stays offscreen

    // The helper's shield judges the valve by its own wall clock, so this one starts at now.
    ManualClock clock(QDateTime::currentDateTimeUtc());
    ScreenHelper helper(clock, QStringLiteral(TOVIN_SCREENS_PROGRAM));
    QStringList notes;
    bool covered = false;
    int timedOut = 0;
    int nothingShows = 0;
    QObject::connect(&helper, &Screens::noted,
                     [&](const QString& tag, const QString& text) { notes += tag + u": " + text; });
    QObject::connect(&helper, &ScreenHelper::covered, [&](bool up) { covered = up; });
    QObject::connect(&helper, &Screens::shieldTimedOut, [&] { ++timedOut; });
    QObject::connect(&helper, &Screens::nothingShows, [&] { ++nothingShows; });

    LockoutPage page;
    page.kind = LockoutPage::Kind::Away;
    page.awayLabel = QStringLiteral("Walk\n{\"do\":\"quit\"}");
    page.awayEndsAt = clock.now().addSecs(300);
    page.standing = QStringLiteral("You have kept 3 promises.");
    page.escapePhrase = QStringLiteral("bramble");
    helper.raise(page, false, 10);
    EXPECT_TRUE(helper.isRunning());
    // The raise reaches the helper, and its "up" comes back once both monitors are covered.
    ASSERT_TRUE(QTest::qWaitFor([&] { return covered; }, 30000)) << notes.join(u'\n').toStdString();
    EXPECT_TRUE(helper.isUp());
    EXPECT_GT(helper.helperPid(), 0);

    // The valve's reminder carries an instant past the limit: the helper's shield lowers
    // itself, journals why through the resident, and its ending comes back once.
    helper.enforceValve(clock.now().addSecs(11 * 60 + 30));
    ASSERT_TRUE(QTest::qWaitFor([&] { return timedOut == 1; }, 10000));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return !notes.filter(u"shield: valve enforced by the clock — up 11 min").isEmpty(); },
        5000))
        << notes.join(u'\n').toStdString();
    EXPECT_FALSE(helper.isUp());
    // Nothing shows any more: the helper is told to quit and goes.
    EXPECT_TRUE(QTest::qWaitFor([&] { return nothingShows == 1 && !helper.isRunning(); }, 5000));
    QTest::qWait(200);
    EXPECT_EQ(timedOut, 1);
}

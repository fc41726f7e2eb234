#include "resident/countdown_panel.h"
#include "resident/guards/call_detector.h"
#include "support/fake_clock.h"
#include "support/fake_platform.h"

#include <QPushButton>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

class CountdownTest : public ::testing::Test {
protected:
    void SetUp() override {
        QObject::connect(&panel, &CountdownPanel::fired,
                         [this] { outcomes.append(QStringLiteral("fire")); });
        QObject::connect(&panel, &CountdownPanel::snoozed,
                         [this] { outcomes.append(QStringLiteral("snooze")); });
    }

    QStringList buttons() const {
        QStringList titles;
        for (const auto* b : panel.panel()->findChildren<QPushButton*>())
            titles.append(b->text());
        return titles;
    }

    fakes::FakeClock clock;
    std::shared_ptr<fakes::FakeCallProbe> probe = std::make_shared<fakes::FakeCallProbe>();
    CallDetector calls{probe};
    CountdownPanel panel{clock, calls};
    QStringList outcomes;
};

} // namespace

TEST_F(CountdownTest, CountsDownOnceASecondThenFires) {
    panel.show(3, 0);
    QStringList seen{panel.displayedText()};
    for (int i = 0; i < 3; ++i) {
        clock.advance(1);
        seen.append(panel.displayedText());
    }
    EXPECT_EQ(seen, (QStringList{QStringLiteral("Moving in 3s"), QStringLiteral("Moving in 2s"),
                                 QStringLiteral("Moving in 1s"), QStringLiteral("Moving in 1s")}));
    EXPECT_EQ(outcomes, QStringList{QStringLiteral("fire")});
    EXPECT_FALSE(panel.isShowing());
    clock.advance(10);
    EXPECT_EQ(outcomes.size(), 1); // the timer died with the countdown
}

TEST_F(CountdownTest, ButtonsFollowTheSnoozeBudgetAndAShowAgainChangesNothing) {
    const struct {
        int left;
        QStringList titles;
    } cases[] = {
        {0, {QStringLiteral("Start now")}},
        {1, {QStringLiteral("Start now"), QStringLiteral("Not now (last one)")}},
        {2, {QStringLiteral("Start now"), QStringLiteral("Not now (2 left)")}},
    };
    for (const auto& c : cases) {
        panel.show(60, c.left);
        EXPECT_EQ(buttons(), c.titles) << c.left;
        panel.dismiss();
    }
    // Showing again while one runs neither restarts its time nor redraws its buttons.
    panel.show(60, 1);
    clock.advance(20);
    panel.show(60, 0);
    EXPECT_EQ(panel.displayedText(), u"Moving in 40s");
    EXPECT_EQ(buttons().size(), 2);
}

TEST_F(CountdownTest, ButtonsDismissFirstThenRunTheirOutcome) {
    QObject::disconnect(&panel, &CountdownPanel::fired, nullptr, nullptr);
    QObject::connect(&panel, &CountdownPanel::fired, [this] {
        outcomes.append(panel.isShowing() ? QStringLiteral("fire while showing")
                                          : QStringLiteral("fire"));
        panel.show(5, 0); // an outcome may start the next countdown
    });
    panel.show(60, 1);
    panel.startNow();
    EXPECT_EQ(outcomes, QStringList{QStringLiteral("fire")});
    EXPECT_EQ(panel.displayedText(), u"Moving in 5s");
    panel.dismiss();
    panel.show(60, 1);
    panel.snooze();
    EXPECT_EQ(outcomes.last(), u"snooze");
    EXPECT_FALSE(panel.isShowing());
}

// Where it sits is the whole app's check; here, that it never takes the keyboard from whatever
// the person is typing into.
TEST_F(CountdownTest, StaysOnTopWithoutTakingFocus) {
    panel.show(60, 1);
    EXPECT_TRUE(panel.panel()->windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
    EXPECT_TRUE(panel.panel()->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
}

#include "app/countdown_panel.h"

#include "support/fake_clock.h"
#include "support/fake_platform.h"

#include <QGuiApplication>
#include <QPushButton>
#include <QScreen>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

class CountdownTest : public ::testing::Test {
protected:
    void SetUp() override {
        CallDetector::setProbe(probe);
        QObject::connect(&panel, &CountdownPanel::fired, [this] { outcomes.append(QStringLiteral("fire")); });
        QObject::connect(&panel, &CountdownPanel::snoozed, [this] { outcomes.append(QStringLiteral("snooze")); });
        QObject::connect(&panel, &CountdownPanel::cancelled,
                         [this](const QString& why) { outcomes.append(u"cancel: " + why); });
    }
    void TearDown() override { CallDetector::setProbe(nullptr); }

    QStringList buttons() const {
        QStringList titles;
        if (panel.panel()) {
            for (const auto* b : panel.panel()->findChildren<QPushButton*>())
                titles.append(b->text());
        }
        return titles;
    }

    std::shared_ptr<fakes::FakeCallProbe> probe = std::make_shared<fakes::FakeCallProbe>();
    fakes::FakeClock clock;
    CountdownPanel panel{clock};
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
    EXPECT_EQ(panel.displayedText(), u"Moving in 1s"); // the last text outlives the panel
    clock.advance(10);
    EXPECT_EQ(outcomes.size(), 1); // the timer died with the countdown
}

TEST_F(CountdownTest, ButtonsFollowTheSnoozeBudget) {
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
}

TEST_F(CountdownTest, ShowingAgainDoesNotRestartARunningCountdown) {
    panel.show(60, 1);
    clock.advance(20);
    panel.show(60, 0);
    EXPECT_EQ(panel.displayedText(), u"Moving in 40s");
    EXPECT_EQ(buttons().size(), 2);
}

TEST_F(CountdownTest, ACallOnTheLastSecondCancelsInsteadOfFiring) {
    panel.show(3, 1);
    clock.advance(2);
    probe->camera = true;
    clock.advance(1);
    EXPECT_EQ(outcomes,
              QStringList{QStringLiteral("cancel: Your camera is live — Tovin won't interrupt.")});
    EXPECT_FALSE(panel.isShowing());
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
    EXPECT_TRUE(panel.isShowing());
    EXPECT_EQ(panel.displayedText(), u"Moving in 5s");
    panel.dismiss();
    panel.show(60, 1);
    panel.snooze();
    EXPECT_EQ(outcomes.last(), u"snooze");
    EXPECT_FALSE(panel.isShowing());
}

TEST_F(CountdownTest, SitsInTheBottomRightCornerWithoutTakingFocus) {
    panel.show(60, 1);
    QWidget* window = panel.panel();
    ASSERT_TRUE(window);
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    EXPECT_EQ(window->size(), QSize(CountdownPanel::width, CountdownPanel::height));
    EXPECT_EQ(window->pos(), QPoint(area.right() + 1 - 340 - 24, area.bottom() + 1 - 132 - 24));
    EXPECT_TRUE(window->windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
    EXPECT_TRUE(window->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    EXPECT_EQ(window->windowTitle(), u"Tovin");
    EXPECT_FALSE(window->isActiveWindow());
    panel.dismiss();

    CountdownPanel::offscreenForTests = true;
    panel.show(60, 1);
    EXPECT_EQ(panel.panel()->pos(), QPoint(-30000, -30000));
    CountdownPanel::offscreenForTests = false;
}

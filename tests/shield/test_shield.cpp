#include "screens/away_view.h"
#include "journal/journal.h"
#include "schedule/settings.h"
#include "shield/escape_view.h"
#include "shield/hold_button.h"
#include "shield/shield_controller.h"
#include "shield/shield_platform.h"
#include "shield/shield_window.h"
#include "support/fake_clock.h"
#include "support/fake_platform.h"

#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <qpa/qwindowsysteminterface.h>

#include <gtest/gtest.h>

using namespace tovin;
using Reason = PromiseRecord::Reason;

namespace {

// Every ending and stray key the shield reports, in order.
struct Recorder {
    QStringList endings;
    QStringList keys;
    void listen(ShieldController& shield) {
        QObject::connect(&shield, &ShieldController::wasBroken, [this](std::optional<Reason> reason) {
            endings.append(u"broken: " + (reason ? toString(*reason) : QStringLiteral("none")));
        });
        QObject::connect(&shield, &ShieldController::timedOut, [this] { endings.append(QStringLiteral("timed out")); });
        QObject::connect(&shield, &ShieldController::panicked, [this] { endings.append(QStringLiteral("panicked")); });
        QObject::connect(&shield, &ShieldController::yielded, [this] { endings.append(QStringLiteral("yielded")); });
        QObject::connect(&shield, &ShieldController::keyPressed, [this](const QString& key) { keys.append(key); });
    }
};

class ShieldTest : public ::testing::Test {
protected:
    void SetUp() override {
        Settings::setStore(std::make_shared<MemorySettingsStore>());
        Journal::setOverrideURL(dir.filePath(QStringLiteral("tovin-journal-test-shield.log")));
        Journal::setClock(&clock);
        recorder.listen(shield);
        shield.setStandingSource([] { return QStringLiteral("2 tovin · 0 broken. This breaks a streak of 2."); });
    }
    void TearDown() override {
        shield.lower();
        Journal::setClock(nullptr);
        Journal::setOverrideURL(std::nullopt);
        Settings::setStore(nullptr);
    }

    QWidget* target() { return shield.currentWindow(); }
    void key(Qt::Key k, Qt::KeyboardModifiers mods = Qt::NoModifier, double after = 0.2) {
        QTest::keyClick(target(), k, mods);
        clock.advance(after);
    }
    void type(const QString& text, double gap = 0.2) {
        for (const QChar c : text) {
            QTest::keyClick(target(), c.toLatin1());
            clock.advance(gap);
        }
    }

    QTemporaryDir dir;
    fakes::FakeClock clock;
    Recorder recorder;
    ShieldController shield{clock};
};

} // namespace

TEST_F(ShieldTest, EveryDisplayCoveredOnceAndRecheckingNeverStacks) {
    shield.raise(new QLabel(QStringLiteral("workout")), false, 15);
    ASSERT_TRUE(shield.isUp());
    const int screens = int(QGuiApplication::screens().size());
    EXPECT_EQ(shield.windowCount(), screens);
    ShieldWindow* main = shield.windows().first();
    EXPECT_EQ(main->geometry(), QGuiApplication::primaryScreen()->geometry());
    EXPECT_TRUE(main->windowFlags().testFlag(Qt::FramelessWindowHint));
    EXPECT_TRUE(main->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    shield.coverUncoveredScreens();
    shield.coverUncoveredScreens();
    EXPECT_EQ(shield.windowCount(), screens);
    EXPECT_TRUE(shield.hasKeyMonitor());

    // A second raise changes nothing, not even the valve.
    shield.raise(new QLabel, true, 99);
    EXPECT_FALSE(shield.isRehearsal());
    EXPECT_EQ(shield.valveMinutes(), 15);
    shield.lower();
    EXPECT_EQ(shield.windowCount(), 0);
    EXPECT_FALSE(shield.hasKeyMonitor());
    EXPECT_TRUE(recorder.endings.isEmpty()); // lowering by itself reports nothing
}

TEST_F(ShieldTest, EscTapsWarnOnTheThirdAndPanicOnTheFifth) {
    shield.raise(new QLabel, false, 15);
    key(Qt::Key_Escape, {}, 1.5);
    key(Qt::Key_Escape, {}, 1.6); // the first tap is now 3.1 s old
    key(Qt::Key_Escape);
    EXPECT_FALSE(shield.isShowingEscape()) << "taps older than the burst window do not count";
    key(Qt::Key_Escape);
    EXPECT_TRUE(shield.isShowingEscape());
    key(Qt::Key_Escape); // the fourth tap, through the warning
    EXPECT_EQ(shield.escapeView()->panicLabel()->text(), u"One more Esc and you're out.");
    EXPECT_TRUE(recorder.endings.isEmpty());
    key(Qt::Key_Escape);
    EXPECT_FALSE(shield.isUp());
    EXPECT_EQ(recorder.endings, QStringList{QStringLiteral("panicked")});
    EXPECT_TRUE(recorder.keys.isEmpty()); // Esc never reaches anyone
}

TEST_F(ShieldTest, KeepingThePromiseLeavesTheTapsCounting) {
    shield.raise(new QLabel, false, 15);
    for (int i = 0; i < 3; ++i)
        key(Qt::Key_Escape, {}, 0.1);
    ASSERT_TRUE(shield.isShowingEscape());
    EXPECT_EQ(shield.escapeView()->texts(),
              (QStringList{QStringLiteral("You told yourself you'd move first."),
                           QStringLiteral("2 tovin · 0 broken. This breaks a streak of 2."),
                           QStringLiteral("Nobody else ever sees this. You will."),
                           QStringLiteral("Keep the promise"), QStringLiteral("Hold to break it"),
                           QStringLiteral("Mouse not working? Hold Space. Still stuck? Keep tapping Esc.")}));
    // The hold button is the window's focus: Space works it at once.
    EXPECT_EQ(shield.currentWindow()->focusWidget(), shield.escapeView()->hold());
    QTest::keyClick(shield.escapeView(), Qt::Key_Return); // Return keeps the promise
    EXPECT_FALSE(shield.isShowingEscape());
    key(Qt::Key_Escape, {}, 0.1);
    key(Qt::Key_Escape, {}, 0.1);
    EXPECT_FALSE(shield.isUp());
    EXPECT_EQ(recorder.endings, QStringList{QStringLiteral("panicked")});
}

TEST_F(ShieldTest, ThePhraseOpensTheWarningDespiteTyposButNotAcrossAPause) {
    Settings::setEscapePhrase(QStringLiteral("Lark"));
    shield.raise(new QLabel, false, 15);
    type(QStringLiteral("la"));
    clock.advance(3.0); // a pause forgets what was typed
    type(QStringLiteral("rk"));
    EXPECT_FALSE(shield.isShowingEscape());
    EXPECT_EQ(recorder.keys, (QStringList{QStringLiteral("l"), QStringLiteral("a"),
                                          QStringLiteral("r"), QStringLiteral("k")}));
    type(QStringLiteral("xqlark"));
    EXPECT_TRUE(shield.isShowingEscape());
    EXPECT_EQ(recorder.keys.size(), 4 + 5) << "the completing key is not reported";
}

TEST_F(ShieldTest, CtrlQIsSwallowedByARealShieldAndPassedInARehearsal) {
    QKeyEvent ctrlQ(QEvent::KeyPress, Qt::Key_Q, Qt::ControlModifier, QStringLiteral("\x11"));
    shield.raise(new QLabel, false, 15);
    EXPECT_TRUE(shield.handle(&ctrlQ));
    EXPECT_EQ(recorder.keys, QStringList{QStringLiteral("q")});
    EXPECT_TRUE(shield.isUp());
    shield.lower();

    shield.raise(new QLabel, true, 15);
    EXPECT_FALSE(shield.handle(&ctrlQ));
    QKeyEvent plainQ(QEvent::KeyPress, Qt::Key_Q, Qt::NoModifier, QStringLiteral("q"));
    EXPECT_TRUE(shield.handle(&plainQ));
}

TEST_F(ShieldTest, HoldingToBreakThenAReasonLowersAndReportsIt) {
    shield.raise(new QLabel, false, 15);
    shield.showEscape();
    HoldButton* hold = shield.escapeView()->hold();
    ASSERT_TRUE(hold);
    QTest::keyPress(hold, Qt::Key_Space);
    clock.advance(3.1);
    EXPECT_EQ(shield.escapeView()->texts().first(), u"Which was it?");
    EXPECT_TRUE(shield.isUp());
    auto* urgent = shield.escapeView()->findChild<QPushButton*>(QStringLiteral("Didn't feel like it"));
    ASSERT_TRUE(urgent);
    urgent->click();
    EXPECT_FALSE(shield.isUp());
    EXPECT_EQ(recorder.endings, QStringList{QStringLiteral("broken: Didn't feel like it")});
}

TEST_F(ShieldTest, AnUnknownReasonStillBreaksWithNone) {
    std::optional<std::optional<Reason>> got;
    EscapeView view(clock, QString());
    view.onBreak = [&](std::optional<Reason> r) { got = r; };
    view.askReason();
    QPushButton stray(QStringLiteral("?"));
    stray.setObjectName(QStringLiteral("Sleepy"));
    view.reasonTapped(&stray);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, std::nullopt);
    EXPECT_EQ(view.texts(), (QStringList{QStringLiteral("Which was it?"),
                                         QStringLiteral("Answer honestly — it only goes in your own log."),
                                         QStringLiteral("Genuinely urgent"),
                                         QStringLiteral("Didn't feel like it"),
                                         QStringLiteral("Tab to move · Space or Return to choose.")}));
    view.nudgePanic(4);
    EXPECT_EQ(view.texts().size(), 5); // no panic line once the question is asked
}

TEST_F(ShieldTest, TheReasonTakesOnlyAFreshKeyAndReturnMeansTheFirstReason) {
    std::optional<std::optional<Reason>> got;
    EscapeView view(clock, QString());
    view.onBreak = [&](std::optional<Reason> r) { got = r; };
    view.show();
    view.askReason();
    auto* urgent = view.findChild<QPushButton*>(QStringLiteral("Genuinely urgent"));
    auto* didnt = view.findChild<QPushButton*>(QStringLiteral("Didn't feel like it"));
    ASSERT_TRUE(urgent && didnt);
    auto send = [](QWidget* to, QEvent::Type type, int key, bool repeat) {
        QKeyEvent e(type, key, Qt::NoModifier, key == Qt::Key_Space ? QStringLiteral(" ") : QString(), repeat);
        QApplication::sendEvent(to, &e);
    };
    // The Space held through the hold: its repeats and its release choose nothing.
    for (int i = 0; i < 5; ++i) {
        send(urgent, QEvent::KeyPress, Qt::Key_Space, true);
        send(urgent, QEvent::KeyRelease, Qt::Key_Space, true);
    }
    send(urgent, QEvent::KeyRelease, Qt::Key_Space, false);
    EXPECT_FALSE(got) << "a held key answered the question";
    // Return with the second reason focused still means the first.
    didnt->setFocus();
    send(didnt, QEvent::KeyPress, Qt::Key_Return, false);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, Reason::Urgent);
    // A fresh press and release chooses the focused one.
    got.reset();
    send(didnt, QEvent::KeyPress, Qt::Key_Space, false);
    send(didnt, QEvent::KeyRelease, Qt::Key_Space, false);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, Reason::DidntFeelLikeIt);
}

TEST_F(ShieldTest, ValveByTimerAndByWallClock) {
    shield.raise(new QLabel, false, 10);
    clock.advance(10 * 60 - 1);
    EXPECT_TRUE(shield.isUp());
    clock.advance(1);
    EXPECT_FALSE(shield.isUp());
    EXPECT_EQ(recorder.endings, QStringList{QStringLiteral("timed out")});

    recorder.endings.clear();
    shield.raise(new QLabel, false, 10);
    EXPECT_FALSE(shield.enforceValve(clock.now().addSecs(9 * 60)));
    EXPECT_TRUE(shield.isUp());
    // After a sleep the timer has not fired, but the wall clock says the limit is past.
    EXPECT_TRUE(shield.enforceValve(clock.now().addSecs(12 * 60 + 30)));
    EXPECT_FALSE(shield.isUp());
    EXPECT_EQ(recorder.endings, QStringList{QStringLiteral("timed out")});
    EXPECT_TRUE(Journal::tail(1).value(0).endsWith(
        u"[shield] valve enforced by the clock — up 12 min, limit 10 min"));
    EXPECT_FALSE(shield.enforceValve(clock.now().addSecs(3600)));
    EXPECT_EQ(recorder.endings.size(), 1);
}

// A window system the test describes: whether losing the focus proves the system took the
// screen (X11) or not (Wayland), and whether a screen locker holds the session.
class FakeShieldPlatform final : public ShieldPlatform {
public:
    bool focusLossIsYield = false;
    QString lockedBy;
    int reclaims = 0;
    bool hold(const QList<QWindow*>&) override { return true; }
    void release() override {}
    bool focusLossMeansYield() const override { return focusLossIsYield; }
    QString sessionLockedBy() const override { return lockedBy; }
    void reclaimFocus(const QList<ShieldSurface>&) override { ++reclaims; } // the compositor refuses
};

TEST_F(ShieldTest, LosingTheFocusYieldsOnlyWhereItProvesTheSystemTookTheScreen) {
    for (const bool proves : {true, false}) {
        SCOPED_TRACE(proves ? "X11" : "Wayland");
        FakeShieldPlatform* platform = nullptr;
        shield.setPlatformFactory([&] {
            auto made = std::make_unique<FakeShieldPlatform>();
            made->focusLossIsYield = proves;
            platform = made.get();
            return made;
        });
        recorder.endings.clear();
        shield.raise(new QLabel, false, 15);
        ASSERT_NE(platform, nullptr);
        QWindowSystemInterface::handleWindowActivated(nullptr);
        QWindowSystemInterface::flushWindowSystemEvents();
        ASSERT_NE(QGuiApplication::applicationState(), Qt::ApplicationActive);
        clock.advance(ShieldController::yieldGrace + 0.1);
        if (proves) {
            shield.yieldNow(); // a second word from the system, as the lowering begins
            EXPECT_EQ(recorder.endings, QStringList{QStringLiteral("yielded")}) << "reported once";
            continue;
        }
        // Another program's window: the shield stays, asks again and again, and says so once.
        clock.advance(5);
        EXPECT_TRUE(shield.isUp());
        EXPECT_GE(platform->reclaims, 5);
        EXPECT_EQ(Journal::tail(5).filter(QStringLiteral("another window took the focus")).size(), 1);
        // A close request from the compositor is no way out either.
        shield.currentWindow()->close();
        EXPECT_TRUE(shield.isUp());
        EXPECT_TRUE(Journal::tail(1).value(0).endsWith(u"the desktop asked to close the shield — ignored"));
        // A locked session is the system taking the screen.
        platform->lockedBy = QStringLiteral("logind");
        clock.advance(1.1);
        EXPECT_EQ(recorder.endings, QStringList{QStringLiteral("yielded")});
        EXPECT_TRUE(Journal::tail(1).value(0).endsWith(u"the session is locked (logind) — giving way"));
    }
}

TEST_F(ShieldTest, HintsPanicAtOnceEscapeAfterTheDelay) {
    Settings::setHintDelay(25);
    shield.raise(new QLabel, false, 15);
    ShieldWindow* main = shield.windows().first();
    EXPECT_EQ(main->panicHint()->text(), u"hold on — Esc ×5 gets you out immediately");
    EXPECT_TRUE(main->escapeHint()->text().isEmpty());
    EXPECT_EQ(main->escapeHintOpacity()->opacity(), 0.0);
    clock.advance(25);
    EXPECT_EQ(main->escapeHint()->text(), u"emergency escape — type “lark”, or press Esc ×3");
    EXPECT_TRUE(QTest::qWaitFor([&] { return main->escapeHintOpacity()->opacity() == 1.0; }, 3000));
}

TEST_F(ShieldTest, ARehearsalIsOneOrdinaryWindowWithItsOwnWaysOut) {
    shield.raise(new QLabel, true, 15);
    ASSERT_EQ(shield.windowCount(), 1);
    QWidget* window = shield.currentWindow();
    EXPECT_EQ(window->windowTitle(),
              u"Tovin — REHEARSAL · your screen is not locked · Ctrl-Q always works");
    EXPECT_EQ(window->size(), QSize(1100, 720));
    EXPECT_FALSE(window->windowFlags().testFlag(Qt::FramelessWindowHint));
    shield.coverUncoveredScreens();
    EXPECT_EQ(shield.windowCount(), 1);
    ASSERT_TRUE(shield.simulateButton());
    EXPECT_EQ(shield.simulateButton()->text(), u"Simulate the system taking the screen");
    shield.simulateButton()->click();
    EXPECT_EQ(recorder.endings, QStringList{QStringLiteral("yielded")});

    shield.raise(new QLabel, true, 15);
    shield.currentWindow()->close();
    EXPECT_FALSE(shield.isUp());
    EXPECT_EQ(recorder.endings.last(), u"panicked");
    EXPECT_TRUE(shield.isRehearsal()); // the flag keeps its last value
}

TEST(HoldButton, FillsDrainsTwiceAsFastAndFiresOnce) {
    fakes::FakeClock clock;
    HoldButton hold(QStringLiteral("Hold to break it"), 3.0, clock);
    int fired = 0;
    hold.onComplete = [&] { ++fired; };

    const double oneTick = HoldButton::tickSeconds / 3.0; // of the bar, at a 3 s hold
    hold.engage();
    clock.advance(1.5);
    EXPECT_NEAR(hold.fillForTests(), 0.5, oneTick);
    hold.release();
    clock.advance(0.75 - 2 * HoldButton::tickSeconds);
    EXPECT_GT(hold.fillForTests(), 0.0);
    clock.advance(3 * HoldButton::tickSeconds);
    EXPECT_EQ(hold.fillForTests(), 0.0) << "1.5 s of hold drains in 0.75 s";
    EXPECT_EQ(clock.activeTimers(), 0);
    EXPECT_EQ(fired, 0);

    hold.engage();
    clock.advance(3.0 + HoldButton::tickSeconds);
    EXPECT_EQ(hold.fillForTests(), 1.0);
    EXPECT_EQ(fired, 1);
    clock.advance(5);
    EXPECT_EQ(fired, 1);
    EXPECT_FALSE(hold.isHolding());

    // A busy screen delivers few animation ticks: the hold still means the seconds it says.
    HoldButton starved(QStringLiteral("Hold to break it"), 3.0, clock);
    starved.onComplete = [&] { ++fired; };
    starved.engage();
    clock.stall(1.0);
    EXPECT_NEAR(starved.fillForTests(), 1.0 / 3, 1e-6);
    clock.stall(2.0);
    EXPECT_EQ(fired, 2) << "three seconds held in two late ticks";
}

TEST(HoldButton, SpaceHoldsButAnAutoRepeatAloneDoesNot) {
    fakes::FakeClock clock;
    HoldButton hold(QStringLiteral("Hold"), 3.0, clock);
    QKeyEvent repeat(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "), true);
    QApplication::sendEvent(&hold, &repeat);
    EXPECT_FALSE(hold.isHolding());
    QTest::keyPress(&hold, Qt::Key_Space);
    EXPECT_TRUE(hold.isHolding());
    QKeyEvent repeatRelease(QEvent::KeyRelease, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "), true);
    QApplication::sendEvent(&hold, &repeatRelease);
    EXPECT_TRUE(hold.isHolding()) << "X11 auto-repeat's release is not a real release";
    QTest::keyRelease(&hold, Qt::Key_Space);
    EXPECT_FALSE(hold.isHolding());
    QTest::mousePress(&hold, Qt::LeftButton);
    EXPECT_TRUE(hold.isHolding());
    QTest::mouseRelease(&hold, Qt::LeftButton);
    EXPECT_FALSE(hold.isHolding());
}

TEST(AwayView, CountdownTexts) {
    const struct {
        double seconds;
        const char* text;
    } cases[] = {{900, "15:00 left"}, {61, "1:01 left"}, {59.2, "1:00 left"}, {59, "59s left"},
                 {0.4, "1s left"},    {0, "0s left"},    {-30, "0s left"},    {3600, "60:00 left"}};
    for (const auto& c : cases)
        EXPECT_EQ(AwayView::remainingText(c.seconds), QString::fromLatin1(c.text)) << c.seconds;

    fakes::FakeClock clock;
    const Calendar berlin(QTimeZone("Europe/Berlin"));
    AwayView view(QStringLiteral("Walk"), clock.now().addSecs(15 * 60), clock, berlin);
    EXPECT_EQ(view.countdownText(), u"15:00 left");
    EXPECT_EQ(view.comesBackText(), u"Your screen comes back at 10:15"); // 09:15 UTC in Berlin
    clock.advance(14 * 60 + 2);
    EXPECT_EQ(view.countdownText(), u"58s left");
    clock.advance(120);
    EXPECT_EQ(view.countdownText(), u"0s left");
}

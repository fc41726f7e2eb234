#include "core/paths.h"
#include "screens/away_view.h"
#include "screens/setup_window.h"
#include "screens/shield/escape_view.h"
#include "screens/shield/hold_button.h"
#include "screens/shield/shield_controller.h"
#include "screens/shield/shield_platform.h"
#include "screens/shield/shield_window.h"
#include "support/fake_clock.h"

#include <QApplication>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>
#include <qpa/qwindowsysteminterface.h>

#include <gtest/gtest.h>

// The shield's own rules, headless. The ways a whole lockout begins and ends (the phrase, the
// hold of Space, the reason, Esc ×3 and ×5, both monitors covered) are the app's end-to-end
// checks; what is here is what they cannot reach: timing, the valve, and yielding.

using namespace tovin;
using namespace Qt::Literals::StringLiterals;
using Reason = PromiseRecord::Reason;

namespace {

// A window system the test describes: whether losing the focus proves the system took the
// screen (X11, past a grab) or not (Wayland, whose compositor here refuses the focus back).
class FakeShieldPlatform final : public ShieldPlatform {
public:
    explicit FakeShieldPlatform(bool yields)
        : focusLossIsYield(yields) {}
    const bool focusLossIsYield;
    QString lockedBy;
    int reclaims = 0;
    bool hold(const QList<QWindow*>&) override { return true; }
    void release() override {}
    bool focusLossMeansYield() const override { return focusLossIsYield; }
    QString sessionLockedBy() const override { return lockedBy; }
    void reclaimFocus(const QList<ShieldSurface>&) override { ++reclaims; }
};

class ShieldTest : public ::testing::Test {
protected:
    void SetUp() override {
        const auto record = [this](const char* ending) {
            return [this, ending] { endings.append(QString::fromLatin1(ending)); };
        };
        QObject::connect(&shield, &ShieldController::wasBroken, record("broken"));
        QObject::connect(&shield, &ShieldController::timedOut, record("timed out"));
        QObject::connect(&shield, &ShieldController::panicked, record("panicked"));
        QObject::connect(&shield, &ShieldController::yielded, record("yielded"));
        QObject::connect(&shield, &ShieldController::keyPressed,
                         [this](const QString& k) { keys += k; });
        QObject::connect(&shield, &ShieldController::noted,
                         [this](const QString& text) { notes += text; });
    }
    void TearDown() override { shield.lower(); }

    void key(Qt::Key k, Qt::KeyboardModifiers mods = Qt::NoModifier) {
        QTest::keyClick(shield.currentWindow(), k, mods);
        clock.advance(0.2);
    }
    void type(const char* text) {
        for (const char* c = text; *c; ++c) {
            QTest::keyClick(shield.currentWindow(), *c);
            clock.advance(0.2);
        }
    }
    // Raises the shield on the given window system, then takes the focus away from it.
    FakeShieldPlatform* raiseAndLoseFocus(bool focusLossIsYield) {
        FakeShieldPlatform* platform = nullptr;
        shield.setPlatformFactory([&platform, focusLossIsYield] {
            auto made = std::make_unique<FakeShieldPlatform>(focusLossIsYield);
            platform = made.get();
            return made;
        });
        shield.raise(new QLabel, false, 15);
        QWindowSystemInterface::handleWindowActivated(nullptr);
        QWindowSystemInterface::flushWindowSystemEvents();
        clock.advance(ShieldController::yieldGrace + 0.1);
        return platform;
    }

    fakes::FakeClock clock;
    ShieldController shield{clock};
    QStringList endings;
    QString keys;
    QStringList notes;
};

} // namespace

TEST_F(ShieldTest, ASecondRaiseOrARecheckChangesNothingAndLoweringReportsNothing) {
    shield.raise(new QLabel, false, 15);
    const int screens = int(QGuiApplication::screens().size());
    shield.coverUncoveredScreens();
    shield.raise(nullptr, true, 99);
    EXPECT_EQ(shield.windowCount(), screens);
    EXPECT_FALSE(shield.isRehearsal());
    EXPECT_EQ(shield.valveMinutes(), 15);
    shield.lower();
    EXPECT_EQ(shield.windowCount(), 0);
    EXPECT_FALSE(shield.hasKeyMonitor());
    EXPECT_TRUE(endings.isEmpty());
}

TEST_F(ShieldTest, EscTapsCountWithinTheBurstAndKeepingThePromiseLeavesThemCounting) {
    shield.raise(new QLabel, false, 15);
    key(Qt::Key_Escape);
    clock.advance(1.3);
    key(Qt::Key_Escape);
    clock.advance(1.4); // the first tap is now 3.1 s old
    key(Qt::Key_Escape);
    EXPECT_FALSE(shield.isShowingEscape()) << "taps older than the burst window do not count";
    key(Qt::Key_Escape);
    ASSERT_TRUE(shield.isShowingEscape());
    key(Qt::Key_Escape); // the fourth tap in the burst, through the warning
    EXPECT_EQ(shield.escapeView()->panicLabel()->text(), u"One more Esc and you're out.");
    QTest::keyClick(shield.escapeView(), Qt::Key_Return); // keeps the promise
    EXPECT_FALSE(shield.isShowingEscape());
    EXPECT_TRUE(endings.isEmpty());
    key(Qt::Key_Escape);
    EXPECT_FALSE(shield.isUp());
    EXPECT_EQ(endings, QStringList{QStringLiteral("panicked")});
    EXPECT_TRUE(keys.isEmpty()) << "Esc reached " << keys.toStdString();
}

TEST_F(ShieldTest, ThePhraseOpensTheWarningDespiteTyposButNotAcrossAPause) {
    shield.raise(new QLabel, false, 15, {QStringLiteral("lark"), 25, {}});
    key(Qt::Key_Q, Qt::ControlModifier); // no shortcut fires under a real shield: a plain "q"
    type("la");
    clock.advance(3.0); // a pause forgets what was typed
    type("rk");
    EXPECT_FALSE(shield.isShowingEscape());
    type("xqlark");
    EXPECT_TRUE(shield.isShowingEscape());
    EXPECT_EQ(keys, u"qlarkxqlar") << "the completing key is not reported";
}

TEST_F(ShieldTest, AReasonNoLongerKnownStillBreaksThePromise) {
    std::optional<std::optional<Reason>> got;
    EscapeView view(clock, QString());
    view.onBreak = [&](std::optional<Reason> r) { got = r; };
    view.askReason();
    QPushButton stray;
    stray.setObjectName(QStringLiteral("Sleepy"));
    view.reasonTapped(&stray);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, std::nullopt);
}

TEST_F(ShieldTest, TheValveEndsItByTimerOrByTheWallClockAfterASleep) {
    shield.raise(new QLabel, false, 10);
    clock.advance(10 * 60 - 1);
    EXPECT_TRUE(shield.isUp());
    clock.advance(1);
    EXPECT_FALSE(shield.isUp());
    EXPECT_EQ(endings, QStringList{QStringLiteral("timed out")});

    shield.raise(new QLabel, false, 10);
    EXPECT_FALSE(shield.enforceValve(clock.now().addSecs(9 * 60)));
    // After a sleep the timer has not fired, but the wall clock says the limit is past.
    EXPECT_TRUE(shield.enforceValve(clock.now().addSecs(12 * 60 + 30)));
    EXPECT_FALSE(shield.isUp());
    EXPECT_TRUE(notes.value(notes.size() - 1).endsWith(u"up 12 min, limit 10 min"));
    EXPECT_FALSE(shield.enforceValve(clock.now().addSecs(3600)));
    EXPECT_EQ(endings, (QStringList{QStringLiteral("timed out"), QStringLiteral("timed out")}));
}

TEST_F(ShieldTest, OnX11LosingTheFocusPastTheGrabYieldsOnce) {
    raiseAndLoseFocus(true);
    shield.yieldNow(); // a second word from the system, as the lowering begins
    EXPECT_EQ(endings, QStringList{QStringLiteral("yielded")});
}

TEST_F(ShieldTest, OnWaylandTheFocusIsAskedBackUntilTheSessionLocks) {
    FakeShieldPlatform* platform = raiseAndLoseFocus(false);
    clock.advance(5);
    EXPECT_TRUE(shield.isUp());
    EXPECT_GE(platform->reclaims, 5);
    EXPECT_EQ(notes.filter(QStringLiteral("another window took the focus")).size(), 1);
    platform->lockedBy = QStringLiteral("logind");
    clock.advance(1.1);
    EXPECT_EQ(endings, QStringList{QStringLiteral("yielded")});
}

TEST_F(ShieldTest, TheEscapeHintFadesInAfterTheDelayNamingThePhrase) {
    shield.raise(new QLabel, false, 15, {QStringLiteral("otter"), 25, {}});
    ShieldWindow* main = shield.windows().first();
    clock.advance(24);
    EXPECT_TRUE(main->escapeHint()->text().isEmpty());
    EXPECT_EQ(main->escapeHintOpacity()->opacity(), 0.0);
    clock.advance(1);
    EXPECT_TRUE(main->escapeHint()->text().contains(u"“otter”"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return main->escapeHintOpacity()->opacity() == 1.0; }, 3000));
}

TEST_F(ShieldTest, ARehearsalIsAnOrdinaryWindowThatClosingEnds) {
    shield.raise(new QLabel, true, 15);
    EXPECT_FALSE(shield.currentWindow()->windowFlags().testFlag(Qt::FramelessWindowHint));
    shield.currentWindow()->close();
    EXPECT_FALSE(shield.isUp());
    EXPECT_EQ(endings, QStringList{QStringLiteral("panicked")});
}

TEST(HoldButton, FillsDrainsTwiceAsFastAndFiresOnceEvenOnAStarvedScreen) {
    fakes::FakeClock clock;
    HoldButton hold(QStringLiteral("Hold"), 3.0, clock);
    int fired = 0;
    hold.onComplete = [&] { ++fired; };
    hold.engage();
    clock.advance(1.5);
    EXPECT_NEAR(hold.fill(), 0.5, HoldButton::tickSeconds / 3.0);
    hold.release();
    clock.advance(0.75 - 2 * HoldButton::tickSeconds);
    EXPECT_GT(hold.fill(), 0.0);
    clock.advance(3 * HoldButton::tickSeconds);
    EXPECT_EQ(hold.fill(), 0.0) << "1.5 s of hold drains in 0.75 s";
    EXPECT_EQ(clock.activeTimers(), 0);

    hold.engage();
    clock.advance(3.0 + HoldButton::tickSeconds);
    EXPECT_EQ(fired, 1);
    clock.advance(5);
    EXPECT_EQ(fired, 1);
    EXPECT_FALSE(hold.isHolding());

    // A busy screen delivers few animation ticks: the hold still means the seconds it says.
    HoldButton starved(QStringLiteral("Hold"), 3.0, clock);
    starved.onComplete = [&] { ++fired; };
    starved.engage();
    clock.stall(1.0);
    EXPECT_NEAR(starved.fill(), 1.0 / 3, 1e-6);
    clock.stall(2.0);
    EXPECT_EQ(fired, 2) << "three seconds held in two late ticks";
}

TEST(HoldButton, AKeyRepeatAloneHoldsNothingButTheMouseHolds) {
    fakes::FakeClock clock;
    HoldButton hold(QStringLiteral("Hold"), 3.0, clock);
    // A Space held since before the warning opened reaches it as repeats only.
    QKeyEvent repeat(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "), true);
    QApplication::sendEvent(&hold, &repeat);
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
    EXPECT_EQ(view.comesBackText(), u"Your screen comes back at 10:15"); // 09:15 UTC in Berlin
    clock.advance(14 * 60 + 2);
    EXPECT_EQ(view.countdownText(), u"58s left");
}

// The setup window installs Tovin's GNOME Shell extension only at the person's word, and tells
// GNOME to run it; a shell that cannot take it up at once means a log-out, which it says.
TEST(GnomeExtension, InstalledOnlyAtThePersonsWordAndGnomeIsToldToRunIt) {
    qputenv("GSETTINGS_BACKEND", "keyfile");
    const QString installed =
        QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
        u"/gnome-shell/extensions/tovin-shield@tovin.dev"_s;
    SetupWindow window({});
    SetupStrip strip;
    strip.gnomeExtension = true;
    window.setStrip(strip);
    QPushButton* offer = nullptr;
    for (QPushButton* button : window.findChildren<QPushButton*>())
        if (button->text() == u"Keep the Shield on Top…")
            offer = button;
    ASSERT_TRUE(offer && offer->isVisibleTo(&window));
    QStringList chosen;
    QObject::connect(
        &window, &SetupWindow::chosen,
        [&](const QString& action, const QString& value) { chosen << action + u'=' + value; });
    // The person's answers to the boxes that come up, in order; what each box said.
    QStringList answers, told;
    QTimer answering;
    QObject::connect(&answering, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box || answers.isEmpty())
            return;
        told << box->text() + u' ' + box->informativeText();
        const QString answer = answers.takeFirst();
        for (QAbstractButton* button : box->buttons())
            if (button->text() == answer)
                button->click();
    });
    answering.start(10);

    answers = {u"Cancel"_s};
    offer->click();
    EXPECT_FALSE(QFileInfo::exists(installed));
    EXPECT_TRUE(chosen.isEmpty());

    answers = {u"Install and Turn On"_s, u"OK"_s};
    told.clear();
    offer->click();
    for (const char* name : {"extension.js", "metadata.json"}) {
        QFile copy(installed + u'/' + QLatin1String(name));
        QFile shipped(
            paths::installedShare(u"gnome-shell/tovin-shield@tovin.dev/"_s + QLatin1String(name)));
        ASSERT_TRUE(copy.open(QIODevice::ReadOnly) && shipped.open(QIODevice::ReadOnly)) << name;
        EXPECT_EQ(copy.readAll(), shipped.readAll()) << name;
    }
    QFile keyfile(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/glib-2.0/settings/keyfile"_s);
    ASSERT_TRUE(keyfile.open(QIODevice::ReadOnly));
    EXPECT_TRUE(keyfile.readAll().contains("'tovin-shield@tovin.dev'"));
    ASSERT_EQ(told.size(), 2);
    EXPECT_TRUE(told[1].startsWith(u"Tovin's GNOME Shell extension is installed. Log out"_s))
        << told[1].toStdString();
    EXPECT_EQ(chosen, QStringList{u"gnomeExtension="_s});
}

// The shell around the controller: which switch wins, the call probe's warning, the
// single-instance socket, the menu's states, and the icon while paused.

#include "app/app_shell.h"
#include "app/launch_at_login.h"
#include "app/launch_switches.h"
#include "app/status_icon.h"
#include "cycle_fixture.h"
#include "journal/instance_record.h"

#include <QLocalSocket>
#include <QTest>
#include <QTextStream>

#include <thread>
#include <vector>

using namespace tovin;
using tovin::fakes::CycleTest;

TEST(LaunchSwitches, TheFirstInOrderWinsWhereverItStands) {
    const struct {
        std::vector<const char*> args;
        LaunchMode mode;
    } rows[] = {
        {{}, LaunchMode::Normal},
        {{"--rehearse", "--why"}, LaunchMode::Why},
        {{"--self-test", "--update-dry-run", "--rehearse"}, LaunchMode::UpdateDryRun},
        {{"--self-test", "--layout-check"}, LaunchMode::LayoutCheck},
        {{"--probe-call", "--self-test"}, LaunchMode::SelfTest},
        {{"--rehearse", "--probe-call"}, LaunchMode::ProbeCall},
        {{"--rehearse"}, LaunchMode::Rehearse},
        {{"--rehearsed", "why"}, LaunchMode::Normal}, // whole arguments only
    };
    for (const auto& row : rows) {
        QStringList line{QStringLiteral("tovin")};
        for (const char* arg : row.args)
            line.append(QString::fromLatin1(arg));
        EXPECT_EQ(launchModeFor(line), row.mode) << line.join(u' ').toStdString();
    }
    EXPECT_EQ(launchModeFor({QStringLiteral("--why")}), LaunchMode::Normal)
        << "the program's own name is not a switch";
    EXPECT_FALSE(checksSingleInstance(LaunchMode::SelfTest));
    EXPECT_FALSE(checksSingleInstance(LaunchMode::LayoutCheck));
    EXPECT_TRUE(checksSingleInstance(LaunchMode::Rehearse));
}

TEST(LaunchSwitches, TheCallProbeWarnsBeforeItWatchesWhenThereIsNoMicrophone) {
    for (const int devices : {0, 2}) {
        QString said;
        QTextStream out(&said);
        writeProbeHeader(out, devices);
        out.flush();
        // The warning comes before the watching starts, or it scrolls away unread.
        EXPECT_EQ(said.indexOf(u"none found") >= 0 && said.indexOf(u"none found") < said.indexOf(u"watching"),
                  devices == 0)
            << said.toStdString();
    }
    EXPECT_EQ(probeLine(true, false, true), u"mic LIVE  camera idle  → WOULD NOT LOCK");
    EXPECT_EQ(probeLine(false, true, false), u"mic idle  camera LIVE   → free to lock");
}

class ShellTest : public CycleTest {
protected:
    void SetUp() override {
        CycleTest::SetUp();
        LaunchAtLogin::setEntryPathForTesting(dir.filePath(QStringLiteral("autostart/dev.tovin.Tovin.desktop")));
        LaunchAtLogin::setExecutableForTesting(QCoreApplication::applicationFilePath());
    }
    void TearDown() override {
        shell.reset();
        LaunchAtLogin::setEntryPathForTesting({});
        LaunchAtLogin::setExecutableForTesting({});
        CycleTest::TearDown();
    }
    AppShell& makeShell() {
        screens = std::make_unique<LocalScreens>(clock);
        screens->setContentFactory([](const LockoutPage&, bool) -> QWidget* { return new QLabel; });
        shell = std::make_unique<AppShell>(AppDependencies{clock, idle, *screens, ledger, schedulePath}, false);
        shell->controller().setCalendar(Calendar::utc());
        return *shell;
    }
    QStringList menu(bool enabledOnly = false) {
        QMenu m;
        shell->rebuildMenu(&m);
        QStringList items;
        for (QAction* a : m.actions()) {
            if (a->isSeparator())
                items.append(QStringLiteral("—"));
            else if (!enabledOnly || a->isEnabled())
                items.append(a->text() + (a->isChecked() ? QStringLiteral(" ✓") : QString()));
        }
        return items;
    }
    std::unique_ptr<AppShell> shell;
};

TEST_F(ShellTest, TheMenuSaysWhatHappensNextAndOffersWhatFits) {
    week({block("09:30", "Half past")});
    AppShell& s = makeShell();
    s.controller().startScheduleWatch();
    const QStringList watching = menu();
    EXPECT_EQ(watching.mid(0, 2), (QStringList{QStringLiteral("Half past in 30 min"), QStringLiteral("No promises yet")}));
    EXPECT_TRUE(watching.contains(u"Pause for an hour"));
    // The two information lines are shown, not offered.
    EXPECT_FALSE(menu(true).contains(u"Half past in 30 min"));
    EXPECT_FALSE(menu(true).contains(u"No promises yet"));

    LaunchAtLogin::set(true);
    s.controller().pauseAnHour();
    clock.advance(60);
    const QStringList paused = menu();
    EXPECT_EQ(paused.value(0), u"Paused — 59 min left");
    EXPECT_TRUE(paused.contains(u"Resume watching"));
    EXPECT_TRUE(paused.contains(u"Open at Login ✓"));

    // An entry the desktop was told to skip: greyed, and the check box says why.
    const QByteArray entry = *readWholeFile(LaunchAtLogin::entryPath(), 1 << 16);
    writeFileAtomically(LaunchAtLogin::entryPath(), entry + "Hidden=true\n");
    const QString blocked = LaunchAtLogin::menuTitle(LaunchAtLogin::Blocked);
    EXPECT_TRUE(menu().contains(blocked));
    EXPECT_FALSE(menu(true).contains(blocked));
}

TEST_F(ShellTest, PausedTheIconIsDrawnFaded) {
    AppShell& s = makeShell();
    const auto darkest = [](const QIcon& icon) {
        const QImage image = icon.pixmap(22, 22).toImage();
        int alpha = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                alpha = std::max(alpha, qAlpha(image.pixel(x, y)));
        return alpha;
    };
    const int watching = darkest(s.trayIconNow());
    s.controller().pauseAnHour();
    EXPECT_LT(darkest(s.trayIconNow()), watching / 2);
    s.controller().resumeWatching();
    EXPECT_EQ(darkest(s.trayIconNow()), watching);
}

TEST_F(ShellTest, OneTovinPerSessionAndASecondLaunchOverALockoutShowsNothing) {
    AppShell& first = makeShell();
    EXPECT_TRUE(AppShell::instanceName().startsWith(qEnvironmentVariable("XDG_RUNTIME_DIR") + u'/'))
        << "two sessions of one person each have their own runtime folder";
    ASSERT_TRUE(first.claimSingleInstance());

    // A later launch asks over the socket; the running copy answers with its process id. A lockout
    // is up, so the setup window (a web page) must stay away.
    first.controller().raiseLockout(true); // a rehearsal: a window, nothing recorded
    ASSERT_TRUE(screens->isUp());
    QByteArray reply;
    std::thread later([&reply] {
        QLocalSocket socket;
        socket.connectToServer(AppShell::instanceName());
        if (socket.waitForConnected(2000) && socket.write("show\n") > 0 && socket.waitForReadyRead(5000))
            reply = socket.readLine().trimmed();
    });
    ASSERT_TRUE(QTest::qWaitFor([&] { return !reply.isEmpty(); }, 6000));
    later.join();
    EXPECT_EQ(reply, "pid " + QByteArray::number(qint64(::getpid())));
    QTest::qWait(50);
    EXPECT_FALSE(screens->setupIsVisible()) << "the setup window was put over the lockout";

    // A copy that finds it running leaves, and never names pid 0 (here the record is gone and
    // this thread cannot answer itself, so there is no pid to give).
    QFile::remove(InstanceRecord::defaultPath());
    AppShell second(AppDependencies{clock, idle, *screens, ledger, schedulePath}, false);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(second.claimSingleInstance());
    const std::string said = testing::internal::GetCapturedStdout();
    EXPECT_EQ(said, "Tovin is already running — bringing it forward\n");
}

TEST_F(ShellTest, ABuildWithoutAReleaseFeedNeverPretendsToCheck) {
    AppShell& s = makeShell();
    s.checkForUpdates(true);
    EXPECT_TRUE(s.openAlerts().isEmpty());
    s.checkForUpdates(false);
    ASSERT_EQ(s.openAlerts().size(), 1);
    const QMessageBox* box = s.openAlerts().first();
    EXPECT_EQ(box->text(), u"This copy of Tovin gets its updates elsewhere.");
    QTest::qWait(50);
    EXPECT_TRUE(journal(QStringLiteral("update")).isEmpty()) << journal(QStringLiteral("update")).join(u'\n').toStdString();
}

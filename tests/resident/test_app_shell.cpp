// The shell around the controller: which switch wins, the call probe's warning, the
// single-instance socket, the menu's states, and the icon while paused.

#include "cycle_fixture.h"
#include "resident/app_shell.h"
#include "resident/launch_at_login.h"
#include "resident/launch_switches.h"

#include <QLocalSocket>
#include <QNetworkAccessManager>
#include <QTest>
#include <QTextStream>

#include <thread>
#include <vector>

using namespace tovin;
using namespace Qt::Literals::StringLiterals;
using tovin::fakes::CycleTest;

TEST(LaunchSwitches, TheFirstInOrderWinsWhereverItStands) {
    // The mode, and whether a lockout it begins is a rehearsal: "--rehearse" anywhere.
    const struct {
        std::vector<const char*> args;
        LaunchMode mode;
        bool rehearsal;
    } rows[] = {
        {{}, LaunchMode::Normal, false},
        {{"--rehearse", "--why"}, LaunchMode::Why, true},
        {{"--self-test", "--update-dry-run", "--rehearse"}, LaunchMode::UpdateDryRun, true},
        {{"--self-test", "--layout-check"}, LaunchMode::LayoutCheck, false},
        {{"--layout-check", "--rehearse"}, LaunchMode::LayoutCheck, true},
        {{"--probe-call", "--self-test"}, LaunchMode::SelfTest, false},
        {{"--rehearse", "--probe-call"}, LaunchMode::ProbeCall, true},
        {{"--rehearsed", "why"}, LaunchMode::Normal, false}, // whole arguments only
    };
    for (const auto& row : rows) {
        QStringList line{QStringLiteral("tovin")};
        for (const char* arg : row.args)
            line.append(QString::fromLatin1(arg));
        EXPECT_EQ(launchModeFor(line), row.mode) << line.join(u' ').toStdString();
        EXPECT_EQ(launchedForRehearsal(line), row.rehearsal) << line.join(u' ').toStdString();
    }
    EXPECT_EQ(launchModeFor({QStringLiteral("--why")}), LaunchMode::Normal)
        << "the program's own name is not a switch";
    EXPECT_FALSE(checksSingleInstance(LaunchMode::SelfTest));
    EXPECT_FALSE(checksSingleInstance(LaunchMode::LayoutCheck));
    EXPECT_TRUE(checksSingleInstance(LaunchMode::Rehearse));
}

TEST(LaunchSwitches, TheCallProbeSaysWhatItWatchesThenEachSourceAndWho) {
    for (const int devices : {0, 2}) {
        QString said;
        QTextStream out(&said);
        writeProbeHeader(out, devices, {QStringLiteral("shared screen: cannot be seen")});
        out.flush();
        // The warning and the sources come before the watching starts, or they scroll away.
        const qsizetype watching = said.indexOf(u"watching");
        EXPECT_EQ(said.indexOf(u"none found") >= 0 && said.indexOf(u"none found") < watching,
                  devices == 0)
            << said.toStdString();
        EXPECT_LT(said.indexOf(u"  shared screen: cannot be seen\n"), watching);
    }
    EXPECT_EQ(probeLine({}), u"mic idle  camera idle  screen idle  → free to lock");
    EXPECT_EQ(probeLine({true, false, true, {u"parecord"_s}, {}, {u"obs"_s, u"zoom"_s}}),
              u"mic LIVE (parecord)  camera idle  screen SHARED (obs, zoom)  → WOULD NOT LOCK");
}

class ShellTest : public CycleTest {
protected:
    void SetUp() override { CycleTest::SetUp(); }
    void TearDown() override {
        shell.reset();
        CycleTest::TearDown();
    }
    AppShell& makeShell() {
        shell = std::make_unique<AppShell>(freshScreens(), login, network, false);
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
    LaunchAtLogin login{dir.filePath(QStringLiteral("autostart/dev.tovin.Tovin.desktop")),
                        QCoreApplication::applicationFilePath(), journal};
    QNetworkAccessManager network;
    std::unique_ptr<AppShell> shell;
};

TEST_F(ShellTest, TheMenuSaysWhatHappensNextAndOffersWhatFits) {
    setWeek({block("09:30", "Half past")});
    AppShell& s = makeShell();
    s.controller().startScheduleWatch();
    const QStringList watching = menu();
    EXPECT_EQ(watching.mid(0, 2), (QStringList{QStringLiteral("Half past in 30 min"),
                                               QStringLiteral("No promises yet")}));
    EXPECT_TRUE(watching.contains(u"Pause for an hour"));
    // The two information lines are shown, not offered.
    EXPECT_FALSE(menu(true).contains(u"Half past in 30 min"));
    EXPECT_FALSE(menu(true).contains(u"No promises yet"));

    login.set(true);
    s.controller().pauseAnHour();
    clock.advance(60);
    const QStringList paused = menu();
    EXPECT_EQ(paused.value(0), u"Paused — 59 min left");
    EXPECT_TRUE(paused.contains(u"Resume watching"));
    EXPECT_TRUE(paused.contains(u"Open at Login ✓"));

    // An entry the desktop was told to skip: greyed, and the check box says why.
    const QByteArray entry = *readWholeFile(login.entryPath(), 1 << 16);
    writeFileAtomically(login.entryPath(), entry + "Hidden=true\n");
    const QString blocked = LaunchAtLogin::menuTitle(LaunchAtLogin::Blocked);
    EXPECT_TRUE(menu().contains(blocked));
    EXPECT_FALSE(menu(true).contains(blocked));
}

TEST_F(ShellTest, PausedTheIconLooksPaused) {
    AppShell& s = makeShell();
    const auto drawn = [&s] { return s.trayIconNow().pixmap(22, 22).toImage(); };
    const QImage watching = drawn();
    s.controller().pauseAnHour();
    EXPECT_NE(drawn(), watching);
    s.controller().resumeWatching();
    EXPECT_EQ(drawn(), watching);
}

// A second launch over a lockout, and one that brings the setup window, are the whole app's
// checks; here, where the running copy listens and what it answers.
TEST_F(ShellTest, OneTovinPerSessionAnsweringWithItsProcessId) {
    AppShell& first = makeShell();
    EXPECT_TRUE(AppShell::instanceName().startsWith(qEnvironmentVariable("XDG_RUNTIME_DIR") + u'/'))
        << "two sessions of one person each have their own runtime folder";
    ASSERT_TRUE(first.claimSingleInstance());
    // A rehearsal is up, so the answer brings no setup window (a web page) forward here.
    first.controller().raiseLockout(true);
    ASSERT_TRUE(screens->isUp());
    QByteArray reply;
    std::thread later([&reply] {
        QLocalSocket socket;
        socket.connectToServer(AppShell::instanceName());
        if (socket.waitForConnected(2000) && socket.write("show\n") > 0 &&
            socket.waitForReadyRead(5000))
            reply = socket.readLine().trimmed();
    });
    ASSERT_TRUE(QTest::qWaitFor([&] { return !reply.isEmpty(); }, 6000));
    later.join();
    EXPECT_EQ(reply, "pid " + QByteArray::number(qint64(::getpid())));
}

TEST_F(ShellTest, ABuildWithoutAReleaseFeedAnswersOnlyAManualCheck) {
    AppShell& s = makeShell();
    EXPECT_FALSE(s.strip().updates) << "the setup window offers no check it cannot make";
    s.checkForUpdates(true);
    EXPECT_TRUE(s.openAlerts().isEmpty());
    s.checkForUpdates(false);
    EXPECT_EQ(s.openAlerts().size(), 1);
}

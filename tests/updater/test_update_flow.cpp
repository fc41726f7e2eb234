// The updater against real parts: an HTTPS server on 127.0.0.1 with a throw-away certificate,
// releases made and signed by scripts/make-release (Debian's minisign), the hand-over script run
// by /bin/sh, and the test build of the program itself for the dry run and for a full update of
// the real install tree.

#include "core/atomic_file.h"
#include "resident/app_controller.h"
#include "resident/app_shell.h"
#include "resident/countdown_panel.h"
#include "resident/guards/call_detector.h"
#include "resident/records/instance_record.h"
#include "resident/records/journal.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/save_failures.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"
#include "resident/update_dialogs.h"
#include "resident/updater/release_check.h"
#include "resident/updater/updater.h"
#include "screens/local_screens.h"
#include "support/fake_clock.h"
#include "support/fake_platform.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>

using namespace tovin;
using namespace tovin::Updater;
using namespace Qt::Literals::StringLiterals;

namespace {

// Starts a program with its output and errors merged.
std::unique_ptr<QProcess>
start(const QString& program, const QStringList& args,
      const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment()) {
    auto p = std::make_unique<QProcess>();
    p->setProcessEnvironment(env);
    p->setProcessChannelMode(QProcess::MergedChannels);
    p->start(program, args);
    p->closeWriteChannel();
    return p;
}

// Runs a program that has to succeed for the test to mean anything.
void mustRun(const QString& program, const QStringList& args,
             const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment()) {
    const auto p = start(program, args, env);
    const bool finished = p->waitForFinished(120'000);
    ASSERT_TRUE(finished && p->exitStatus() == QProcess::NormalExit && p->exitCode() == 0)
        << program.toStdString() << ":\n"
        << p->readAll().toStdString();
}

void put(const QString& path, const QByteArray& bytes, bool executable = false) {
    ASSERT_TRUE(writeFileAtomically(path, bytes)) << path.toStdString();
    if (executable)
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// Waits on the event loop: the updater's replies and completions need it.
bool waitFor(const std::function<bool()>& done, int ms = 60'000) {
    QElapsedTimer t;
    t.start();
    while (!done() && t.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return done();
}

// The shared scene: a certificate, the server, and an installed copy of the test build at 1.0.
class UpdateFlow : public ::testing::Test {
protected:
    static inline std::unique_ptr<QTemporaryDir> dir;
    static inline std::unique_ptr<QProcess> server;
    static inline QString base; // https://127.0.0.1:<port>, serving www/

    static QString path(const QString& rel) { return dir->filePath(rel); }

    static void SetUpTestSuite() {
        dir = std::make_unique<QTemporaryDir>();
        // One self-signed certificate for 127.0.0.1, which the test build trusts as its authority.
        mustRun(u"openssl"_s,
                u"req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
                u"-subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1"_s.split(u' ') +
                    QStringList{u"-keyout"_s, path(u"key.pem"_s), u"-out"_s, path(u"cert.pem"_s)});
        qputenv("TOVIN_UPDATE_CA", path(u"cert.pem"_s).toLocal8Bit());
        QDir().mkpath(path(u"www"_s));
        server = std::make_unique<QProcess>();
        server->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        server->start(QStringLiteral(TOVIN_TLS_SERVER),
                      {path(u"www"_s), path(u"cert.pem"_s), path(u"key.pem"_s)});
        ASSERT_TRUE(server->waitForReadyRead(10'000));
        base = u"https://127.0.0.1:"_s + QString::fromLatin1(server->readLine().trimmed());

        QDir().mkpath(path(u"opt/Tovin/bin"_s));
        ASSERT_TRUE(
            QFile::copy(QStringLiteral(TOVIN_TESTKEY_BINARY), path(u"opt/Tovin/bin/tovin"_s)));
        put(path(u"opt/Tovin/share/tovin/VERSION"_s), "1.0\n");
    }

    static void TearDownTestSuite() {
        server->kill();
        server->waitForFinished();
        server.reset();
        dir.reset();
    }

    static QString fakeTree(const QString& version) {
        const QString tree = path(u"trees/" + version + u"/Tovin");
        put(tree + u"/bin/tovin", "#!/bin/sh\n", true);
        put(tree + u"/bin/tovin-screens", "#!/bin/sh\n", true);
        put(tree + u"/share/tovin/VERSION", version.toUtf8() + '\n');
        return tree;
    }

    // scripts/make-release of a tree into www/<name>/, with its feed. The quickest gzip: how well
    // the release compresses is not what is tested.
    static void makeRelease(const QString& name, const QString& tree, const QString& version,
                            const QString& key = QStringLiteral(TOVIN_BINARY_DIR
                                                                "/test-release-key/release.key")) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"GZIP"_s, u"-1"_s);
        mustRun(u"bash"_s,
                {QStringLiteral(TOVIN_SOURCE_DIR "/scripts/make-release"), u"--key"_s, key,
                 u"--out"_s, path(u"www/" + name), u"--tree"_s, tree, u"--version"_s, version,
                 u"--url-base"_s, base + u'/' + name, u"--notes"_s, u"Counts \"push-ups\"."_s},
                env);
    }

    static Release released(const QString& name) {
        const auto feed = readWholeFile(path(u"www/" + name + u"/version.json"), 4096);
        return decodeRelease(feed.value_or("")).value();
    }

    static void writeFeed(const QString& name, const QString& version, const QString& url,
                          const QString& sha) {
        const QJsonObject feed{{u"version"_s, version}, {u"url"_s, url}, {u"sha256"_s, sha}};
        put(path(u"www/" + name + u"/version.json"), QJsonDocument(feed).toJson());
    }
};

TEST_F(UpdateFlow, TheDryRunPassesAGoodReleaseAndRefusesEveryBadOneLeavingNothingBehind) {
    const QString tree = fakeTree(u"1.1"_s);
    makeRelease(u"good"_s, tree, u"1.1"_s);
    const Release good = released(u"good"_s);
    writeFeed(u"current"_s, u"1.0"_s, good.url, good.sha256);
    writeFeed(u"mismatch"_s, u"1.1"_s, good.url, QString(64, u'a'));
    writeFeed(u"http"_s, u"1.1"_s, QString(good.url).replace(u"https:"_s, u"http:"_s), good.sha256);
    // Signed, but with a key this build doesn't trust.
    mustRun(u"minisign"_s,
            {u"-G"_s, u"-W"_s, u"-p"_s, path(u"stranger.pub"_s), u"-s"_s, path(u"stranger.key"_s)});
    makeRelease(u"stranger"_s, tree, u"1.1"_s, path(u"stranger.key"_s));
    // Properly signed, but the version that runs: the download itself says what it is, whatever
    // the feed claims.
    makeRelease(u"same"_s, fakeTree(u"1.0"_s), u"1.0"_s);
    const Release same = released(u"same"_s);
    writeFeed(u"same"_s, u"1.1"_s, same.url, same.sha256);
    // The resident without its screen helper could never show a thing: no such release is made.
    const QString helpless = fakeTree(u"1.2"_s);
    QFile::remove(helpless + u"/bin/tovin-screens");
    QProcess refused;
    refused.start(u"bash"_s, {QStringLiteral(TOVIN_SOURCE_DIR "/scripts/make-release"), u"--key"_s,
                              QStringLiteral(TOVIN_BINARY_DIR "/test-release-key/release.key"),
                              u"--out"_s, path(u"www/helpless"_s), u"--tree"_s, helpless});
    ASSERT_TRUE(refused.waitForFinished(60000));
    EXPECT_EQ(refused.exitCode(), 1);
    EXPECT_TRUE(refused.readAllStandardError().contains("the tree has no bin/tovin-screens"));

    const struct {
        const char* feed;
        int exitCode;
        const char* says;
    } cases[] = {
        {"good", 0, "OK — verified"},
        {"current", 0, "up to date — nothing to fetch"},
        {"mismatch", 1, "the download didn't match its checksum, so it wasn't installed"},
        {"stranger", 1, "that download isn't signed by Tovin's developer, so it wasn't installed"},
        {"same", 1, "that download is version 1.0, which isn't newer than 1.0"},
        {"http", 1, "that release has no usable https address"},
    };
    // All at once, each downloading into its own folder.
    std::vector<std::unique_ptr<QProcess>> runs;
    for (const auto& c : cases) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"TOVIN_UPDATE_FEED"_s,
                   base + u'/' + QString::fromLatin1(c.feed) + u"/version.json");
        env.insert(u"TMPDIR"_s, path(u"tmp-"_s + QString::fromLatin1(c.feed)));
        QDir().mkpath(env.value(u"TMPDIR"_s));
        runs.push_back(start(path(u"opt/Tovin/bin/tovin"_s), {u"--update-dry-run"_s}, env));
    }
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const char* feed = cases[i].feed;
        ASSERT_TRUE(runs[i]->waitForFinished(60'000)) << feed;
        const QString output = QString::fromUtf8(runs[i]->readAll());
        EXPECT_EQ(runs[i]->exitCode(), cases[i].exitCode) << feed;
        EXPECT_TRUE(output.contains(u'\n' + QString::fromUtf8(cases[i].says) + u'\n'))
            << feed << ":\n"
            << output.toStdString();
        EXPECT_TRUE(QDir(path(u"tmp-"_s + QString::fromLatin1(feed))).isEmpty())
            << feed << ": the download was left behind";
    }
}

// The whole way through the dialogs with the real install tree: the test build of Tovin installed
// at the project's version, a release of the same tree as 99.0, and the swapped-in program really
// starting. On the way, a lockout, "Not Now", Cancel and a refusal each stop short of installing.
TEST_F(UpdateFlow, TheRealInstallTreeUpdatesThroughTheDialogsAndComesBackAsTheNewVersion) {
    const QString installed = path(u"real/Tovin"_s);
    mustRun(u"cmake"_s,
            {u"--install"_s, QStringLiteral(TOVIN_BINARY_DIR), u"--prefix"_s, installed});
    QFile::remove(installed + u"/bin/tovin");
    ASSERT_TRUE(QFile::copy(QStringLiteral(TOVIN_TESTKEY_BINARY), installed + u"/bin/tovin"));
    makeRelease(u"real"_s, installed, u"99.0"_s);
    const Release release = released(u"real"_s);
    const QString tmp = path(u"tmp"_s);
    QDir().mkpath(tmp);
    qputenv("TMPDIR", tmp.toLocal8Bit());        // until Cancel is seen to leave nothing there
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1"); // for the new copy, which may be started as root

    fakes::FakeClock clock;
    fakes::FakeIdle idle;
    Journal journal(path(u"journal.log"_s), clock);
    SaveFailures saveFailures(journal);
    MemorySettingsStore store;
    Preferences prefs(store);
    ScheduleStore week(path(u"week.json"_s), &saveFailures);
    PromiseLedger ledger(path(u"ledger.json"_s), &journal, &saveFailures);
    CallDetector calls;
    CountdownPanel countdown(clock, calls);
    countdown.placeAt(QPoint(-30000, -30000));
    LocalScreens screens(clock);
    const AppDependencies deps{clock, idle,   calls,   screens,      countdown,           week,
                               prefs, ledger, journal, saveFailures, path(u"mark.json"_s)};
    AppController controller(deps);
    QNetworkAccessManager network;
    // With a feed, the setup window's strip carries the check, for desktops without a tray.
    qputenv("TOVIN_UPDATE_FEED", (base + u"/real/version.json").toUtf8());
    LaunchAtLogin login(path(u"autostart.desktop"_s), QString(), journal);
    EXPECT_TRUE(AppShell(deps, login, network, false).strip().updates);
    qunsetenv("TOVIN_UPDATE_FEED");
    UpdateDialogs dialogs(controller, {network, journal});
    QSignalSpy alerts(&dialogs, &UpdateDialogs::alertRequested);
    QSignalSpy ended(&dialogs, &UpdateDialogs::fetchEnded);
    bool quit = false;
    dialogs.quitting = [&] { quit = true; };
    QProcess old;
    old.start(u"sleep"_s, {u"60"_s});
    ASSERT_TRUE(old.waitForStarted());
    dialogs.installTarget = InstalledCopy{installed, old.processId()};
    const auto click = [&](const QString& text) {
        for (QAbstractButton* button : dialogs.offerBox()->buttons()) {
            if (button->text() == text)
                button->click();
        }
    };

    // A countdown on screen: the offer waits for the journal, not a dialog.
    countdown.show(60, 1);
    dialogs.offer(release);
    EXPECT_EQ(dialogs.offerBox(), nullptr);
    EXPECT_TRUE(journal.tail(5).join(u'\n').contains(
        u"[update] 99.0 offered later — a lockout is in progress"));
    countdown.dismiss();

    dialogs.offer(release);
    ASSERT_NE(dialogs.offerBox(), nullptr);
    EXPECT_TRUE(dialogs.offerBox()->informativeText().startsWith(u"Counts \"push-ups\".\n\n"));
    click(u"Not Now"_s);
    EXPECT_EQ(dialogs.progressBox(), nullptr);

    // Cancel while it downloads: nothing completes and nothing is left behind.
    dialogs.offer(release);
    click(u"Update"_s);
    ASSERT_NE(dialogs.progressBox(), nullptr);
    dialogs.progressBox()->findChild<QPushButton*>(u"cancel"_s)->click();
    ASSERT_TRUE(waitFor([&] { return ended.size() == 1 && QDir(tmp).isEmpty(); }, 5000));
    EXPECT_TRUE(journal.tail(5).join(u'\n').contains(
        u"[update] cancelled before 99.0 finished downloading"));
    qunsetenv("TMPDIR");

    // A download that isn't what the feed's checksum says (a small file, to be quick): refused,
    // with the reason.
    Release wrong = release;
    wrong.url = base + u"/real/version.json";
    dialogs.offer(wrong);
    click(u"Update"_s);
    ASSERT_TRUE(waitFor([&] { return ended.size() == 2; }));
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts[0][1].toString(),
              u"the download didn't match its checksum, so it wasn't installed"_s);
    EXPECT_FALSE(quit);

    // The real one: the bar moves, the dialog closes. A block fires while it downloads: the
    // install waits for the first tick with no countdown; then the hand-over starts, no lockout
    // may start any more, and the app quits.
    dialogs.offer(release);
    click(u"Update"_s);
    countdown.show(60, 1);
    int shownKB = 0;
    ASSERT_TRUE(waitFor([&] {
        if (dialogs.progressBar())
            shownKB = std::max(shownKB, dialogs.progressBar()->value());
        return journal.tail(3).join(u'\n').contains(
            u"99.0 downloaded — installing once the lockout is over");
    }));
    EXPECT_GT(shownKB, 0);
    controller.checkSchedule();
    EXPECT_FALSE(quit);
    countdown.dismiss();
    controller.checkSchedule();
    ASSERT_TRUE(waitFor([&] { return ended.size() == 3; }));
    EXPECT_TRUE(quit);
    controller.raiseLockout(true);
    EXPECT_FALSE(screens.isUp());
    EXPECT_EQ(dialogs.progressBox(), nullptr);
    const QString written = journal.tail(20).join(u'\n');
    for (const char* step : {"hash matched", "signature verified", "installing — handing over"})
        EXPECT_TRUE(written.contains(u"[update] " + QString::fromUtf8(step))) << step;
    old.kill();
    old.waitForFinished();

    const QString instance = InstanceRecord::defaultPath();
    ASSERT_TRUE(waitFor([&] { return InstanceRecord::readLive(instance).has_value(); }))
        << "the new copy never started";
    const qint64 pid = InstanceRecord::readLive(instance)->pid;
    const QFileInfo exe(u"/proc/"_s + QString::number(pid) + u"/exe");
    EXPECT_EQ(exe.symLinkTarget(), installed + u"/bin/tovin");
    ::kill(-pid, SIGTERM); // its session: the program and its web helpers
    waitFor([&] { return QFileInfo(exe.filePath()).symLinkTarget().isEmpty(); }, 10'000);
    EXPECT_EQ(folderVersion(installed), u"99.0"_s);
    EXPECT_TRUE(isSignedRelease(installed));
    EXPECT_FALSE(QFileInfo::exists(path(u"real/Tovin (previous)"_s)));
}

// What install refuses before it starts anything; either way the download's folder goes.
TEST(Install, RefusesWhatIsNotAnInstalledCopyOrSitsWhereItCannotWrite) {
    QTemporaryDir dir;
    Journal journal(dir.filePath(u"journal.log"_s));
    const QString working = dir.filePath(u"working"_s);
    const auto refusal = [&](const QString& copy) {
        QDir().mkpath(working);
        bool quit = false;
        const auto failure =
            install(journal, dir.filePath(u"new"_s), working, [&] { quit = true; }, {copy, 1});
        EXPECT_FALSE(quit);
        EXPECT_FALSE(QFile::exists(working)) << "the download was left behind";
        return failure.value_or(Failure{}).message;
    };
    // A build tree: the folder above bin/ is not named Tovin.
    EXPECT_EQ(refusal(QStringLiteral(TOVIN_BINARY_DIR "/src")),
              u"this doesn't look like an installed copy of Tovin, so it wasn't replaced"_s);
    const QString locked = dir.filePath(u"locked"_s);
    put(locked + u"/Tovin/bin/tovin", "#!/bin/sh\n", true);
    put(locked + u"/Tovin/share/tovin/VERSION", "1.0\n");
    // Root writes through any permission bits, so as root (the test machines) the folder is a
    // read-only mount of itself instead.
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(QProcess::execute(u"mount"_s, {u"--bind"_s, locked, locked}), 0);
        ASSERT_EQ(QProcess::execute(u"mount"_s, {u"-o"_s, u"remount,bind,ro"_s, locked}), 0);
    } else {
        QFile::setPermissions(locked, QFile::ReadOwner | QFile::ExeOwner);
    }
    EXPECT_EQ(refusal(locked + u"/Tovin"),
              u"Tovin can't write to " + locked + u" — move it to a folder you own and try again");
    if (root)
        QProcess::execute(u"umount"_s, {locked});
    else
        QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// The hand-over on its own: nothing happens until the old process has exited; when the new copy
// cannot be moved in, the old one is put back and started again; and paths a shell would split or
// expand are taken as they stand.
TEST(SwapScript, PutsTheOldCopyBackAndRestartsItWhenTheNewOneCannotMoveIn) {
    QTemporaryDir top;
    const QDir dir(top.filePath(u"a b $HOME"_s));
    const QString working = top.filePath(u"work 'x'"_s);
    QDir().mkpath(working + u"/unpacked");
    const QString current = dir.filePath(u"Tovin"_s);
    put(current + u"/bin/tovin", "#!/bin/sh\ntouch \"$(dirname \"$0\")/../../started\"\n", true);
    put(current + u"/share/tovin/VERSION", "1.0\n");
    QProcess old;
    old.start(u"sleep"_s, {u"60"_s});
    ASSERT_TRUE(old.waitForStarted());
    // The new copy is gone by the time the script runs, so moving it in fails.
    const QString script = dir.filePath(u"swap.sh"_s);
    put(script, swapScript(old.processId(), current, dir.filePath(u"Tovin (previous)"_s),
                           dir.filePath(u"gone/Tovin"_s), working));
    QProcess sh;
    sh.start(u"/bin/sh"_s, {script});
    EXPECT_FALSE(sh.waitForFinished(300)) << "the script must wait for the old process";
    old.kill();
    old.waitForFinished();
    ASSERT_TRUE(sh.waitForFinished(10'000));
    EXPECT_EQ(sh.exitCode(), 1);
    EXPECT_FALSE(QFile::exists(script)) << "the script removes itself however it ends";
    EXPECT_FALSE(QFile::exists(working)) << "... and its working folder";
    EXPECT_FALSE(QFile::exists(dir.filePath(u"Tovin (previous)"_s)));
    EXPECT_TRUE(waitFor([&] { return QFile::exists(dir.filePath(u"started"_s)); }, 5000))
        << "the old copy wasn't put back and started again";
}

} // namespace

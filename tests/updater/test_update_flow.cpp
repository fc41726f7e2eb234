// The updater against real parts: an HTTPS server on 127.0.0.1 with a throw-away certificate
// authority, releases made and signed by scripts/make-release (Debian's minisign), archives
// written with libarchive (the hostile ones too), the hand-over script run by /bin/sh, and the
// test build of the program itself for the dry run and for a full update of the real install tree.

#include "app/app_controller.h"
#include "screens/local_screens.h"
#include "promises/promise_ledger.h"
#include "app/countdown_panel.h"
#include "app/update_dialogs.h"
#include "journal/instance_record.h"
#include "journal/journal.h"
#include "updater/release_check.h"
#include "updater/updater.h"

#include "core/atomic_file.h"
#include "support/fake_clock.h"
#include "support/fake_platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QApplication>
#include <QLabel>
#include <QPushButton>

#include "support/tar_gz.h"

#include <gtest/gtest.h>

#include <csignal>
#include <unistd.h>
#include <memory>

using namespace tovin;
using namespace tovin::Updater;

namespace {

const QString sourceDir = QStringLiteral(TOVIN_SOURCE_DIR);
const QString buildDir = QStringLiteral(TOVIN_BINARY_DIR);

struct Outcome {
    int exitCode = -1;
    QString output;
};

Outcome run(const QString& program, const QStringList& args, const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment(),
        int timeoutMs = 120'000) {
    QProcess p;
    p.setProcessEnvironment(env);
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    p.closeWriteChannel();
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished();
        return {-1, QString::fromUtf8(p.readAll()) + u"\n[timed out]"};
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, QString::fromUtf8(p.readAll())};
}

void put(const QString& path, const QByteArray& bytes, bool executable = false) {
    ASSERT_TRUE(writeFileAtomically(path, bytes)) << path.toStdString();
    if (executable)
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// Everything under a folder, with each file's hash: "untouched" means equal snapshots.
QStringList snapshot(const QString& folder) {
    QStringList entries;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        entries.append(QDir(folder).relativeFilePath(path) + u' ' + sha256(path).value_or(QStringLiteral("-")));
    }
    entries.sort();
    return entries;
}

using tovin::testing::TarEntry;

// Packs `folder` as Tovin/… into a .tar.gz, the way a hostile server might: with extra entries.
bool pack(const QString& folder, const QString& archivePath, const QList<TarEntry>& extras = {}) {
    QList<TarEntry> entries{{"Tovin/", {}, AE_IFDIR}};
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    QStringList paths;
    while (it.hasNext())
        paths.append(it.next());
    paths.sort();
    for (const QString& path : paths) {
        const QByteArray name = "Tovin/" + QDir(folder).relativeFilePath(path).toUtf8();
        QFile f(path);
        if (QFileInfo(path).isDir())
            entries.append({name + '/', {}, AE_IFDIR});
        else if (f.open(QIODevice::ReadOnly))
            entries.append({name, f.readAll()});
    }
    return tovin::testing::writeTarGz(archivePath, entries + extras);
}

// The shared scene: keys, a certificate authority, the server, and an installed copy of the test
// build of Tovin at version 1.0.
class UpdateFlow : public ::testing::Test {
protected:
    static inline std::unique_ptr<QTemporaryDir> dir;
    static inline std::unique_ptr<QProcess> server;
    static inline QString serverLog;
    static inline int port = 0;
    static inline QString root; // what the server serves

    static QString path(const QString& rel) { return dir->filePath(rel); }
    static QString testKey() { return buildDir + u"/test-release-key/release.key"; }
    static QString base() { return u"https://127.0.0.1:" + QString::number(port); }

    static void SetUpTestSuite() {
        dir = std::make_unique<QTemporaryDir>();
        root = path(QStringLiteral("www"));
        QDir().mkpath(root);
        const QString ext = path(QStringLiteral("san.ext"));
        put(ext, "subjectAltName=IP:127.0.0.1\n");
        const QString openssl = QStringLiteral("openssl");
        const QStringList ec{QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                             QStringLiteral("ec_paramgen_curve:P-256"), QStringLiteral("-nodes")};
        for (const Outcome& r :
             {run(openssl, QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + ec +
                               QStringList{QStringLiteral("-keyout"), path(QStringLiteral("ca.key")), QStringLiteral("-out"),
                                           path(QStringLiteral("ca.pem")), QStringLiteral("-days"), QStringLiteral("2"),
                                           QStringLiteral("-subj"), QStringLiteral("/CN=Tovin test authority")}),
              run(openssl, QStringList{QStringLiteral("req")} + ec +
                               QStringList{QStringLiteral("-keyout"), path(QStringLiteral("server.key")), QStringLiteral("-out"),
                                           path(QStringLiteral("server.csr")), QStringLiteral("-subj"),
                                           QStringLiteral("/CN=127.0.0.1")}),
              run(openssl, {QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"), path(QStringLiteral("server.csr")),
                            QStringLiteral("-CA"), path(QStringLiteral("ca.pem")), QStringLiteral("-CAkey"),
                            path(QStringLiteral("ca.key")), QStringLiteral("-CAcreateserial"), QStringLiteral("-out"),
                            path(QStringLiteral("server.pem")), QStringLiteral("-days"), QStringLiteral("2"),
                            QStringLiteral("-extfile"), ext})})
            ASSERT_EQ(r.exitCode, 0) << r.output.toStdString();

        server = std::make_unique<QProcess>();
        QObject::connect(server.get(), &QProcess::readyReadStandardOutput, [] {
            serverLog += QString::fromUtf8(server->readAllStandardOutput());
        });
        server->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        server->start(QStringLiteral(TOVIN_TLS_SERVER),
                      {root, path(QStringLiteral("server.pem")), path(QStringLiteral("server.key"))});
        ASSERT_TRUE(server->waitForStarted());
        for (int i = 0; i < 100 && !serverLog.contains(u'\n'); ++i)
            server->waitForReadyRead(100);
        port = serverLog.section(u'\n', 0, 0).toInt();
        ASSERT_GT(port, 0) << serverLog.toStdString();
        qputenv("TOVIN_UPDATE_CA", path(QStringLiteral("ca.pem")).toLocal8Bit());

        // An installed copy of the test build at version 1.0.
        const QString installed = path(QStringLiteral("opt/Tovin"));
        QDir().mkpath(installed + u"/bin");
        QDir().mkpath(installed + u"/share/tovin");
        ASSERT_TRUE(QFile::copy(QStringLiteral(TOVIN_TESTKEY_BINARY), installed + u"/bin/tovin"));
        put(installed + u"/share/tovin/VERSION", "1.0\n");
    }

    static void TearDownTestSuite() {
        server->kill();
        server->waitForFinished();
        server.reset();
        dir.reset();
    }

    // A small release tree whose bin/tovin, when started, writes its version beside the
    // install folder: proof that the swapped-in copy was started.
    static QString fakeTree(const QString& name, const QString& version) {
        const QString tree = path(u"trees/" + name + u"/Tovin");
        put(tree + u"/bin/tovin",
            "#!/bin/sh\nhere=$(cd \"$(dirname \"$0\")/..\" && pwd)\n"
            "cat \"$here/share/tovin/VERSION\" > \"$here/../started\"\n",
            true);
        put(tree + u"/bin/tovin-screens", "#!/bin/sh\n", true);
        put(tree + u"/share/tovin/VERSION", version.toUtf8() + '\n');
        put(tree + u"/share/tovin/web/index.html", "<!doctype html><title>Tovin</title>");
        return tree;
    }

    // scripts/make-release of a tree into www/<name>/, with its feed.
    static void makeRelease(const QString& name, const QString& tree, const QString& version,
                            const QString& key = testKey()) {
        const Outcome r = run(QStringLiteral("bash"),
                          {sourceDir + u"/scripts/make-release", QStringLiteral("--key"), key, QStringLiteral("--out"),
                           root + u'/' + name, QStringLiteral("--tree"), tree, QStringLiteral("--version"), version,
                           QStringLiteral("--url-base"), base() + u'/' + name, QStringLiteral("--notes"),
                           QStringLiteral("Faster \"starts\".")});
        ASSERT_EQ(r.exitCode, 0) << r.output.toStdString();
    }

    static void writeFeed(const QString& name, const QByteArray& json) { put(root + u'/' + name + u"/version.json", json); }

    static QByteArray feedFor(const QString& name, const QString& archive, const QString& version,
                              const QString& url = {}) {
        const QString file = root + u'/' + name + u'/' + archive;
        return R"({"version":")" + version.toUtf8() + R"(","url":")" +
               (url.isEmpty() ? base() + u'/' + name + u'/' + archive : url).toUtf8() + R"(","sha256":")" +
               sha256(file).value_or(QString()).toUtf8() + "\"}";
    }

    // The dry run of the installed copy against www/<name>/version.json.
    static Outcome dryRun(const QString& name, const QString& tmp) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("TOVIN_UPDATE_FEED"), base() + u'/' + name + u"/version.json");
        env.insert(QStringLiteral("TMPDIR"), tmp);
        return run(path(QStringLiteral("opt/Tovin/bin/tovin")), {QStringLiteral("--update-dry-run")}, env);
    }

    // Waits on the event loop (the updater's replies and completions need it).
    static bool waitFor(const std::function<bool()>& done, int ms = 60'000) {
        QElapsedTimer t;
        t.start();
        while (!done() && t.elapsed() < ms) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
        return done();
    }
};

TEST_F(UpdateFlow, EveryTamperedOrDowngradedReleaseIsRefusedAndLeavesTheCopyAlone) {
    const QString good = fakeTree(QStringLiteral("good"), QStringLiteral("1.1"));
    makeRelease(QStringLiteral("good"), good, QStringLiteral("1.1"));
    const QString goodArchive = root + u"/good/Tovin-1.1.tar.gz";
    // The signed tree as the release has it, to tamper with after signing.
    const QString signedTree = path(QStringLiteral("signed"));
    QDir().mkpath(signedTree);
    ASSERT_EQ(run(QStringLiteral("tar"), {QStringLiteral("-xzf"), goodArchive, QStringLiteral("-C"), signedTree}).exitCode, 0);
    auto tampered = [&](const QString& name, const std::function<void(const QString&)>& change,
                        const QList<TarEntry>& extras = {}) {
        const QString copy = path(u"tampered/" + name);
        QDir().mkpath(copy);
        run(QStringLiteral("cp"), {QStringLiteral("-a"), signedTree + u"/Tovin", copy});
        change(copy + u"/Tovin");
        QDir().mkpath(root + u'/' + name);
        ASSERT_TRUE(pack(copy + u"/Tovin", root + u'/' + name + u"/Tovin-1.1.tar.gz", extras));
        writeFeed(name, feedFor(name, QStringLiteral("Tovin-1.1.tar.gz"), QStringLiteral("1.1")));
    };
    auto nothing = [](const QString&) {};

    // 1. the archive is not the one whose hash was published
    QDir().mkpath(root + u"/mismatch");
    QFile::copy(goodArchive, root + u"/mismatch/Tovin-1.1.tar.gz");
    writeFeed(QStringLiteral("mismatch"), R"({"version":"1.1","url":")" +
                                              (base() + u"/mismatch/Tovin-1.1.tar.gz").toUtf8() + R"(","sha256":")" +
                                              QByteArray(64, 'a') + "\"}");
    // 2. a file changed after signing; 3. an entry that climbs out of the folder. Every other
    // way a signature or an archive is refused is the release check's and the unpacker's own
    // test: here it is enough that the flow asks them and says what they said.
    tampered(QStringLiteral("changed"), [](const QString& t) { put(t + u"/bin/tovin", "#!/bin/sh\nrm -rf ~\n", true); });
    tampered(QStringLiteral("climbs"), nothing, {{"Tovin/../../escaped", "x"}});
    // 4. the same version; 5. an older one — both properly signed
    makeRelease(QStringLiteral("same"), fakeTree(QStringLiteral("same"), QStringLiteral("1.0")), QStringLiteral("1.0"));
    makeRelease(QStringLiteral("older"), fakeTree(QStringLiteral("older"), QStringLiteral("0.9")), QStringLiteral("0.9"));
    // The feed claims newer; the download itself says what it is.
    writeFeed(QStringLiteral("same"), feedFor(QStringLiteral("same"), QStringLiteral("Tovin-1.0.tar.gz"), QStringLiteral("1.1")));
    writeFeed(QStringLiteral("older"), feedFor(QStringLiteral("older"), QStringLiteral("Tovin-0.9.tar.gz"), QStringLiteral("1.1")));
    // 6. plain http; 7. a feed without its checksum; 8. a download cut off half-way
    writeFeed(QStringLiteral("http"),
              feedFor(QStringLiteral("good"), QStringLiteral("Tovin-1.1.tar.gz"), QStringLiteral("1.1"),
                      u"http://127.0.0.1:" + QString::number(port) + u"/good/Tovin-1.1.tar.gz"));
    writeFeed(QStringLiteral("nosha"), R"({"version":"1.1","url":")" + (base() + u"/good/Tovin-1.1.tar.gz").toUtf8() + "\"}");
    writeFeed(QStringLiteral("halfway"), feedFor(QStringLiteral("good"), QStringLiteral("Tovin-1.1.tar.gz"), QStringLiteral("1.1"),
                                             base() + u"/cut/good/Tovin-1.1.tar.gz"));

    const QList<std::pair<QString, QString>> cases{
        {QStringLiteral("mismatch"), QStringLiteral("the download didn't match its checksum, so it wasn't installed")},
        {QStringLiteral("changed"), QStringLiteral("that download isn't signed by Tovin's developer, so it wasn't installed")},
        {QStringLiteral("climbs"), QStringLiteral("the download wouldn't unpack")},
        {QStringLiteral("same"), QStringLiteral("that download is version 1.0, which isn't newer than 1.0")},
        {QStringLiteral("older"), QStringLiteral("that download is version 0.9, which isn't newer than 1.0")},
        {QStringLiteral("http"), QStringLiteral("that release has no usable https address")},
        {QStringLiteral("nosha"), QStringLiteral("the release feed couldn't be read")},
        {QStringLiteral("halfway"), QStringLiteral("the download didn't finish")},
    };
    const QStringList before = snapshot(path(QStringLiteral("opt")));
    int refused = 0;
    for (const auto& [name, message] : cases) {
        const QString tmp = path(u"tmp-" + name);
        QDir().mkpath(tmp);
        serverLog.clear();
        const Outcome r = dryRun(name, tmp);
        QCoreApplication::processEvents();
        const bool ok = r.exitCode == 1 && r.output.contains(u'\n' + message + u'\n') && !r.output.contains(u"OK —") &&
                        QDir(tmp).isEmpty() && snapshot(path(QStringLiteral("opt"))) == before;
        EXPECT_TRUE(ok) << name.toStdString() << ":\n" << r.output.toStdString() << "left in tmp: "
                        << QDir(tmp).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).join(u' ').toStdString();
        refused += ok;
        if (name == u"http") { // refused before anything was downloaded
            EXPECT_FALSE(serverLog.contains(u"Tovin-1.1.tar.gz")) << serverLog.toStdString();
        }
    }
    std::printf("[ figures ] %d/%d refused\n", refused, int(cases.size()));
    EXPECT_EQ(refused, int(cases.size()));

    // And the good one passes the same dry run, installing nothing.
    const QString tmp = path(QStringLiteral("tmp-good"));
    QDir().mkpath(tmp);
    const Outcome r = dryRun(QStringLiteral("good"), tmp);
    EXPECT_EQ(r.exitCode, 0) << r.output.toStdString();
    for (const char* line : {"Tovin update — dry run", "fetching, checking the hash, and checking the signature…",
                             "OK — verified", "hash matched, unpacked, signed with Tovin's release key",
                             "(not installed: this is a dry run)"})
        EXPECT_TRUE(r.output.contains(QString::fromUtf8(line))) << line << "\n" << r.output.toStdString();
    EXPECT_TRUE(QDir(tmp).isEmpty());
    EXPECT_EQ(snapshot(path(QStringLiteral("opt"))), before);

    // Up to date: the feed offers the version that runs.
    writeFeed(QStringLiteral("current"), R"({"version":"1.0","url":"https://127.0.0.1/x","sha256":"ab"})");
    const Outcome upToDate = dryRun(QStringLiteral("current"), tmp);
    EXPECT_EQ(upToDate.exitCode, 0);
    EXPECT_TRUE(upToDate.output.contains(u"up to date — nothing to fetch\n")) << upToDate.output.toStdString();
}

// The whole way with the real install tree: the test build of Tovin installed at the project's
// version, a release of the same tree as 99.0, and the swapped-in program really starting.
TEST_F(UpdateFlow, TheRealInstallTreeUpdatesAndComesBackAsTheNewVersion) {
    const QString parent = path(QStringLiteral("real"));
    const QString installed = parent + u"/Tovin";
    const Outcome staged = run(QStringLiteral("cmake"), {QStringLiteral("--install"), buildDir, QStringLiteral("--prefix"), installed});
    ASSERT_EQ(staged.exitCode, 0) << staged.output.toStdString();
    QFile::remove(installed + u"/bin/tovin");
    ASSERT_TRUE(QFile::copy(QStringLiteral(TOVIN_TESTKEY_BINARY), installed + u"/bin/tovin"));
    const QString shipped = *folderVersion(installed);
    makeRelease(QStringLiteral("real"), installed, QStringLiteral("99.0"));
    qputenv("TOVIN_UPDATE_FEED", (base() + u"/real/version.json").toLocal8Bit());
    // What the new copy runs with once it is started: headless, in this test's folders.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    const QString instance = InstanceRecord::defaultPath();
    QFile::remove(instance);
    Journal::resetForTesting();

    QElapsedTimer clock;
    clock.start();
    QObject context;
    std::optional<Status> status;
    check(&context, [&](const Status& s) { status = s; });
    ASSERT_TRUE(waitFor([&] { return status.has_value(); }));
    ASSERT_EQ(status->kind, Status::Available) << status->message.toStdString();
    std::optional<Fetched> fetched;
    Download* download = fetch(status->release, &context, [&](const Fetched& f) { fetched = f; });
    QSignalSpy progress(download, &Download::progress);
    ASSERT_TRUE(waitFor([&] { return fetched.has_value(); }));
    ASSERT_FALSE(fetched->failure) << fetched->failure->message.toStdString();
    EXPECT_FALSE(progress.isEmpty());
    const qint64 verifiedAt = clock.elapsed();

    QProcess old;
    old.start(QStringLiteral("sleep"), {QStringLiteral("60")});
    ASSERT_TRUE(old.waitForStarted());
    ASSERT_FALSE(install(fetched->newApp, fetched->workingFolder, [] {}, {installed, old.processId()}));
    const QString journal = Journal::tail(40).join(u'\n');
    for (const char* step : {"[update] 99.0 is available (running ", "[update] downloading 99.0 from",
                             "[update] downloaded ", "[update] hash matched", "[update] unpacked",
                             "[update] signature verified", "[update] downloaded and verified",
                             "[update] installing — handing over and quitting"})
        EXPECT_TRUE(journal.contains(QString::fromUtf8(step))) << step << "\n" << journal.toStdString();
    old.kill();
    old.waitForFinished();
    const qint64 quitAt = clock.elapsed();
    ASSERT_TRUE(waitFor([&] { return InstanceRecord::readLive(instance).has_value(); }, 60'000))
        << "the new copy never started";
    const qint64 backAt = clock.elapsed();
    const qint64 pid = InstanceRecord::readLive(instance)->pid;
    const QString exe = QFileInfo(u"/proc/" + QString::number(pid) + u"/exe").symLinkTarget();
    ::kill(-pid, SIGTERM); // its session: the program and its web helpers
    waitFor([&] { return !QFileInfo::exists(u"/proc/" + QString::number(pid)); }, 10'000);

    EXPECT_EQ(exe, installed + u"/bin/tovin");
    EXPECT_EQ(*folderVersion(installed), u"99.0");
    EXPECT_TRUE(isSignedRelease(installed));
    EXPECT_FALSE(QFileInfo::exists(parent + u"/Tovin (previous)"));
    qint64 bytes = 0;
    for (QDirIterator it(installed, QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
        bytes += QFileInfo(it.next()).size();
    std::printf("[ figures ] full update of the real install tree (%s -> 99.0, %.1f MB, archive %.1f MB): "
                "checked, downloaded and verified in %.2f s; swapped and running again %.2f s later; %.2f s in all\n",
                qPrintable(shipped), bytes / 1e6, QFileInfo(root + u"/real/Tovin-99.0.tar.gz").size() / 1e6,
                verifiedAt / 1e3, (backAt - quitAt) / 1e3, backAt / 1e3);
    qunsetenv("QT_QPA_PLATFORM");
}

TEST_F(UpdateFlow, InstallRefusesWhatIsNotAnInstalledCopyOrSitsWhereItCannotWrite) {
    bool quit = false;
    const auto quitting = [&] { quit = true; };
    // A build tree: the folder above bin/ is not named Tovin.
    auto failure = install(path(QStringLiteral("x")), {}, quitting, {buildDir + u"/src", 1});
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->message, u"this doesn't look like an installed copy of Tovin, so it wasn't replaced");
    if (::geteuid() != 0) { // root can write to any folder
        const QString locked = path(QStringLiteral("locked"));
        QDir().mkpath(locked);
        ASSERT_TRUE(QDir().rename(fakeTree(QStringLiteral("locked-copy"), QStringLiteral("1.0")), locked + u"/Tovin"));
        QFile::setPermissions(locked, QFile::ReadOwner | QFile::ExeOwner);
        failure = install(path(QStringLiteral("x")), {}, quitting, {locked + u"/Tovin", 1});
        QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->message, u"Tovin can't write to " + locked + u" — move it to a folder you own and try again");
    }
    EXPECT_FALSE(quit);
}

// The dialogs around it: the offer, the progress bar, Cancel, and what a refusal says.
TEST_F(UpdateFlow, TheOfferDialogsDownloadWithProgressCancelAndSayWhyNothingWasInstalled) {
    makeRelease(QStringLiteral("offer"), fakeTree(QStringLiteral("offer"), QStringLiteral("5.0")), QStringLiteral("5.0"));
    const QString archive = root + u"/offer/Tovin-5.0.tar.gz";
    const Release release{QStringLiteral("5.0"), base() + u"/offer/Tovin-5.0.tar.gz", *sha256(archive),
                          QStringLiteral("Counts push-ups.")};
    fakes::FakeClock clock;
    fakes::FakeIdle idle;
    CountdownPanel::offscreenForTests = true;
    LocalScreens screens(clock);
    PromiseLedger ledger(path(QStringLiteral("dialog-ledger.json")));
    AppController controller({clock, idle, screens, ledger, path(QStringLiteral("dialog-week.json"))});
    QStringList alerts;
    UpdateDialogs dialogs(controller);
    QObject::connect(&dialogs, &UpdateDialogs::alertRequested,
                     [&](const QString& title, const QString& detail) { alerts.append(title + u" | " + detail); });
    bool quit = false;
    dialogs.quitting = [&] { quit = true; };
    const QString parent = path(QStringLiteral("dialog-home"));
    QDir().mkpath(parent);
    ASSERT_TRUE(QDir().rename(fakeTree(QStringLiteral("dialog-copy"), QStringLiteral("1.0")), parent + u"/Tovin"));
    QProcess old;
    old.start(QStringLiteral("sleep"), {QStringLiteral("60")});
    ASSERT_TRUE(old.waitForStarted());
    dialogs.installTarget = InstalledCopy{parent + u"/Tovin", old.processId()};

    // A countdown on screen: the offer waits for the journal, not a dialog.
    Journal::resetForTesting();
    controller.countdown().show(60, 1);
    dialogs.offer(release);
    EXPECT_EQ(dialogs.offerBox(), nullptr);
    EXPECT_TRUE(Journal::tail(5).join(u'\n').contains(u"[update] 5.0 offered later — a lockout is in progress"));
    controller.countdown().dismiss();

    // "Not Now" does nothing.
    dialogs.offer(release);
    ASSERT_NE(dialogs.offerBox(), nullptr);
    EXPECT_EQ(dialogs.offerBox()->text(), u"Tovin 5.0 is available.");
    EXPECT_EQ(dialogs.offerBox()->informativeText(),
              u"Counts push-ups.\n\nYou're running 0. Tovin will download it, check it's signed by the same "
              u"developer, replace itself and reopen.");
    auto button = [](QMessageBox* box, const QString& text) {
        for (QAbstractButton* b : box->buttons())
            if (b->text() == text)
                return b;
        return static_cast<QAbstractButton*>(nullptr);
    };
    button(dialogs.offerBox(), QStringLiteral("Not Now"))->click();
    QCoreApplication::processEvents();
    EXPECT_EQ(dialogs.progressBox(), nullptr);

    // "Update", then Cancel while it downloads: nothing completes and nothing is left behind.
    const QString tmp = path(QStringLiteral("tmp-cancel"));
    QDir().mkpath(tmp);
    qputenv("TMPDIR", tmp.toLocal8Bit());
    QSignalSpy ended(&dialogs, &UpdateDialogs::fetchEnded);
    dialogs.offer(release);
    button(dialogs.offerBox(), QStringLiteral("Update"))->click();
    ASSERT_TRUE(waitFor([&] { return dialogs.progressBox() != nullptr; }, 2000));
    EXPECT_EQ(dialogs.progressBar()->size(), QSize(300, 20));
    const QStringList texts = [&] {
        QStringList t;
        for (QLabel* l : dialogs.progressBox()->findChildren<QLabel*>())
            t.append(l->text());
        return t;
    }();
    EXPECT_EQ(texts, (QStringList{QStringLiteral("Downloading Tovin 5.0…"), QStringLiteral("This window will close when it's ready.")}));
    dialogs.progressBox()->findChild<QPushButton*>(QStringLiteral("cancel"))->click();
    ASSERT_TRUE(waitFor([&] { return ended.size() == 1 && QDir(tmp).isEmpty(); }, 5000));
    qunsetenv("TMPDIR");
    EXPECT_TRUE(Journal::tail(5).join(u'\n').contains(u"[update] cancelled before 5.0 finished downloading"));
    EXPECT_FALSE(quit);
    EXPECT_TRUE(alerts.isEmpty());

    // A release whose checksum is wrong: refused, with the reason.
    Release wrong = release;
    wrong.sha256 = QString(64, u'0');
    dialogs.offer(wrong);
    button(dialogs.offerBox(), QStringLiteral("Update"))->click();
    ASSERT_TRUE(waitFor([&] { return ended.size() == 2; }));
    EXPECT_EQ(alerts, (QStringList{u"The update wasn't installed. | the download didn't match its checksum, so it wasn't installed"_qs}));
    EXPECT_FALSE(quit);

    // The real one: the bar fills, the dialog closes, the hand-over starts and the app quits.
    dialogs.offer(release);
    button(dialogs.offerBox(), QStringLiteral("Update"))->click();
    ASSERT_TRUE(waitFor([&] { return ended.size() == 3; }));
    EXPECT_TRUE(quit);
    EXPECT_EQ(alerts.size(), 1);
    EXPECT_EQ(dialogs.progressBox(), nullptr);
    old.kill();
    old.waitForFinished();
    EXPECT_TRUE(waitFor([&] { return folderVersion(parent + u"/Tovin") == u"5.0"; }, 10'000));
}

// The hand-over on its own: when the new copy cannot be moved in, the old one is put back and
// started again; nothing happens until the old process has exited; and paths a shell would
// split or expand are taken as they stand.
TEST(SwapScript, PutsTheOldCopyBackAndRestartsItWhenTheNewOneCannotMoveIn) {
    QTemporaryDir top;
    const QDir dir(top.filePath(QStringLiteral("a b $HOME")));
    const QString working = top.filePath(QStringLiteral("work 'x'"));
    QDir().mkpath(working + u"/unpacked");
    const QString current = dir.filePath(QStringLiteral("Tovin"));
    put(current + u"/bin/tovin", "#!/bin/sh\necho old > \"$(dirname \"$0\")/../../started\"\n", true);
    put(current + u"/share/tovin/VERSION", "1.0\n");
    const QStringList before = snapshot(current);
    QProcess old;
    old.start(QStringLiteral("sleep"), {QStringLiteral("60")});
    ASSERT_TRUE(old.waitForStarted());
    // The new copy is gone by the time the script runs: its move in fails, as a read-only or
    // vanished target would make it.
    const QString script = dir.filePath(QStringLiteral("swap.sh"));
    put(script, swapScript(old.processId(), current, dir.filePath(QStringLiteral("Tovin (previous)")),
                           dir.filePath(QStringLiteral("gone/Tovin")), working));
    QProcess sh;
    sh.start(QStringLiteral("/bin/sh"), {script});
    ASSERT_TRUE(sh.waitForStarted());
    EXPECT_FALSE(sh.waitForFinished(700)) << "the script must wait for the old process";
    EXPECT_EQ(snapshot(current), before);
    old.kill();
    old.waitForFinished();
    ASSERT_TRUE(sh.waitForFinished(10'000));
    EXPECT_EQ(sh.exitCode(), 1);
    EXPECT_FALSE(QFile::exists(script)) << "the script removes itself however it ends";
    EXPECT_FALSE(QFile::exists(working)) << "... and its working folder";
    EXPECT_EQ(snapshot(current), before);
    EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("Tovin (previous)"))));
    QElapsedTimer t;
    t.start();
    while (!QFile::exists(dir.filePath(QStringLiteral("started"))) && t.elapsed() < 5000)
        QTest::qWait(50);
    EXPECT_EQ(readWholeFile(dir.filePath(QStringLiteral("started")), 64).value_or(""), "old\n");
}

} // namespace

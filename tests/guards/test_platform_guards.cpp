// The platform adapters against real parts of this machine: a user-mode PulseAudio with a null
// source, a PipeWire desktop (the daemon, WirePlumber and its Pulse server) with programs
// recording, filming and sharing a screen, processes holding device files open, an Xvfb server
// driven by xdotool, and a private D-Bus daemon standing in for logind and a desktop's idle
// monitor.

#include "core/atomic_file.h"
#include "resident/guards/call_detector.h"
#include "resident/guards/device_scan_linux.h"
#include "resident/guards/idle_source_dbus.h"
#include "resident/guards/idle_source_x11.h"
#include "resident/guards/media_graph.h"
#include "resident/guards/microphone_pulse.h"
#include "resident/guards/platform_guards.h"
#include "resident/guards/sleep_watcher.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

using namespace tovin;
using namespace Qt::Literals::StringLiterals;

namespace {

// A helper process started from a command line, and always stopped, whatever the test does.
class Child : public QProcess {
public:
    explicit Child(QStringView command, const QString& input = {}) {
        QStringList args = splitCommand(command);
        const QString program = QStandardPaths::findExecutable(args.takeFirst());
        EXPECT_FALSE(program.isEmpty()) << command.toString().toStdString()
                                        << ": a tool is missing; scripts/setup.sh installs it";
        if (!input.isEmpty())
            setStandardInputFile(input);
        start(program, args);
    }
    ~Child() override { stop(); }
    void stop() {
        kill();
        waitForFinished(5000);
    }
};

} // namespace

TEST(PulseMicrophone, OnlyARecordingFromARealSourceIsLive) {
    Child server(u"pulseaudio --daemonize=no --exit-idle-time=-1 -n --log-target=stderr"
                 u" -L \"module-null-sink sink_name=nullsink\""
                 u" -L \"module-null-source source_name=nullsrc\" -L module-native-protocol-unix");
    ASSERT_TRUE(QTest::qWaitFor([] { return readPulseMicrophone(200).has_value(); }, 15000))
        << server.readAllStandardError().toStdString();
    EXPECT_EQ(readPulseMicrophone().value().inputSources, 1); // nullsrc, not the monitor
    EXPECT_FALSE(readPulseMicrophone()->live);
    {
        // Recording what plays is not a call, even once the server lists that stream.
        Child monitor(u"parecord -d nullsink.monitor /dev/null");
        ASSERT_TRUE(QTest::qWaitFor(
            [] {
                Child pactl(u"pactl list short source-outputs");
                return pactl.waitForFinished(5000) && !pactl.readAllStandardOutput().isEmpty();
            },
            10000));
        EXPECT_FALSE(readPulseMicrophone()->live);
        Child microphone(u"parecord -d nullsrc /dev/null");
        EXPECT_TRUE(QTest::qWaitFor([] { return readPulseMicrophone()->live; }, 10000));
        // The same recording by a process of Tovin's own (the screen helper) is no call.
        EXPECT_FALSE(readPulseMicrophone(500, {microphone.processId()})->live);
    }
    EXPECT_TRUE(QTest::qWaitFor([] { return !readPulseMicrophone()->live; }, 10000));

    server.stop();
    EXPECT_FALSE(readPulseMicrophone(300)) << "no server is no answer, not an error";
}

namespace {

// A desktop's media graph of its own: PipeWire, WirePlumber and pipewire-pulse in this test's
// private runtime folder, with a microphone (a virtual source) to record from.
class PipeWireDesktop : public ::testing::Test {
protected:
    void SetUp() override {
        // WirePlumber, which links streams to their sources, needs a session bus; its settings
        // keep it from the machine's own sound cards and cameras.
        ASSERT_TRUE(QTest::qWaitFor([this] { return bus.canReadLine(); }, 10000));
        qputenv("DBUS_SESSION_BUS_ADDRESS", bus.readLine().trimmed());
        const QString config = qEnvironmentVariable("XDG_CONFIG_HOME") + u"/wireplumber";
        for (const char* file :
             {"main.lua.d/51-no-devices.lua", "bluetooth.lua.d/51-no-devices.lua"}) {
            const QString to = config + u'/' + QLatin1String(file);
            QDir().mkpath(QFileInfo(to).path());
            ASSERT_TRUE(
                QFile::copy(QStringLiteral(TOVIN_TEST_WIREPLUMBER "/") + QLatin1String(file), to));
        }
        daemon = std::make_unique<Child>(u"pipewire");
        session = std::make_unique<Child>(u"wireplumber");
        pulse = std::make_unique<Child>(u"pipewire-pulse");
        ASSERT_TRUE(QTest::qWaitFor([] { return readPipeWireGraph(200).has_value(); }, 15000))
            << daemon->readAllStandardError().toStdString();
        Child mic(u"pw-cli create-node adapter \"{ factory.name=support.null-audio-sink"
                  u" node.name=mic media.class=Audio/Source/Virtual audio.position=[MONO]"
                  u" object.linger=true }\"");
        ASSERT_TRUE(mic.waitForFinished(10000));
        ASSERT_TRUE(QTest::qWaitFor([] { return readPulseMicrophone(200).has_value(); }, 15000))
            << "pipewire-pulse did not answer";
    }
    // Whatever the probe sees, once it settles on `busy` (and, where given, on more).
    CallState settle(bool busy, std::function<bool(const CallState&)> more = {}) {
        CallState s;
        EXPECT_TRUE(QTest::qWaitFor(
            [&] {
                s = probe->read();
                return CallDetector::isBusy(s) == busy && (!more || more(s));
            },
            10000))
            << CallDetector::explanation(s).toStdString();
        return s;
    }
    static QString video() { return QStringLiteral(TOVIN_PW_VIDEO); }

    Child bus{u"dbus-daemon --session --nofork --print-address=1"};
    std::unique_ptr<Child> daemon, session, pulse;
    QList<qint64> ours;
    std::shared_ptr<CallProbe> probe = createPlatformCallProbe([this] { return ours; });
};

} // namespace

TEST_F(PipeWireDesktop, EachCaptureHoldsALockoutOffInItsOwnWordsUntilItStops) {
    CallState s = settle(false);
    EXPECT_EQ(CallDetector::explanation(s), u"Nothing is listening. Tovin is free to interrupt.");
    EXPECT_EQ(probe->inputDeviceCount(), 1);
    EXPECT_TRUE(probe->sources().contains(u"shared screen: PipeWire (the desktop's screen casts)"))
        << probe->sources().join(u'\n').toStdString();
    {
        Child recorder(u"pw-record --target mic /dev/null");
        // The Pulse interface may report a stream a moment before the graph links it: live at
        // once, and named once linked.
        s = settle(true, [](const CallState& s) { return s.micBy == QStringList{u"pw-record"_s}; });
        EXPECT_EQ(CallDetector::explanation(s), u"Your mic is live — Tovin won't interrupt.");
    }
    settle(false);
    {
        // Through the Pulse server, as most programs on a stock desktop record: the graph names
        // the program, and the Pulse interface agrees.
        Child recorder(u"parecord -d mic /dev/null");
        settle(true, [](const CallState& s) { return s.micBy == QStringList{u"parecord"_s}; });
        EXPECT_TRUE(readPulseMicrophone()->live);
    }
    settle(false);
    {
        Child camera(QString(video() + u" source webcam camera"));
        Child reader(QString(video() + u" read webcam"));
        s = settle(true);
        EXPECT_TRUE(s.camera && !s.screen && !s.mic);
        EXPECT_EQ(CallDetector::explanation(s), u"Your camera is live — Tovin won't interrupt.");
        // The same reading by Tovin's own screen helper (the coach) is no call.
        ours = {reader.processId()};
        settle(false);
        ours.clear();
    }
    {
        Child screen(QString(video() + u" source screencast"));
        Child reader(QString(video() + u" read screencast"));
        s = settle(true);
        EXPECT_TRUE(s.screen && !s.camera);
        EXPECT_EQ(CallDetector::explanation(s),
                  u"You're sharing your screen (pw_video) — Tovin won't interrupt.");
        Child recorder(u"pw-record --target mic /dev/null");
        EXPECT_TRUE(QTest::qWaitFor([&] { return probe->read().mic; }, 10000));
        EXPECT_EQ(CallDetector::explanation(probe->read()),
                  u"You're on a call and sharing your screen (pw_video) — Tovin won't interrupt.");
    }
    settle(false);

    // With the graph gone, the shared screen cannot be seen, and the probe says so.
    pulse->stop();
    session->stop();
    daemon->stop();
    EXPECT_FALSE(readPipeWireGraph(200));
    EXPECT_TRUE(probe->sources().contains(
        u"shared screen: cannot be seen — PipeWire is not running on this desktop"));
    EXPECT_FALSE(CallDetector::isBusy(probe->read()));
}

TEST(DeviceScan, AnotherProcessHoldingAVideoDeviceMakesTheCameraLive) {
    QTemporaryDir dev;
    const QString video = dev.filePath(QStringLiteral("video0"));
    ASSERT_TRUE(writeFileAtomically(video, "not a camera, but a file named like one"));
    // Our own handle does not count: Tovin's coach uses the camera too.
    QFile own(video);
    ASSERT_TRUE(own.open(QIODevice::ReadOnly));
    EXPECT_FALSE(anotherProcessHoldsVideoDevice(dev.path()));

    Child holder(u"sleep 60", video);
    ASSERT_TRUE(holder.waitForStarted(10000));
    EXPECT_TRUE(anotherProcessHoldsVideoDevice(dev.path()));
    // Unless it is Tovin's own screen helper, the coach reading the camera.
    EXPECT_FALSE(
        anotherProcessHoldsVideoDevice(dev.path(), QStringLiteral("/proc"), {holder.processId()}));
    EXPECT_FALSE(anotherProcessHoldsVideoDevice(dev.path(), QStringLiteral("/no/such/proc")));
}

TEST(DeviceScan, AlsaCaptureSubstreamsAreCountedAndRunningOnesSeen) {
    QTemporaryDir asound;
    auto put = [&](const char* relative, const char* text) {
        ASSERT_TRUE(writeFileAtomically(asound.filePath(QString::fromLatin1(relative)), text));
    };
    put("card0/pcm0p/sub0/status", "state: RUNNING\n"); // playback: not a microphone
    put("card0/pcm0c/sub0/status", "closed\n");
    put("card1/pcm0c/sub0/status", "closed\n");
    EXPECT_EQ(scanAlsaCapture(asound.path()).devices, 2);
    EXPECT_FALSE(scanAlsaCapture(asound.path()).running);
    put("card1/pcm0c/sub0/status", "state: RUNNING\nowner_pid   : 4242\n");
    EXPECT_TRUE(scanAlsaCapture(asound.path()).running);
}

TEST(X11Idle, CountsUpAndResetsOnInput) {
    int display = 90;
    while (QFile::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(display)))
        ++display;
    const QString name = QStringLiteral(":%1").arg(display);
    Child xvfb(QString(u"Xvfb " + name + u" -screen 0 640x480x24 -nolisten tcp"));
    std::unique_ptr<X11IdleSource> idle;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return (idle = X11IdleSource::open(name.toLatin1())) != nullptr; }, 15000));

    EXPECT_TRUE(QTest::qWaitFor([&] { return idle->secondsSinceLastInput() >= 0.5; }, 10000));
    Child xdotool(QString(u"env DISPLAY=" + name + u" xdotool key shift"));
    ASSERT_TRUE(xdotool.waitForFinished(10000));
    EXPECT_LT(idle->secondsSinceLastInput(), 0.5);

    EXPECT_FALSE(X11IdleSource::open(":4095")) << "no display is no source";
}

namespace {

// A stand-in for GNOME's idle monitor, served from its own thread as a real desktop would be.
class FakeMutter : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.gnome.Mutter.IdleMonitor")
public Q_SLOTS:
    qulonglong GetIdletime() { return 42'500; }
};

class PrivateBus : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(QTest::qWaitFor([this] { return daemon.canReadLine(); }, 10000));
        address = QString::fromUtf8(daemon.readLine().trimmed());
    }
    QDBusConnection connect(const QString& name) {
        names.append(name);
        return QDBusConnection::connectToBus(address, name);
    }
    void TearDown() override {
        for (const QString& n : names)
            QDBusConnection::disconnectFromBus(n);
    }

    Child daemon{u"dbus-daemon --session --nofork --print-address=1"};
    QString address;
    QStringList names;
};

} // namespace

TEST_F(PrivateBus, LogindSleepSignalsReachTheWatcher) {
    QDBusConnection logind = connect(QStringLiteral("logind"));
    ASSERT_TRUE(logind.registerService(QStringLiteral("org.freedesktop.login1")));
    SleepWatcher watcher(connect(QStringLiteral("watcher")));
    ASSERT_TRUE(watcher.isListening());
    QSignalSpy sleeping(&watcher, &SleepWatcher::willSleep);
    QSignalSpy waking(&watcher, &SleepWatcher::didWake);

    for (const bool going : {true, false}) {
        QDBusMessage signal = QDBusMessage::createSignal(
            QStringLiteral("/org/freedesktop/login1"),
            QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"));
        signal << going;
        ASSERT_TRUE(logind.send(signal));
    }
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return sleeping.count() == 1 && waking.count() == 1; }, 10000));
    EXPECT_FALSE(SleepWatcher(QDBusConnection(QStringLiteral("not connected"))).isListening());
}

TEST_F(PrivateBus, IdleTimeFromTheDesktopsIdleMonitor) {
    EXPECT_FALSE(DBusIdleSource::open(connect(QStringLiteral("empty"))))
        << "no idle monitor on the bus, no source";

    QThread serviceThread;
    auto* mutter = new FakeMutter;
    mutter->moveToThread(&serviceThread);
    QObject::connect(&serviceThread, &QThread::finished, mutter, &QObject::deleteLater);
    serviceThread.start();
    QDBusConnection desktop = connect(QStringLiteral("desktop"));
    ASSERT_TRUE(desktop.registerObject(QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core"), mutter,
                                       QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(desktop.registerService(QStringLiteral("org.gnome.Mutter.IdleMonitor")));

    auto idle = DBusIdleSource::open(connect(QStringLiteral("client")));
    ASSERT_TRUE(idle);
    EXPECT_DOUBLE_EQ(idle->secondsSinceLastInput(), 42.5);
    serviceThread.quit();
    serviceThread.wait();
}

#include "test_platform_guards.moc"

// The platform adapters against real parts of this machine: a user-mode PulseAudio with a null
// source, processes holding device files open, an Xvfb server driven by xdotool, and a private
// D-Bus daemon standing in for logind and a desktop's idle monitor.

#include "guards/device_scan_linux.h"
#include "guards/idle_source_dbus.h"
#include "guards/idle_source_x11.h"
#include "guards/microphone_pulse.h"
#include "guards/sleep_watcher.h"

#include "core/atomic_file.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

// A helper process that is always stopped, whatever the test does.
class Child {
public:
    Child(const QString& program, const QStringList& args) {
        process_.setProgram(program);
        process_.setArguments(args);
        process_.setProcessChannelMode(QProcess::MergedChannels);
    }
    ~Child() { stop(); }
    QProcess& process() { return process_; }
    bool start() {
        process_.start();
        return process_.waitForStarted(10000);
    }
    void stop() {
        if (process_.state() != QProcess::NotRunning) {
            process_.kill();
            process_.waitForFinished(5000);
        }
    }

private:
    QProcess process_;
};

QString tool(const char* name) {
    const QString path = QStandardPaths::findExecutable(QString::fromLatin1(name));
    EXPECT_FALSE(path.isEmpty()) << name << " is missing: scripts/setup.sh installs it";
    return path;
}

} // namespace

TEST(PulseMicrophone, ARealRecordingStreamIsLiveAndAMonitorIsNot) {
    Child server(tool("pulseaudio"),
                 {QStringLiteral("--daemonize=no"), QStringLiteral("--exit-idle-time=-1"),
                  QStringLiteral("-n"), QStringLiteral("--log-target=stderr"),
                  QStringLiteral("-L"), QStringLiteral("module-null-sink sink_name=nullsink"),
                  QStringLiteral("-L"), QStringLiteral("module-null-source source_name=nullsrc"),
                  QStringLiteral("-L"), QStringLiteral("module-native-protocol-unix")});
    ASSERT_TRUE(server.start());
    ASSERT_TRUE(QTest::qWaitFor([&] { return readPulseMicrophone(200).has_value(); }, 15000))
        << server.process().readAll().toStdString();

    const auto quiet = readPulseMicrophone();
    ASSERT_TRUE(quiet);
    EXPECT_FALSE(quiet->live);
    EXPECT_EQ(quiet->inputSources, 1); // nullsrc; the sink's monitor does not count

    {
        Child recorder(tool("parecord"), {QStringLiteral("-d"), QStringLiteral("nullsink.monitor"),
                                          QStringLiteral("/dev/null")});
        ASSERT_TRUE(recorder.start());
        // Wait until the server lists the stream, then it must still not count.
        ASSERT_TRUE(QTest::qWaitFor(
            [&] {
                QProcess pactl;
                pactl.start(tool("pactl"), {QStringLiteral("list"), QStringLiteral("short"),
                                            QStringLiteral("source-outputs")});
                pactl.waitForFinished(5000);
                return !pactl.readAllStandardOutput().trimmed().isEmpty();
            },
            10000));
        EXPECT_FALSE(readPulseMicrophone()->live) << "recording what plays is not a call";
    }
    {
        Child recorder(tool("parecord"),
                       {QStringLiteral("-d"), QStringLiteral("nullsrc"), QStringLiteral("/dev/null")});
        ASSERT_TRUE(recorder.start());
        EXPECT_TRUE(QTest::qWaitFor([] { return readPulseMicrophone()->live; }, 10000));
    }
    EXPECT_TRUE(QTest::qWaitFor([] { return !readPulseMicrophone()->live; }, 10000));

    server.stop();
    EXPECT_FALSE(readPulseMicrophone(300)) << "no server is no answer, not an error";
}

TEST(DeviceScan, AnotherProcessHoldingAVideoDeviceMakesTheCameraLive) {
    QTemporaryDir dev;
    const QString video = dev.filePath(QStringLiteral("video0"));
    ASSERT_TRUE(writeFileAtomically(video, "not a camera, but a file named like one"));
    EXPECT_FALSE(anotherProcessHoldsVideoDevice(dev.path()));

    // Our own handle does not count: Tovin's coach uses the camera too.
    QFile own(video);
    ASSERT_TRUE(own.open(QIODevice::ReadOnly));
    EXPECT_FALSE(anotherProcessHoldsVideoDevice(dev.path()));

    Child holder(tool("sleep"), {QStringLiteral("60")});
    holder.process().setStandardInputFile(video);
    ASSERT_TRUE(holder.start());
    EXPECT_TRUE(anotherProcessHoldsVideoDevice(dev.path()));
    holder.stop();
    EXPECT_FALSE(anotherProcessHoldsVideoDevice(dev.path()));
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
    AlsaCapture scan = scanAlsaCapture(asound.path());
    EXPECT_EQ(scan.devices, 2);
    EXPECT_FALSE(scan.running);
    put("card1/pcm0c/sub0/status", "state: RUNNING\nowner_pid   : 4242\n");
    scan = scanAlsaCapture(asound.path());
    EXPECT_TRUE(scan.running);
    EXPECT_EQ(scanAlsaCapture(QStringLiteral("/no/such/asound")).devices, 0);
}

TEST(X11Idle, CountsUpAndResetsOnInput) {
    int display = 90;
    while (QFile::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(display)))
        ++display;
    const QString name = QStringLiteral(":%1").arg(display);
    Child xvfb(tool("Xvfb"), {name, QStringLiteral("-screen"), QStringLiteral("0"),
                              QStringLiteral("640x480x24"), QStringLiteral("-nolisten"),
                              QStringLiteral("tcp")});
    ASSERT_TRUE(xvfb.start());
    std::unique_ptr<X11IdleSource> idle;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (idle = X11IdleSource::open(name.toLatin1())) != nullptr; },
                                15000));
    EXPECT_EQ(idle->name(), u"X11 screen saver");

    QProcess xdotool;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), name);
    xdotool.setProcessEnvironment(env);
    EXPECT_TRUE(QTest::qWaitFor([&] { return idle->secondsSinceLastInput() >= 0.5; }, 10000));
    xdotool.start(tool("xdotool"), {QStringLiteral("key"), QStringLiteral("shift")});
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
        daemon.process().setProcessChannelMode(QProcess::SeparateChannels);
        ASSERT_TRUE(daemon.start());
        ASSERT_TRUE(QTest::qWaitFor([this] { return daemon.process().canReadLine(); }, 10000));
        address = QString::fromUtf8(daemon.process().readLine().trimmed());
        ASSERT_FALSE(address.isEmpty());
    }
    QDBusConnection connect(const QString& name) {
        names.append(name);
        return QDBusConnection::connectToBus(address, name);
    }
    void TearDown() override {
        for (const QString& n : names)
            QDBusConnection::disconnectFromBus(n);
    }

    Child daemon{tool("dbus-daemon"),
                 {QStringLiteral("--session"), QStringLiteral("--nofork"),
                  QStringLiteral("--print-address=1")}};
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
            QStringLiteral("/org/freedesktop/login1"), QStringLiteral("org.freedesktop.login1.Manager"),
            QStringLiteral("PrepareForSleep"));
        signal << going;
        ASSERT_TRUE(logind.send(signal));
    }
    EXPECT_TRUE(QTest::qWaitFor([&] { return sleeping.count() == 1 && waking.count() == 1; }, 10000));
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
    EXPECT_EQ(idle->name(), u"GNOME idle monitor");
    EXPECT_DOUBLE_EQ(idle->secondsSinceLastInput(), 42.5);
    desktop.unregisterObject(QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core"));
    serviceThread.quit();
    serviceThread.wait();
}

#include "test_platform_guards.moc"

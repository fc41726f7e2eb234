#pragma once

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <cstdio>

namespace tovin::fakes {

// A private X server for end-to-end checks: one wide Xvfb screen split into monitors with
// `xrandr --setmonitor` (Qt sees each as a screen; Xinerama does not work here). Start it before
// the QApplication, which then connects to it. Stopped when destroyed.
class XvfbSession {
public:
    ~XvfbSession() {
        if (server_.state() != QProcess::NotRunning) {
            server_.kill();
            server_.waitForFinished(5000);
        }
    }

    // Starts the server; false (with a reason on stderr) when it cannot run.
    bool start(int width, int height) {
        int n = 80;
        while (QFile::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(n)) ||
               QFile::exists(QStringLiteral("/tmp/.X%1-lock").arg(n)))
            ++n;
        display_ = QStringLiteral(":%1").arg(n);
        const QString xvfb = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
        if (xvfb.isEmpty()) {
            std::fprintf(stderr, "Xvfb is missing: scripts/setup.sh installs it\n");
            return false;
        }
        // -noreset: without it the monitors vanish whenever the last client leaves.
        server_.start(xvfb, {display_, QStringLiteral("-screen"), QStringLiteral("0"),
                             QStringLiteral("%1x%2x24").arg(width).arg(height),
                             QStringLiteral("-noreset"), QStringLiteral("-nolisten"),
                             QStringLiteral("tcp")});
        if (!server_.waitForStarted(10000))
            return false;
        const QString socket = QStringLiteral("/tmp/.X11-unix/X%1").arg(n);
        for (int i = 0; i < 200 && !QFile::exists(socket); ++i)
            QThread::msleep(25);
        qputenv("DISPLAY", display_.toLatin1());
        return QFile::exists(socket);
    }

    // A screen `width` wide split into LEFT and RIGHT monitors of 1920 × 1080 (the rest of a
    // wider screen is room for a monitor plugged in later).
    bool startTwoMonitors(int width = 3840) {
        if (!start(width, 1080) ||
            !setMonitor(QStringLiteral("LEFT"), 0, 1920, 1080, QStringLiteral("screen")) ||
            !setMonitor(QStringLiteral("RIGHT"), 1920, 1920, 1080, QStringLiteral("none"))) {
            std::fprintf(stderr, "could not start Xvfb with two monitors\n");
            return false;
        }
        return true;
    }

    // `xrandr --setmonitor NAME w/508xh/286+x+y OUTPUT`: one more screen for Qt.
    bool setMonitor(const QString& name, int x, int width, int height, const QString& output) {
        return run(QStringLiteral("xrandr"),
                   {QStringLiteral("--setmonitor"), name,
                    QStringLiteral("%1/508x%2/286+%3+0").arg(width).arg(height).arg(x), output});
    }
    bool deleteMonitor(const QString& name) {
        return run(QStringLiteral("xrandr"), {QStringLiteral("--delmonitor"), name});
    }

    // Runs an X client to completion on this display.
    bool run(const QString& program, const QStringList& args) {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DISPLAY"), display_);
        p.setProcessEnvironment(env);
        p.start(QStandardPaths::findExecutable(program), args);
        return p.waitForFinished(20000) && p.exitStatus() == QProcess::NormalExit &&
               p.exitCode() == 0;
    }

    const QString& display() const { return display_; }

private:
    QProcess server_;
    QString display_;
};

} // namespace tovin::fakes

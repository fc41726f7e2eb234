#pragma once

#include <QFile>
#include <QProcess>
#include <QThread>

#include <cstdio>

namespace tovin::fakes {

// A private X server for end-to-end checks: one wide Xvfb screen split into monitors with
// `xrandr --setmonitor` (Qt sees each as a screen; Xinerama does not work here). Start it before
// the QApplication, which then connects to it through DISPLAY. Stopped when destroyed.
class XvfbSession {
public:
    ~XvfbSession() {
        server_.kill();
        server_.waitForFinished(5000);
    }

    // A screen `width` wide split into LEFT and RIGHT monitors of 1920 × 1080 (the rest of a
    // wider screen is room for a monitor plugged in later); false, with a reason on stderr,
    // when it cannot run.
    bool startTwoMonitors(int width = 3840) {
        int n = 80;
        while (QFile::exists(socket(n)) || QFile::exists(QStringLiteral("/tmp/.X%1-lock").arg(n)))
            ++n;
        const QString display = QStringLiteral(":%1").arg(n);
        // -noreset: without it the monitors vanish whenever the last client leaves.
        server_.start(QStringLiteral("Xvfb"),
                      QStringLiteral("%1 -screen 0 %2x1080x24 -noreset -nolisten tcp")
                          .arg(display)
                          .arg(width)
                          .split(u' '));
        if (!server_.waitForStarted(10000)) {
            std::fprintf(stderr, "Xvfb does not start: scripts/setup.sh installs it\n");
            return false;
        }
        for (int i = 0; i < 200 && !QFile::exists(socket(n)); ++i)
            QThread::msleep(25);
        qputenv("DISPLAY", display.toLatin1());
        if (!QFile::exists(socket(n)) ||
            !setMonitor(QStringLiteral("LEFT"), 0, 1920, 1080, QStringLiteral("screen")) ||
            !setMonitor(QStringLiteral("RIGHT"), 1920, 1920, 1080, QStringLiteral("none"))) {
            std::fprintf(stderr, "could not start Xvfb with two monitors\n");
            return false;
        }
        return true;
    }

    // `xrandr --setmonitor NAME w/508xh/286+x+0 OUTPUT`: one more screen for Qt.
    bool setMonitor(const QString& name, int x, int width, int height, const QString& output) {
        return run(QStringLiteral("xrandr"),
                   {QStringLiteral("--setmonitor"), name,
                    QStringLiteral("%1/508x%2/286+%3+0").arg(width).arg(height).arg(x), output});
    }
    bool deleteMonitor(const QString& name) {
        return run(QStringLiteral("xrandr"), {QStringLiteral("--delmonitor"), name});
    }

    // Runs an X client to completion on this display.
    static bool run(const QString& program, const QStringList& args) {
        QProcess p;
        p.start(program, args);
        return p.waitForFinished(20000) && p.exitStatus() == QProcess::NormalExit &&
               p.exitCode() == 0;
    }

private:
    static QString socket(int n) { return QStringLiteral("/tmp/.X11-unix/X%1").arg(n); }

    QProcess server_;
};

} // namespace tovin::fakes

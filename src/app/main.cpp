#include "guards/call_detector.h"
#include "guards/platform_guards.h"
#include "journal/diagnostics.h"

#include <QCoreApplication>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

using namespace tovin;

namespace {

bool hasSwitch(int argc, char* argv[], const char* name) {
    for (int i = 1; i < argc; ++i) {
        if (qstrcmp(argv[i], name) == 0)
            return true;
    }
    return false;
}

// One line a second: what the microphone and camera are doing and whether a lockout could
// start now.
int probeCall(QCoreApplication& app) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    QTextStream out(stdout);
    const int inputs = CallDetector::inputDeviceCount();
    out << "recording-capable audio devices: " << inputs << '\n';
    if (inputs == 0)
        out << "  ⚠︎ none found — the microphone check cannot fire\n";
    out << "watching mic + camera — Ctrl-C to stop\n\n";
    out.flush();

    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&out] {
        const CallDetector::State s = CallDetector::current();
        out << (s.mic ? "mic LIVE " : "mic idle ") << ' '
            << (s.camera ? "camera LIVE " : "camera idle") << "  "
            << (CallDetector::isBusy(s.mic, s.camera) ? "→ WOULD NOT LOCK" : "→ free to lock")
            << '\n';
        out.flush();
    });
    timer.start(1000);
    return app.exec();
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Tovin"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TOVIN_VERSION));
    CallDetector::setProbe(createPlatformCallProbe());

    if (hasSwitch(argc, argv, "--why")) {
        QTextStream(stdout) << Diagnostics::why();
        return 0;
    }
    if (hasSwitch(argc, argv, "--probe-call"))
        return probeCall(app);

    // Until the desktop shell lands, Tovin answers the question it can already answer: what the
    // scheduler would decide right now, and why.
    QTextStream(stdout) << Diagnostics::why();
    return 0;
}

#include "app/launch_switches.h"

#include <QTextStream>

#include <utility>

namespace tovin {

LaunchMode launchModeFor(const QStringList& arguments) {
    static const std::pair<const char*, LaunchMode> order[] = {
        {"--help", LaunchMode::Help},
        {"-h", LaunchMode::Help},
        {"--version", LaunchMode::Version},
        {"--why", LaunchMode::Why},
        {"--update-dry-run", LaunchMode::UpdateDryRun},
        {"--layout-check", LaunchMode::LayoutCheck},
        {"--self-test", LaunchMode::SelfTest},
        {"--probe-call", LaunchMode::ProbeCall},
        {"--rehearse", LaunchMode::Rehearse},
    };
    // The program's own name is not a switch.
    const QStringList switches = arguments.mid(1);
    for (const auto& [name, mode] : order) {
        if (switches.contains(QLatin1String(name)))
            return mode;
    }
    return LaunchMode::Normal;
}

bool launchedForRehearsal(const QStringList& arguments) {
    return arguments.mid(1).contains(QLatin1String("--rehearse"));
}

bool checksSingleInstance(LaunchMode mode) {
    return mode == LaunchMode::ProbeCall || mode == LaunchMode::Rehearse ||
           mode == LaunchMode::Normal;
}

void writeProbeHeader(QTextStream& out, int inputDevices) {
    out << "recording-capable audio devices: " << inputDevices << '\n';
    if (inputDevices == 0)
        out << "  ⚠︎ none found — the microphone check cannot fire\n";
    out << "watching mic + camera — Ctrl-C to stop\n\n";
}

QString probeLine(bool mic, bool camera, bool wouldNotLock) {
    return QLatin1String(mic ? "mic LIVE " : "mic idle ") + u' ' +
           QLatin1String(camera ? "camera LIVE " : "camera idle") + u"  " +
           (wouldNotLock ? QStringLiteral("→ WOULD NOT LOCK") : QStringLiteral("→ free to lock"));
}

} // namespace tovin

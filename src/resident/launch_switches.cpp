#include "resident/launch_switches.h"

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
        {"--probe-idle", LaunchMode::ProbeIdle},
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

void writeProbeHeader(QTextStream& out, int inputDevices, const QStringList& sources) {
    out << "recording-capable audio devices: " << inputDevices << '\n';
    if (inputDevices == 0)
        out << "  ⚠︎ none found — the microphone check cannot fire\n";
    for (const QString& source : sources)
        out << "  " << source << '\n';
    out << "watching mic + camera + shared screen — Ctrl-C to stop\n\n";
}

QString probeLine(const CallState& state) {
    const auto part = [](const char* name, bool live, const char* liveWord, const QStringList& by) {
        QString text =
            QLatin1String(name) + u' ' + (live ? QLatin1String(liveWord) : QLatin1String("idle"));
        if (live && !by.isEmpty())
            text += u" (" + by.join(u", ") + u')';
        return text;
    };
    return part("mic", state.mic, "LIVE", state.micBy) + u"  " +
           part("camera", state.camera, "LIVE", state.cameraBy) + u"  " +
           part("screen", state.screen, "SHARED", state.screenBy) + u"  " +
           (CallDetector::isBusy(state) ? QStringLiteral("→ WOULD NOT LOCK")
                                        : QStringLiteral("→ free to lock"));
}

} // namespace tovin

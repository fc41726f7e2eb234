#include "resident/guards/device_scan_linux.h"
#include "resident/guards/media_graph.h"
#include "resident/guards/microphone_pulse.h"
#include "resident/guards/platform_guards.h"

#include <QCoreApplication>
#include <QFile>

namespace tovin {

namespace {

// The name the kernel keeps for a process: what it runs, not what it says of itself.
QString processName(qint64 pid) {
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
    if (!comm.open(QIODevice::ReadOnly))
        return QStringLiteral("pid %1").arg(pid);
    return QString::fromUtf8(comm.readAll().trimmed());
}

bool sessionIsX11() {
    return qEnvironmentVariable("XDG_SESSION_TYPE") == u"x11" ||
           (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
            !qEnvironmentVariableIsEmpty("DISPLAY"));
}

// Desktops route sound, cameras and screen casts through PipeWire; its graph names every stream
// and its program. Without it (or where sound still goes through PulseAudio) the sound server
// answers for the microphone and ALSA after it; the camera is also looked for as a device file
// held open, since programs may read one directly.
class LinuxCallProbe final : public CallProbe {
public:
    explicit LinuxCallProbe(std::function<QList<qint64>()> ourOthers)
        : ourOthers_(std::move(ourOthers)) {}

    CallState read() override {
        QList<qint64> ours = ourOthers_ ? ourOthers_() : QList<qint64>{};
        ours.append(QCoreApplication::applicationPid());
        // A report (--why, --probe-call) runs beside the copy that shows the lockout: that copy's
        // screen helper, its coach reading the camera, is Tovin's own too.
        ours.append(ownProcessesNamed("tovin-screens"));
        const auto graph = readPipeWireGraph();
        const MediaSightings seen = graph ? sightingsIn(*graph, ours) : MediaSightings{};
        CallState s;
        s.micBy = seen.microphone;
        // PipeWire may carry only video while PulseAudio serves sound (or both serve some): when
        // the graph saw no recording, the sound server, then ALSA, are asked as well.
        if (s.micBy.isEmpty()) {
            if (const auto pulse = readPulseMicrophone(500, ours))
                s.mic = pulse->live;
            else if (!seen.carriesAudio)
                s.mic = scanAlsaCapture().running;
        }
        s.mic = s.mic || !s.micBy.isEmpty();

        s.cameraBy = seen.camera;
        if (const qint64 holder = anotherProcessHoldsVideoDevice(QStringLiteral("/dev"),
                                                                 QStringLiteral("/proc"), ours)) {
            const QString name = processName(holder);
            if (!s.cameraBy.contains(name))
                s.cameraBy.append(name);
        }
        s.camera = !s.cameraBy.isEmpty();
        s.screenBy = seen.screen;
        s.screen = !s.screenBy.isEmpty();
        return s;
    }

    int inputDeviceCount() override {
        if (const auto graph = readPipeWireGraph()) {
            if (const MediaSightings seen = sightingsIn(*graph); seen.carriesAudio)
                return seen.audioInputs;
        }
        if (const auto pulse = readPulseMicrophone())
            return pulse->inputSources;
        return scanAlsaCapture().devices;
    }

    QStringList sources() override {
        const auto graph = readPipeWireGraph();
        const MediaSightings seen = graph ? sightingsIn(*graph) : MediaSightings{};
        QStringList lines;
        if (seen.carriesAudio)
            lines << QStringLiteral("microphone: PipeWire (%1 recording-capable input(s))")
                         .arg(seen.audioInputs);
        else if (const auto pulse = readPulseMicrophone())
            lines << QStringLiteral("microphone: the PulseAudio sound server (%1 input(s))")
                         .arg(pulse->inputSources);
        else if (const int alsa = scanAlsaCapture().devices)
            lines << QStringLiteral("microphone: ALSA's capture devices (%1)").arg(alsa);
        else
            lines << QStringLiteral("microphone: none found — a recording cannot be seen");
        lines << (graph ? QStringLiteral("camera: PipeWire, and video devices held open")
                        : QStringLiteral("camera: video devices held open"));
        if (!graph)
            lines << QStringLiteral(
                "shared screen: cannot be seen — PipeWire is not running on this desktop");
        else if (sessionIsX11())
            lines << QStringLiteral("shared screen: PipeWire's screen casts only — on X11 a "
                                    "program reading the screen directly cannot be seen");
        else
            lines << QStringLiteral("shared screen: PipeWire (the desktop's screen casts)");
        return lines;
    }

private:
    std::function<QList<qint64>()> ourOthers_;
};

} // namespace

std::shared_ptr<CallProbe> createPlatformCallProbe(std::function<QList<qint64>()> ourOthers) {
    return std::make_shared<LinuxCallProbe>(std::move(ourOthers));
}

} // namespace tovin

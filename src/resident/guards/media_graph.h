#pragma once

#include <QHash>
#include <QList>
#include <QString>

#include <optional>

namespace tovin {

// One look at the desktop's media graph (PipeWire's): every node, link and client it lists, with
// only the properties the call detector reads. Sound, cameras and shared screens all pass
// through it, each stream with the program that owns it.
struct MediaGraph {
    struct Node {
        QString mediaClass; // "Audio/Source", "Stream/Input/Video", …
        QString name;
        QString role;          // media.role: a camera source says "Camera"
        QString application;   // the owning program's own name for itself, when it gives one
        bool isDevice = false; // made by a device monitor (ALSA, V4L2, libcamera), not a program
        quint32 client = 0;
    };
    struct Client {
        qint64 pid = 0; // as the kernel told the daemon (SO_PEERCRED), not as the program claims
        QString application;
    };
    struct Link {
        quint32 from = 0; // the node whose output is read
        quint32 to = 0;   // the node reading it
    };
    QHash<quint32, Node> nodes;
    QHash<quint32, Client> clients;
    QHash<quint32, Link> links;
};

// What the graph shows: for each kind of capture, the programs doing it (empty when none).
struct MediaSightings {
    QStringList microphone;    // recording a real input (not a monitor of what plays)
    QStringList camera;        // reading a camera
    QStringList screen;        // receiving a video source that is no camera: a shared screen
    int audioInputs = 0;       // recording-capable inputs the graph holds
    bool carriesAudio = false; // whether sound goes through this graph at all
};

// The rules, apart from the daemon so they can be checked on any graph. Streams of the
// processes in `ours` (Tovin's own: its coach reads the camera) never count.
MediaSightings sightingsIn(const MediaGraph& graph, const QList<qint64>& ours = {});

// A snapshot of the running PipeWire daemon's graph, or none when there is no daemon or it does
// not answer within the time limit.
std::optional<MediaGraph> readPipeWireGraph(int timeoutMs = 300);

} // namespace tovin

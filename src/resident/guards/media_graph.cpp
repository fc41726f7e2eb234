#include "resident/guards/media_graph.h"

namespace tovin {

namespace {

bool isAudioInput(const MediaGraph::Node& n) {
    // A monitor of what plays is a port of its sink, never a source node of its own: a source
    // is a microphone, a headset, or a virtual source standing for one.
    return n.mediaClass.startsWith(u"Audio/Source") || n.mediaClass == u"Audio/Duplex";
}

bool isCamera(const MediaGraph::Node& n) {
    // Cameras come from a device monitor (V4L2, libcamera) or say so themselves; a screen cast
    // is a program's stream and does neither.
    return n.mediaClass.startsWith(u"Video/Source") && (n.isDevice || n.role == u"Camera");
}

bool producesVideo(const MediaGraph::Node& n) {
    // A portal's screen cast is a compositor's output stream, or a node it calls a video source.
    return n.mediaClass.startsWith(u"Video/Source") || n.mediaClass == u"Stream/Output/Video";
}

void addOnce(QStringList& list, const QString& program) {
    if (!list.contains(program))
        list.append(program);
}

} // namespace

MediaSightings sightingsIn(const MediaGraph& graph, const QList<qint64>& ours) {
    MediaSightings seen;
    for (const MediaGraph::Node& n : graph.nodes) {
        seen.carriesAudio = seen.carriesAudio || n.mediaClass.startsWith(u"Audio/");
        if (isAudioInput(n))
            ++seen.audioInputs;
    }
    for (const MediaGraph::Link& link : graph.links) {
        const auto from = graph.nodes.constFind(link.from);
        const auto to = graph.nodes.constFind(link.to);
        if (from == graph.nodes.cend() || to == graph.nodes.cend())
            continue;
        // A capture stream that no connected program owns is one the daemon made for itself (a
        // loopback, an echo canceller, a filter chain): plumbing, not somebody listening.
        const auto client = graph.clients.constFind(to->client);
        if (client == graph.clients.cend())
            continue;
        const MediaGraph::Client& owner = *client;
        if (owner.pid > 0 && ours.contains(owner.pid))
            continue;
        // The stream's own name for its program first: a Pulse client's streams all belong to
        // the Pulse server's connection, which names only itself.
        QString program = to->application;
        if (program.isEmpty())
            program = owner.application;
        if (program.isEmpty())
            program = to->name;

        if (to->mediaClass == u"Stream/Input/Audio" && isAudioInput(*from))
            addOnce(seen.microphone, program);
        else if (to->mediaClass == u"Stream/Input/Video" && isCamera(*from))
            addOnce(seen.camera, program);
        else if (to->mediaClass == u"Stream/Input/Video" && producesVideo(*from))
            addOnce(seen.screen, program);
    }
    return seen;
}

} // namespace tovin

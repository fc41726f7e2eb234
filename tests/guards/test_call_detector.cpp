#include "resident/guards/call_detector.h"
#include "resident/guards/media_graph.h"
#include "support/fake_platform.h"

#include <gtest/gtest.h>

using namespace tovin;
using namespace Qt::Literals::StringLiterals;

TEST(CallDetector, ExplanationsAndBusyForEveryCombination) {
    const struct {
        bool mic, camera, screen, busy;
        QStringList sharingWith;
        const char16_t* text;
    } cases[] = {
        {true, true, false, true, {}, u"Mic and camera are live — you're on a call."},
        {true, false, false, true, {}, u"Your mic is live — Tovin won't interrupt."},
        {false, true, false, true, {}, u"Your camera is live — Tovin won't interrupt."},
        {false, false, false, false, {}, u"Nothing is listening. Tovin is free to interrupt."},
        {false,
         false,
         true,
         true,
         {u"obs"_s},
         u"You're sharing your screen (obs) — Tovin won't interrupt."},
        {false, false, true, true, {}, u"You're sharing your screen — Tovin won't interrupt."},
        {true,
         false,
         true,
         true,
         {u"zoom"_s, u"obs"_s},
         u"You're on a call and sharing your screen (zoom, obs) — Tovin won't interrupt."},
    };
    for (const auto& c : cases) {
        const CallState state{c.mic, c.camera, c.screen, {}, {}, c.sharingWith};
        EXPECT_EQ(CallDetector::isBusy(state), c.busy);
        EXPECT_EQ(CallDetector::explanation(state), QString::fromUtf16(c.text));
        // The same through a forced state, which outranks whatever the probe says.
        auto probe = std::make_shared<fakes::FakeCallProbe>();
        probe->mic = !c.mic;
        probe->camera = !c.camera;
        probe->screen = !c.screen;
        CallDetector calls(probe);
        calls.setForcedState(state);
        EXPECT_EQ(calls.isBusy(), c.busy);
        EXPECT_EQ(calls.explanation(), QString::fromUtf16(c.text));
        calls.setForcedState(std::nullopt);
        const CallState read = calls.current();
        EXPECT_EQ(read.mic, !c.mic);
        EXPECT_EQ(read.camera, !c.camera);
        EXPECT_EQ(read.screen, !c.screen);
    }
    // Without a probe (none on this desktop) nothing is live, rather than a crash.
    const CallDetector none;
    EXPECT_FALSE(none.isBusy());
    EXPECT_EQ(none.inputDeviceCount(), 0);
}

namespace {

// A desktop's graph as PipeWire lists it: a headset and a sink, a V4L2 camera, a compositor's
// screen cast, and the programs reading them.
MediaGraph desktop() {
    MediaGraph g;
    g.clients = {{50, {4001, u"Firefox"_s}},
                 {60, {4002, u"pipewire"_s}},
                 {70, {4003, u"obs"_s}},
                 {80, {4004, u"gnome-shell"_s}},
                 {90, {4005, u""_s}}};
    g.nodes = {
        {10, {u"Audio/Source"_s, u"alsa_input.usb-headset"_s, u""_s, u""_s, true, 0}},
        {11, {u"Audio/Sink"_s, u"alsa_output.speakers"_s, u""_s, u""_s, true, 0}},
        {12, {u"Video/Source"_s, u"v4l2_input.webcam"_s, u""_s, u""_s, true, 0}},
        {13, {u"Stream/Output/Video"_s, u"gnome-shell-screen-cast"_s, u""_s, u""_s, false, 80}},
        {20, {u"Stream/Input/Audio"_s, u"firefox-mic"_s, u""_s, u"Firefox"_s, false, 50}},
        {21,
         {u"Stream/Input/Audio"_s, u"parec"_s, u""_s, u"Discord"_s, false,
          60}}, // through pipewire-pulse
        {22, {u"Stream/Input/Video"_s, u"obs-cam"_s, u""_s, u""_s, false, 70}},
        {23, {u"Stream/Input/Video"_s, u"obs-screen"_s, u""_s, u""_s, false, 70}},
        {24, {u"Stream/Input/Video"_s, u"reader"_s, u""_s, u""_s, false, 90}},
        {25, {u"Stream/Input/Audio"_s, u"echo-cancel-capture"_s, u""_s, u""_s, false, 0}},
    };
    return g;
}

} // namespace

TEST(MediaGraphRules, EachCaptureIsSeenWithItsProgramAndOursNever) {
    const struct {
        const char* what;
        QList<MediaGraph::Link> links;
        QList<qint64> ours;
        QStringList mic, camera, screen;
    } cases[] = {
        {"nothing linked", {}, {}, {}, {}, {}},
        {"a browser recording the headset", {{10, 20}}, {}, {u"Firefox"_s}, {}, {}},
        {"a Pulse client, named by its stream not the Pulse server",
         {{10, 21}},
         {},
         {u"Discord"_s},
         {},
         {}},
        {"recording what plays is no call", {{11, 21}}, {}, {}, {}, {}},
        {"a camera read (device node)", {{12, 22}}, {}, {}, {u"obs"_s}, {}},
        {"a screen cast received", {{13, 23}}, {}, {}, {}, {u"obs"_s}},
        {"a nameless program falls back to its node", {{13, 24}}, {}, {}, {}, {u"reader"_s}},
        {"Tovin's own reader, by the kernel's pid", {{12, 22}, {13, 23}}, {4003}, {}, {}, {}},
        {"a link to a node already gone", {{99, 20}, {10, 98}}, {}, {}, {}, {}},
        {"the daemon's own capture stream (an echo canceller)", {{10, 25}}, {}, {}, {}, {}},
    };
    for (const auto& c : cases) {
        MediaGraph g = desktop();
        for (qsizetype i = 0; i < c.links.size(); ++i)
            g.links.insert(quint32(200 + i), c.links[i]);
        const MediaSightings seen = sightingsIn(g, c.ours);
        EXPECT_EQ(seen.microphone, c.mic) << c.what;
        EXPECT_EQ(seen.camera, c.camera) << c.what;
        EXPECT_EQ(seen.screen, c.screen) << c.what;
        EXPECT_EQ(seen.audioInputs, 1) << c.what;
        EXPECT_TRUE(seen.carriesAudio);
    }
    // A source that says it is a camera is one, device or not; a video source that does not is
    // a screen cast (the portal's, or a program's stand-in for one).
    MediaGraph g = desktop();
    g.nodes[12].isDevice = false;
    g.links.insert(1, {12, 22});
    EXPECT_EQ(sightingsIn(g).screen, QStringList{u"obs"_s});
    g.nodes[12].role = u"Camera"_s;
    EXPECT_EQ(sightingsIn(g).camera, QStringList{u"obs"_s});
    // A graph that carries only video (sound still through PulseAudio) says so.
    g.nodes.remove(10);
    g.nodes.remove(11);
    EXPECT_FALSE(sightingsIn(g).carriesAudio);
}

#include "resident/guards/microphone_pulse.h"

#include <QElapsedTimer>
#include <QSet>

#include <pulse/pulseaudio.h>
#include <unistd.h>

namespace tovin {

namespace {

struct Query {
    QSet<uint32_t> monitorSources;
    QSet<uint32_t> inputSources;
    struct Stream {
        uint32_t source;
        bool corked;
        long pid;
    };
    QList<Stream> streams;
    bool sourcesDone = false;
    bool streamsDone = false;
};

void onSource(pa_context*, const pa_source_info* info, int eol, void* userdata) {
    auto* q = static_cast<Query*>(userdata);
    if (eol) {
        q->sourcesDone = true;
        return;
    }
    if (info->monitor_of_sink != PA_INVALID_INDEX)
        q->monitorSources.insert(info->index);
    else
        q->inputSources.insert(info->index);
}

void onSourceOutput(pa_context*, const pa_source_output_info* info, int eol, void* userdata) {
    auto* q = static_cast<Query*>(userdata);
    if (eol) {
        q->streamsDone = true;
        return;
    }
    long pid = -1;
    if (const char* text = pa_proplist_gets(info->proplist, PA_PROP_APPLICATION_PROCESS_ID))
        pid = std::strtol(text, nullptr, 10);
    q->streams.append({info->source, info->corked != 0, pid});
}

// Owns the connection's pieces so every exit path frees them.
struct Connection {
    pa_mainloop* loop = pa_mainloop_new();
    pa_context* context = nullptr;
    ~Connection() {
        if (context) {
            pa_context_disconnect(context);
            pa_context_unref(context);
        }
        if (loop)
            pa_mainloop_free(loop);
    }
};

} // namespace

std::optional<PulseReading> readPulseMicrophone(int timeoutMs, const QList<qint64>& alsoOurs) {
    Connection c;
    if (!c.loop)
        return std::nullopt;
    pa_proplist* props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_APPLICATION_NAME, "Tovin call check");
    pa_proplist_sets(props, PA_PROP_APPLICATION_ID, "dev.tovin.Tovin");
    c.context = pa_context_new_with_proplist(pa_mainloop_get_api(c.loop), "Tovin", props);
    pa_proplist_free(props);
    // Never start a sound server just to ask whether one is recording.
    if (!c.context || pa_context_connect(c.context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        return std::nullopt;

    QElapsedTimer clock;
    clock.start();
    // One bounded step of the loop; false when time is up or the loop failed.
    auto step = [&]() {
        const qint64 left = timeoutMs - clock.elapsed();
        if (left <= 0)
            return false;
        if (pa_mainloop_prepare(c.loop, int(left) * 1000) < 0 || pa_mainloop_poll(c.loop) < 0 ||
            pa_mainloop_dispatch(c.loop) < 0)
            return false;
        return true;
    };

    for (;;) {
        const pa_context_state_t state = pa_context_get_state(c.context);
        if (state == PA_CONTEXT_READY)
            break;
        if (!PA_CONTEXT_IS_GOOD(state) || !step())
            return std::nullopt;
    }

    Query q;
    pa_operation* sources = pa_context_get_source_info_list(c.context, onSource, &q);
    pa_operation* outputs = pa_context_get_source_output_info_list(c.context, onSourceOutput, &q);
    bool finished = sources && outputs;
    while (finished && !(q.sourcesDone && q.streamsDone)) {
        if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(c.context)) || !step())
            finished = false;
    }
    if (sources)
        pa_operation_unref(sources);
    if (outputs)
        pa_operation_unref(outputs);
    if (!finished)
        return std::nullopt;

    PulseReading reading;
    reading.inputSources = int(q.inputSources.size());
    const long self = long(::getpid());
    for (const auto& stream : q.streams) {
        if (stream.pid != self && !alsoOurs.contains(qint64(stream.pid)) && !stream.corked &&
            q.inputSources.contains(stream.source)) {
            reading.live = true;
            break;
        }
    }
    return reading;
}

} // namespace tovin

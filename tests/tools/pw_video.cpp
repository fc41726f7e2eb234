// A video stream in a real PipeWire graph, for the call detector's checks: the two ends of a
// camera being read or a screen being shared, as a desktop's programs would make them.
//
//   pw_video source NAME [camera]   a video source (a screen cast, or a camera when marked)
//   pw_video read NAME              a program reading the source named NAME
//
// Both run until killed. The reader links itself to the source, as a portal's client does once
// it is handed the node; nothing waits for the session manager's policy.

#include <cstdio>
#include <cstring>
#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>
#include <string>

namespace {

struct Tool {
    pw_main_loop* loop = nullptr;
    pw_stream* stream = nullptr;
    pw_core* core = nullptr;
    pw_registry* registry = nullptr;
    spa_hook registryListener{};
    spa_hook streamListener{};
    std::string target;
    uint32_t targetNode = SPA_ID_INVALID;
    pw_proxy* link = nullptr;
};

void onProcess(void* data) {
    auto* tool = static_cast<Tool*>(data);
    if (pw_buffer* b = pw_stream_dequeue_buffer(tool->stream)) {
        spa_data& d = b->buffer->datas[0];
        if (d.data && d.chunk) {
            std::memset(d.data, 0x40, d.maxsize);
            d.chunk->offset = 0;
            d.chunk->size = d.maxsize;
            d.chunk->stride = 320 * 4;
        }
        pw_stream_queue_buffer(tool->stream, b);
    }
}

// The reader's own node appears once its ports do; then the link from the source is made.
void linkWhenBothExist(Tool* tool) {
    const uint32_t own = pw_stream_get_node_id(tool->stream);
    if (tool->link || own == SPA_ID_INVALID || tool->targetNode == SPA_ID_INVALID)
        return;
    pw_properties* props = pw_properties_new(nullptr, nullptr);
    pw_properties_setf(props, PW_KEY_LINK_OUTPUT_NODE, "%u", tool->targetNode);
    pw_properties_setf(props, PW_KEY_LINK_INPUT_NODE, "%u", own);
    tool->link = static_cast<pw_proxy*>(pw_core_create_object(
        tool->core, "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK, &props->dict, 0));
    pw_properties_free(props);
    std::printf("linked %u -> %u\n", tool->targetNode, own);
    std::fflush(stdout);
}

void onGlobal(void* data, uint32_t id, uint32_t, const char* type, uint32_t,
              const spa_dict* props) {
    auto* tool = static_cast<Tool*>(data);
    if (std::strcmp(type, PW_TYPE_INTERFACE_Node) != 0 || !props)
        return;
    const char* name = spa_dict_lookup(props, PW_KEY_NODE_NAME);
    if (name && tool->target == name)
        tool->targetNode = id;
    linkWhenBothExist(tool);
}

void onStateChanged(void* data, pw_stream_state, pw_stream_state state, const char* error) {
    auto* tool = static_cast<Tool*>(data);
    std::printf("state %s%s%s\n", pw_stream_state_as_string(state), error ? " " : "",
                error ? error : "");
    std::fflush(stdout);
    if (state == PW_STREAM_STATE_PAUSED || state == PW_STREAM_STATE_STREAMING)
        linkWhenBothExist(tool);
}

const pw_registry_events registryEvents = {
    .version = PW_VERSION_REGISTRY_EVENTS,
    .global = onGlobal,
    .global_remove = nullptr,
};

pw_stream_events streamEvents() {
    pw_stream_events e{};
    e.version = PW_VERSION_STREAM_EVENTS;
    e.state_changed = onStateChanged;
    e.process = onProcess;
    return e;
}
const pw_stream_events events = streamEvents();

} // namespace

int main(int argc, char** argv) {
    if (argc < 3 || (std::strcmp(argv[1], "source") != 0 && std::strcmp(argv[1], "read") != 0)) {
        std::fprintf(stderr, "usage: pw_video source NAME [camera] | read NAME\n");
        return 2;
    }
    const bool source = std::strcmp(argv[1], "source") == 0;
    pw_init(&argc, &argv);
    Tool tool;
    tool.loop = pw_main_loop_new(nullptr);

    pw_properties* props = pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", nullptr);
    if (source) {
        pw_properties_set(props, PW_KEY_NODE_NAME, argv[2]);
        pw_properties_set(props, PW_KEY_MEDIA_CLASS, "Video/Source");
        if (argc > 3 && std::strcmp(argv[3], "camera") == 0)
            pw_properties_set(props, PW_KEY_MEDIA_ROLE, "Camera");
    } else {
        pw_properties_set(props, PW_KEY_NODE_NAME, "pw_video-reader");
        pw_properties_set(props, PW_KEY_MEDIA_CATEGORY, "Capture");
        tool.target = argv[2];
    }
    pw_context* context = pw_context_new(pw_main_loop_get_loop(tool.loop), nullptr, 0);
    tool.core = pw_context_connect(context, nullptr, 0);
    if (!tool.core) {
        std::fprintf(stderr, "pw_video: no PipeWire daemon to connect to\n");
        return 1;
    }
    tool.stream = pw_stream_new(tool.core, source ? argv[2] : "pw_video-reader", props);
    pw_stream_add_listener(tool.stream, &tool.streamListener, &events, &tool);

    uint8_t buffer[1024];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    spa_video_info_raw info{};
    info.format = SPA_VIDEO_FORMAT_RGBx;
    info.size = SPA_RECTANGLE(320, 240);
    info.framerate = SPA_FRACTION(10, 1);
    const spa_pod* params[] = {spa_format_video_raw_build(&b, SPA_PARAM_EnumFormat, &info)};

    if (!source) {
        tool.registry = pw_core_get_registry(tool.core, PW_VERSION_REGISTRY, 0);
        pw_registry_add_listener(tool.registry, &tool.registryListener, &registryEvents, &tool);
    }
    const auto flags = static_cast<pw_stream_flags>(
        PW_STREAM_FLAG_MAP_BUFFERS | (source ? PW_STREAM_FLAG_DRIVER : PW_STREAM_FLAG_NONE));
    pw_stream_connect(tool.stream, source ? PW_DIRECTION_OUTPUT : PW_DIRECTION_INPUT, PW_ID_ANY,
                      flags, params, 1);
    pw_main_loop_run(tool.loop);
    return 0;
}

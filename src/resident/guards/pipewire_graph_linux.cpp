#include "resident/guards/media_graph.h"

#include <QElapsedTimer>

#include <cerrno>
#include <cstring>
#include <pipewire/pipewire.h>

namespace tovin {

namespace {

QString text(const spa_dict* props, const char* key) {
    const char* value = spa_dict_lookup(props, key);
    return value ? QString::fromUtf8(value) : QString();
}

quint32 id(const spa_dict* props, const char* key) {
    bool ok = false;
    const quint32 value = text(props, key).toUInt(&ok);
    return ok ? value : SPA_ID_INVALID;
}

// Everything the registry announces up to the answer to one sync: the whole graph as it stood.
struct Snapshot {
    MediaGraph graph;
    int syncSeq = 0;
    bool done = false;
    bool failed = false;
};

void onGlobal(void* data, uint32_t globalId, uint32_t, const char* type, uint32_t,
              const spa_dict* props) {
    auto* s = static_cast<Snapshot*>(data);
    if (!props)
        return;
    if (std::strcmp(type, PW_TYPE_INTERFACE_Node) == 0) {
        MediaGraph::Node& n = s->graph.nodes[globalId];
        n.mediaClass = text(props, PW_KEY_MEDIA_CLASS);
        n.name = text(props, PW_KEY_NODE_NAME);
        n.role = text(props, PW_KEY_MEDIA_ROLE);
        n.application = text(props, PW_KEY_APP_NAME);
        n.isDevice = spa_dict_lookup(props, PW_KEY_DEVICE_ID) != nullptr;
        n.client = id(props, PW_KEY_CLIENT_ID);
    } else if (std::strcmp(type, PW_TYPE_INTERFACE_Client) == 0) {
        MediaGraph::Client& c = s->graph.clients[globalId];
        c.pid = text(props, PW_KEY_SEC_PID).toLongLong();
        c.application = text(props, PW_KEY_APP_NAME);
    } else if (std::strcmp(type, PW_TYPE_INTERFACE_Link) == 0) {
        s->graph.links.insert(
            globalId, {id(props, PW_KEY_LINK_OUTPUT_NODE), id(props, PW_KEY_LINK_INPUT_NODE)});
    }
}

void onGlobalRemove(void* data, uint32_t globalId) {
    auto* s = static_cast<Snapshot*>(data);
    s->graph.nodes.remove(globalId);
    s->graph.clients.remove(globalId);
    s->graph.links.remove(globalId);
}

void onDone(void* data, uint32_t objectId, int seq) {
    auto* s = static_cast<Snapshot*>(data);
    if (objectId == PW_ID_CORE && seq == s->syncSeq)
        s->done = true;
}

void onError(void* data, uint32_t objectId, int, int, const char*) {
    // The core's own errors end the connection (a daemon going away); others are about objects
    // this snapshot never touched.
    if (objectId == PW_ID_CORE)
        static_cast<Snapshot*>(data)->failed = true;
}

pw_registry_events registryEvents() {
    pw_registry_events e{};
    e.version = PW_VERSION_REGISTRY_EVENTS;
    e.global = onGlobal;
    e.global_remove = onGlobalRemove;
    return e;
}

pw_core_events coreEvents() {
    pw_core_events e{};
    e.version = PW_VERSION_CORE_EVENTS;
    e.done = onDone;
    e.error = onError;
    return e;
}

} // namespace

std::optional<MediaGraph> readPipeWireGraph(int timeoutMs) {
    static const pw_registry_events registryListener = registryEvents();
    static const pw_core_events coreListener = coreEvents();
    // Once per process: it reads the library's own settings and is never undone.
    static const bool initialised = [] {
        pw_init(nullptr, nullptr);
        return true;
    }();
    Q_UNUSED(initialised);

    // Everything is made for this one look and torn down after it: between looks Tovin keeps no
    // connection, thread or timer of PipeWire's, so an idle resident stays idle.
    pw_loop* loop = pw_loop_new(nullptr);
    if (!loop)
        return std::nullopt;
    pw_context* context = pw_context_new(loop, nullptr, 0);
    pw_core* core = context ? pw_context_connect(context, nullptr, 0) : nullptr;
    std::optional<MediaGraph> result;
    if (core) {
        Snapshot snapshot;
        spa_hook coreHook{};
        spa_hook registryHook{};
        pw_core_add_listener(core, &coreHook, &coreListener, &snapshot);
        pw_registry* registry = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
        if (registry) {
            pw_registry_add_listener(registry, &registryHook, &registryListener, &snapshot);
            snapshot.syncSeq = pw_core_sync(core, PW_ID_CORE, 0);

            QElapsedTimer clock;
            clock.start();
            pw_loop_enter(loop);
            while (!snapshot.done && !snapshot.failed) {
                const qint64 left = timeoutMs - clock.elapsed();
                if (left <= 0)
                    break;
                // A signal landing on the wait is no answer either way: wait out the rest.
                if (const int n = pw_loop_iterate(loop, int(left)); n < 0 && n != -EINTR)
                    break;
            }
            pw_loop_leave(loop);
            if (snapshot.done && !snapshot.failed)
                result = std::move(snapshot.graph);
            spa_hook_remove(&registryHook);
            pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
        }
        spa_hook_remove(&coreHook);
        pw_core_disconnect(core);
    }
    if (context)
        pw_context_destroy(context);
    pw_loop_destroy(loop);
    return result;
}

} // namespace tovin

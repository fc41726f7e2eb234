#include "resident/guards/idle_source_wayland.h"

#include "ext-idle-notify-v1-client-protocol.h"
#include "kde-idle-client-protocol.h"

#include <QSocketNotifier>

#include <cstring>
#include <wayland-client.h>

namespace tovin {

namespace {

WaylandIdleSource* sourceOf(void* data) {
    return static_cast<WaylandIdleSource*>(data);
}

const wl_registry_listener registryListener = {
    [](void* data, wl_registry* registry, uint32_t id, const char* interface, uint32_t version) {
        sourceOf(data)->offered(registry, id, interface, version);
    },
    [](void*, wl_registry*, uint32_t) {},
};

const ext_idle_notification_v1_listener notificationListener = {
    [](void* data, ext_idle_notification_v1*) { sourceOf(data)->idled(); },
    [](void* data, ext_idle_notification_v1*) { sourceOf(data)->resumed(); },
};

const org_kde_kwin_idle_timeout_listener kdeTimeoutListener = {
    [](void* data, org_kde_kwin_idle_timeout*) { sourceOf(data)->idled(); },
    [](void* data, org_kde_kwin_idle_timeout*) { sourceOf(data)->resumed(); },
};

} // namespace

std::unique_ptr<WaylandIdleSource> WaylandIdleSource::open() {
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return nullptr;
    wl_display* display = wl_display_connect(nullptr);
    if (!display)
        return nullptr;
    std::unique_ptr<WaylandIdleSource> source(new WaylandIdleSource(display));
    if (!source->listen())
        return nullptr;
    return source;
}

WaylandIdleSource::WaylandIdleSource(wl_display* display)
    : display_(display) {
    monotonic_.start();
}

WaylandIdleSource::~WaylandIdleSource() {
    reader_.reset();
    if (notification_)
        ext_idle_notification_v1_destroy(notification_);
    if (notifier_)
        ext_idle_notifier_v1_destroy(notifier_);
    if (kdeTimeout_)
        org_kde_kwin_idle_timeout_release(kdeTimeout_);
    if (kdeIdle_)
        org_kde_kwin_idle_destroy(kdeIdle_);
    if (seat_)
        wl_seat_destroy(seat_);
    if (registry_)
        wl_registry_destroy(registry_);
    wl_display_disconnect(display_);
}

void WaylandIdleSource::offered(wl_registry* registry, uint32_t id, const char* interface,
                                uint32_t version) {
    Q_UNUSED(version);
    if (!seat_ && std::strcmp(interface, wl_seat_interface.name) == 0)
        seat_ = static_cast<wl_seat*>(wl_registry_bind(registry, id, &wl_seat_interface, 1));
    else if (std::strcmp(interface, ext_idle_notifier_v1_interface.name) == 0)
        notifier_ = static_cast<ext_idle_notifier_v1*>(
            wl_registry_bind(registry, id, &ext_idle_notifier_v1_interface, 1));
    else if (std::strcmp(interface, org_kde_kwin_idle_interface.name) == 0)
        kdeIdle_ = static_cast<org_kde_kwin_idle*>(
            wl_registry_bind(registry, id, &org_kde_kwin_idle_interface, 1));
}

bool WaylandIdleSource::listen() {
    registry_ = wl_display_get_registry(display_);
    wl_registry_add_listener(registry_, &registryListener, this);
    if (wl_display_roundtrip(display_) < 0 || !seat_)
        return false;
    // The standard protocol where there is one; KDE's otherwise.
    if (notifier_) {
        notification_ = ext_idle_notifier_v1_get_idle_notification(notifier_, timeoutMs, seat_);
        ext_idle_notification_v1_add_listener(notification_, &notificationListener, this);
    } else if (kdeIdle_) {
        kdeTimeout_ = org_kde_kwin_idle_get_idle_timeout(kdeIdle_, seat_, timeoutMs);
        org_kde_kwin_idle_timeout_add_listener(kdeTimeout_, &kdeTimeoutListener, this);
    } else {
        return false;
    }
    if (wl_display_roundtrip(display_) < 0)
        return false;
    reader_ = std::make_unique<QSocketNotifier>(wl_display_get_fd(display_), QSocketNotifier::Read);
    connect(reader_.get(), &QSocketNotifier::activated, this, &WaylandIdleSource::readEvents);
    return true;
}

void WaylandIdleSource::readEvents() {
    // Never blocks: the socket is read only for what is already on it (a reading may have
    // taken the words the notifier woke us for). A compositor that went away leaves nothing to
    // listen to: the reading is "not idle" from then on.
    wl_display_dispatch_pending(display_);
    if (wl_display_prepare_read(display_) == 0) {
        wl_display_flush(display_);
        wl_display_read_events(display_);
        wl_display_dispatch_pending(display_);
    }
    if (wl_display_get_error(display_) != 0) {
        reader_.reset();
        idleSinceMs_.reset();
    }
}

void WaylandIdleSource::idled() {
    idleSinceMs_ = monotonic_.elapsed() - timeoutMs;
}

void WaylandIdleSource::resumed() {
    idleSinceMs_.reset();
}

double WaylandIdleSource::secondsSinceLastInput() {
    // Words already on the socket count before the reading: a one-shot report has no event
    // loop turning in between.
    if (reader_)
        readEvents();
    if (!idleSinceMs_)
        return 0;
    return double(monotonic_.elapsed() - *idleSinceMs_) / 1000.0;
}

QString WaylandIdleSource::name() const {
    return notifier_ ? QStringLiteral("the compositor's idle notifications (ext-idle-notify)")
                     : QStringLiteral("the compositor's idle notifications (org_kde_kwin_idle)");
}

} // namespace tovin

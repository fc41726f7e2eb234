#include "resident/guards/idle_source_dbus.h"
#include "resident/guards/idle_source_wayland.h"
#include "resident/guards/idle_source_x11.h"
#include "resident/guards/platform_guards.h"

namespace tovin {

namespace {
class NoIdleSource final : public IdleSource {
public:
    double secondsSinceLastInput() override { return 0; }
    QString name() const override { return QStringLiteral("none"); }
};
} // namespace

std::unique_ptr<IdleSource> createPlatformIdleSource() {
    // In a Wayland session only the compositor hears every key. An X server may run beside it
    // (XWayland), but it hears only its own clients: the person typing in any other window
    // would read as away. So a Wayland session asks the compositor (its idle notifications, or
    // the desktop's monitor over D-Bus) and never falls back to X.
    const bool wayland =
        !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") || qgetenv("XDG_SESSION_TYPE") == "wayland";
    if (wayland) {
        if (auto dbus = DBusIdleSource::open(QDBusConnection::sessionBus()))
            return dbus;
        if (auto compositor = WaylandIdleSource::open())
            return compositor;
        return std::make_unique<NoIdleSource>();
    }
    if (!qEnvironmentVariableIsEmpty("DISPLAY")) {
        if (auto x11 = X11IdleSource::open())
            return x11;
    }
    if (auto dbus = DBusIdleSource::open(QDBusConnection::sessionBus()))
        return dbus;
    return std::make_unique<NoIdleSource>();
}

} // namespace tovin

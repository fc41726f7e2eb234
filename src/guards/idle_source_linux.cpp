#include "guards/idle_source_dbus.h"
#include "guards/idle_source_x11.h"
#include "guards/platform_guards.h"

namespace tovin {

namespace {
class NoIdleSource final : public IdleSource {
public:
    double secondsSinceLastInput() override { return 0; }
    QString name() const override { return QStringLiteral("none"); }
};
} // namespace

std::unique_ptr<IdleSource> createPlatformIdleSource() {
    // On Wayland an X server may still run (XWayland), but it only sees its own clients' input,
    // so the desktop's monitor comes first there.
    const bool wayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    if (wayland) {
        if (auto dbus = DBusIdleSource::open(QDBusConnection::sessionBus()))
            return dbus;
    }
    if (!qEnvironmentVariableIsEmpty("DISPLAY")) {
        if (auto x11 = X11IdleSource::open())
            return x11;
    }
    if (!wayland) {
        if (auto dbus = DBusIdleSource::open(QDBusConnection::sessionBus()))
            return dbus;
    }
    return std::make_unique<NoIdleSource>();
}

} // namespace tovin

#include "screens/shield/shield_platform.h"

#include <QGuiApplication>

namespace tovin {

// Each window system's file makes its own; null when this process does not run on it.
std::unique_ptr<ShieldPlatform> makeX11ShieldPlatform();
#ifdef TOVIN_HAS_WAYLAND
std::unique_ptr<ShieldPlatform> makeWaylandShieldPlatform(QObject* owner);
#endif

namespace {

// No window system to ask (offscreen, a port not yet written): nothing to hold, and the focus
// leaving is taken as the system taking the screen, as under a grab.
class NoShieldPlatform final : public ShieldPlatform {
public:
    bool hold(const QList<QWindow*>&) override { return true; }
    void release() override {}
    bool focusLossMeansYield() const override { return true; }
};

} // namespace

std::unique_ptr<ShieldPlatform> ShieldPlatform::create([[maybe_unused]] QObject* owner) {
    const QString name = QGuiApplication::platformName();
    std::unique_ptr<ShieldPlatform> platform;
    if (name == u"xcb")
        platform = makeX11ShieldPlatform();
#ifdef TOVIN_HAS_WAYLAND
    else if (name.startsWith(u"wayland"))
        platform = makeWaylandShieldPlatform(owner);
#endif
    if (!platform)
        platform = std::make_unique<NoShieldPlatform>();
    return platform;
}

} // namespace tovin

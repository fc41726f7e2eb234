#include "desktop/desktop_hold.h"
#include "desktop/window_system.h"

#include <QDir>
#include <QLibraryInfo>

#include <cstring>
#include <wayland-client.h>

namespace tovin::WindowSystem {

using namespace Qt::Literals::StringLiterals;

Session session() {
    if (!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
        qEnvironmentVariable("XDG_SESSION_TYPE") == u"wayland")
        return Session::Wayland;
    if (!qEnvironmentVariableIsEmpty("DISPLAY"))
        return Session::X11;
    return Session::None;
}

namespace {

bool waylandPluginInstalled() {
    const QDir platforms(QLibraryInfo::path(QLibraryInfo::PluginsPath) + u"/platforms");
    return !platforms.entryList({QStringLiteral("libqwayland-*")}, QDir::Files).isEmpty();
}

} // namespace

QString chooseNativePlatform() {
    if (session() != Session::Wayland)
        return {};
    const QString asked = qEnvironmentVariable("QT_QPA_PLATFORM");
    // Tests and tools choose offscreen or minimal on purpose; only the X11 path is overridden.
    if (!asked.isEmpty() && !asked.startsWith(u"xcb"))
        return {};
    if (!waylandPluginInstalled()) {
        return QStringLiteral("Wayland session, but Qt's Wayland platform (qt6-wayland) is not "
                              "installed — drawing through Xwayland, where the shield cannot "
                              "hold the keyboard");
    }
    qputenv("QT_QPA_PLATFORM", "wayland");
    if (asked.isEmpty())
        return QStringLiteral("Wayland session — drawing natively on Wayland");
    return u"Wayland session — drawing natively on Wayland, not through Xwayland as "
           u"QT_QPA_PLATFORM=" +
           asked + u" asked: an X keyboard grab holds nothing there";
}

WaylandOffers waylandOffers() {
    WaylandOffers offers;
    wl_display* display = wl_display_connect(nullptr);
    if (!display)
        return offers;
    offers.reachable = true;
    wl_registry* registry = wl_display_get_registry(display);
    static const wl_registry_listener listener = {
        [](void* data, wl_registry*, uint32_t, const char* interface, uint32_t) {
            auto* found = static_cast<WaylandOffers*>(data);
            if (std::strcmp(interface, "zwp_keyboard_shortcuts_inhibit_manager_v1") == 0)
                found->shortcutsInhibit = true;
            else if (std::strcmp(interface, "xdg_activation_v1") == 0)
                found->activation = true;
        },
        [](void*, wl_registry*, uint32_t) {},
    };
    wl_registry_add_listener(registry, &listener, &offers);
    wl_display_roundtrip(display);
    wl_registry_destroy(registry);
    wl_display_disconnect(display);
    return offers;
}

QString describeHold() {
    switch (session()) {
    case Session::X11:
        return QStringLiteral("X11 — the shield owns the keyboard and the pointer while it is "
                              "up, and stays above every other window");
    case Session::None:
        return QStringLiteral("no desktop found (neither WAYLAND_DISPLAY nor DISPLAY is set)");
    case Session::Wayland:
        break;
    }
    const WaylandOffers offers = waylandOffers();
    if (!offers.reachable)
        return QStringLiteral("Wayland session, but its compositor does not answer");
    QString line = u"Wayland, drawn natively (not through Xwayland) — no program can own the "
                   u"keyboard here; "_s;
    const auto extension = DesktopHold::desktop() == DesktopHold::Desktop::Gnome
                               ? DesktopHold::gnomeExtension()
                               : DesktopHold::Extension::NoShell;
    if (extension != DesktopHold::Extension::NoShell && extension != DesktopHold::Extension::On &&
        !DesktopHold::gnomeAllowsShortcutsInhibitor())
        line += u"GNOME's own shortcuts (the Overview, switching windows) still work over the "
                u"shield: GNOME would ask about them over the shield, where Esc would answer"_s;
    else if (offers.shortcutsInhibit)
        line += u"the compositor's own shortcuts (a new terminal, switching windows or "
                u"workspaces) are held while the shield has the focus";
    else
        line += u"this compositor offers no way to hold its shortcuts, so its own keys (a new "
                u"terminal, switching windows or workspaces) still work over the shield";
    // What the desktop's own helper holds replaces what the shield can only ask for.
    if (!DesktopHold::holdsShield())
        line += offers.activation ? u"; a window another program raises can take the focus, and "
                                    u"the shield asks for it back (the compositor decides)"_s
                                  : u"; a window another program raises can take the focus, and "
                                    u"the shield cannot ask for it back"_s;
    return line + u"; " + DesktopHold::describe();
}

} // namespace tovin::WindowSystem

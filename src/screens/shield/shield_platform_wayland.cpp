#include "desktop/desktop_hold.h"
#include "qwayland-keyboard-shortcuts-inhibit-unstable-v1.h"
#include "screens/shield/shield_platform.h"
#include "xdg-shell-client-protocol.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QHash>
#include <QPointer>
#include <QScreen>
#include <QtWaylandClient/QWaylandClientExtensionTemplate>
#include <qpa/qplatformnativeinterface.h>

namespace tovin {

namespace {

// The compositor's keyboard-shortcuts-inhibit manager, bound once per process through Qt's
// own Wayland connection (the inhibitor must name Qt's surfaces, which only that connection
// knows).
class ShortcutsInhibitManager final
    : public QWaylandClientExtensionTemplate<ShortcutsInhibitManager>,
      public QtWayland::zwp_keyboard_shortcuts_inhibit_manager_v1 {
public:
    ShortcutsInhibitManager()
        : QWaylandClientExtensionTemplate(1) {
        initialize();
    }
    ~ShortcutsInhibitManager() override {
        if (isActive())
            destroy();
    }

    // The owner's binding, made at its first raise: the compositor announces the global once,
    // so a binding made at each raise would not be ready in time.
    static ShortcutsInhibitManager* of(QObject* owner) {
        auto* manager =
            owner->findChild<ShortcutsInhibitManager*>(QString(), Qt::FindDirectChildrenOnly);
        if (!manager) {
            manager = new ShortcutsInhibitManager;
            manager->setParent(owner);
        }
        return manager;
    }
};

// One surface's inhibitor. The compositor says when it takes effect (the surface has the
// keyboard focus) and when it stops.
class ShortcutsInhibitor final : public QtWayland::zwp_keyboard_shortcuts_inhibitor_v1 {
public:
    ShortcutsInhibitor(::zwp_keyboard_shortcuts_inhibitor_v1* object,
                       std::function<void(bool)> changed)
        : zwp_keyboard_shortcuts_inhibitor_v1(object)
        , changed_(std::move(changed)) {}
    ~ShortcutsInhibitor() override { destroy(); }

protected:
    void zwp_keyboard_shortcuts_inhibitor_v1_active() override { changed_(true); }
    void zwp_keyboard_shortcuts_inhibitor_v1_inactive() override { changed_(false); }

private:
    std::function<void(bool)> changed_;
};

// Whether a screen locker holds the session, asked of whoever keeps that word on this desktop:
// logind's LockedHint (set by GNOME, KDE and lockers that report to it), then the desktop's
// screen saver service. Short timeouts: this is asked while the focus is away from the shield.
QString askWhoLocked() {
    constexpr int timeoutMs = 250;
    QDBusMessage hint = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"),
        QStringLiteral("/org/freedesktop/login1/session/auto"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    hint << QStringLiteral("org.freedesktop.login1.Session") << QStringLiteral("LockedHint");
    const QDBusMessage hintReply = QDBusConnection::systemBus().call(hint, QDBus::Block, timeoutMs);
    if (hintReply.type() == QDBusMessage::ReplyMessage && !hintReply.arguments().isEmpty() &&
        hintReply.arguments().first().value<QDBusVariant>().variant().toBool())
        return QStringLiteral("logind");
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return {};
    for (const auto& [service, path] :
         {std::pair{"org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver"},
          std::pair{"org.gnome.ScreenSaver", "/org/gnome/ScreenSaver"}}) {
        const QString name = QString::fromLatin1(service);
        const QDBusMessage ask = QDBusMessage::createMethodCall(name, QString::fromLatin1(path),
                                                                name, QStringLiteral("GetActive"));
        const QDBusMessage reply = bus.call(ask, QDBus::Block, timeoutMs);
        if (reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty() &&
            reply.arguments().first().toBool())
            return name;
    }
    return {};
}

// Wayland lets no program own the keyboard. The strongest thing a client may do is ask the
// compositor, per surface, to pass its own shortcuts (a new terminal, switching windows or
// workspaces) to that surface while it has the focus: every shield window asks.
class WaylandShieldPlatform final : public ShieldPlatform {
public:
    explicit WaylandShieldPlatform(QObject* owner)
        : owner_(owner) {}

    bool hold(const QList<QWindow*>& windows) override {
        if (!notedKeyboard_) {
            notedKeyboard_ = true;
            Q_EMIT noted(QStringLiteral("this desktop (Wayland) lets no app own the keyboard — "
                                        "covering the screens without a keyboard grab"));
            // A KWin that was not answering when Tovin started (a slow log-in) gets the script
            // now, while it can still help.
            if (DesktopHold::desktop() == DesktopHold::Desktop::Kde && !DesktopHold::holdsShield())
                Q_EMIT noted(DesktopHold::loadKWinScript());
            else
                Q_EMIT noted(DesktopHold::describe());
            askInhibitor_ = shouldAskInhibitor();
        }
        if (!askInhibitor_)
            return true;
        ShortcutsInhibitManager* manager = ShortcutsInhibitManager::of(owner_);
        if (!manager->isActive()) {
            if (!notedNoInhibit_) {
                notedNoInhibit_ = true;
                Q_EMIT noted(QStringLiteral("this compositor cannot hold its own shortcuts for the "
                                            "shield — its keys still work over it"));
            }
            return true;
        }
        QPlatformNativeInterface* native = QGuiApplication::platformNativeInterface();
        auto* seat = static_cast<::wl_seat*>(
            native ? native->nativeResourceForIntegration("wl_seat") : nullptr);
        if (!seat)
            return false;
        bool all = true;
        for (QWindow* window : windows) {
            if (!window || inhibitors_.contains(window))
                continue;
            auto* surface =
                static_cast<::wl_surface*>(native->nativeResourceForWindow("surface", window));
            if (!surface) {
                all = false; // not created yet
                continue;
            }
            inhibitors_.insert(window, std::make_shared<ShortcutsInhibitor>(
                                           manager->inhibit_shortcuts(surface, seat),
                                           [this](bool active) { inhibitorChanged(active); }));
        }
        return all;
    }

    void release() override { inhibitors_.clear(); }

    // No request gives a client the focus on Wayland, and activation tokens are only advice
    // (sway marks the window urgent). Asking again for full screen on the window's output is
    // what compositors act on: they put the window back over that output's current workspace,
    // full screen, and focus it when that workspace has the focus. Qt sends the request only
    // when its own state changes, so it is sent here on Qt's toplevel, after an unset that the
    // compositor handles in the same dispatch (nothing is drawn in between).
    void reclaimFocus(const QList<ShieldSurface>& surfaces) override {
        QPlatformNativeInterface* native = QGuiApplication::platformNativeInterface();
        if (!native)
            return;
        // The main window last: where two outputs' workspaces could take the focus, it wins.
        for (qsizetype i = surfaces.size() - 1; i >= 0; --i) {
            const ShieldSurface& surface = surfaces[i];
            // The output it was made for, not the one Qt last saw it on, which a compositor
            // that moved it may have changed.
            if (!surface.window || !surface.screen)
                continue;
            auto* toplevel = static_cast<::xdg_toplevel*>(
                native->nativeResourceForWindow("xdg_toplevel", surface.window));
            auto* output = static_cast<::wl_output*>(
                native->nativeResourceForScreen("output", surface.screen));
            if (!toplevel || !output)
                continue;
            xdg_toplevel_unset_fullscreen(toplevel);
            xdg_toplevel_set_fullscreen(toplevel, output);
        }
        if (QWindow* main = surfaces.value(0).window)
            main->requestActivate();
    }

    bool focusLossMeansYield() const override { return false; }
    QString sessionLockedBy() const override { return askWhoLocked(); }

private:
    // On GNOME the inhibitor is asked for only where GNOME will not put up a dialog over the
    // shield: its extension holds the shortcuts itself, and without it only a stored "Allow"
    // keeps the dialog away.
    bool shouldAskInhibitor() {
        if (DesktopHold::desktop() != DesktopHold::Desktop::Gnome)
            return true;
        const DesktopHold::Extension extension = DesktopHold::gnomeExtension();
        if (extension == DesktopHold::Extension::On)
            return false;
        // Not GNOME Shell after all (a desktop that only calls itself GNOME): no dialog there.
        if (extension == DesktopHold::Extension::NoShell)
            return true;
        if (DesktopHold::gnomeAllowsShortcutsInhibitor())
            return true;
        Q_EMIT noted(QStringLiteral("GNOME would ask over the shield whether to pass it its "
                                    "shortcuts, and Esc would answer: not asked"));
        return false;
    }

    void inhibitorChanged(bool active) {
        if (active && !notedHeld_) {
            notedHeld_ = true;
            Q_EMIT noted(QStringLiteral("the compositor holds its own shortcuts while the shield "
                                        "has the focus"));
        }
    }

    QObject* owner_;
    QHash<QWindow*, std::shared_ptr<ShortcutsInhibitor>> inhibitors_;
    bool notedKeyboard_ = false;
    bool askInhibitor_ = true;
    bool notedNoInhibit_ = false;
    bool notedHeld_ = false;
};

} // namespace

std::unique_ptr<ShieldPlatform> makeWaylandShieldPlatform(QObject* owner) {
    return std::make_unique<WaylandShieldPlatform>(owner);
}

} // namespace tovin

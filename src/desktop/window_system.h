#pragma once

#include <QString>

namespace tovin::WindowSystem {

enum class Session { X11, Wayland, None };

// The desktop this process was started in, read from its environment.
Session session();

// Run before the QApplication exists. In a Wayland session Tovin draws natively on Wayland:
// through Xwayland the shield's keyboard grab would hold nothing, since Wayland programs never
// see X grabs. Returns a line for the journal saying what was chosen (empty when there is
// nothing to say: an X11 session, or a platform set for tests such as offscreen).
QString chooseNativePlatform();

// What the compositor offers that the shield can use, asked of its registry.
struct WaylandOffers {
    bool reachable = false;
    bool shortcutsInhibit = false; // zwp_keyboard_shortcuts_inhibit_manager_v1
    bool activation = false;       // xdg_activation_v1: taking the focus back
};
WaylandOffers waylandOffers();

// One line, for `--why`: what the shield holds on this desktop and what it cannot.
QString describeHold();

} // namespace tovin::WindowSystem

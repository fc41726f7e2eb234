#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QWindow>

#include <functional>
#include <memory>

class QScreen;

namespace tovin {

// One of the shield's windows and the display it was made to cover.
struct ShieldSurface {
    QWindow* window = nullptr;
    QScreen* screen = nullptr;
};

// What this window system lets the shield hold while it is up, behind one small interface:
// X11 grabs the keyboard and the pointer and keeps the shield above new windows; Wayland lets
// no program own the keyboard, so there the shield asks the compositor to hold its own
// shortcuts while a shield window has the focus.
class ShieldPlatform : public QObject {
    Q_OBJECT
public:
    // The platform for this session's window system (nothing held where there is none), for
    // one raise. What outlives a raise (the compositor's bindings) is kept as children of
    // `owner`, the shield that raises again and again.
    static std::unique_ptr<ShieldPlatform> create(QObject* owner);

    // Takes the keyboard for the shield's windows, the main one first. False while it cannot
    // yet (a window is only grabbable once mapped): the caller tries again shortly.
    virtual bool hold(const QList<QWindow*>& windows) = 0;
    virtual void release() = 0;
    // Whether the keyboard itself is owned right now (an X grab).
    virtual bool ownsKeyboard() const { return false; }
    // Whether the focus leaving the shield is proof the system took the screen. Under an X
    // grab only a screen locker or the like can take it. On Wayland any program's new window
    // can, so there the shield stays up, asks for the focus back, and gives way only to a
    // locked session.
    virtual bool focusLossMeansYield() const = 0;
    // Asks for the focus back after another window took it (the main window first).
    virtual void reclaimFocus(const QList<ShieldSurface>& surfaces) {
        if (QWindow* main = surfaces.value(0).window) {
            main->raise();
            main->requestActivate();
        }
    }
    // Whether a screen locker holds the session now, and whose word that is ("" when not).
    virtual QString sessionLockedBy() const { return {}; }
    // Calls `restack` when a window that is not ours appears or moves in the stacking order,
    // where the window system lets a client see that (X11).
    virtual void watchStacking(std::function<bool(WId)> isOurs, std::function<void()> restack) {
        Q_UNUSED(isOurs);
        Q_UNUSED(restack);
    }
    virtual void stopWatchingStacking() {}

Q_SIGNALS:
    // Something the journal should know about what is held ("compositor shortcuts held…").
    void noted(const QString& text);
};

} // namespace tovin

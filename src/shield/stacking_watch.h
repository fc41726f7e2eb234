#pragma once

#include <QWindow>

#include <functional>
#include <memory>

namespace tovin {

// Keeps the shield above windows that appear after it: another program's popup or a
// notification that bypasses the window manager, or a window mapped behind the keyboard grab.
// Where the window system lets a client watch the whole desktop's stacking (X11), every new or
// restacked window that is not ours calls `restack`; elsewhere it watches nothing.
class StackingWatch {
public:
    virtual ~StackingWatch() = default;
    virtual void start(std::function<bool(WId)> isOurs, std::function<void()> restack) = 0;
    virtual void stop() = 0;

    // The watch for this session's window system.
    static std::unique_ptr<StackingWatch> create();
};

} // namespace tovin

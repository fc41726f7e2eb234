#include "resident/guards/idle_source_x11.h"

// Xlib's macros (None, Bool, Status…) collide with Qt; they stay inside this file.
#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>

namespace tovin {

struct X11IdleSource::Private {
    Display* display = nullptr;
    XScreenSaverInfo* info = nullptr;
    ~Private() {
        if (info)
            XFree(info);
        if (display)
            XCloseDisplay(display);
    }
};

X11IdleSource::X11IdleSource(std::unique_ptr<Private> d)
    : d_(std::move(d)) {
}
X11IdleSource::~X11IdleSource() = default;

std::unique_ptr<X11IdleSource> X11IdleSource::open(const QByteArray& display) {
    auto d = std::make_unique<Private>();
    d->display = XOpenDisplay(display.isEmpty() ? nullptr : display.constData());
    if (!d->display)
        return nullptr;
    int eventBase = 0;
    int errorBase = 0;
    if (!XScreenSaverQueryExtension(d->display, &eventBase, &errorBase))
        return nullptr;
    d->info = XScreenSaverAllocInfo();
    if (!d->info)
        return nullptr;
    return std::unique_ptr<X11IdleSource>(new X11IdleSource(std::move(d)));
}

double X11IdleSource::secondsSinceLastInput() {
    if (!XScreenSaverQueryInfo(d_->display, DefaultRootWindow(d_->display), d_->info))
        return 0;
    return double(d_->info->idle) / 1000.0;
}

} // namespace tovin

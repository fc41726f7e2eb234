#include "shield/stacking_watch.h"

#include <QAbstractNativeEventFilter>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>

#include <xcb/xcb.h>

namespace tovin {

namespace {

class NoStackingWatch final : public StackingWatch {
public:
    void start(std::function<bool(WId)>, std::function<void()>) override {}
    void stop() override {}
};

// Selects SubstructureNotify on the root window over Qt's own connection, so the maps and
// restacks of every top-level window arrive in Qt's event stream, and raises the shield when a
// window that is not ours appears or moves in the stack. The root's event mask is per client:
// Qt's own selection is kept and put back as it was.
class X11StackingWatch final : public StackingWatch, public QAbstractNativeEventFilter {
public:
    explicit X11StackingWatch(xcb_connection_t* connection)
        : connection_(connection) {
        root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
    }
    ~X11StackingWatch() override { stop(); }

    void start(std::function<bool(WId)> isOurs, std::function<void()> restack) override {
        if (watching_)
            return;
        isOurs_ = std::move(isOurs);
        restack_ = std::move(restack);
        auto cookie = xcb_get_window_attributes(connection_, root_);
        xcb_get_window_attributes_reply_t* reply =
            xcb_get_window_attributes_reply(connection_, cookie, nullptr);
        if (!reply)
            return;
        previousMask_ = reply->your_event_mask;
        free(reply);
        const uint32_t mask = previousMask_ | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection_, root_, XCB_CW_EVENT_MASK, &mask);
        xcb_flush(connection_);
        qApp->installNativeEventFilter(this);
        watching_ = true;
        window_.start();
    }

    void stop() override {
        if (!watching_)
            return;
        watching_ = false;
        qApp->removeNativeEventFilter(this);
        xcb_change_window_attributes(connection_, root_, XCB_CW_EVENT_MASK, &previousMask_);
        xcb_flush(connection_);
        isOurs_ = nullptr;
        restack_ = nullptr;
    }

    bool nativeEventFilter(const QByteArray& type, void* message, qintptr*) override {
        if (!watching_ || type != "xcb_generic_event_t")
            return false;
        const auto* event = static_cast<xcb_generic_event_t*>(message);
        xcb_window_t window = XCB_NONE;
        switch (event->response_type & ~0x80) {
        case XCB_MAP_NOTIFY: {
            const auto* map = reinterpret_cast<const xcb_map_notify_event_t*>(event);
            if (map->event == root_)
                window = map->window;
            break;
        }
        case XCB_CONFIGURE_NOTIFY: {
            const auto* configure = reinterpret_cast<const xcb_configure_notify_event_t*>(event);
            if (configure->event == root_)
                window = configure->window;
            break;
        }
        default:
            break;
        }
        if (window == XCB_NONE || (isOurs_ && isOurs_(WId(window))))
            return false;
        // Another client that fights for the top would make this a busy loop; a few restacks a
        // second are enough to stay above anything that appears.
        if (window_.elapsed() >= 1000) {
            window_.restart();
            restacksThisSecond_ = 0;
        }
        if (restacksThisSecond_++ < 20 && restack_)
            restack_();
        return false; // Qt still sees the event
    }

private:
    xcb_connection_t* connection_;
    xcb_window_t root_ = XCB_NONE;
    uint32_t previousMask_ = 0;
    bool watching_ = false;
    std::function<bool(WId)> isOurs_;
    std::function<void()> restack_;
    QElapsedTimer window_;
    int restacksThisSecond_ = 0;
};

} // namespace

std::unique_ptr<StackingWatch> StackingWatch::create() {
    if (auto* x11 =
            qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr) {
        if (xcb_connection_t* connection = x11->connection())
            return std::make_unique<X11StackingWatch>(connection);
    }
    return std::make_unique<NoStackingWatch>();
}

} // namespace tovin

#include "screens/shield/shield_platform.h"

#include <QAbstractNativeEventFilter>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QPointer>

#include <xcb/xcb.h>

namespace tovin {

namespace {

// X11: the keyboard and the pointer grabbed by the main window, so Alt-Tab, Super and the
// desktop's shortcuts never reach the window manager; losing the focus past a grab means the
// system took the screen (a screen locker), to which the shield gives way.
//
// The stacking watch selects SubstructureNotify on the root window over Qt's own connection,
// so the maps and restacks of every top-level window arrive in Qt's event stream, and raises
// the shield when a window that is not ours appears or moves in the stack. The root's event
// mask is per client: Qt's own selection is kept and put back as it was.
class X11ShieldPlatform final : public ShieldPlatform, public QAbstractNativeEventFilter {
public:
    explicit X11ShieldPlatform(xcb_connection_t* connection)
        : connection_(connection) {
        root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
    }
    ~X11ShieldPlatform() override {
        stopWatchingStacking();
        release();
    }

    bool hold(const QList<QWindow*>& windows) override {
        QWindow* main = windows.value(0);
        // Not QWidget::grabKeyboard(), which would starve a web view of its keys.
        grabbed_ = main && main->setKeyboardGrabEnabled(true);
        if (grabbed_) {
            main->setMouseGrabEnabled(true);
            grabber_ = main;
        }
        return grabbed_;
    }

    void release() override {
        if (grabbed_ && grabber_) {
            grabber_->setKeyboardGrabEnabled(false);
            grabber_->setMouseGrabEnabled(false);
        }
        grabbed_ = false;
        grabber_ = nullptr;
    }

    bool ownsKeyboard() const override { return grabbed_; }
    bool focusLossMeansYield() const override { return true; }

    void watchStacking(std::function<bool(WId)> isOurs, std::function<void()> restack) override {
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

    void stopWatchingStacking() override {
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
    QPointer<QWindow> grabber_;
    bool grabbed_ = false;
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

std::unique_ptr<ShieldPlatform> makeX11ShieldPlatform() {
    if (auto* x11 =
            qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr) {
        if (xcb_connection_t* connection = x11->connection())
            return std::make_unique<X11ShieldPlatform>(connection);
    }
    return nullptr;
}

} // namespace tovin

#pragma once

#include "resident/guards/idle_source.h"

#include <QElapsedTimer>
#include <QObject>

#include <memory>
#include <optional>

class QSocketNotifier;
struct wl_display;
struct wl_registry;
struct wl_seat;
struct ext_idle_notifier_v1;
struct ext_idle_notification_v1;
struct org_kde_kwin_idle;
struct org_kde_kwin_idle_timeout;

namespace tovin {

// Idle time from the Wayland compositor itself, where it offers idle notifications: the
// standard ext-idle-notify-v1, or KDE's org_kde_kwin_idle (which sway 1.7 offers too). The
// compositor only says "idle for the timeout" and "back", so the reading is the time since that
// word, plus the timeout; a person away since before Tovin started listening counts from then.
// The connection is Tovin's own, apart from the one Qt draws with, and is read as words arrive:
// only a pause and a return wake the process.
class WaylandIdleSource final : public QObject, public IdleSource {
    Q_OBJECT
public:
    // Readings below this are 0: a pause shorter than it is no pause to the compositor.
    static constexpr int timeoutMs = 5000;

    // This session's compositor, when it offers either protocol; else none.
    static std::unique_ptr<WaylandIdleSource> open();
    ~WaylandIdleSource() override;

    double secondsSinceLastInput() override;
    QString name() const override;

    // For the registry's listener.
    void offered(wl_registry* registry, uint32_t id, const char* interface, uint32_t version);
    void idled();
    void resumed();

private:
    explicit WaylandIdleSource(wl_display* display);
    bool listen();
    void readEvents();

    wl_display* display_ = nullptr;
    wl_registry* registry_ = nullptr;
    wl_seat* seat_ = nullptr;
    ext_idle_notifier_v1* notifier_ = nullptr;
    ext_idle_notification_v1* notification_ = nullptr;
    org_kde_kwin_idle* kdeIdle_ = nullptr;
    org_kde_kwin_idle_timeout* kdeTimeout_ = nullptr;
    std::unique_ptr<QSocketNotifier> reader_;
    QElapsedTimer monotonic_;
    std::optional<qint64> idleSinceMs_; // on monotonic_, when the compositor's word says idle
};

} // namespace tovin

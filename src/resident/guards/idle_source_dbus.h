#pragma once

#include "resident/guards/idle_source.h"

#include <QDBusConnection>

#include <memory>

namespace tovin {

// Idle time from a Wayland desktop's own idle monitor over the session bus, where the X
// extension cannot see other clients' input: GNOME's Mutter IdleMonitor, or the freedesktop
// ScreenSaver interface that KDE implements. Both answer in milliseconds.
class DBusIdleSource final : public IdleSource {
public:
    enum class Kind { Mutter, FreedesktopScreenSaver };

    // The first of the two that answers on this bus, or none.
    static std::unique_ptr<DBusIdleSource> open(const QDBusConnection& bus);

    double secondsSinceLastInput() override;
    QString name() const override;

private:
    DBusIdleSource(QDBusConnection bus, Kind kind)
        : bus_(std::move(bus))
        , kind_(kind) {}
    std::optional<double> query() const;

    QDBusConnection bus_;
    Kind kind_;
};

} // namespace tovin

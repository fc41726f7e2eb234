#include "resident/guards/idle_source_dbus.h"

#include <QDBusMessage>
#include <QDBusReply>

namespace tovin {

namespace {
QDBusMessage request(DBusIdleSource::Kind kind) {
    if (kind == DBusIdleSource::Kind::Mutter)
        return QDBusMessage::createMethodCall(QStringLiteral("org.gnome.Mutter.IdleMonitor"),
                                              QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core"),
                                              QStringLiteral("org.gnome.Mutter.IdleMonitor"),
                                              QStringLiteral("GetIdletime"));
    return QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("/ScreenSaver"),
        QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("GetSessionIdleTime"));
}
} // namespace

std::unique_ptr<DBusIdleSource> DBusIdleSource::open(const QDBusConnection& bus) {
    if (!bus.isConnected())
        return nullptr;
    for (const Kind kind : {Kind::Mutter, Kind::FreedesktopScreenSaver}) {
        std::unique_ptr<DBusIdleSource> source(new DBusIdleSource(bus, kind));
        if (source->query())
            return source;
    }
    return nullptr;
}

std::optional<double> DBusIdleSource::query() const {
    // A desktop that hangs must not hang the scheduler: a short timeout, then "not idle".
    const QDBusMessage reply = bus_.call(request(kind_), QDBus::Block, 250);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    bool ok = false;
    const qulonglong ms = reply.arguments().constFirst().toULongLong(&ok);
    if (!ok)
        return std::nullopt;
    return double(ms) / 1000.0;
}

double DBusIdleSource::secondsSinceLastInput() {
    return query().value_or(0.0);
}

QString DBusIdleSource::name() const {
    return kind_ == Kind::Mutter ? QStringLiteral("GNOME idle monitor")
                                 : QStringLiteral("desktop screen saver (D-Bus)");
}

} // namespace tovin

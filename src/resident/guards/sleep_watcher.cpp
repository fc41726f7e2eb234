#include "resident/guards/sleep_watcher.h"

namespace tovin {

SleepWatcher::SleepWatcher(QDBusConnection bus, QObject* parent)
    : QObject(parent) {
    listening_ = bus.isConnected() &&
                 bus.connect(QStringLiteral("org.freedesktop.login1"),
                             QStringLiteral("/org/freedesktop/login1"),
                             QStringLiteral("org.freedesktop.login1.Manager"),
                             QStringLiteral("PrepareForSleep"), this, SLOT(prepareForSleep(bool)));
}

void SleepWatcher::prepareForSleep(bool sleeping) {
    if (sleeping)
        Q_EMIT willSleep();
    else
        Q_EMIT didWake();
}

} // namespace tovin

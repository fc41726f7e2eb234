#pragma once

#include <QDBusConnection>
#include <QObject>

namespace tovin {

// The machine going to sleep and waking, from logind's PrepareForSleep signal on the system bus.
// Where there is no logind (or no bus) nothing is ever emitted; the controller's wall-clock
// jump check still notices a wake.
class SleepWatcher final : public QObject {
    Q_OBJECT
public:
    explicit SleepWatcher(QDBusConnection bus = QDBusConnection::systemBus(),
                          QObject* parent = nullptr);
    bool isListening() const { return listening_; }

Q_SIGNALS:
    void willSleep();
    void didWake();

private Q_SLOTS:
    void prepareForSleep(bool sleeping);

private:
    bool listening_ = false;
};

} // namespace tovin

#pragma once

#include "core/clock.h"
#include "resident/guards/idle_source.h"

#include <QDateTime>
#include <QObject>

#include <memory>

namespace tovin {

// Counts unbroken use of the machine. After triggerAfterMinutes of it, `due` is told (and the
// count starts again); stepping away for idleResetsAfterMinutes wipes the count. A pause of
// between 30 seconds and that threshold neither counts nor resets, so stopping to read does
// not restart the stretch.
class Preferences;

class UsageWatcher final : public QObject {
    Q_OBJECT
public:
    static constexpr double sampleSeconds = 15;

    UsageWatcher(Clock& clock, IdleSource& idle, const Preferences& preferences,
                 QObject* parent = nullptr);

    void start();
    void stop();
    void reset();
    bool isRunning() const { return running_; }
    double continuousUseSeconds() const { return activeSeconds_; }
    void sample();

Q_SIGNALS:
    void due();

private:
    Clock& clock_;
    IdleSource& idle_;
    const Preferences& prefs_;
    std::unique_ptr<Timer> timer_;
    double activeSeconds_ = 0;
    QDateTime lastTick_;
    bool running_ = false;
};

} // namespace tovin

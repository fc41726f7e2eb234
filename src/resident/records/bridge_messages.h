#pragma once

#include "core/bridge_contract.h"
#include "core/clock.h"

#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

namespace tovin {

class Preferences;
class PromiseLedger;
class ScheduleStore;

// The two halves of the page's contract that are data, not drawing: what the page is told at
// boot (window.TOVIN_NATIVE's values), and what its messages change. The page and whatever
// shows it only carry these; the process that owns the person's files applies them.
class BridgeMessages final : public QObject {
    Q_OBJECT
public:
    // Where the messages land: the person's week, their ledger and preferences, the clock for
    // the busy mark.
    BridgeMessages(ScheduleStore& week, PromiseLedger& ledger, Preferences& preferences,
                   Clock& clock, QObject* parent = nullptr)
        : QObject(parent)
        , week_(week)
        , ledger_(ledger)
        , prefs_(preferences)
        , clock_(clock) {}

    // The data half of TOVIN_NATIVE, from the settings, the week and the ledger now.
    static QJsonObject nativeState(PageMode mode, bool shown,
                                   const std::optional<QString>& blockLabel,
                                   const ScheduleStore& week, const PromiseLedger& ledger,
                                   const Preferences& preferences);

    // One page message: {"type": …, …}. Malformed messages and unknown types are dropped.
    void apply(const QJsonObject& message);

Q_SIGNALS:
    // A finished workout: told here, recorded by whoever runs the lockout.
    void workoutCompleted(const QString& exercise, qint64 reps);

private:
    void workoutComplete(const QJsonObject& m);
    void promisesSynced(const QJsonObject& m);
    void busy(const QJsonObject& m);
    void setWorkoutPlan(const QJsonObject& m);
    void saveSettings(const QJsonObject& m);

    ScheduleStore& week_;
    PromiseLedger& ledger_;
    Preferences& prefs_;
    Clock& clock_;
};

} // namespace tovin

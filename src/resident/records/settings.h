#pragma once

#include "core/calendar.h"
#include "core/clock.h"
#include "resident/records/settings_store.h"

#include <QDateTime>
#include <QJsonValue>
#include <QObject>
#include <QSet>
#include <QString>

#include <limits>
#include <memory>
#include <optional>

namespace tovin {

// The settings' keys in the file and the fixed values around them.
namespace Settings {

// settings.json in Tovin's configuration folder.
QString defaultStorePath();

namespace Keys {
inline const QString escapePhrase = QStringLiteral("escapePhrase");
inline const QString requiredCleanReps = QStringLiteral("requiredCleanReps");
inline const QString hintDelay = QStringLiteral("hintDelay");
inline const QString maxShieldMinutes = QStringLiteral("maxShieldMinutes");
inline const QString lockoutWorkoutID = QStringLiteral("lockoutWorkoutId");
inline const QString triggerAfterMinutes = QStringLiteral("triggerAfterMinutes");
inline const QString idleResetsAfterMinutes = QStringLiteral("idleResetsAfterMinutes");
inline const QString warningSeconds = QStringLiteral("warningSeconds");
inline const QString snoozesPerLockout = QStringLiteral("snoozesPerLockout");
inline const QString snoozeMinutes = QStringLiteral("snoozeMinutes");
inline const QString busyUntil = QStringLiteral("busyUntil");
inline const QString busyReason = QStringLiteral("busyReason");
inline const QString retestDueInDays = QStringLiteral("retestDueInDays");
inline const QString retestReportedAt = QStringLiteral("retestReportedAt");
inline const QString firedBlocksDay = QStringLiteral("firedBlocksDay");
inline const QString firedBlocks = QStringLiteral("firedBlocks");
inline const QString hasOnboarded = QStringLiteral("hasOnboarded");
inline const QString activeWeekdays = QStringLiteral("activeWeekdays");
inline const QString activeFromMinute = QStringLiteral("activeFromMinute");
inline const QString activeToMinute = QStringLiteral("activeToMinute");
} // namespace Keys

// The floor of the safety valve, in minutes (not stored).
inline constexpr double minShieldMinutes = 10.0;
// How far ahead each busy signal from the workout page moves busyUntil, in seconds (not stored).
inline constexpr double busyGrace = 180.0;
// A retest report older than this is stale: it never fires a retest, nor reads as overdue.
inline constexpr qint64 retestStaleAfterSeconds = 604800;
// "Never": the retest is owed after this many days.
inline constexpr qint64 retestNever = std::numeric_limits<qint64>::max();

// Whether the person lets Tovin interrupt at `at`, with explicit values, to try them before they
// are saved. A window whose ends are equal allows any minute; one whose start is after its end
// wraps midnight, and the weekday is always that of the instant itself.
bool scheduleAllows(const QSet<int>& weekdays, int fromMinute, int toMinute, const QDateTime& at,
                    const Calendar& calendar);

} // namespace Settings

// The person's preferences and the scheduler's small persistent state, over one store (the
// settings file in the app, a throw-away one in tests and the self-check). Every read goes to
// the store (no caching here: the file store makes an unchanged read cheap), applies the
// default when the value is missing or of the wrong type, and applies the clamp. Every write
// says which key changed.
class Preferences final : public QObject {
    Q_OBJECT
public:
    explicit Preferences(SettingsStore& store, QObject* parent = nullptr);
    SettingsStore& store() const { return store_; }

    QString escapePhrase() const; // lower-cased; "lark"
    void setEscapePhrase(const QString& phrase);
    int requiredCleanReps() const; // floored at 1; 5
    void setRequiredCleanReps(int reps);
    double hintDelay() const; // seconds; 25
    void setHintDelay(double seconds);
    double maxShieldMinutes() const; // floored at minShieldMinutes; 15
    void setMaxShieldMinutes(double minutes);
    std::optional<QString> lockoutWorkoutID() const; // none: setup is not finished
    void setLockoutWorkoutID(const std::optional<QString>& id);
    double triggerAfterMinutes() const; // 50
    void setTriggerAfterMinutes(double minutes);
    double idleResetsAfterMinutes() const; // 5
    void setIdleResetsAfterMinutes(double minutes);
    double warningSeconds() const; // floored at 10; 60
    void setWarningSeconds(double seconds);
    int snoozesPerLockout() const; // 1
    void setSnoozesPerLockout(int snoozes);
    double snoozeMinutes() const; // 10
    void setSnoozeMinutes(double minutes);
    std::optional<QDateTime> busyUntil() const;
    void setBusyUntil(const std::optional<QDateTime>& until);
    std::optional<QString> busyReason() const;
    void setBusyReason(const std::optional<QString>& reason);
    qint64 retestDueInDays() const; // retestNever
    void setRetestDueInDays(qint64 days);
    std::optional<QDateTime> retestReportedAt() const;
    void setRetestReportedAt(const std::optional<QDateTime>& at);
    qint64 firedBlocksDay() const; // -1: none yet
    void setFiredBlocksDay(qint64 day);
    QSet<QString> firedBlocks() const;
    void setFiredBlocks(const QSet<QString>& keys);
    bool hasOnboarded() const;
    void setHasOnboarded(bool onboarded);
    QSet<int> activeWeekdays() const; // missing, unreadable or empty: all seven days
    void setActiveWeekdays(const QSet<int>& weekdays);
    int activeFromMinute() const; // 540 (09:00)
    void setActiveFromMinute(int minute);
    int activeToMinute() const; // 1080 (18:00), exclusive
    void setActiveToMinute(int minute);

    // A busy period declared by the workout page is running: busyUntil lies after now. An expired
    // deadline stops counting at once, without anybody clearing it.
    bool isBusy(const QDateTime& now) const;

    // May Tovin interrupt the person at this instant? The stored weekdays and hours.
    bool scheduleAllows(const QDateTime& at, const Calendar& calendar) const;

Q_SIGNALS:
    // A value was written (the key as stored): whatever shows it is drawn again.
    void changed(const QString& key);

private:
    QJsonValue read(const QString& key) const;
    int readInt(const QString& key, int fallback) const;
    qint64 readInt64(const QString& key, qint64 fallback) const;
    double readReal(const QString& key, double fallback) const;
    std::optional<QString> readText(const QString& key) const;
    std::optional<QDateTime> readInstant(const QString& key) const;
    void write(const QString& key, const QJsonValue& value);
    void writeText(const QString& key, const std::optional<QString>& text);
    void writeInstant(const QString& key, const std::optional<QDateTime>& at);
    void writeReal(const QString& key, double value);

    SettingsStore& store_;
};

} // namespace tovin

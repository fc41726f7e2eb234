#include "resident/records/settings.h"

#include "core/iso_date.h"
#include "core/json_values.h"
#include "core/paths.h"

#include <QJsonArray>

#include <algorithm>
#include <climits>

namespace tovin {

using namespace Settings;

QString Settings::defaultStorePath() {
    return paths::configDir() + u"/settings.json";
}

Preferences::Preferences(SettingsStore& store, QObject* parent)
    : QObject(parent)
    , store_(store) {
}

QJsonValue Preferences::read(const QString& key) const {
    return store_.value(key);
}

int Preferences::readInt(const QString& key, int fallback) const {
    return int(jsonInteger(read(key), INT_MIN, INT_MAX).value_or(fallback));
}

qint64 Preferences::readInt64(const QString& key, qint64 fallback) const {
    return jsonInteger(read(key)).value_or(fallback);
}

double Preferences::readReal(const QString& key, double fallback) const {
    return jsonReal(read(key)).value_or(fallback);
}

std::optional<QString> Preferences::readText(const QString& key) const {
    const QJsonValue v = read(key);
    if (!v.isString())
        return std::nullopt;
    return v.toString();
}

std::optional<QDateTime> Preferences::readInstant(const QString& key) const {
    const QJsonValue v = read(key);
    if (!v.isString())
        return std::nullopt;
    return parseIsoInstant(v.toString());
}

void Preferences::write(const QString& key, const QJsonValue& value) {
    store_.setValue(key, value);
    Q_EMIT changed(key);
}

void Preferences::writeText(const QString& key, const std::optional<QString>& text) {
    write(key, text ? QJsonValue(*text) : QJsonValue(QJsonValue::Undefined));
}

void Preferences::writeInstant(const QString& key, const std::optional<QDateTime>& at) {
    write(key, at && at->isValid() ? QJsonValue(formatIsoMillis(*at))
                                   : QJsonValue(QJsonValue::Undefined));
}

// Any finite real is stored as given; a non-finite one would not survive JSON, so it is
// dropped and the default applies.
void Preferences::writeReal(const QString& key, double value) {
    write(key, std::isfinite(value) ? QJsonValue(value) : QJsonValue(QJsonValue::Undefined));
}

QString Preferences::escapePhrase() const {
    return readText(Keys::escapePhrase).value_or(QStringLiteral("lark")).toLower();
}
void Preferences::setEscapePhrase(const QString& phrase) {
    write(Keys::escapePhrase, phrase.toLower());
}

int Preferences::requiredCleanReps() const {
    return std::max(1, readInt(Keys::requiredCleanReps, 5));
}
void Preferences::setRequiredCleanReps(int reps) {
    write(Keys::requiredCleanReps, reps);
}

double Preferences::hintDelay() const {
    return readReal(Keys::hintDelay, 25.0);
}
void Preferences::setHintDelay(double seconds) {
    writeReal(Keys::hintDelay, seconds);
}

double Preferences::maxShieldMinutes() const {
    return std::max(minShieldMinutes, readReal(Keys::maxShieldMinutes, 15.0));
}
void Preferences::setMaxShieldMinutes(double minutes) {
    writeReal(Keys::maxShieldMinutes, minutes);
}

std::optional<QString> Preferences::lockoutWorkoutID() const {
    return readText(Keys::lockoutWorkoutID);
}
void Preferences::setLockoutWorkoutID(const std::optional<QString>& id) {
    writeText(Keys::lockoutWorkoutID, id);
}

double Preferences::triggerAfterMinutes() const {
    return readReal(Keys::triggerAfterMinutes, 50.0);
}
void Preferences::setTriggerAfterMinutes(double minutes) {
    writeReal(Keys::triggerAfterMinutes, minutes);
}

double Preferences::idleResetsAfterMinutes() const {
    return readReal(Keys::idleResetsAfterMinutes, 5.0);
}
void Preferences::setIdleResetsAfterMinutes(double minutes) {
    writeReal(Keys::idleResetsAfterMinutes, minutes);
}

double Preferences::warningSeconds() const {
    return std::max(10.0, readReal(Keys::warningSeconds, 60.0));
}
void Preferences::setWarningSeconds(double seconds) {
    writeReal(Keys::warningSeconds, seconds);
}

int Preferences::snoozesPerLockout() const {
    return readInt(Keys::snoozesPerLockout, 1);
}
void Preferences::setSnoozesPerLockout(int snoozes) {
    write(Keys::snoozesPerLockout, snoozes);
}

double Preferences::snoozeMinutes() const {
    return readReal(Keys::snoozeMinutes, 10.0);
}
void Preferences::setSnoozeMinutes(double minutes) {
    writeReal(Keys::snoozeMinutes, minutes);
}

std::optional<QDateTime> Preferences::busyUntil() const {
    return readInstant(Keys::busyUntil);
}
void Preferences::setBusyUntil(const std::optional<QDateTime>& until) {
    writeInstant(Keys::busyUntil, until);
}

std::optional<QString> Preferences::busyReason() const {
    return readText(Keys::busyReason);
}
void Preferences::setBusyReason(const std::optional<QString>& reason) {
    writeText(Keys::busyReason, reason);
}

qint64 Preferences::retestDueInDays() const {
    return readInt64(Keys::retestDueInDays, retestNever);
}
void Preferences::setRetestDueInDays(qint64 days) {
    write(Keys::retestDueInDays, days);
}

std::optional<QDateTime> Preferences::retestReportedAt() const {
    return readInstant(Keys::retestReportedAt);
}
void Preferences::setRetestReportedAt(const std::optional<QDateTime>& at) {
    writeInstant(Keys::retestReportedAt, at);
}

qint64 Preferences::firedBlocksDay() const {
    return readInt64(Keys::firedBlocksDay, -1);
}
void Preferences::setFiredBlocksDay(qint64 day) {
    write(Keys::firedBlocksDay, day);
}

QSet<QString> Preferences::firedBlocks() const {
    const QJsonValue v = read(Keys::firedBlocks);
    if (!v.isArray())
        return {};
    QSet<QString> keys;
    for (const QJsonValue item : v.toArray()) {
        if (!item.isString())
            return {};
        keys.insert(item.toString());
    }
    return keys;
}
void Preferences::setFiredBlocks(const QSet<QString>& keys) {
    // Sorted, so the file does not churn between saves of the same set.
    QStringList sorted(keys.cbegin(), keys.cend());
    sorted.sort();
    write(Keys::firedBlocks, QJsonArray::fromStringList(sorted));
}

bool Preferences::hasOnboarded() const {
    const QJsonValue v = read(Keys::hasOnboarded);
    return v.isBool() && v.toBool();
}
void Preferences::setHasOnboarded(bool onboarded) {
    write(Keys::hasOnboarded, onboarded);
}

QSet<int> Preferences::activeWeekdays() const {
    static const QSet<int> everyDay{1, 2, 3, 4, 5, 6, 7};
    const QJsonValue v = read(Keys::activeWeekdays);
    if (!v.isArray())
        return everyDay;
    QSet<int> days;
    for (const QJsonValue item : v.toArray()) {
        const auto day = jsonInteger(item, INT_MIN, INT_MAX);
        if (!day)
            return everyDay;
        days.insert(int(*day));
    }
    return days.isEmpty() ? everyDay : days;
}
void Preferences::setActiveWeekdays(const QSet<int>& weekdays) {
    QList<int> sorted(weekdays.cbegin(), weekdays.cend());
    std::sort(sorted.begin(), sorted.end());
    QJsonArray array;
    for (int day : sorted)
        array.append(day);
    write(Keys::activeWeekdays, array);
}

int Preferences::activeFromMinute() const {
    return readInt(Keys::activeFromMinute, 540);
}
void Preferences::setActiveFromMinute(int minute) {
    write(Keys::activeFromMinute, minute);
}

int Preferences::activeToMinute() const {
    return readInt(Keys::activeToMinute, 1080);
}
void Preferences::setActiveToMinute(int minute) {
    write(Keys::activeToMinute, minute);
}

bool Preferences::isBusy(const QDateTime& now) const {
    const auto until = busyUntil();
    return until && *until > now;
}

bool Preferences::scheduleAllows(const QDateTime& at, const Calendar& calendar) const {
    return Settings::scheduleAllows(activeWeekdays(), activeFromMinute(), activeToMinute(), at,
                                    calendar);
}

bool Settings::scheduleAllows(const QSet<int>& weekdays, int fromMinute, int toMinute,
                              const QDateTime& at, const Calendar& calendar) {
    const auto local = calendar.localTime(at);
    if (!local || !weekdays.contains(local->weekday))
        return false;
    const int m = local->minuteOfDay();
    if (fromMinute == toMinute)
        return true;
    if (fromMinute < toMinute)
        return fromMinute <= m && m < toMinute;
    return m >= fromMinute || m < toMinute;
}

} // namespace tovin

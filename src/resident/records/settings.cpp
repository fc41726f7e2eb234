#include "resident/records/settings.h"

#include "core/iso_date.h"
#include "core/json_values.h"
#include "core/paths.h"

#include <QJsonArray>

#include <algorithm>
#include <climits>

namespace tovin::Settings {

namespace {

std::shared_ptr<SettingsStore>& currentStore() {
    static std::shared_ptr<SettingsStore> store;
    return store;
}

QJsonValue read(const QString& key) {
    return store().value(key);
}

int readInt(const QString& key, int fallback) {
    return int(jsonInteger(read(key), INT_MIN, INT_MAX).value_or(fallback));
}

qint64 readInt64(const QString& key, qint64 fallback) {
    return jsonInteger(read(key)).value_or(fallback);
}

double readReal(const QString& key, double fallback) {
    return jsonReal(read(key)).value_or(fallback);
}

std::optional<QString> readText(const QString& key) {
    const QJsonValue v = read(key);
    if (!v.isString())
        return std::nullopt;
    return v.toString();
}

std::optional<QDateTime> readInstant(const QString& key) {
    const QJsonValue v = read(key);
    if (!v.isString())
        return std::nullopt;
    return parseIsoInstant(v.toString());
}

void writeText(const QString& key, const std::optional<QString>& text) {
    store().setValue(key, text ? QJsonValue(*text) : QJsonValue(QJsonValue::Undefined));
}

void writeInstant(const QString& key, const std::optional<QDateTime>& at) {
    if (at && at->isValid())
        store().setValue(key, formatIsoMillis(*at));
    else
        store().remove(key);
}

// Any finite real is stored as given; a non-finite one would not survive JSON, so it is
// dropped and the default applies.
void writeReal(const QString& key, double value) {
    if (std::isfinite(value))
        store().setValue(key, value);
    else
        store().remove(key);
}

} // namespace

SettingsStore& store() {
    auto& s = currentStore();
    if (!s)
        s = std::make_shared<JsonFileSettingsStore>(defaultStorePath());
    return *s;
}

void setStore(std::shared_ptr<SettingsStore> store) {
    currentStore() = std::move(store);
}

QString defaultStorePath() {
    return paths::configDir() + u"/settings.json";
}

QString escapePhrase() {
    return readText(Keys::escapePhrase).value_or(QStringLiteral("lark")).toLower();
}
void setEscapePhrase(const QString& phrase) {
    store().setValue(Keys::escapePhrase, phrase.toLower());
}

int requiredCleanReps() {
    return std::max(1, readInt(Keys::requiredCleanReps, 5));
}
void setRequiredCleanReps(int reps) {
    store().setValue(Keys::requiredCleanReps, reps);
}

double hintDelay() {
    return readReal(Keys::hintDelay, 25.0);
}
void setHintDelay(double seconds) {
    writeReal(Keys::hintDelay, seconds);
}

double maxShieldMinutes() {
    return std::max(minShieldMinutes, readReal(Keys::maxShieldMinutes, 15.0));
}
void setMaxShieldMinutes(double minutes) {
    writeReal(Keys::maxShieldMinutes, minutes);
}

std::optional<QString> lockoutWorkoutID() {
    return readText(Keys::lockoutWorkoutID);
}
void setLockoutWorkoutID(const std::optional<QString>& id) {
    writeText(Keys::lockoutWorkoutID, id);
}

double triggerAfterMinutes() {
    return readReal(Keys::triggerAfterMinutes, 50.0);
}
void setTriggerAfterMinutes(double minutes) {
    writeReal(Keys::triggerAfterMinutes, minutes);
}

double idleResetsAfterMinutes() {
    return readReal(Keys::idleResetsAfterMinutes, 5.0);
}
void setIdleResetsAfterMinutes(double minutes) {
    writeReal(Keys::idleResetsAfterMinutes, minutes);
}

double warningSeconds() {
    return std::max(10.0, readReal(Keys::warningSeconds, 60.0));
}
void setWarningSeconds(double seconds) {
    writeReal(Keys::warningSeconds, seconds);
}

int snoozesPerLockout() {
    return readInt(Keys::snoozesPerLockout, 1);
}
void setSnoozesPerLockout(int snoozes) {
    store().setValue(Keys::snoozesPerLockout, snoozes);
}

double snoozeMinutes() {
    return readReal(Keys::snoozeMinutes, 10.0);
}
void setSnoozeMinutes(double minutes) {
    writeReal(Keys::snoozeMinutes, minutes);
}

std::optional<QDateTime> busyUntil() {
    return readInstant(Keys::busyUntil);
}
void setBusyUntil(const std::optional<QDateTime>& until) {
    writeInstant(Keys::busyUntil, until);
}

std::optional<QString> busyReason() {
    return readText(Keys::busyReason);
}
void setBusyReason(const std::optional<QString>& reason) {
    writeText(Keys::busyReason, reason);
}

qint64 retestDueInDays() {
    return readInt64(Keys::retestDueInDays, retestNever);
}
void setRetestDueInDays(qint64 days) {
    store().setValue(Keys::retestDueInDays, days);
}

std::optional<QDateTime> retestReportedAt() {
    return readInstant(Keys::retestReportedAt);
}
void setRetestReportedAt(const std::optional<QDateTime>& at) {
    writeInstant(Keys::retestReportedAt, at);
}

qint64 firedBlocksDay() {
    return readInt64(Keys::firedBlocksDay, -1);
}
void setFiredBlocksDay(qint64 day) {
    store().setValue(Keys::firedBlocksDay, day);
}

QSet<QString> firedBlocks() {
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
void setFiredBlocks(const QSet<QString>& keys) {
    // Sorted, so the file does not churn between saves of the same set.
    QStringList sorted(keys.cbegin(), keys.cend());
    sorted.sort();
    store().setValue(Keys::firedBlocks, QJsonArray::fromStringList(sorted));
}

bool hasOnboarded() {
    const QJsonValue v = read(Keys::hasOnboarded);
    return v.isBool() && v.toBool();
}
void setHasOnboarded(bool onboarded) {
    store().setValue(Keys::hasOnboarded, onboarded);
}

QSet<int> activeWeekdays() {
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
void setActiveWeekdays(const QSet<int>& weekdays) {
    QList<int> sorted(weekdays.cbegin(), weekdays.cend());
    std::sort(sorted.begin(), sorted.end());
    QJsonArray array;
    for (int day : sorted)
        array.append(day);
    store().setValue(Keys::activeWeekdays, array);
}

int activeFromMinute() {
    return readInt(Keys::activeFromMinute, 540);
}
void setActiveFromMinute(int minute) {
    store().setValue(Keys::activeFromMinute, minute);
}

int activeToMinute() {
    return readInt(Keys::activeToMinute, 1080);
}
void setActiveToMinute(int minute) {
    store().setValue(Keys::activeToMinute, minute);
}

bool isBusy(const QDateTime& now) {
    const auto until = busyUntil();
    return until && *until > now;
}

bool scheduleAllows(const QDateTime& at, const Calendar& calendar) {
    return scheduleAllows(activeWeekdays(), activeFromMinute(), activeToMinute(), at, calendar);
}

bool scheduleAllows(const QSet<int>& weekdays, int fromMinute, int toMinute, const QDateTime& at,
                    const Calendar& calendar) {
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

} // namespace tovin::Settings

#include "resident/records/bridge_messages.h"

#include "core/json_values.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <climits>
#include <cstdio>

namespace tovin {

QJsonObject BridgeMessages::nativeState(PageMode mode, bool shown,
                                        const std::optional<QString>& blockLabel,
                                        const ScheduleStore& week, const PromiseLedger& ledger,
                                        const Preferences& prefs_) {
    QList<int> weekdays(prefs_.activeWeekdays().cbegin(), prefs_.activeWeekdays().cend());
    std::sort(weekdays.begin(), weekdays.end());
    QJsonArray days;
    for (int d : weekdays)
        days.append(d);
    QJsonObject native{
        {QStringLiteral("mode"), toString(mode)},
        {QStringLiteral("shown"), shown},
        {QStringLiteral("blockLabel"),
         blockLabel ? QJsonValue(*blockLabel) : QJsonValue(QJsonValue::Null)},
        {QStringLiteral("blocks"),
         QJsonDocument::fromJson(ScheduleStore::encodeBlockList(week.load())).array()},
        {QStringLiteral("schedule"),
         QJsonObject{{QStringLiteral("weekdays"), days},
                     {QStringLiteral("fromMinute"), prefs_.activeFromMinute()},
                     {QStringLiteral("toMinute"), prefs_.activeToMinute()},
                     {QStringLiteral("triggerAfterMinutes"), prefs_.triggerAfterMinutes()}}},
        {QStringLiteral("onboarded"), prefs_.hasOnboarded()},
        {QStringLiteral("promises"),
         QJsonDocument::fromJson(ledger.asBridgeJSON().toUtf8()).array()},
    };
    // Absent, not null: the page reads "no workout chosen" as undefined.
    if (const auto workout = prefs_.lockoutWorkoutID())
        native.insert(u"lockoutWorkoutId", *workout);
    return native;
}

void BridgeMessages::apply(const QJsonObject& message) {
    const QJsonValue type = message.value(u"type");
    if (!type.isString())
        return;
    const QString kind = type.toString();
    if (kind == u"workoutComplete")
        workoutComplete(message);
    else if (kind == u"promisesSynced")
        promisesSynced(message);
    else if (kind == u"busy")
        busy(message);
    else if (kind == u"setWorkoutPlan")
        setWorkoutPlan(message);
    else if (kind == u"saveSettings")
        saveSettings(message);
    // "saveSchedule" and anything else: ignored. Plans reach the week only as a workout plan.
}

void BridgeMessages::workoutComplete(const QJsonObject& m) {
    const QJsonValue exercise = m.value(u"exercise");
    Q_EMIT workoutCompleted(exercise.isString() ? exercise.toString() : QStringLiteral("Workout"),
                            jsonInteger(m.value(u"reps")).value_or(0));
}

void BridgeMessages::promisesSynced(const QJsonObject& m) {
    const QJsonValue text = m.value(u"promises");
    if (!text.isString())
        return;
    const auto merged = PromiseJson::decode(text.toString().toUtf8());
    if (!merged)
        return;
    const bool adopted = ledger_.adopt(*merged);
    std::printf("[promises] merged %lld record(s) from the account — %s\n",
                static_cast<long long>(merged->size()),
                adopted ? "adopted" : "ignored, would have shrunk the ledger");
    std::fflush(stdout);
}

void BridgeMessages::busy(const QJsonObject& m) {
    const QJsonValue reason = m.value(u"reason");
    const QString why = reason.isString() ? reason.toString() : QString();
    if (why.isEmpty()) {
        prefs_.setBusyUntil(std::nullopt);
        prefs_.setBusyReason(std::nullopt);
    } else {
        prefs_.setBusyUntil(clock_.now().addMSecs(qint64(Settings::busyGrace * 1000)));
        prefs_.setBusyReason(why);
    }
}

void BridgeMessages::setWorkoutPlan(const QJsonObject& m) {
    const QJsonValue text = m.value(u"blocks");
    if (!text.isString())
        return;
    const auto plan = ScheduleStore::decodeBlockList(text.toString().toUtf8());
    if (!plan)
        return;
    const bool saved = week_.saveWorkoutPlan(*plan);
    std::printf("[schedule] accepted a plan of %lld workout block(s)%s\n",
                static_cast<long long>(plan->size()), saved ? "" : " — not saved yet");
    std::fflush(stdout);
}

void BridgeMessages::saveSettings(const QJsonObject& m) {
    if (const QJsonValue id = m.value(u"lockoutWorkoutId"); id.isString())
        prefs_.setLockoutWorkoutID(id.toString().isEmpty() ? std::nullopt
                                                           : std::optional<QString>(id.toString()));
    if (const QJsonValue days = m.value(u"weekdays"); days.isArray()) {
        QSet<int> kept;
        bool allIntegers = true;
        for (const QJsonValue d : days.toArray()) {
            const auto day = jsonInteger(d);
            if (!day) {
                allIntegers = false;
                break;
            }
            if (*day >= 1 && *day <= 7)
                kept.insert(int(*day));
        }
        if (allIntegers)
            prefs_.setActiveWeekdays(kept);
    }
    if (const auto from = jsonInteger(m.value(u"fromMinute"), INT_MIN, INT_MAX))
        prefs_.setActiveFromMinute(int(*from));
    if (const auto to = jsonInteger(m.value(u"toMinute"), INT_MIN, INT_MAX))
        prefs_.setActiveToMinute(int(*to));
    if (const auto trigger = jsonReal(m.value(u"triggerAfterMinutes")))
        prefs_.setTriggerAfterMinutes(std::max(5.0, *trigger));
    if (const QJsonValue onboarded = m.value(u"onboarded"); onboarded.isBool())
        prefs_.setHasOnboarded(onboarded.toBool());
    if (const auto days = jsonInteger(m.value(u"retestDueInDays"))) {
        prefs_.setRetestDueInDays(*days);
        prefs_.setRetestReportedAt(clock_.now());
    }
}

} // namespace tovin

// The page's contract, written once: the message types and their fields (BridgeMessages'
// schema) are what the injected functions post and what web/src/native.ts declares, and
// whatever a hostile page posts lands as the rules say or not at all.

#include "resident/records/bridge_messages.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"
#include "support/fake_clock.h"

#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

std::string joined(QStringList words) {
    words.sort();
    words.removeDuplicates();
    return words.join(u' ').toStdString();
}

// Every first capture of the pattern, sorted and joined, so a mismatch reads as text.
std::string matches(const QString& text, const QString& pattern) {
    QStringList found;
    for (const auto& m : QRegularExpression(pattern).globalMatch(text))
        found.append(m.captured(1));
    return joined(found);
}

// The body of `export interface NAME { … }` in native.ts.
QString tsInterface(const QString& name) {
    QFile file(QStringLiteral(TOVIN_SOURCE_DIR "/web/src/native.ts"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QString source = QString::fromUtf8(file.readAll());
    const qsizetype start = source.indexOf(u"export interface " + name + u" {");
    return start < 0 ? QString() : source.mid(start, source.indexOf(u"\n}", start) - start);
}

QJsonObject message(const QString& type, QJsonObject fields = {}) {
    fields.insert(u"type", type);
    return fields;
}

} // namespace

TEST(BridgeSchema, TheInjectedFunctionsAndNativeTsAgreeWithIt) {
    QStringList types, settingsFields;
    for (const auto& type : BridgeContract::schema()) {
        types.append(type.name);
        if (type.name == u"saveSettings")
            settingsFields = type.fields;
    }
    const QString functions = BridgeContract::bridgeFunctions();
    EXPECT_EQ(matches(functions, QStringLiteral(R"(type: '(\w+)')")), joined(types));

    const QString native = tsInterface(QStringLiteral("Native"));
    ASSERT_FALSE(native.isEmpty()) << "native.ts declares no Native interface";
    EXPECT_EQ(matches(functions, QStringLiteral(R"(\n\s+(\w+): function)")),
              matches(native, QStringLiteral(R"(\n\s+(\w+)\([^)]*\): void;)")));
    EXPECT_EQ(
        matches(tsInterface(QStringLiteral("SettingsUpdate")), QStringLiteral(R"(\n\s+(\w+)\?:)")),
        joined(settingsFields));
}

TEST(BridgeMessages, HostileMessagesLandAsTheRulesSayOrNotAtAll) {
    QTemporaryDir dir;
    MemorySettingsStore store;
    Preferences prefs(store);
    PromiseLedger ledger(dir.filePath(QStringLiteral("promises.json")));
    ScheduleStore week(dir.filePath(QStringLiteral("schedule.json")));
    fakes::FakeClock clock;
    BridgeMessages bridge(week, ledger, prefs, clock);
    QSignalSpy completed(&bridge, &BridgeMessages::workoutCompleted);
    QSignalSpy changed(&week, &ScheduleStore::changed);

    for (const QJsonObject& m :
         {QJsonObject{}, QJsonObject{{u"type"_qs, 7}}, message(u"nope"_qs),
          message(u"promisesSynced"_qs, {{u"promises"_qs, 3}}), message(u"setWorkoutPlan"_qs)})
        bridge.apply(m);
    EXPECT_EQ(completed.count(), 0);

    // A completion without its fields still completes, as "Workout" with no reps.
    bridge.apply(message(u"workoutComplete"_qs, {{u"reps"_qs, u"many"_qs}}));
    ASSERT_EQ(completed.count(), 1);
    EXPECT_EQ(completed[0][0].toString(), u"Workout");
    EXPECT_EQ(completed[0][1].toLongLong(), 0);

    // Settings: each field lands, clamped, out-of-range weekdays dropped, empty text clears; absent
    // keys and wrong types leave a setting alone, and weekdays are all integers or not taken at
    // all.
    prefs.setLockoutWorkoutID(QStringLiteral("old"));
    bridge.apply(message(u"saveSettings"_qs, {{u"triggerAfterMinutes"_qs, 2},
                                              {u"weekdays"_qs, QJsonArray{0, 1, 7, 8}},
                                              {u"fromMinute"_qs, 480},
                                              {u"toMinute"_qs, 1200},
                                              {u"onboarded"_qs, true},
                                              {u"lockoutWorkoutId"_qs, QString()},
                                              {u"retestDueInDays"_qs, 28}}));
    EXPECT_EQ(prefs.triggerAfterMinutes(), 5.0);
    EXPECT_EQ(prefs.activeWeekdays(), (QSet<int>{1, 7}));
    EXPECT_EQ(prefs.activeToMinute(), 1200);
    EXPECT_TRUE(prefs.hasOnboarded());
    EXPECT_EQ(prefs.lockoutWorkoutID(), std::nullopt);
    EXPECT_EQ(prefs.retestDueInDays(), 28);
    EXPECT_EQ(prefs.retestReportedAt(), clock.now()); // when the fitness check reported
    bridge.apply(message(u"saveSettings"_qs, {{u"fromMinute"_qs, u"nine"_qs},
                                              {u"weekdays"_qs, QJsonArray{3, u"four"_qs}}}));
    EXPECT_EQ(prefs.activeFromMinute(), 480);
    EXPECT_EQ(prefs.activeWeekdays(), (QSet<int>{1, 7}));
    EXPECT_EQ(prefs.triggerAfterMinutes(), 5.0);

    // A malformed plan changes nothing, and saveSchedule is deliberately not heard.
    bridge.apply(message(u"setWorkoutPlan"_qs, {{u"blocks"_qs, u"[{\"at\": 9}]"_qs}}));
    bridge.apply(message(u"saveSchedule"_qs, {{u"blocks"_qs, u"[]"_qs}}));
    EXPECT_EQ(changed.count(), 0);
    EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("schedule.json"))));
}

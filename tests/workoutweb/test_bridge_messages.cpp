// The page's contract, written once: the message types and their fields (BridgeMessages'
// schema) are what the injected functions post and what web/src/native.ts declares, and
// whatever a hostile page posts lands as the rules say or not at all.

#include "workoutweb/bridge_messages.h"

#include "promises/promise_ledger.h"
#include "schedule/schedule_store.h"
#include "schedule/settings.h"
#include "support/fake_clock.h"

#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

// Every first capture of the pattern, sorted and joined, so a mismatch reads as text.
std::string matches(const QString& text, const QString& pattern) {
    QStringList found;
    for (const auto& m : QRegularExpression(pattern).globalMatch(text))
        found.append(m.captured(1));
    found.sort();
    found.removeDuplicates();
    return found.join(u' ').toStdString();
}

// The body of `export interface NAME { … }` in native.ts.
QString tsInterface(const QString& name) {
    QFile file(QStringLiteral(TOVIN_SOURCE_DIR "/web/src/native.ts"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QString source = QString::fromUtf8(file.readAll());
    const qsizetype start = source.indexOf(u"export interface " + name + u" {");
    if (start < 0)
        return {};
    return source.mid(start, source.indexOf(u"\n}", start) - start);
}

} // namespace

TEST(BridgeSchema, TheInjectedFunctionsAndNativeTsAgreeWithIt) {
    QStringList types;
    QStringList settingsFields;
    for (const auto& type : BridgeMessages::schema()) {
        types.append(type.name);
        if (type.name == u"saveSettings")
            settingsFields = type.fields;
    }
    types.sort();
    settingsFields.sort();
    const QString functions = BridgeMessages::bridgeFunctions();
    EXPECT_EQ(matches(functions, QStringLiteral(R"(type: '(\w+)')")), types.join(u' ').toStdString());

    const QString native = tsInterface(QStringLiteral("Native"));
    ASSERT_FALSE(native.isEmpty()) << "native.ts declares no Native interface";
    EXPECT_EQ(matches(functions, QStringLiteral(R"(\n\s+(\w+): function)")),
              matches(native, QStringLiteral(R"(\n\s+(\w+)\([^)]*\): void;)")));
    EXPECT_EQ(matches(tsInterface(QStringLiteral("SettingsUpdate")), QStringLiteral(R"(\n\s+(\w+)\?:)")),
              settingsFields.join(u' ').toStdString());
}

TEST(BridgeMessages, HostileMessagesLandAsTheRulesSayOrNotAtAll) {
    QTemporaryDir dir;
    Settings::setStore(std::make_shared<MemorySettingsStore>());
    PromiseLedger ledger(dir.filePath(QStringLiteral("promises.json")));
    fakes::FakeClock clock;
    BridgeMessages bridge(dir.filePath(QStringLiteral("schedule.json")), ledger, clock);
    QSignalSpy completed(&bridge, &BridgeMessages::workoutCompleted);

    for (const QJsonObject& m : {QJsonObject{}, QJsonObject{{QStringLiteral("type"), 7}},
                                 QJsonObject{{QStringLiteral("type"), QStringLiteral("nope")}},
                                 QJsonObject{{QStringLiteral("type"), QStringLiteral("promisesSynced")},
                                             {QStringLiteral("promises"), 3}},
                                 QJsonObject{{QStringLiteral("type"), QStringLiteral("setWorkoutPlan")}}})
        bridge.apply(m);
    EXPECT_EQ(completed.count(), 0);
    EXPECT_TRUE(ledger.records().isEmpty());

    // A completion without its fields still completes, as "Workout" with no reps.
    bridge.apply({{QStringLiteral("type"), QStringLiteral("workoutComplete")}, {QStringLiteral("reps"), QStringLiteral("many")}});
    ASSERT_EQ(completed.count(), 1);
    EXPECT_EQ(completed[0][0].toString(), u"Workout");
    EXPECT_EQ(completed[0][1].toLongLong(), 0);

    // Settings: clamped, out-of-range weekdays dropped, empty text clears, absent keys and wrong
    // types leave a setting alone, and weekdays are all integers or not taken at all.
    Settings::setLockoutWorkoutID(QStringLiteral("old"));
    bridge.apply({{QStringLiteral("type"), QStringLiteral("saveSettings")}, {QStringLiteral("triggerAfterMinutes"), 2},
                  {QStringLiteral("weekdays"), QJsonArray{0, 1, 7, 8}}, {QStringLiteral("fromMinute"), 480},
                  {QStringLiteral("lockoutWorkoutId"), QString()}});
    EXPECT_EQ(Settings::triggerAfterMinutes(), 5.0);
    EXPECT_EQ(Settings::activeWeekdays(), (QSet<int>{1, 7}));
    EXPECT_EQ(Settings::lockoutWorkoutID(), std::nullopt);
    bridge.apply({{QStringLiteral("type"), QStringLiteral("saveSettings")}, {QStringLiteral("fromMinute"), QStringLiteral("nine")},
                  {QStringLiteral("weekdays"), QJsonArray{QJsonValue(3), QJsonValue(QStringLiteral("four"))}}});
    EXPECT_EQ(Settings::activeFromMinute(), 480);
    EXPECT_EQ(Settings::activeWeekdays(), (QSet<int>{1, 7}));
    EXPECT_EQ(Settings::triggerAfterMinutes(), 5.0);

    // A malformed plan changes nothing, and saveSchedule is deliberately not heard.
    QSignalSpy changed(ScheduleChangeNotifier::instance(), &ScheduleChangeNotifier::tovinScheduleChanged);
    bridge.apply({{QStringLiteral("type"), QStringLiteral("setWorkoutPlan")}, {QStringLiteral("blocks"), QStringLiteral("[{\"at\": 9}]")}});
    bridge.apply({{QStringLiteral("type"), QStringLiteral("saveSchedule")}, {QStringLiteral("blocks"), QStringLiteral("[]")}});
    EXPECT_EQ(changed.count(), 0);
    EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("schedule.json"))));

    // The ledger only ever grows: an empty or unreadable list removes nothing.
    const PromiseRecord kept{QDateTime(QDate(2026, 3, 1), QTime(9, 0), QTimeZone::utc()),
                             PromiseRecord::Outcome::Tovin, QStringLiteral("squat"), 10, 10, {}, {}};
    ledger.record(kept, false);
    for (const char* list : {"[]", "not json"})
        bridge.apply({{QStringLiteral("type"), QStringLiteral("promisesSynced")}, {QStringLiteral("promises"), QString::fromLatin1(list)}});
    EXPECT_EQ(ledger.records().size(), 1);
    Settings::setStore(nullptr);
}

#include "schedule/settings.h"

#include "core/atomic_file.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTimeZone>
#include <QVariant>

#include <gtest/gtest.h>

#include <algorithm>

using namespace tovin;

namespace {

// Each test works on its own throw-away store, restored afterwards.
class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override { Settings::setStore(store); }
    void TearDown() override { Settings::setStore(nullptr); }
    void put(const char* key, const char* json) {
        const QJsonValue v =
            QJsonDocument::fromJson(QByteArray("{\"v\":") + json + "}").object().value(u"v");
        ASSERT_FALSE(v.isUndefined()) << json;
        store->setValue(QString::fromLatin1(key), v);
    }

    std::shared_ptr<SettingsStore> store = std::make_shared<MemorySettingsStore>();
};

// Every setting as read back, in one list, so "reads as an empty store does" and "reads back
// what was written" are one comparison each, covering every reader (as text, so a failure
// reads plainly).
std::string everything() {
    const auto opt = [](const auto& v) { return v ? QVariant(*v).toString() : QStringLiteral("none"); };
    const auto num = [](auto n) { return QString::number(n); };
    QStringList fired = Settings::firedBlocks().values();
    fired.sort();
    QList<int> days = Settings::activeWeekdays().values();
    std::sort(days.begin(), days.end());
    QStringList all{Settings::escapePhrase(), num(Settings::requiredCleanReps()),
                    num(Settings::hintDelay()), num(Settings::maxShieldMinutes()),
                    opt(Settings::lockoutWorkoutID()), num(Settings::triggerAfterMinutes()),
                    num(Settings::idleResetsAfterMinutes()), num(Settings::warningSeconds()),
                    num(Settings::snoozesPerLockout()), num(Settings::snoozeMinutes()),
                    opt(Settings::busyUntil()), opt(Settings::busyReason()),
                    num(Settings::retestDueInDays()), opt(Settings::retestReportedAt()),
                    num(Settings::firedBlocksDay()), fired.join(u','),
                    num(Settings::hasOnboarded()), num(Settings::activeFromMinute()),
                    num(Settings::activeToMinute())};
    for (int day : days)
        all.append(num(day));
    return all.join(u" | ").toStdString();
}

const Calendar cal = Calendar::utc();
// Monday 2026-03-02 at HH:MM UTC.
QDateTime monday(int h, int m) {
    return QDateTime(QDate(2026, 3, 2), QTime(h, m), QTimeZone::utc());
}

} // namespace

TEST_F(SettingsTest, ClampsApplyOnRead) {
    put("maxShieldMinutes", "2");
    EXPECT_EQ(Settings::maxShieldMinutes(), 10.0);
    put("maxShieldMinutes", "45");
    EXPECT_EQ(Settings::maxShieldMinutes(), 45.0);
    put("warningSeconds", "3");
    EXPECT_EQ(Settings::warningSeconds(), 10.0);
    put("requiredCleanReps", "0");
    EXPECT_EQ(Settings::requiredCleanReps(), 1);
    put("escapePhrase", "\"LaRK Rises\"");
    EXPECT_EQ(Settings::escapePhrase(), u"lark rises");
    Settings::setEscapePhrase(QStringLiteral("OPEN Sesame"));
    EXPECT_EQ(store->value(Settings::Keys::escapePhrase).toString(), u"open sesame");
    put("activeWeekdays", "[]");
    EXPECT_EQ(Settings::activeWeekdays().size(), 7);
}

TEST_F(SettingsTest, WrongTypesReadAsTheDefault) {
    // A hand-edited or foreign file must never crash a reader or smuggle in a half-read value.
    // What an empty store reads is what a new person starts with: the phrase, the clean reps,
    // the hint delay, the valve, the trigger, the idle reset, the warning, the snoozes, the hours.
    const std::string defaults = everything();
    EXPECT_EQ(defaults, "lark | 5 | 25 | 15 | none | 50 | 5 | 60 | 1 | 10 | none | none | 9223372036854775807 | none | -1 "
                        "|  | 0 | 540 | 1080 | 1 | 2 | 3 | 4 | 5 | 6 | 7");
    const struct {
        const char* key;
        const char* json;
    } junk[] = {
        {"escapePhrase", "42"},          {"requiredCleanReps", "\"7\""},
        {"requiredCleanReps", "2.5"},    {"requiredCleanReps", "1e300"},
        {"hintDelay", "true"},           {"maxShieldMinutes", "\"45\""},
        {"lockoutWorkoutId", "17"},      {"warningSeconds", "[30]"},
        {"snoozesPerLockout", "null"},   {"snoozesPerLockout", "99999999999"},
        {"busyUntil", "1772442900"},     {"busyUntil", "\"tomorrow\""},
        {"retestDueInDays", "\"3\""},    {"retestReportedAt", "{}"},
        {"firedBlocksDay", "\"x\""},     {"firedBlocks", "[\"a\", 3]"},
        {"firedBlocks", "\"a\""},        {"hasOnboarded", "1"},
        {"activeWeekdays", "[2, \"3\"]"}, {"activeWeekdays", "{\"2\": true}"},
        {"activeFromMinute", "\"09:00\""}, {"activeToMinute", "false"},
    };
    for (const auto& j : junk) {
        put(j.key, j.json);
        EXPECT_EQ(everything(), defaults) << j.key << " = " << j.json;
    }
}

TEST_F(SettingsTest, OptionalsAreRemovedByAssigningNone) {
    Settings::setLockoutWorkoutID(QStringLiteral("classic-7"));
    EXPECT_EQ(Settings::lockoutWorkoutID(), u"classic-7");
    Settings::setLockoutWorkoutID(std::nullopt);
    EXPECT_TRUE(store->value(Settings::Keys::lockoutWorkoutID).isUndefined());
    Settings::setBusyUntil(monday(9, 0));
    Settings::setBusyUntil(std::nullopt);
    EXPECT_TRUE(store->value(Settings::Keys::busyUntil).isUndefined());
}

TEST_F(SettingsTest, BusyCountsOnlyUntilTheDeadline) {
    const QDateTime now = monday(12, 0);
    EXPECT_FALSE(Settings::isBusy(now));
    Settings::setBusyUntil(now.addSecs(-1));
    EXPECT_FALSE(Settings::isBusy(now));
    Settings::setBusyUntil(now);
    EXPECT_FALSE(Settings::isBusy(now));
    Settings::setBusyUntil(now.addMSecs(250));
    EXPECT_TRUE(Settings::isBusy(now));
}

TEST(ScheduleAllows, WeekdaysAndWindowsIncludingTheMidnightWrap) {
    const QSet<int> all{1, 2, 3, 4, 5, 6, 7};
    const QSet<int> fridays{6};
    const QDateTime friday(QDate(2026, 3, 6), QTime(23, 0), QTimeZone::utc());
    const struct {
        const char* name;
        QSet<int> days;
        int from, to;
        QDateTime at;
        bool allowed;
    } cases[] = {
        {"opening minute", all, 540, 1080, monday(9, 0), true},
        {"last minute", all, 540, 1080, monday(17, 59), true},
        {"closing minute", all, 540, 1080, monday(18, 0), false},
        {"before", all, 540, 1080, monday(8, 59), false},
        {"zero width is always", all, 600, 600, monday(3, 0), true},
        {"wrap late", all, 1320, 360, monday(23, 0), true},
        {"wrap early", all, 1320, 360, monday(5, 59), true},
        {"wrap end", all, 1320, 360, monday(6, 0), false},
        {"wrap noon", all, 1320, 360, monday(12, 0), false},
        {"friday night", fridays, 1320, 360, friday, true},
        {"saturday small hours", fridays, 1320, 360, friday.addSecs(2 * 3600), false},
        {"day off", QSet<int>{1, 7}, 0, 0, monday(12, 0), false},
        {"no clock", all, 0, 0, QDateTime(), false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Settings::scheduleAllows(c.days, c.from, c.to, c.at, cal), c.allowed) << c.name;
}

TEST(JsonFileSettingsStore, EveryValueReadsBackWithItsType) {
    const auto writeSome = [] {
        Settings::setRequiredCleanReps(7);
        Settings::setMaxShieldMinutes(22.5);
        Settings::setHasOnboarded(true);
        Settings::setBusyUntil(QDateTime(QDate(2026, 3, 2), QTime(9, 0, 5, 250), QTimeZone::utc()));
        Settings::setBusyReason(QStringLiteral("on a call"));
        Settings::setFiredBlocks({QStringLiteral("09:00|B|workout"), QStringLiteral("07:00|A|away")});
        Settings::setFiredBlocksDay(2461102);
        Settings::setActiveWeekdays({6, 2});
        // Above 2^53, so a store that kept it as a double would read back another number.
        Settings::setRetestDueInDays(9'007'199'254'740'993);
    };
    // The memory store keeps the very JSON values given: the reference the file must match.
    Settings::setStore(std::make_shared<MemorySettingsStore>());
    writeSome();
    const std::string written = everything();
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("settings.json"));
    Settings::setStore(std::make_shared<JsonFileSettingsStore>(path));
    writeSome();
    Settings::setStore(std::make_shared<JsonFileSettingsStore>(path)); // a fresh read of the file
    EXPECT_EQ(everything(), written);
    Settings::setStore(nullptr);
}

TEST(JsonFileSettingsStore, SeesHandEditsAndSurvivesGarbage) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("settings.json"));
    JsonFileSettingsStore store(path);
    store.setValue(QStringLiteral("snoozeMinutes"), 12);
    EXPECT_EQ(store.value(QStringLiteral("snoozeMinutes")).toDouble(), 12);

    // An edit made behind the store's back is seen on the next read.
    ASSERT_TRUE(writeFileAtomically(path, "{\"snoozeMinutes\": 13}\n"));
    EXPECT_EQ(store.value(QStringLiteral("snoozeMinutes")).toDouble(), 13);

    for (const QByteArray& garbage :
         {QByteArray("not json"), QByteArray("[1,2]"), QByteArray("\xff\xfe{\"a\":1}"),
          QByteArray(4000, '['), QByteArray()}) {
        ASSERT_TRUE(writeFileAtomically(path, garbage));
        EXPECT_TRUE(store.value(QStringLiteral("snoozeMinutes")).isUndefined());
    }

    // Writing over an unreadable file keeps a copy of it first: nothing the person wrote is lost.
    ASSERT_TRUE(writeFileAtomically(path, "{\"snoozeMinutes\": 13,"));
    store.setValue(QStringLiteral("hasOnboarded"), true);
    const QStringList copies =
        QDir(dir.path()).entryList({QStringLiteral("settings.json.unreadable-*")});
    ASSERT_EQ(copies.size(), 1);
    EXPECT_EQ(readWholeFile(dir.filePath(copies[0]), 1024), QByteArray("{\"snoozeMinutes\": 13,"));
    EXPECT_TRUE(store.value(QStringLiteral("hasOnboarded")).toBool());
}

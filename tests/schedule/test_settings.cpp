#include "schedule/settings.h"

#include "core/atomic_file.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

// Each test works on its own throw-away store, restored afterwards.
class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override { use(std::make_shared<MemorySettingsStore>(QStringLiteral("test"))); }
    void TearDown() override { Settings::setStore(nullptr); }

    void use(std::shared_ptr<SettingsStore> s) {
        store = s;
        Settings::setStore(std::move(s));
    }
    void put(const char* key, const char* json) {
        const QJsonValue v =
            QJsonDocument::fromJson(QByteArray("{\"v\":") + json + "}").object().value(u"v");
        ASSERT_FALSE(v.isUndefined()) << json;
        store->setValue(QString::fromLatin1(key), v);
    }

    std::shared_ptr<SettingsStore> store;
};

const Calendar cal = Calendar::utc();
// Monday 2026-03-02 at HH:MM UTC.
QDateTime monday(int h, int m) {
    return QDateTime(QDate(2026, 3, 2), QTime(h, m), QTimeZone::utc());
}

} // namespace

TEST_F(SettingsTest, DefaultsWhenNothingIsStored) {
    EXPECT_EQ(Settings::escapePhrase(), u"lark");
    EXPECT_EQ(Settings::requiredCleanReps(), 5);
    EXPECT_EQ(Settings::hintDelay(), 25.0);
    EXPECT_EQ(Settings::maxShieldMinutes(), 15.0);
    EXPECT_EQ(Settings::lockoutWorkoutID(), std::nullopt);
    EXPECT_EQ(Settings::triggerAfterMinutes(), 50.0);
    EXPECT_EQ(Settings::idleResetsAfterMinutes(), 5.0);
    EXPECT_EQ(Settings::warningSeconds(), 60.0);
    EXPECT_EQ(Settings::snoozesPerLockout(), 1);
    EXPECT_EQ(Settings::snoozeMinutes(), 10.0);
    EXPECT_EQ(Settings::busyUntil(), std::nullopt);
    EXPECT_EQ(Settings::busyReason(), std::nullopt);
    EXPECT_EQ(Settings::retestDueInDays(), std::numeric_limits<qint64>::max());
    EXPECT_EQ(Settings::retestReportedAt(), std::nullopt);
    EXPECT_EQ(Settings::firedBlocksDay(), -1);
    EXPECT_TRUE(Settings::firedBlocks().isEmpty());
    EXPECT_FALSE(Settings::hasOnboarded());
    EXPECT_EQ(Settings::activeWeekdays(), (QSet<int>{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(Settings::activeFromMinute(), 540);
    EXPECT_EQ(Settings::activeToMinute(), 1080);
}

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
    // Each junk value is read back at once, before the next row can overwrite its key.
    const auto isDefault = [](const char* key) -> bool {
        const QString k = QString::fromLatin1(key);
        if (k == u"escapePhrase") return Settings::escapePhrase() == u"lark";
        if (k == u"requiredCleanReps") return Settings::requiredCleanReps() == 5;
        if (k == u"hintDelay") return Settings::hintDelay() == 25.0;
        if (k == u"maxShieldMinutes") return Settings::maxShieldMinutes() == 15.0;
        if (k == u"lockoutWorkoutId") return Settings::lockoutWorkoutID() == std::nullopt;
        if (k == u"warningSeconds") return Settings::warningSeconds() == 60.0;
        if (k == u"snoozesPerLockout") return Settings::snoozesPerLockout() == 1;
        if (k == u"busyUntil") return Settings::busyUntil() == std::nullopt;
        if (k == u"retestDueInDays") return Settings::retestDueInDays() == std::numeric_limits<qint64>::max();
        if (k == u"retestReportedAt") return Settings::retestReportedAt() == std::nullopt;
        if (k == u"firedBlocksDay") return Settings::firedBlocksDay() == -1;
        if (k == u"firedBlocks") return Settings::firedBlocks().isEmpty();
        if (k == u"hasOnboarded") return !Settings::hasOnboarded();
        if (k == u"activeWeekdays") return Settings::activeWeekdays().size() == 7;
        if (k == u"activeFromMinute") return Settings::activeFromMinute() == 540;
        if (k == u"activeToMinute") return Settings::activeToMinute() == 1080;
        ADD_FAILURE() << "no reader for " << key;
        return false;
    };
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
        EXPECT_TRUE(isDefault(j.key)) << j.key << " = " << j.json;
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
        {"zero width late", all, 600, 600, monday(23, 59), true},
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

TEST_F(SettingsTest, StoredHoursDriveScheduleAllows) {
    const QDateTime saturday(QDate(2026, 3, 7), QTime(12, 0), QTimeZone::utc());
    EXPECT_TRUE(Settings::scheduleAllows(saturday, cal)); // every day by default
    EXPECT_TRUE(Settings::scheduleAllows(monday(9, 0), cal));
    EXPECT_FALSE(Settings::scheduleAllows(monday(18, 0), cal));
    Settings::setActiveWeekdays({2, 3, 4, 5, 6});
    Settings::setActiveFromMinute(1320);
    Settings::setActiveToMinute(360);
    EXPECT_FALSE(Settings::scheduleAllows(saturday, cal));
    EXPECT_TRUE(Settings::scheduleAllows(monday(23, 30), cal));
    EXPECT_FALSE(Settings::scheduleAllows(monday(12, 0), cal));
}

TEST(JsonFileSettingsStore, ValuesRoundTripWithTheirTypes) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("settings.json"));
    Settings::setStore(std::make_shared<JsonFileSettingsStore>(path));
    const QDateTime busy(QDate(2026, 3, 2), QTime(9, 0, 5, 250), QTimeZone::utc());
    Settings::setRequiredCleanReps(7);
    Settings::setMaxShieldMinutes(22.5);
    Settings::setHasOnboarded(true);
    Settings::setBusyUntil(busy);
    Settings::setFiredBlocks({QStringLiteral("09:00|B|workout"), QStringLiteral("07:00|A|away")});
    Settings::setFiredBlocksDay(2461102);
    Settings::setActiveWeekdays({6, 2});
    Settings::setRetestDueInDays(std::numeric_limits<qint64>::max());

    // A fresh store over the same file reads the same values back with the same types.
    auto reopened = std::make_shared<JsonFileSettingsStore>(path);
    Settings::setStore(reopened);
    EXPECT_EQ(Settings::requiredCleanReps(), 7);
    EXPECT_EQ(Settings::maxShieldMinutes(), 22.5);
    EXPECT_TRUE(Settings::hasOnboarded());
    EXPECT_EQ(Settings::busyUntil(), busy);
    EXPECT_EQ(Settings::firedBlocks(),
              (QSet<QString>{QStringLiteral("09:00|B|workout"), QStringLiteral("07:00|A|away")}));
    EXPECT_EQ(Settings::firedBlocksDay(), 2461102);
    EXPECT_EQ(Settings::activeWeekdays(), (QSet<int>{2, 6}));
    EXPECT_EQ(Settings::retestDueInDays(), std::numeric_limits<qint64>::max());

    // On disk: typed JSON, not strings.
    const QJsonObject disk = QJsonDocument::fromJson(*readWholeFile(path, 1 << 20)).object();
    EXPECT_TRUE(disk.value(u"requiredCleanReps").isDouble());
    EXPECT_TRUE(disk.value(u"hasOnboarded").isBool());
    EXPECT_TRUE(disk.value(u"activeWeekdays").isArray());
    EXPECT_TRUE(disk.value(u"busyUntil").isString());
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

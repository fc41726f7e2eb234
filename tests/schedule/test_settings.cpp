#include "core/atomic_file.h"
#include "resident/records/settings.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTimeZone>
#include <QVariant>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

// Each test works on its own throw-away store, restored afterwards.
class SettingsTest : public ::testing::Test {
protected:
    void put(const char* key, const char* json) {
        const QJsonValue v =
            QJsonDocument::fromJson(QByteArray("{\"v\":") + json + "}").object().value(u"v");
        ASSERT_FALSE(v.isUndefined()) << json;
        store->setValue(QString::fromLatin1(key), v);
    }

    std::shared_ptr<SettingsStore> store = std::make_shared<MemorySettingsStore>();
    Preferences prefs{*store};
};

// Every setting as read back, as one text: one comparison covers every reader, and a failure
// reads plainly.
std::string everything(const Preferences& prefs) {
    const auto opt = [](const auto& v) {
        return v ? QVariant(*v).toString() : QStringLiteral("none");
    };
    const auto num = [](auto n) { return QString::number(n); };
    QStringList fired = prefs.firedBlocks().values();
    fired.sort();
    QStringList days;
    for (int day : prefs.activeWeekdays())
        days.append(num(day));
    days.sort(); // single digits, so text order is number order
    QStringList all{prefs.escapePhrase(),
                    num(prefs.requiredCleanReps()),
                    num(prefs.hintDelay()),
                    num(prefs.maxShieldMinutes()),
                    opt(prefs.lockoutWorkoutID()),
                    num(prefs.triggerAfterMinutes()),
                    num(prefs.idleResetsAfterMinutes()),
                    num(prefs.warningSeconds()),
                    num(prefs.snoozesPerLockout()),
                    num(prefs.snoozeMinutes()),
                    opt(prefs.busyUntil()),
                    opt(prefs.busyReason()),
                    num(prefs.retestDueInDays()),
                    opt(prefs.retestReportedAt()),
                    num(prefs.firedBlocksDay()),
                    fired.join(u','),
                    num(prefs.hasOnboarded()),
                    num(prefs.activeFromMinute()),
                    num(prefs.activeToMinute()),
                    days.join(u" | ")};
    return all.join(u" | ").toStdString();
}

const Calendar cal = Calendar::utc();
// Monday 2026-03-02 at HH:MM UTC.
QDateTime monday(int h, int m) {
    return QDateTime(QDate(2026, 3, 2), QTime(h, m), QTimeZone::utc());
}

} // namespace

TEST_F(SettingsTest, WrongTypesReadAsTheDefault) {
    // A hand-edited or foreign file must never crash a reader or smuggle in a half-read value.
    // What an empty store reads is what a new person starts with.
    const std::string defaults = everything(prefs);
    EXPECT_EQ(defaults, "lark | 5 | 25 | 15 | none | 50 | 5 | 60 | 1 | 10 | none | none | "
                        "9223372036854775807 | none | -1 "
                        "|  | 0 | 540 | 1080 | 1 | 2 | 3 | 4 | 5 | 6 | 7");
    const struct {
        const char* key;
        const char* json;
    } junk[] = {
        {"escapePhrase", "42"},
        {"requiredCleanReps", "\"7\""},
        {"snoozesPerLockout", "99999999999"},
        {"hintDelay", "true"},
        {"maxShieldMinutes", "\"45\""},
        {"lockoutWorkoutId", "17"},
        {"warningSeconds", "[30]"},
        {"busyUntil", "1772442900"},
        {"retestDueInDays", "\"3\""},
        {"firedBlocksDay", "\"x\""},
        {"firedBlocks", "[\"a\", 3]"},
        {"hasOnboarded", "1"},
        {"activeWeekdays", "[2, \"3\"]"},
        {"activeFromMinute", "\"09:00\""},
        {"activeToMinute", "false"},
    };
    for (const auto& j : junk) {
        put(j.key, j.json);
        EXPECT_EQ(everything(prefs), defaults) << j.key << " = " << j.json;
    }
}

TEST_F(SettingsTest, ClampsApplyOnRead) {
    put("escapePhrase", "\"LaRK Rises\"");
    put("requiredCleanReps", "0");
    put("maxShieldMinutes", "2");
    put("warningSeconds", "3");
    put("activeWeekdays", "[]");
    EXPECT_EQ(everything(prefs),
              "lark rises | 1 | 25 | 10 | none | 50 | 5 | 10 | 1 | 10 | none | none | "
              "9223372036854775807 | none | -1 |  | 0 | 540 | 1080 | 1 | 2 | 3 | 4 | 5 | 6 | 7");
}

TEST_F(SettingsTest, BusyCountsOnlyUntilTheDeadline) {
    const QDateTime now = monday(12, 0);
    EXPECT_FALSE(prefs.isBusy(now));
    // Kept to the millisecond: a quarter of a second ahead is still busy.
    for (const auto& [aheadMs, busy] : {std::pair{-1000, false}, {0, false}, {250, true}}) {
        prefs.setBusyUntil(now.addMSecs(aheadMs));
        EXPECT_EQ(prefs.isBusy(now), busy) << aheadMs;
    }
}

TEST(ScheduleAllows, WeekdaysAndWindowsIncludingTheMidnightWrap) {
    const QSet<int> all{1, 2, 3, 4, 5, 6, 7};
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
        {"monday night", QSet<int>{2}, 1320, 360, monday(23, 0), true},
        {"tuesday small hours", QSet<int>{2}, 1320, 360, monday(23, 0).addSecs(7200), false},
        {"day off", QSet<int>{1, 7}, 0, 0, monday(12, 0), false},
        {"no clock", all, 0, 0, QDateTime(), false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Settings::scheduleAllows(c.days, c.from, c.to, c.at, cal), c.allowed) << c.name;
}

// Written through one file store and read by a fresh one: the setters, and every JSON type
// surviving the file.
TEST_F(SettingsTest, EveryValueReadsBackFromTheFileWithItsType) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("settings.json"));
    JsonFileSettingsStore written(path);
    Preferences prefs(written);
    prefs.setRequiredCleanReps(7);
    prefs.setMaxShieldMinutes(22.5);
    prefs.setHasOnboarded(true);
    prefs.setLockoutWorkoutID(QStringLiteral("classic-7"));
    prefs.setLockoutWorkoutID(std::nullopt); // removed, so setup reads as unfinished again
    prefs.setBusyUntil(QDateTime(QDate(2026, 3, 2), QTime(9, 0, 5, 250), QTimeZone::utc()));
    prefs.setBusyReason(QStringLiteral("on a call"));
    prefs.setFiredBlocks({QStringLiteral("09:00|B|workout"), QStringLiteral("07:00|A|away")});
    prefs.setFiredBlocksDay(2461102);
    prefs.setActiveWeekdays({6, 2});
    // Above 2^53, so a store that kept it as a double would read back another number.
    prefs.setRetestDueInDays(9'007'199'254'740'993);
    JsonFileSettingsStore read(path);
    EXPECT_EQ(
        everything(Preferences(read)),
        "lark | 7 | 25 | 22.5 | none | 50 | 5 | 60 | 1 | 10 | 2026-03-02T09:00:05.250+00:00 | "
        "on a call | 9007199254740993 | none | 2461102 | 07:00|A|away,09:00|B|workout | 1 | "
        "540 | 1080 | 2 | 6");
}

TEST(JsonFileSettingsStore, SeesHandEditsAndSurvivesGarbage) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("settings.json"));
    const QString snooze = QStringLiteral("snoozeMinutes");
    JsonFileSettingsStore store(path);
    store.setValue(snooze, 12);
    // An edit made behind the store's back is seen on the next read.
    ASSERT_TRUE(writeFileAtomically(path, "{\"snoozeMinutes\": 13}\n"));
    EXPECT_EQ(store.value(snooze).toDouble(), 13);
    for (const char* garbage : {"not json", "[1,2]", ""}) {
        ASSERT_TRUE(writeFileAtomically(path, garbage));
        EXPECT_TRUE(store.value(snooze).isUndefined()) << garbage;
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

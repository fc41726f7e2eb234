#include "schedule/schedule_store.h"

#include "core/atomic_file.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

Block block(const char* at, const char* label, Block::Kind kind = Block::Kind::Workout) {
    return Block{QString::fromUtf8(at), QString::fromUtf8(label), kind, {}, {}};
}

QStringList times(const QList<Block>& blocks) {
    QStringList out;
    for (const Block& b : blocks)
        out.append(b.at);
    return out;
}

class ScheduleStoreTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path = dir.filePath(QStringLiteral("Tovin/schedule.json"));
};

} // namespace

TEST_F(ScheduleStoreTest, SaveSortsByTimeOfDayAndRoundTrips) {
    QList<Block> week{block("16:30", "Walk", Block::Kind::Away), block("07:00", "Early"),
                      block("noon", "Broken"), block("7:00", "Early twin")};
    week[0].minutes = 15;
    week[1].days = QList<int>{2, 4};
    ScheduleStore::saveAll(week, path);
    const QList<Block> loaded = ScheduleStore::load(path);
    EXPECT_EQ(times(loaded), (QStringList{QStringLiteral("noon"), QStringLiteral("07:00"), QStringLiteral("7:00"), QStringLiteral("16:30")}));
    EXPECT_EQ(loaded[3], week[0]);
    EXPECT_EQ(loaded[1], week[1]);
}

TEST_F(ScheduleStoreTest, FileFormIsSortedKeyPrettyJson) {
    Block b = block("9:05", "Morning");
    b.minutes = 20;
    b.days = QList<int>{2};
    ScheduleStore::saveAll({b, block("10:00", "Plain", Block::Kind::Retest)}, path);
    const QByteArray expected = R"({
    "blocks": [
        {
            "at": "9:05",
            "days": [
                2
            ],
            "kind": "workout",
            "label": "Morning",
            "minutes": 20
        },
        {
            "at": "10:00",
            "kind": "retest",
            "label": "Plain"
        }
    ]
}
)";
    EXPECT_EQ(readWholeFile(path, 1 << 20), expected);
}

TEST_F(ScheduleStoreTest, EveryEditSticks) {
    Block a = block("08:00", "A");
    Block b = block("09:00", "B");
    b.days = QList<int>{2};
    ScheduleStore::saveAll({a, b}, path);

    b.days = QList<int>{5}; // moved to Thursday
    ScheduleStore::saveAll({b}, path); // and A deleted
    EXPECT_EQ(ScheduleStore::load(path), QList<Block>{b});

    ScheduleStore::saveAll({}, path); // clearing the week clears it
    EXPECT_EQ(readWholeFile(path, 1 << 20), QByteArray("{\n    \"blocks\": [\n    ]\n}\n"));
    EXPECT_TRUE(ScheduleStore::load(path).isEmpty());
}

TEST_F(ScheduleStoreTest, WorkoutPlanReplacesEveryWorkoutAndKeepsTheRest) {
    ScheduleStore::saveAll({block("12:00", "Lunch walk", Block::Kind::Away), block("08:00", "Old 1"),
                            block("17:00", "Old 2"), block("07:00", "Retest", Block::Kind::Retest)},
                           path);
    const QList<Block> plan{block("10:00", "Session 1"), block("14:00", "Session 2"),
                            block("9:00", "Session 3")};
    ScheduleStore::saveWorkoutPlan(plan, path);
    const QList<Block> once = ScheduleStore::load(path);
    EXPECT_EQ(times(once),
              (QStringList{QStringLiteral("07:00"), QStringLiteral("9:00"), QStringLiteral("10:00"), QStringLiteral("12:00"), QStringLiteral("14:00")}));
    ScheduleStore::saveWorkoutPlan(plan, path);
    EXPECT_EQ(ScheduleStore::load(path), once); // the same plan again changes nothing
}

TEST_F(ScheduleStoreTest, PlanOverAnUnreadableWeekStartsFromEmpty) {
    ASSERT_TRUE(writeFileAtomically(path, "{ broken"));
    ScheduleStore::saveWorkoutPlan({block("10:00", "S")}, path);
    EXPECT_EQ(times(ScheduleStore::load(path)), QStringList{QStringLiteral("10:00")});
    // What the person had written is kept beside it.
    EXPECT_EQ(QDir(QFileInfo(path).path())
                  .entryList({QStringLiteral("schedule.json.unreadable-*")})
                  .size(),
              1);
}

TEST_F(ScheduleStoreTest, AnyBadBlockMakesTheWholeWeekEmpty) {
    const char* files[] = {
        R"({"blocks":[{"at":"09:00","label":"A","kind":"workout"},{"at":"10:00","label":"B","kind":"nap"}]})",
        R"({"blocks":[{"at":"09:00","kind":"workout"}]})",
        R"({"blocks":[{"at":900,"label":"A","kind":"workout"}]})",
        R"({"blocks":[{"at":"09:00","label":"A","kind":"workout","minutes":"10"}]})",
        R"({"blocks":[{"at":"09:00","label":"A","kind":"workout","minutes":10.5}]})",
        R"({"blocks":[{"at":"09:00","label":"A","kind":"workout","minutes":1e40}]})",
        R"({"blocks":[{"at":"09:00","label":"A","kind":"workout","days":[2,"3"]}]})",
        R"({"blocks":[{"at":"09:00","label":"A","kind":"workout","days":2}]})",
        R"({"blocks":{"at":"09:00"}})",
        R"({"week":[]})",
        R"([])",
        "\xef\xbb\xbf\xff",
        "",
    };
    for (const char* bytes : files) {
        ASSERT_TRUE(writeFileAtomically(path, bytes));
        EXPECT_TRUE(ScheduleStore::load(path).isEmpty()) << bytes;
    }
}

TEST_F(ScheduleStoreTest, ToleratesUnknownKeysAndNulls) {
    ASSERT_TRUE(writeFileAtomically(
        path, R"({"version":3,"blocks":[{"at":"9:00","label":"A","kind":"away","minutes":null,
                  "days":null,"colour":"teal"}]})"));
    const QList<Block> loaded = ScheduleStore::load(path);
    ASSERT_EQ(loaded.size(), 1);
    EXPECT_EQ(loaded[0], block("9:00", "A", Block::Kind::Away));
}

TEST_F(ScheduleStoreTest, ExampleWeekOnlyWhereThereIsNoFile) {
    ScheduleStore::writeExampleIfMissing(path);
    const QList<Block> example = ScheduleStore::load(path);
    ASSERT_EQ(example.size(), 2);
    EXPECT_EQ(example[0].key(), u"13:00|The Classic 7|workout");
    EXPECT_EQ(example[0].days, (QList<int>{2, 3, 4, 5, 6}));
    EXPECT_EQ(example[1].key(), u"16:30|Walk|away");
    EXPECT_EQ(example[1].minutes, 15);

    ASSERT_TRUE(writeFileAtomically(path, "hand-written nonsense"));
    ScheduleStore::writeExampleIfMissing(path);
    EXPECT_EQ(readWholeFile(path, 1024), QByteArray("hand-written nonsense"));
}

TEST_F(ScheduleStoreTest, EverySaveAnnouncesTheChange) {
    QSignalSpy spy(ScheduleChangeNotifier::instance(),
                   &ScheduleChangeNotifier::tovinScheduleChanged);
    ScheduleStore::saveAll({block("9:00", "A")}, path);
    ScheduleStore::saveWorkoutPlan({block("10:00", "B")}, path);
    EXPECT_EQ(spy.count(), 2);
    ScheduleStore::writeExampleIfMissing(dir.filePath(QStringLiteral("other.json")));
    EXPECT_EQ(spy.count(), 2); // the example week is not an edit
}

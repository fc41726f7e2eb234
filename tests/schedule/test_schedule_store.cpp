#include "schedule/schedule_store.h"

#include "core/atomic_file.h"

#include <QDir>
#include <QJsonDocument>
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
    // A malformed time sorts first; equal minutes keep the order they were given in.
    EXPECT_EQ(times(loaded), (QStringList{u"noon"_qs, u"07:00"_qs, u"7:00"_qs, u"16:30"_qs}));
    EXPECT_EQ(loaded[3], week[0]);
    EXPECT_EQ(loaded[1], week[1]);
}

TEST_F(ScheduleStoreTest, FileFormLeavesOutWhatIsNotSet) {
    Block b = block("9:05", "Morning");
    b.minutes = 20;
    b.days = QList<int>{2};
    ScheduleStore::saveAll({b, block("10:00", "Plain", Block::Kind::Retest)}, path);
    const QByteArray file = readWholeFile(path, 1 << 20).value_or(QByteArray());
    EXPECT_TRUE(file.startsWith("{\n    \"blocks\": [\n")) << "indented for hand edits";
    // An absent length or day list is left out, not written as null; numbers stay numbers.
    EXPECT_EQ(QJsonDocument::fromJson(file).toJson(QJsonDocument::Compact),
              R"({"blocks":[{"at":"9:05","days":[2],"kind":"workout","label":"Morning","minutes":20},)"
              R"({"at":"10:00","kind":"retest","label":"Plain"}]})");
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
    EXPECT_EQ(times(once), (QStringList{u"07:00"_qs, u"9:00"_qs, u"10:00"_qs, u"12:00"_qs, u"14:00"_qs}));
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
    EXPECT_FALSE(ScheduleStore::load(path).isEmpty()) << "the example week is readable";
    // Any file at all is the person's, even one that does not parse.
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

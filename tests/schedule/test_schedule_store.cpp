#include "core/atomic_file.h"
#include "resident/records/schedule_store.h"

#include <QDir>
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
    ScheduleStore(path).saveAll(week);
    const QList<Block> loaded = ScheduleStore::load(path);
    // A malformed time sorts first; equal minutes keep the order they were given in.
    EXPECT_EQ(times(loaded), (QStringList{u"noon"_qs, u"07:00"_qs, u"7:00"_qs, u"16:30"_qs}));
    EXPECT_EQ(loaded[3], week[0]);
    EXPECT_EQ(loaded[1], week[1]);
    ScheduleStore(path).saveAll({}); // clearing the week clears it
    EXPECT_TRUE(ScheduleStore::load(path).isEmpty());
}

TEST_F(ScheduleStoreTest, WorkoutPlanReplacesEveryWorkoutAndKeepsTheRest) {
    ScheduleStore(path).saveAll({block("12:00", "Lunch walk", Block::Kind::Away),
                                 block("08:00", "Old 1"), block("17:00", "Old 2"),
                                 block("07:00", "Retest", Block::Kind::Retest)});
    const QList<Block> plan{block("10:00", "Session 1"), block("14:00", "Session 2"),
                            block("9:00", "Session 3")};
    ScheduleStore(path).saveWorkoutPlan(plan);
    const QList<Block> once = ScheduleStore::load(path);
    EXPECT_EQ(times(once),
              (QStringList{u"07:00"_qs, u"9:00"_qs, u"10:00"_qs, u"12:00"_qs, u"14:00"_qs}));
    ScheduleStore(path).saveWorkoutPlan(plan);
    EXPECT_EQ(ScheduleStore::load(path), once); // the same plan again changes nothing
}

TEST_F(ScheduleStoreTest, TheExampleWeekOnlyWhereThereIsNoFileAndNoWeekIsLost) {
    ScheduleStore(path).writeExampleIfMissing();
    EXPECT_EQ(ScheduleStore::load(path), ScheduleStore::exampleWeek());
    // Any file at all is the person's, even one that does not parse: the example week never
    // replaces it, and a plan written over it keeps a copy beside it.
    ASSERT_TRUE(writeFileAtomically(path, "{ broken"));
    ScheduleStore(path).writeExampleIfMissing();
    EXPECT_EQ(readWholeFile(path, 1024), QByteArray("{ broken"));
    ScheduleStore(path).saveWorkoutPlan({block("10:00", "S")});
    EXPECT_EQ(times(ScheduleStore::load(path)), QStringList{QStringLiteral("10:00")});
    const QDir folder = QFileInfo(path).dir();
    EXPECT_EQ(folder.entryList({QStringLiteral("schedule.json.unreadable-*")}).size(), 1);
}

// Any bad block refuses the whole week, never a partial one; unknown keys and nulls are fine.
TEST_F(ScheduleStoreTest, AnyBadBlockMakesTheWholeWeekEmpty) {
    const struct {
        const char* bytes;
        qsizetype blocks;
    } files[] = {
        {R"({"version":3,"blocks":[{"at":"9:00","label":"A","kind":"away","minutes":null,)"
         R"("days":null,"colour":"teal"}]})",
         1},
        {R"({"blocks":[{"at":"09:00","label":"A","kind":"workout"},)"
         R"({"at":"10:00","label":"B","kind":"nap"}]})",
         0},
        {R"({"blocks":[{"at":"09:00","kind":"workout"}]})", 0},
        {R"({"blocks":[{"at":900,"label":"A","kind":"workout"}]})", 0},
        {R"({"blocks":[{"at":"09:00","label":"A","kind":"workout","minutes":"10"}]})", 0},
        {R"({"blocks":[{"at":"09:00","label":"A","kind":"workout","minutes":10.5}]})", 0},
        {R"({"blocks":[{"at":"09:00","label":"A","kind":"workout","days":[2,"3"]}]})", 0},
        {R"({"blocks":[{"at":"09:00","label":"A","kind":"workout","days":2}]})", 0},
        {R"({"blocks":{"at":"09:00"}})", 0},
        {R"([])", 0},
        {"", 0},
    };
    for (const auto& f : files) {
        ASSERT_TRUE(writeFileAtomically(path, f.bytes));
        EXPECT_EQ(ScheduleStore::load(path).size(), f.blocks) << f.bytes;
    }
}

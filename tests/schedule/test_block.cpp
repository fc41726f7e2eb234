#include "core/schedule.h"

#include <gtest/gtest.h>

using namespace tovin;

TEST(Block, TimeTextIsReadStrictly) {
    const struct {
        const char16_t* at;
        std::optional<int> minute;
    } cases[] = {
        {u"9:05", 545},
        {u"09:05", 545},
        {u"00:00", 0},
        {u"23:59", 1439},
        {u"+9:05", 545},
        {u"9::05", 545},
        {u":9:05:", 545},
        {u"25:00", {}},
        {u"12:60", {}},
        {u"noon", {}},
        {u"1230", {}},
        {u"-1:30", {}},
        {u"9: 05", {}},
        {u" 9:05", {}},
        {u"9:05:00", {}},
        {u"", {}},
        {u":", {}},
        {u"9:-0", 540},
        {u"99999999999:00", {}},
        {u"٩:05", {}}, // Arabic-Indic digit: not base-10 ASCII
    };
    for (const auto& c : cases) {
        Block b{QString::fromUtf16(c.at), QStringLiteral("x"), Block::Kind::Workout, {}, {}};
        EXPECT_EQ(b.minuteOfDay(), c.minute) << QString::fromUtf16(c.at).toStdString();
    }
}

// The key is what the served-today set remembers: editing a block's length or days must not
// make it due again the same day, but a different kind is a different block.
TEST(Block, KeyIsTimeLabelAndKindOnly) {
    const Block a{QStringLiteral("07:30"), QStringLiteral("Morning"), Block::Kind::Workout, {}, {}};
    Block b{a.at, a.label, a.kind, 20, QList<int>{2}};
    EXPECT_EQ(a.key(), u"07:30|Morning|workout");
    EXPECT_EQ(b.key(), a.key());
    b.kind = Block::Kind::Away;
    EXPECT_NE(b.key(), a.key());
}

TEST(Block, HeldMinutesDefaultFloorAndCap) {
    const std::pair<std::optional<int>, double> cases[] = {{{}, 10.0}, {-5, 1.0},  {1, 1.0},
                                                           {25, 25.0}, {60, 60.0}, {500, 60.0}};
    for (const auto& [stored, held] : cases) {
        const Block b{QStringLiteral("9:00"), QStringLiteral("x"), Block::Kind::Away, stored, {}};
        EXPECT_EQ(Schedule::heldMinutes(b), held) << stored.value_or(-1);
    }
}

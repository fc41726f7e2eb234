#include "core/atomic_file.h"
#include "resident/records/journal.h"
#include "resident/records/promise_ledger.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace tovin;
using Outcome = PromiseRecord::Outcome;
using Reason = PromiseRecord::Reason;

namespace {

QDateTime day(int d) {
    return QDateTime(QDate(2026, 3, d), QTime(9, 15), QTimeZone::utc());
}

PromiseRecord held(int d, bool attested = false) {
    return {day(d),
            Outcome::Tovin,
            QStringLiteral("squat"),
            12,
            10,
            {},
            attested ? std::optional(true) : std::nullopt};
}

PromiseRecord broke(int d, Reason why = Reason::DidntFeelLikeIt) {
    return PromiseRecord{day(d), Outcome::Broken, QStringLiteral("squat"), 4, 3, why, {}};
}

class LedgerTest : public ::testing::Test {
protected:
    PromiseLedger fill(const QList<PromiseRecord>& records) {
        PromiseLedger ledger(path);
        for (const auto& r : records)
            ledger.record(r, false);
        return ledger;
    }

    QTemporaryDir dir;
    QString path = dir.filePath(QStringLiteral("Tovin/promises.json"));
};

} // namespace

TEST_F(LedgerTest, StreaksCountsAndStanding) {
    const struct {
        const char* name;
        QList<PromiseRecord> records;
        int tovin, broken, attested, streak, best;
        const char16_t* standing;
    } cases[] = {
        {"fresh", {}, 0, 0, 0, 0, 0, u"This would be the first one you break."},
        {"one held", {held(1)}, 1, 0, 0, 1, 1, u"1 tovin · 0 broken. This breaks a streak of 1."},
        {"held held broken",
         {held(1), held(2), broke(3)},
         2,
         1,
         0,
         0,
         2,
         u"2 tovin · 1 broken. Your streak is already at zero."},
        {"attested",
         {held(1), broke(2), held(3, true), held(4)},
         3,
         1,
         1,
         2,
         2,
         u"3 tovin (1 on your word) · 1 broken. This breaks a streak of 2."},
        {"best survives a break",
         {held(1), held(2), held(3), broke(4), held(5)},
         4,
         1,
         0,
         1,
         3,
         u"4 tovin · 1 broken. This breaks a streak of 1."},
        {"only broken",
         {broke(1), broke(2, Reason::Urgent)},
         0,
         2,
         0,
         0,
         0,
         u"0 tovin · 2 broken. Your streak is already at zero."},
    };
    for (const auto& c : cases) {
        QFile::remove(path);
        const PromiseLedger ledger = fill(c.records);
        EXPECT_EQ(ledger.tovin(), c.tovin) << c.name;
        EXPECT_EQ(ledger.broken(), c.broken) << c.name;
        EXPECT_EQ(ledger.attestedCount(), c.attested) << c.name;
        EXPECT_EQ(ledger.streak(), c.streak) << c.name;
        EXPECT_EQ(ledger.longestStreak(), c.best) << c.name;
        EXPECT_EQ(ledger.standing(), QString::fromUtf16(c.standing)) << c.name;
    }
    // The same for the page, each count (all different here) under its own name.
    QFile::remove(path);
    EXPECT_EQ(fill({held(1), held(2), held(3), broke(4), broke(5), held(6)}).standingJSON(),
              u"{\"streak\":1,\"tovin\":4,\"broken\":2,\"attested\":0,\"best\":3}");
}

TEST_F(LedgerTest, SurvivesAReloadAndReachesThePageExactly) {
    PromiseRecord odd = held(5);
    odd.exercise = QStringLiteral("\"quoted\" \\ back\nslash\t☃ 😀 \x01");
    odd.date = odd.date.addMSecs(750); // memory keeps whole seconds, like the file
    const PromiseLedger ledger = fill({broke(1, Reason::Urgent), odd, held(6, true)});
    EXPECT_EQ(ledger.records()[1].date, day(5));
    EXPECT_EQ(PromiseLedger(path).records(), ledger.records());
    const QString json = ledger.asBridgeJSON();
    EXPECT_FALSE(json.contains(u'\n')) << "the page takes one line";
    EXPECT_EQ(PromiseJson::decode(json.toUtf8()), ledger.records());

    // Lone surrogates in a name still make valid UTF-8, which the page's JSON.parse needs.
    PromiseRecord hostile = held(1);
    hostile.exercise = QString(QChar(0xD800)) + u"x" + QChar(0xDC00);
    const QByteArray compact = PromiseJson::encode({hostile}, PromiseJson::Layout::Compact);
    EXPECT_TRUE(QUtf8StringView(compact).isValidUtf8());
    EXPECT_EQ(PromiseJson::decode(compact).value().value(0).exercise, u"\uFFFDx\uFFFD");
}

TEST_F(LedgerTest, AdoptOnlyGrowsAndSortsByDate) {
    PromiseLedger ledger = fill({held(3), broke(5)});
    const auto before = ledger.records();
    EXPECT_FALSE(ledger.adopt({held(9)}));
    EXPECT_EQ(ledger.records(), before);

    // Equal dates keep their incoming order (stable).
    EXPECT_TRUE(ledger.adopt({broke(5), held(4, true), held(3), held(1), held(4)}));
    const QList<PromiseRecord> sorted{held(1), held(3), held(4, true), held(4), broke(5)};
    EXPECT_EQ(ledger.records(), sorted);
    EXPECT_TRUE(ledger.adopt(sorted)); // the very same set again changes nothing
    EXPECT_EQ(PromiseLedger(path).records(), sorted);
}

// Two ledgers over one file stand for two copies of Tovin: neither loses a record of the other's,
// the page's merged set keeps what the page never saw, an account's edit made by one copy is
// what the other takes in, and text UTF-8 cannot carry does not make one promise two.
TEST_F(LedgerTest, TwoCopiesOverOneFileLoseNothing) {
    PromiseLedger a(path);
    PromiseLedger b(path);
    a.record(held(2), false);
    b.record(broke(3), false);
    EXPECT_EQ(b.records(), (QList<PromiseRecord>{held(2), broke(3)}));
    // The page merged with an account knowing only of a's record: b's stays, the account's
    // edit of a's (attested) wins, and the whole is still judged against both copies' records.
    EXPECT_FALSE(a.adopt({held(2, true)}));
    EXPECT_TRUE(a.adopt({held(1), held(2, true)}));
    EXPECT_EQ(a.records(), (QList<PromiseRecord>{held(1), held(2, true), broke(3)}));
    PromiseRecord odd = held(4);
    odd.exercise = QString(QChar(0xD800)) + u'x';
    b.record(odd, false);
    a.record(held(5), false);
    b.record(held(6), false);
    odd.exercise = u"?x"_qs; // as UTF-8 carries it
    const QList<PromiseRecord> all{held(1), held(2, true), broke(3), odd, held(5), held(6)};
    EXPECT_EQ(b.records(), all);
    EXPECT_EQ(PromiseLedger(path).records(), all);
}

TEST_F(LedgerTest, OneBadRecordEmptiesTheLedger) {
    const char* bad[] = {
        R"([{"date":"2026-03-02T09:15:00Z","outcome":"tovin","exercise":"squat","reps":1}])",
        R"([{"date":"2026-03-02T09:15:00Z","outcome":"kept",)"
        R"("exercise":"squat","reps":1,"cleanReps":1}])",
        R"([{"date":"2026-03-02T09:15:00.5Z","outcome":"tovin",)"
        R"("exercise":"squat","reps":1,"cleanReps":1}])",
        R"([{"date":1772442900,"outcome":"tovin","exercise":"squat","reps":1,"cleanReps":1}])",
        R"([{"date":"2026-03-02T09:15:00Z","outcome":"broken",)"
        R"("exercise":"squat","reps":1,"cleanReps":1,"reason":"Tired"}])",
        R"([{"date":"2026-03-02T09:15:00Z","outcome":"tovin",)"
        R"("exercise":"squat","reps":1.5,"cleanReps":1}])",
        R"([{"date":"2026-03-02T09:15:00Z","outcome":"tovin",)"
        R"("exercise":"squat","reps":1,"cleanReps":1,"attested":"yes"}])",
        R"({"records":[]})",
        "\xff\xfe",
    };
    for (const char* bytes : bad) {
        ASSERT_TRUE(writeFileAtomically(path, bytes));
        EXPECT_TRUE(PromiseLedger(path).records().isEmpty()) << bytes;
    }
    // A good file with a record using an offset and the optional keys as null reads fine.
    ASSERT_TRUE(writeFileAtomically(path, R"([{"date":"2026-03-02T10:15:00+01:00","outcome":
        "tovin","exercise":"squat","reps":1,"cleanReps":1,"reason":null,"attested":null,"x":1}])"));
    EXPECT_EQ(PromiseLedger(path).records().value(0).date, day(2));
}

TEST_F(LedgerTest, LegacyLedgerIsCopiedOnceAndNeverOverwritesANewOne) {
    const QString legacy = dir.filePath(QStringLiteral("ARVEL/promises.json"));
    ASSERT_TRUE(
        writeFileAtomically(legacy, PromiseJson::encode({held(1)}, PromiseJson::Layout::Pretty)));
    PromiseLedger::migrateLegacy(path, legacy);
    EXPECT_EQ(PromiseLedger(path).records().size(), 1);
    EXPECT_TRUE(QFile::exists(legacy)); // copied, not moved
    ASSERT_TRUE(writeFileAtomically(
        legacy, PromiseJson::encode({held(1), held(2)}, PromiseJson::Layout::Pretty)));
    PromiseLedger::migrateLegacy(path, legacy);
    EXPECT_EQ(PromiseLedger(path).records().size(), 1);
}

// The fast reader takes only the bytes Tovin itself writes; anything else that is still a good
// ledger goes to the general reader. (That the two agree on what the fast one takes, and that
// appending equals encoding afresh, the fuzz replay checks over its corpus.)
TEST(PromiseJson, TheFastReaderRefusesWhatTovinWouldNotHaveWritten) {
    const QList<PromiseRecord> records{
        held(1), {day(3), Outcome::Tovin, QStringLiteral("\x01"), -4, 0, {}, {}}};
    const QByteArray file = PromiseJson::encode(records, PromiseJson::Layout::Pretty);
    ASSERT_EQ(PromiseJson::decodeCanonical(file), records);
    const struct {
        const char* from;
        const char* to;
    } variants[] = {
        {"\"reps\": 12", "\"reps\": 1.2e1"},
        {"\"reps\": 12", "\"reps\": 12.0"},
        {"\"reps\": -4", "\"reps\": -4.0"},
        {"\\u0001", "\\u0001\\/"},
        {"\\u0001", "\\u000A"},
        {"2026-03-01T09:15:00Z", "2026-03-01T10:15:00+01:00"},
        {"  {\n    \"date\"", "  {\n     \"date\""},
        {"\n]\n", "]"},
    };
    for (const auto& v : variants) {
        QByteArray changed = file;
        changed.replace(v.from, v.to);
        ASSERT_NE(changed, file) << v.to;
        EXPECT_FALSE(PromiseJson::decodeCanonical(changed)) << v.to;
        EXPECT_TRUE(PromiseJson::decode(changed)) << v.to << ": still a good ledger";
    }
}

#include "promises/promise_ledger.h"

#include "core/atomic_file.h"
#include "journal/journal.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace tovin;
using Outcome = PromiseRecord::Outcome;
using Reason = PromiseRecord::Reason;

namespace {

QDateTime day(int d, int h = 9) {
    return QDateTime(QDate(2026, 3, d), QTime(h, 15), QTimeZone::utc());
}

PromiseRecord held(int d, bool attested = false) {
    PromiseRecord r{day(d), Outcome::Tovin, QStringLiteral("squat"), 12, 10, {}, {}};
    if (attested)
        r.attested = true;
    return r;
}

PromiseRecord broke(int d, Reason why = Reason::DidntFeelLikeIt) {
    return PromiseRecord{day(d), Outcome::Broken, QStringLiteral("squat"), 4, 3, why, {}};
}

class LedgerTest : public ::testing::Test {
protected:
    void SetUp() override {
        Journal::setOverrideURL(dir.filePath(QStringLiteral("tovin-journal-test-ledger.log")));
    }
    void TearDown() override { Journal::setOverrideURL(std::nullopt); }

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
        {"held held broken", {held(1), held(2), broke(3)}, 2, 1, 0, 0, 2,
         u"2 tovin · 1 broken. Your streak is already at zero."},
        {"attested", {held(1), broke(2), held(3, true), held(4)}, 3, 1, 1, 2, 2,
         u"3 tovin (1 on your word) · 1 broken. This breaks a streak of 2."},
        {"best survives a break", {held(1), held(2), held(3), broke(4), held(5)}, 4, 1, 0, 1, 3,
         u"4 tovin · 1 broken. This breaks a streak of 1."},
        {"only broken", {broke(1), broke(2, Reason::Urgent)}, 0, 2, 0, 0, 0,
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
}

TEST_F(LedgerTest, StandingJsonIsCompactAndOrdered) {
    const PromiseLedger ledger = fill({held(1), broke(2), held(3, true), held(4)});
    EXPECT_EQ(ledger.standingJSON(), u"{\"streak\":2,\"tovin\":3,\"broken\":1,\"attested\":1,\"best\":2}");
}

TEST_F(LedgerTest, SurvivesAReloadExactly) {
    PromiseRecord odd = held(5);
    odd.exercise = QStringLiteral("\"quoted\" \\ back\nslash\t☃ 😀 \x01");
    odd.date = odd.date.addMSecs(750); // memory keeps whole seconds, like the file
    const PromiseLedger first = fill({broke(1, Reason::Urgent), odd, held(6, true)});
    const PromiseLedger second(path);
    EXPECT_EQ(second.records(), first.records());
    EXPECT_EQ(second.records()[1].date, day(5));
    EXPECT_EQ(second.records()[0].reason, Reason::Urgent);
}

TEST_F(LedgerTest, AdoptOnlyGrowsAndSortsByDate) {
    PromiseLedger ledger = fill({held(3), broke(5)});
    const auto before = ledger.records();
    EXPECT_FALSE(ledger.adopt({held(9)}));
    EXPECT_EQ(ledger.records(), before);

    // Equal dates keep their incoming order (stable).
    PromiseRecord sameTimeA = held(4);
    sameTimeA.exercise = QStringLiteral("a");
    PromiseRecord sameTimeB = held(4);
    sameTimeB.exercise = QStringLiteral("b");
    const QList<PromiseRecord> merged{broke(5), sameTimeB, held(3), held(1, true), sameTimeA};
    EXPECT_TRUE(ledger.adopt(merged));
    QStringList order;
    for (const auto& r : ledger.records())
        order.append(r.date.toString(u"d") + r.exercise.left(1));
    EXPECT_EQ(order, (QStringList{QStringLiteral("1s"), QStringLiteral("3s"), QStringLiteral("4b"),
                                  QStringLiteral("4a"), QStringLiteral("5s")}));
    const auto grown = ledger.records();
    EXPECT_TRUE(ledger.adopt(grown)); // the very same set again changes nothing
    EXPECT_EQ(ledger.records(), grown);
    EXPECT_EQ(PromiseLedger(path).records(), grown);
}

TEST_F(LedgerTest, BridgeJsonIsOneLineOfValidUtf8AndRoundTrips) {
    PromiseLedger ledger = fill({held(1, true), broke(2, Reason::Urgent)});
    const QString json = ledger.asBridgeJSON();
    EXPECT_TRUE(json.startsWith(u"[{\"date\":\"2026-03-01T09:15:00Z\",\"outcome\":\"tovin\""))
        << json.toStdString();
    EXPECT_FALSE(json.contains(u'\n'));
    const auto back = PromiseJson::decode(json.toUtf8());
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, ledger.records());
    EXPECT_EQ(PromiseLedger(dir.filePath(QStringLiteral("none.json"))).asBridgeJSON(), u"[]");

    // Lone surrogates in a name still make valid UTF-8, which the page's JSON.parse needs.
    PromiseRecord hostile = held(1);
    hostile.exercise = QString(QChar(0xD800)) + u"x" + QChar(0xDC00);
    const QByteArray compact = PromiseJson::encode({hostile}, PromiseJson::Layout::Compact);
    EXPECT_TRUE(QUtf8StringView(compact).isValidUtf8());
    EXPECT_EQ(PromiseJson::decode(compact).value().value(0).exercise, u"\uFFFDx\uFFFD");
}

TEST_F(LedgerTest, OneBadRecordEmptiesTheLedgerAndTheOldFileIsKept) {
    const char* bad[] = {
        R"([{"date":"2026-03-02T09:15:00Z","outcome":"tovin","exercise":"squat","reps":1}])",
        R"([{"date":"2026-03-02T09:15:00Z","outcome":"kept","exercise":"squat","reps":1,"cleanReps":1}])",
        R"([{"date":"2026-03-02T09:15:00.5Z","outcome":"tovin","exercise":"squat","reps":1,"cleanReps":1}])",
        R"([{"date":1772442900,"outcome":"tovin","exercise":"squat","reps":1,"cleanReps":1}])",
        R"([{"date":"2026-03-02T09:15:00Z","outcome":"broken","exercise":"squat","reps":1,"cleanReps":1,"reason":"Tired"}])",
        R"([{"date":"2026-03-02T09:15:00Z","outcome":"tovin","exercise":"squat","reps":1.5,"cleanReps":1}])",
        R"([{"date":"2026-03-02T09:15:00Z","outcome":"tovin","exercise":"squat","reps":1,"cleanReps":1,"attested":"yes"}])",
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
    PromiseLedger ok(path);
    ASSERT_EQ(ok.records().size(), 1);
    EXPECT_EQ(ok.records()[0].date, day(2));

    // The next record writes a new file; what was unreadable is copied aside first.
    ASSERT_TRUE(writeFileAtomically(path, "[{\"date\": oops"));
    PromiseLedger fresh(path);
    fresh.record(held(7), false);
    EXPECT_EQ(PromiseLedger(path).records().size(), 1);
    const QStringList copies = QDir(QFileInfo(path).path())
                                   .entryList({QStringLiteral("promises.json.unreadable-*")});
    ASSERT_EQ(copies.size(), 1);
    EXPECT_EQ(readWholeFile(QFileInfo(path).path() + u'/' + copies[0], 1024),
              QByteArray("[{\"date\": oops"));
}

TEST_F(LedgerTest, LegacyLedgerIsCopiedOnceAndNeverOverwritesANewOne) {
    const QString legacy = dir.filePath(QStringLiteral("ARVEL/promises.json"));
    ASSERT_TRUE(writeFileAtomically(legacy, PromiseJson::encode({held(1)}, PromiseJson::Layout::Pretty)));
    PromiseLedger::migrateLegacy(path, legacy);
    EXPECT_EQ(PromiseLedger(path).records().size(), 1);
    EXPECT_TRUE(QFile::exists(legacy)); // copied, not moved
    ASSERT_TRUE(writeFileAtomically(legacy, PromiseJson::encode({held(1), held(2)}, PromiseJson::Layout::Pretty)));
    PromiseLedger::migrateLegacy(path, legacy);
    EXPECT_EQ(PromiseLedger(path).records().size(), 1);
}

TEST(PromiseJson, TheFastReaderTakesOnlyTovinsOwnLayoutAndAgreesWithTheGeneralOne) {
    const QList<PromiseRecord> records{held(1, true), broke(2, Reason::Urgent),
                                       {day(3), Outcome::Tovin, QStringLiteral("Squat \"deep\" \\ é\n\t\x01"), -4, 0, {}, false}};
    const QByteArray file = PromiseJson::encode(records, PromiseJson::Layout::Pretty);
    ASSERT_EQ(PromiseJson::decodeCanonical(file), records);
    ASSERT_EQ(PromiseJson::decodeGeneral(file), records);
    // An absent reason or attestation is left out, never written as null.
    EXPECT_FALSE(file.contains("null"));
    EXPECT_EQ(file.count("\"reason\""), 1);
    // What the general reader takes but the file would never hold goes to it, not the fast one.
    const struct {
        const char* from;
        const char* to;
    } variants[] = {
        {"\"reps\": 12", "\"reps\": 1.2e1"},     {"\"reps\": 12", "\"reps\": 12.0"},
        {"\"reps\": -4", "\"reps\": -4.0"},      {"\\u0001", "\\u0001\\/"},
        {"\\u0001", "\\u000A"},                  {"2026-03-01T09:15:00Z", "2026-03-01T10:15:00+01:00"},
        {"  {\n    \"date\"", "  {\n     \"date\""}, {"\n]\n", "]"},
    };
    for (const auto& v : variants) {
        QByteArray changed = file;
        changed.replace(v.from, v.to);
        ASSERT_NE(changed, file) << v.to;
        EXPECT_FALSE(PromiseJson::decodeCanonical(changed)) << v.to;
        EXPECT_TRUE(PromiseJson::decode(changed)) << v.to << ": still a good ledger";
    }
    // Appending to the file's bytes is encoding the longer list afresh.
    QByteArray grown = file;
    PromiseJson::appendPretty(grown, held(4));
    EXPECT_EQ(grown, PromiseJson::encode(records + QList<PromiseRecord>{held(4)}, PromiseJson::Layout::Pretty));
}

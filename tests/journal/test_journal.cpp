#include "core/atomic_file.h"
#include "resident/records/journal.h"
#include "support/fake_clock.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

using namespace tovin;

namespace {

class JournalTest : public ::testing::Test {
protected:
    QStringList lines() const { return journal.tail(1 << 20); }

    QTemporaryDir dir;
    fakes::FakeClock clock{QDateTime(QDate(2026, 3, 2), QTime(9, 0, 12), QTimeZone::utc())};
    Journal journal{dir.filePath(QStringLiteral("tovin-journal-test-x.log")), clock};
};

} // namespace

// One entry is one line, whoever wrote the tag or the message (the screen helper forwards both):
// no line break of any kind forges a second entry, and a tag stays a word.
TEST_F(JournalTest, OneEntryIsOneLine) {
    const QString forged = QStringLiteral("2026-01-01T00:00:00Z  [1] [ledger] tovin");
    journal.note(QStringLiteral("schedule"), u"idle\n" + forged);
    journal.note(u"shield\r\n" + forged, QStringLiteral("raised"));
    journal.state(u"hold\u2028" + forged + QString(40, u'x'), u"held\u2029\u0085\v" + forged);
    const QString pid = QString::number(::getpid());
    EXPECT_EQ(lines(),
              (QStringList{
                  u"2026-03-02T09:00:12Z  [" + pid + u"] [schedule] idle " + forged,
                  u"2026-03-02T09:00:12Z  [" + pid + u"] [shield  2026-01-01T00:00:00Z  [1] raised",
                  u"2026-03-02T09:00:12Z  [" + pid +
                      u"] [hold 2026-01-01T00:00:00Z  [1] [] held   " + forged,
              }));
}

TEST_F(JournalTest, EventsRepeatStatesDoNotAndEachTagHasItsOwn) {
    journal.note(QStringLiteral("shield"), QStringLiteral("raised"));
    journal.note(QStringLiteral("shield"), QStringLiteral("raised"));
    for (int i = 0; i < 100; ++i) {
        journal.state(QStringLiteral("schedule"), QStringLiteral("idle — nothing due"));
        clock.advance(1);
    }
    journal.state(QStringLiteral("hold"), QStringLiteral("idle — nothing due"));
    EXPECT_EQ(lines().size(), 4);
    journal.state(QStringLiteral("schedule"), QStringLiteral("FIRE A (workout, due 09:00)"));
    EXPECT_EQ(lines().size(), 5); // a change is written at once
    EXPECT_TRUE(lines().last().endsWith(u"[schedule] FIRE A (workout, due 09:00)"));
}

TEST_F(JournalTest, HeartbeatRewritesAnUnchangedStateAfterItsInterval) {
    const QString idle = QStringLiteral("idle — nothing due");
    journal.state(QStringLiteral("schedule"), idle);
    clock.advance(1799.9);
    journal.state(QStringLiteral("schedule"), idle);
    EXPECT_EQ(lines().size(), 1);
    clock.advance(0.1);
    journal.state(QStringLiteral("schedule"), idle);
    ASSERT_EQ(lines().size(), 2);
    EXPECT_TRUE(lines()[1].endsWith(u"[schedule] idle — nothing due  (unchanged)"));
    // The heartbeat is measured from the last line written, not the first.
    clock.advance(1000);
    journal.state(QStringLiteral("schedule"), idle);
    EXPECT_EQ(lines().size(), 2);
}

TEST_F(JournalTest, HalvesTheFileAboveItsLimitKeepingTheNewerHalf) {
    // 10,000 lines of 60 bytes: 600,000 bytes, over the 512 KiB limit only after the next write.
    QByteArray big;
    for (int i = 0; i < 10000; ++i)
        big += QByteArray("old line ").append(QByteArray::number(i).rightJustified(50, '.')) + '\n';
    ASSERT_TRUE(writeFileAtomically(journal.url(), big));
    journal.note(QStringLiteral("x"), QStringLiteral("new"));

    // Before halving: 10,001 lines plus the empty piece after the last newline = 10,002 pieces;
    // the last 5,001 survive: 5,000 lines and the final empty piece.
    const QByteArray after = *readWholeFile(journal.url(), 1 << 26);
    const QList<QByteArray> pieces = after.split('\n');
    ASSERT_EQ(pieces.size(), 5001);
    EXPECT_TRUE(pieces[0].endsWith(QByteArray::number(5001).rightJustified(50, '.')));
    EXPECT_TRUE(pieces[4999].endsWith("[x] new"));
    EXPECT_TRUE(pieces[5000].isEmpty());
}

// Halving works on bytes: read as UTF-8, every invalid byte would grow to three and the file
// would never shrink.
TEST_F(JournalTest, HalvingIsBytewiseSoCorruptTextIsStillBounded) {
    QByteArray big;
    for (int i = 0; i < 9000; ++i)
        big += QByteArray(60, '\xff') + '\n';
    ASSERT_TRUE(writeFileAtomically(journal.url(), big));
    journal.note(QStringLiteral("x"), QStringLiteral("new"));
    EXPECT_LT(QFile(journal.url()).size(), Journal::rotateAboveBytes);
}

TEST_F(JournalTest, AHugeMessageIsCutSoHalvingAlwaysKeepsRecentLines) {
    const QString firing = u"firing " + QString(1024 * 1024, u'L');
    for (int i = 0; i < 300; ++i) // past the halving limit
        journal.note(QStringLiteral("schedule"), firing);
    journal.state(QStringLiteral("schedule"), QStringLiteral("idle — no blocks in schedule"));
    const QStringList recent = journal.tail(3);
    ASSERT_EQ(recent.size(), 3);
    EXPECT_TRUE(recent[2].endsWith(u"[schedule] idle — no blocks in schedule"));
    EXPECT_TRUE(recent[1].contains(u"LLL … [cut ")) << "a cut line says so";
    EXPECT_LE(QFile(journal.url()).size(), Journal::rotateAboveBytes);
}

TEST_F(JournalTest, TailGivesTheLastNonEmptyLinesOldestFirst) {
    EXPECT_TRUE(journal.tail(5).isEmpty()); // no file yet
    ASSERT_TRUE(writeFileAtomically(journal.url(), "a\n\nb\nc\n\n\nd\n"));
    EXPECT_EQ(journal.tail(3),
              (QStringList{QStringLiteral("b"), QStringLiteral("c"), QStringLiteral("d")}));
}

TEST_F(JournalTest, ConcurrentWritersNeverInterleaveLines) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < 250; ++i)
                journal.note(QStringLiteral("thread"),
                             QString::number(t) + u':' + QString::number(i));
        });
    }
    for (auto& thread : threads)
        thread.join();
    const QStringList all = lines();
    ASSERT_EQ(all.size(), 1000);
    static const QRegularExpression shape(
        QStringLiteral(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ  \[\d+\] \[thread\] \d:\d+$)"));
    for (const QString& line : all)
        ASSERT_TRUE(shape.match(line).hasMatch()) << line.toStdString();
}

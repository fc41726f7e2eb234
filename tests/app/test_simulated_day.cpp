#include "cycle_fixture.h"

#include <QRandomGenerator>

using namespace tovin;
using tovin::fakes::CycleTest;

// A whole simulated day of ticks with random calls, idle stretches, sleeps, snoozes, endings
// and relaunches. Whatever happens, no block is served twice and none fires outside its window.
TEST_F(CycleTest, ADayOfRandomLifeNeverServesTwiceNorFiresOutOfWindow) {
    const QList<Block> blocks{block("07:30", "Early"), block("09:00", "Nine"),
                              block("09:20", "Nine twenty"), block("12:45", "Lunch"),
                              block("16:30", "Walk", Block::Kind::Away), block("23:50", "Late")};
    week(blocks);
    Settings::setSnoozesPerLockout(2);
    clock.set(QDateTime(QDate(2026, 3, 2), QTime(6, 0), QTimeZone::utc()));

    for (quint32 seed : {1u, 2u, 3u, 4u, 5u}) {
        QRandomGenerator random(seed);
        Settings::setFiredBlocks({});
        Settings::setFiredBlocksDay(-1);
        Journal::resetForTesting();
        raises.clear();
        const QDateTime dayStart = clock.now();
        launch().startScheduleWatch();

        for (int step = 0; step < 18 * 60 * 2; ++step) { // 18 hours in 30-second steps
            calls->mic = random.bounded(100) < 8;
            idle.seconds = random.bounded(100) < 5 ? 1500 : random.bounded(60);
            const int dice = int(random.bounded(1000));
            if (dice < 3) { // the machine sleeps a while
                controller->machineWillSleep();
                clock.sleep(random.bounded(90) * 60);
                controller->machineDidWake();
            } else if (dice < 6) { // quit and launched again
                controller.reset();
                launch().startScheduleWatch();
            }
            if (controller->countdown().isShowing() && random.bounded(100) < 20)
                controller->countdown().snooze();
            if (shieldOf(*controller).isUp() && random.bounded(100) < 10) {
                shieldOf(*controller).lower();
                controller->shieldTimedOut();
            }
            clock.advance(30);
        }

        // Every raise served a block of today, inside its window, and each block at most once.
        QSet<QString> served;
        for (const auto& r : raises) {
            ASSERT_TRUE(r);
            const QString key = r->key();
            EXPECT_FALSE(served.contains(key)) << "served twice: " << key.toStdString();
            served.insert(key);
        }
        // "firing" lines come from the tick that fired; each must lie in the block's window.
        for (const QString& line : Journal::tail(100000)) {
            const qsizetype at = line.indexOf(u"] [schedule] firing ");
            if (at < 0)
                continue;
            const QString label = line.mid(at + 20);
            const QDateTime when = QDateTime::fromString(line.left(20), Qt::ISODate);
            const auto b = std::find_if(blocks.begin(), blocks.end(),
                                        [&](const Block& x) { return x.label == label; });
            ASSERT_NE(b, blocks.end());
            const int late = when.time().hour() * 60 + when.time().minute() - *b->minuteOfDay();
            EXPECT_GE(late, 0) << line.toStdString();
            EXPECT_LE(late, 90) << line.toStdString();
        }
        EXPECT_GE(raises.size(), 1) << "seed " << seed << " never raised anything";
        clock.set(dayStart.addDays(1));
    }
}

#include "cycle_fixture.h"

#include <QRandomGenerator>

using namespace tovin;
using tovin::fakes::CycleTest;

// Simulated days of ticks with random calls, idle stretches, sleeps, snoozes, endings and
// relaunches. Whatever happens, no block is served twice in a day, and what was served one day
// holds nothing back the next. (When each block may fire is the schedule's own test.)
TEST_F(CycleTest, ADayOfRandomLifeNeverServesABlockTwice) {
    setWeek({block("07:30", "Early"), block("09:00", "Nine"), block("09:20", "Nine twenty"),
             block("12:45", "Lunch"), block("16:30", "Walk", Block::Kind::Away),
             block("23:50", "Late")});
    prefs.setSnoozesPerLockout(2);
    clock.set(QDateTime(QDate(2026, 3, 2), QTime(6, 0), QTimeZone::utc()));

    for (quint32 seed : {1u, 2u, 3u, 4u, 5u}) {
        QRandomGenerator random(seed);
        raises.clear();
        const QDateTime dayStart = clock.now();
        launch().startScheduleWatch();

        for (int step = 0; step < 18 * 60 * 2; ++step) { // 18 hours in 30-second steps
            probe->mic = random.bounded(100) < 8;
            idle.seconds = random.bounded(100) < 5 ? 1500 : random.bounded(60);
            const int dice = int(random.bounded(1000));
            if (dice < 3) { // the machine sleeps a while
                controller->machineWillSleep();
                clock.sleep(random.bounded(90) * 60);
                controller->machineDidWake();
            } else if (dice < 6) { // quit and launched again
                launch().startScheduleWatch();
            }
            if (countdown.isShowing() && random.bounded(100) < 20)
                countdown.snooze();
            if (shield().isUp() && random.bounded(100) < 10) {
                shield().lower();
                controller->end({Ending::Kind::TimedOut});
            }
            clock.advance(30);
        }

        QSet<QString> served;
        for (const auto& r : raises) {
            ASSERT_TRUE(r) << "every raise serves a block of the week";
            EXPECT_FALSE(served.contains(r->key()))
                << "seed " << seed << " served twice: " << r->key().toStdString();
            served.insert(r->key());
        }
        EXPECT_GE(raises.size(), 1) << "seed " << seed << " never raised anything";
        clock.set(dayStart.addDays(1));
    }
}

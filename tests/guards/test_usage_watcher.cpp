#include "resident/guards/usage_watcher.h"
#include "resident/records/settings.h"
#include "support/fake_clock.h"
#include "support/fake_platform.h"

#include <gtest/gtest.h>

using namespace tovin;

namespace {

class UsageWatcherTest : public ::testing::Test {
protected:
    void SetUp() override {
        prefs.setTriggerAfterMinutes(50);
        prefs.setIdleResetsAfterMinutes(5);
        QObject::connect(&watcher, &UsageWatcher::due, [this] { ++fired; });
    }

    fakes::FakeClock clock;
    fakes::FakeIdle idle;
    MemorySettingsStore store;
    Preferences prefs{store};
    UsageWatcher watcher{clock, idle, prefs};
    int fired = 0;
};

} // namespace

TEST_F(UsageWatcherTest, ContinuousUseFiresOnceAndStartsAgain) {
    watcher.start();
    clock.advance(49 * 60 + 45);
    EXPECT_EQ(fired, 0);
    EXPECT_EQ(watcher.continuousUseSeconds(), 49 * 60 + 45);
    clock.advance(15);
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(watcher.continuousUseSeconds(), 0);
    clock.advance(50 * 60);
    EXPECT_EQ(fired, 2); // each further full period fires again
}

TEST_F(UsageWatcherTest, ShortPausesFreezeLongOnesAndSleepsReset) {
    watcher.start();
    clock.advance(10 * 60);
    idle.seconds = 45; // reading a page: neither counts nor resets
    clock.advance(3 * 60);
    EXPECT_EQ(watcher.continuousUseSeconds(), 10 * 60);
    idle.seconds = 5 * 60; // away for the reset threshold exactly
    clock.advance(15);
    EXPECT_EQ(watcher.continuousUseSeconds(), 0);
    idle.seconds = 0;
    clock.advance(60);
    EXPECT_EQ(watcher.continuousUseSeconds(), 60);
    clock.sleep(5 * 60); // the wall clock jumps and the timer fires late: as long an absence
    clock.advance(15);
    EXPECT_EQ(watcher.continuousUseSeconds(), 0);
}

TEST_F(UsageWatcherTest, StartingTwiceKeepsTheCountAndStopKeepsIt) {
    watcher.start();
    clock.advance(60);
    watcher.start();
    EXPECT_EQ(clock.activeTimers(), 1);
    watcher.stop();
    clock.advance(3600);
    EXPECT_EQ(watcher.continuousUseSeconds(), 60);
    EXPECT_EQ(fired, 0);
    watcher.reset();
    EXPECT_EQ(watcher.continuousUseSeconds(), 0);
}

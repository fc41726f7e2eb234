#include "guards/call_detector.h"

#include "support/fake_platform.h"

#include <gtest/gtest.h>

using namespace tovin;

TEST(CallDetector, ExplanationsAndBusyForEveryCombination) {
    const struct {
        bool mic, camera, busy;
        const char16_t* text;
    } cases[] = {
        {true, true, true, u"Mic and camera are live — you're on a call."},
        {true, false, true, u"Your mic is live — Tovin won't interrupt."},
        {false, true, true, u"Your camera is live — Tovin won't interrupt."},
        {false, false, false, u"Nothing is listening. Tovin is free to interrupt."},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CallDetector::isBusy(c.mic, c.camera), c.busy);
        EXPECT_EQ(CallDetector::explanation(c.mic, c.camera), QString::fromUtf16(c.text));
        // The same through a forced state, which outranks whatever the probe says.
        auto probe = std::make_shared<fakes::FakeCallProbe>();
        probe->mic = !c.mic;
        probe->camera = !c.camera;
        CallDetector::setProbe(probe);
        CallDetector::setForcedState(CallDetector::State{c.mic, c.camera});
        EXPECT_EQ(CallDetector::isBusy(), c.busy);
        EXPECT_EQ(CallDetector::explanation(), QString::fromUtf16(c.text));
        CallDetector::setForcedState(std::nullopt);
        EXPECT_EQ(CallDetector::microphoneIsLive(), !c.mic);
        EXPECT_EQ(CallDetector::cameraIsLive(), !c.camera);
    }
    // Without a probe (none on this desktop) nothing is live, rather than a crash.
    CallDetector::setProbe(nullptr);
    EXPECT_FALSE(CallDetector::isBusy());
    EXPECT_EQ(CallDetector::inputDeviceCount(), 0);
}

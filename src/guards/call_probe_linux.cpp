#include "guards/device_scan_linux.h"
#include "guards/microphone_pulse.h"
#include "guards/platform_guards.h"

namespace tovin {

namespace {

class LinuxCallProbe final : public CallProbe {
public:
    bool microphoneIsLive() override {
        if (const auto pulse = readPulseMicrophone())
            return pulse->live;
        return scanAlsaCapture().running;
    }
    bool cameraIsLive() override { return anotherProcessHoldsVideoDevice(); }
    int inputDeviceCount() override {
        if (const auto pulse = readPulseMicrophone())
            return pulse->inputSources;
        return scanAlsaCapture().devices;
    }
};

} // namespace

std::shared_ptr<CallProbe> createPlatformCallProbe() {
    return std::make_shared<LinuxCallProbe>();
}

} // namespace tovin

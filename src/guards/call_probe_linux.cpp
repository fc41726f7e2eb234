#include "guards/device_scan_linux.h"
#include "guards/microphone_pulse.h"
#include "guards/platform_guards.h"

namespace tovin {

namespace {

class LinuxCallProbe final : public CallProbe {
public:
    explicit LinuxCallProbe(std::function<QList<qint64>()> ourOthers)
        : ourOthers_(std::move(ourOthers)) {}

    bool microphoneIsLive() override {
        if (const auto pulse = readPulseMicrophone(500, ours()))
            return pulse->live;
        return scanAlsaCapture().running;
    }
    bool cameraIsLive() override {
        return anotherProcessHoldsVideoDevice(QStringLiteral("/dev"), QStringLiteral("/proc"),
                                              ours());
    }
    int inputDeviceCount() override {
        if (const auto pulse = readPulseMicrophone())
            return pulse->inputSources;
        return scanAlsaCapture().devices;
    }

private:
    QList<qint64> ours() const { return ourOthers_ ? ourOthers_() : QList<qint64>{}; }

    std::function<QList<qint64>()> ourOthers_;
};

} // namespace

std::shared_ptr<CallProbe> createPlatformCallProbe(std::function<QList<qint64>()> ourOthers) {
    return std::make_shared<LinuxCallProbe>(std::move(ourOthers));
}

} // namespace tovin

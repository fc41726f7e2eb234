#include "guards/call_detector.h"

namespace tovin::CallDetector {

namespace {

struct DetectorState {
    std::optional<State> forced;
    std::shared_ptr<CallProbe> probe;
};

DetectorState& detector() {
    static DetectorState s;
    return s;
}

class NothingLive final : public CallProbe {
public:
    bool microphoneIsLive() override { return false; }
    bool cameraIsLive() override { return false; }
    int inputDeviceCount() override { return 0; }
};

CallProbe& probe() {
    static NothingLive nothing;
    auto& p = detector().probe;
    return p ? *p : nothing;
}

} // namespace

std::optional<State> forcedState() {
    return detector().forced;
}

void setForcedState(std::optional<State> state) {
    detector().forced = state;
}

void setProbe(std::shared_ptr<CallProbe> p) {
    detector().probe = std::move(p);
}

bool microphoneIsLive() {
    if (const auto forced = detector().forced)
        return forced->mic;
    return probe().microphoneIsLive();
}

bool cameraIsLive() {
    if (const auto forced = detector().forced)
        return forced->camera;
    return probe().cameraIsLive();
}

State current() {
    return {microphoneIsLive(), cameraIsLive()};
}

bool isBusy() {
    // The microphone alone is enough; the camera is only asked when the microphone is quiet.
    return microphoneIsLive() || cameraIsLive();
}

QString explanation() {
    const State s = current();
    return explanation(s.mic, s.camera);
}

QString explanation(bool mic, bool camera) {
    if (mic && camera)
        return QStringLiteral("Mic and camera are live — you're on a call.");
    if (mic)
        return QStringLiteral("Your mic is live — Tovin won't interrupt.");
    if (camera)
        return QStringLiteral("Your camera is live — Tovin won't interrupt.");
    return QStringLiteral("Nothing is listening. Tovin is free to interrupt.");
}

int inputDeviceCount() {
    return probe().inputDeviceCount();
}

} // namespace tovin::CallDetector

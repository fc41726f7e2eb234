#pragma once

#include <QString>

#include <memory>
#include <optional>

namespace tovin {

// The platform's answer to "is a microphone or camera in use by someone other than Tovin?".
// Implementations never fail: anything they cannot read counts as not live.
class CallProbe {
public:
    virtual ~CallProbe() = default;
    virtual bool microphoneIsLive() = 0;
    virtual bool cameraIsLive() = 0;
    // Recording-capable audio inputs found, for diagnostics.
    virtual int inputDeviceCount() = 0;
};

// A lockout never takes the screen from someone on a call or recording. Every query asks the
// platform afresh; nothing is cached.
namespace CallDetector {

struct State {
    bool mic = false;
    bool camera = false;
    bool operator==(const State&) const = default;
};

// When set, every query answers from it instead of the hardware (self-check, diagnostics).
std::optional<State> forcedState();
void setForcedState(std::optional<State> state);

// The platform probe, installed by the application at start-up. Without one (or with null)
// nothing is ever live.
void setProbe(std::shared_ptr<CallProbe> probe);

bool microphoneIsLive();
bool cameraIsLive();
// One reading of both, for callers that need them together.
State current();
bool isBusy();
constexpr bool isBusy(bool mic, bool camera) { return mic || camera; }
QString explanation();
QString explanation(bool mic, bool camera);
int inputDeviceCount();

} // namespace CallDetector

} // namespace tovin

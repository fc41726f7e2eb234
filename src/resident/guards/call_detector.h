#pragma once

#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

namespace tovin {

// What is capturing right now, source by source, with the programs doing it where the desktop
// names them (a sound server or a device file often does not).
struct CallState {
    bool mic = false;
    bool camera = false;
    bool screen = false; // a screen being shared: a program receiving a screen cast
    QStringList micBy;
    QStringList cameraBy;
    QStringList screenBy;
    bool operator==(const CallState&) const = default;
};

// The platform's answer to "is anyone but Tovin recording, filming or sharing the screen?".
// Implementations never fail: anything they cannot read counts as not live.
class CallProbe {
public:
    virtual ~CallProbe() = default;
    // One look at every source.
    virtual CallState read() = 0;
    // Recording-capable audio inputs found, for diagnostics.
    virtual int inputDeviceCount() = 0;
    // What this desktop lets Tovin see, one line per source ("shared screen: …").
    virtual QStringList sources() { return {}; }
};

// A lockout never takes the screen from someone on a call, recording or sharing their screen.
// Every query asks the platform afresh; nothing is cached.
namespace CallDetector {

using State = CallState;

// When set, every query answers from it instead of the hardware (self-check, diagnostics).
std::optional<State> forcedState();
void setForcedState(std::optional<State> state);

// The platform probe, installed by the application at start-up. Without one (or with null)
// nothing is ever live.
void setProbe(std::shared_ptr<CallProbe> probe);

bool microphoneIsLive();
bool cameraIsLive();
bool screenIsShared();
// One reading of every source, for callers that need them together.
State current();
bool isBusy();
constexpr bool isBusy(bool mic, bool camera) { return mic || camera; }
bool isBusy(const State& state);
QString explanation();
QString explanation(bool mic, bool camera);
QString explanation(const State& state);
int inputDeviceCount();
QStringList sources();

} // namespace CallDetector

} // namespace tovin

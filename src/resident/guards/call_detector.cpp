#include "resident/guards/call_detector.h"

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

State current() {
    if (const auto forced = detector().forced)
        return *forced;
    const auto& probe = detector().probe;
    return probe ? probe->read() : State{};
}

bool microphoneIsLive() {
    return current().mic;
}

bool cameraIsLive() {
    return current().camera;
}

bool screenIsShared() {
    return current().screen;
}

bool isBusy() {
    return isBusy(current());
}

bool isBusy(const State& state) {
    return isBusy(state.mic, state.camera) || state.screen;
}

QString explanation() {
    return explanation(current());
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

QString explanation(const State& state) {
    if (!state.screen)
        return explanation(state.mic, state.camera);
    const QString to =
        state.screenBy.isEmpty() ? QString() : u" (" + state.screenBy.join(u", ") + u')';
    if (isBusy(state.mic, state.camera))
        return u"You're on a call and sharing your screen" + to + u" — Tovin won't interrupt.";
    return u"You're sharing your screen" + to + u" — Tovin won't interrupt.";
}

int inputDeviceCount() {
    const auto& probe = detector().probe;
    return probe ? probe->inputDeviceCount() : 0;
}

QStringList sources() {
    const auto& probe = detector().probe;
    return probe ? probe->sources() : QStringList{QStringLiteral("none — nothing is watched")};
}

} // namespace tovin::CallDetector

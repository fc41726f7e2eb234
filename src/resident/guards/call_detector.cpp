#include "resident/guards/call_detector.h"

namespace tovin {

CallDetector::State CallDetector::current() const {
    if (forced_)
        return *forced_;
    return probe_ ? probe_->read() : State{};
}

bool CallDetector::isBusy(const State& state) {
    return isBusy(state.mic, state.camera) || state.screen;
}

QString CallDetector::explanation(bool mic, bool camera) {
    if (mic && camera)
        return QStringLiteral("Mic and camera are live — you're on a call.");
    if (mic)
        return QStringLiteral("Your mic is live — Tovin won't interrupt.");
    if (camera)
        return QStringLiteral("Your camera is live — Tovin won't interrupt.");
    return QStringLiteral("Nothing is listening. Tovin is free to interrupt.");
}

QString CallDetector::explanation(const State& state) {
    if (!state.screen)
        return explanation(state.mic, state.camera);
    const QString to =
        state.screenBy.isEmpty() ? QString() : u" (" + state.screenBy.join(u", ") + u')';
    if (isBusy(state.mic, state.camera))
        return u"You're on a call and sharing your screen" + to + u" — Tovin won't interrupt.";
    return u"You're sharing your screen" + to + u" — Tovin won't interrupt.";
}

int CallDetector::inputDeviceCount() const {
    return probe_ ? probe_->inputDeviceCount() : 0;
}

QStringList CallDetector::sources() const {
    return probe_ ? probe_->sources() : QStringList{QStringLiteral("none — nothing is watched")};
}

} // namespace tovin

#pragma once

#include <QList>

#include <optional>

namespace tovin {

// One question to the sound server (PulseAudio, or PipeWire's Pulse interface): is any
// process other than this one and `alsoOurs` recording from a real input? Monitor sources
// (recordings of what plays) and paused streams do not count. None when no server answers within
// the time limit.
struct PulseReading {
    bool live = false;
    int inputSources = 0;
};
std::optional<PulseReading> readPulseMicrophone(int timeoutMs = 500,
                                                const QList<qint64>& alsoOurs = {});

} // namespace tovin

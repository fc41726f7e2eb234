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
// Every query asks the platform's probe afresh; nothing is cached.
class CallDetector {
public:
    using State = CallState;

    // Over the platform's probe; without one nothing is ever live.
    explicit CallDetector(std::shared_ptr<CallProbe> probe = nullptr)
        : probe_(std::move(probe)) {}

    // When set, every query answers from it instead of the hardware (the self-check).
    std::optional<State> forcedState() const { return forced_; }
    void setForcedState(std::optional<State> state) { forced_ = std::move(state); }

    // One reading of every source, for callers that need them together.
    State current() const;
    bool isBusy() const { return isBusy(current()); }
    QString explanation() const { return explanation(current()); }
    int inputDeviceCount() const;
    QStringList sources() const;

    static constexpr bool isBusy(bool mic, bool camera) { return mic || camera; }
    static bool isBusy(const State& state);
    static QString explanation(bool mic, bool camera);
    static QString explanation(const State& state);

private:
    std::shared_ptr<CallProbe> probe_;
    std::optional<State> forced_;
};

} // namespace tovin

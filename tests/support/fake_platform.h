#pragma once

#include "resident/guards/call_detector.h"
#include "resident/guards/idle_source.h"

namespace tovin::fakes {

// Idle seconds the test sets by hand.
class FakeIdle final : public IdleSource {
public:
    double seconds = 0;
    double secondsSinceLastInput() override { return seconds; }
    QString name() const override { return QStringLiteral("fake"); }
};

// A microphone, camera and shared screen the test switches on and off.
class FakeCallProbe final : public CallProbe {
public:
    bool mic = false;
    bool camera = false;
    bool screen = false;
    QStringList screenBy;
    int inputs = 1;
    CallState read() override { return {mic, camera, screen, {}, {}, screenBy}; }
    int inputDeviceCount() override { return inputs; }
};

} // namespace tovin::fakes

#include <ostream>

// Readable QString values in GoogleTest's failure messages.
inline void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}

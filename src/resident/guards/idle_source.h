#pragma once

#include <QString>

#include <memory>

namespace tovin {

// Seconds since the last keyboard or pointer input anywhere on the system.
class IdleSource {
public:
    virtual ~IdleSource() = default;
    virtual double secondsSinceLastInput() = 0;
    // Where the reading comes from ("X11 screen saver", "none", …), for diagnostics.
    virtual QString name() const = 0;
};

} // namespace tovin

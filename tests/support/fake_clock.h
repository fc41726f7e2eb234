#pragma once

#include "core/manual_clock.h"

namespace tovin::fakes {
// Tests move time by hand with the same clock the self-check uses.
using FakeClock = ManualClock;
} // namespace tovin::fakes

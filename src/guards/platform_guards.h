#pragma once

#include "guards/call_detector.h"
#include "guards/idle_source.h"

#include <memory>

namespace tovin {

// This system's call probe: the sound server's recording streams (or ALSA's running capture
// devices when there is no sound server) and the camera devices other processes hold open.
std::shared_ptr<CallProbe> createPlatformCallProbe();

// The idle source this session offers, chosen at run time: the X server's screen-saver
// extension, else a Wayland desktop's idle monitor over D-Bus, else none (always 0, so nobody
// is ever judged absent).
std::unique_ptr<IdleSource> createPlatformIdleSource();

} // namespace tovin

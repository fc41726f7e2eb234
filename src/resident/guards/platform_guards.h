#pragma once

#include "resident/guards/call_detector.h"
#include "resident/guards/idle_source.h"

#include <QList>

#include <functional>
#include <memory>

namespace tovin {

// This system's call probe: PipeWire's graph (recordings, cameras, shared screens), else the
// sound server's recording streams or ALSA's running capture devices, and the camera devices
// other processes hold open.
// `ourOthers` names Tovin's processes besides this one (the screen helper, asked afresh each
// time since it comes and goes): their streams and cameras are never a call.
std::shared_ptr<CallProbe> createPlatformCallProbe(std::function<QList<qint64>()> ourOthers = {});

// The idle source this session offers, chosen at run time. In a Wayland session the
// compositor's: the desktop's idle monitor over D-Bus (GNOME), else its idle notifications
// (KWin, sway). In an X session the X server's screen-saver extension, else the D-Bus monitor.
// Else none (always 0, so nobody is ever judged absent).
std::unique_ptr<IdleSource> createPlatformIdleSource();

} // namespace tovin

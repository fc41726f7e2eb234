#pragma once

#include <QIcon>

namespace tovin {

// The tally mark (four strokes and a slash) drawn in code, dark on light panels and light on
// dark ones, at the sizes a tray asks for. While watching is paused it is drawn faded, as a
// disabled item is.
QIcon statusIcon(bool darkPanel, bool enabled = true);

// Whether the desktop's panels are dark, judged from the desktop's palette (not Tovin's own
// dark look, which only its windows wear).
bool panelIsDark();

} // namespace tovin

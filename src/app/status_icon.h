#pragma once

#include <QIcon>

namespace tovin {

// The tally mark (four strokes and a slash) drawn in code, dark on light panels and light on
// dark ones, at the sizes a tray asks for.
QIcon statusIcon(bool darkPanel);

// Whether the desktop's panels are dark, judged from the application palette.
bool panelIsDark();

} // namespace tovin

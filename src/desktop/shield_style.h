#pragma once

#include <QFont>
#include <QString>

class QApplication;
class QLabel;
class QVBoxLayout;
class QWidget;

namespace tovin {

// The look shared by everything Tovin draws natively: the dark of the workout page (its
// colours, rounded buttons, a visible focus ring), white text at set opacities in a centred
// column over the shield.

// The page's palette and button style for every native window: the setup window's strip, the
// start window, the countdown notice, the break warning, the alerts and the tray menu.
void applyTovinLook(QApplication& app);
// Whether the desktop's own palette is dark, as it was before Tovin's look was applied.
bool desktopIsDark();

// White at the given opacity, as a style sheet colour.
QString whiteAt(qreal alpha);

// A column of the given width centred both ways in `parent`; returns the column's layout.
QVBoxLayout* centredColumn(QWidget* parent, int width, int spacing);

// A centred, wrapping label in the system font at this size, weight and white opacity,
// appended to the column.
QLabel* addColumnLabel(QVBoxLayout* column, const QString& text, qreal points, QFont::Weight weight,
                       qreal alpha);

} // namespace tovin

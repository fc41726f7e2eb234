#pragma once

#include <QFont>
#include <QString>

class QLabel;
class QVBoxLayout;
class QWidget;

namespace tovin {

// The look shared by everything drawn over the shield: white text at set opacities in a
// centred column.

// White at the given opacity, as a style sheet colour.
QString whiteAt(qreal alpha);

// A column of the given width centred both ways in `parent`; returns the column's layout.
QVBoxLayout* centredColumn(QWidget* parent, int width, int spacing);

// A centred, wrapping label in the system font at this size, weight and white opacity,
// appended to the column.
QLabel* addColumnLabel(QVBoxLayout* column, const QString& text, qreal points,
                       QFont::Weight weight, qreal alpha);

} // namespace tovin

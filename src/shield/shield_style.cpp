#include "shield/shield_style.h"

#include <QGridLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace tovin {

QString whiteAt(qreal alpha) {
    return QStringLiteral("color: rgba(255, 255, 255, %1);").arg(qRound(alpha * 255));
}

QVBoxLayout* centredColumn(QWidget* parent, int width, int spacing) {
    // A grid centres it both ways and, unlike an aligned box item, gives wrapped labels the
    // height they need at that width.
    auto* outer = new QGridLayout(parent);
    outer->setRowStretch(0, 1);
    outer->setRowStretch(2, 1);
    outer->setColumnStretch(0, 1);
    outer->setColumnStretch(2, 1);
    auto* column = new QWidget(parent);
    column->setFixedWidth(width);
    auto* stack = new QVBoxLayout(column);
    stack->setSpacing(spacing);
    outer->addWidget(column, 1, 1);
    return stack;
}

QLabel* addColumnLabel(QVBoxLayout* column, const QString& text, qreal points,
                       QFont::Weight weight, qreal alpha) {
    auto* label = new QLabel(text);
    QFont f = label->font();
    f.setPointSizeF(points);
    f.setWeight(weight);
    label->setFont(f);
    label->setAlignment(Qt::AlignHCenter);
    label->setWordWrap(true);
    label->setStyleSheet(whiteAt(alpha));
    column->addWidget(label);
    label->show();
    return label;
}

} // namespace tovin

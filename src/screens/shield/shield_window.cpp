#include "screens/shield/shield_window.h"

#include "desktop/shield_style.h"

#include <QCloseEvent>
#include <QGraphicsOpacityEffect>
#include <QPainter>
#include <QPropertyAnimation>

namespace tovin {

namespace {
QLabel* hintLabel(QWidget* parent, qreal points, qreal alpha) {
    auto* label = new QLabel(parent);
    QFont f = label->font();
    f.setPointSizeF(points);
    f.setWeight(QFont::Medium);
    label->setFont(f);
    label->setAlignment(Qt::AlignHCenter | Qt::AlignBottom);
    label->setStyleSheet(whiteAt(alpha));
    label->setAttribute(Qt::WA_TransparentForMouseEvents);
    return label;
}
} // namespace

ShieldWindow::ShieldWindow(QWidget* parent)
    : QWidget(parent) {
    setAutoFillBackground(false);
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void ShieldWindow::paintEvent(QPaintEvent*) {
    QPainter(this).fillRect(rect(), shieldColour());
}

void ShieldWindow::setContent(QWidget* content) {
    content_ = content;
    content->setParent(this);
    content->show();
    layoutChildren();
}

void ShieldWindow::setSecondaryPanel() {
    secondary_ = new QLabel(QStringLiteral("Back to the other screen."), this);
    QFont f = secondary_->font();
    f.setPointSizeF(24);
    f.setWeight(QFont::DemiBold);
    secondary_->setFont(f);
    secondary_->setAlignment(Qt::AlignCenter);
    secondary_->setStyleSheet(whiteAt(0.3));
    layoutChildren();
}

void ShieldWindow::setHints(const QString& panicHint) {
    panicHint_ = hintLabel(this, 12, 0.3);
    panicHint_->setText(panicHint);
    escapeHint_ = hintLabel(this, 13, 0.28);
    escapeOpacity_ = new QGraphicsOpacityEffect(escapeHint_);
    escapeOpacity_->setOpacity(0.0);
    escapeHint_->setGraphicsEffect(escapeOpacity_);
    layoutChildren();
}

void ShieldWindow::revealHint(const QString& text) {
    if (!escapeHint_)
        return;
    escapeHint_->setText(text);
    auto* fade = new QPropertyAnimation(escapeOpacity_, "opacity", escapeHint_);
    fade->setDuration(1200);
    fade->setStartValue(escapeOpacity_->opacity());
    fade->setEndValue(1.0);
    fade->start(QAbstractAnimation::DeleteWhenStopped);
}

void ShieldWindow::setOverlay(QWidget* overlay) {
    overlay_ = overlay;
    if (overlay) {
        overlay->setParent(this);
        overlay->show();
    }
    layoutChildren();
}

void ShieldWindow::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    layoutChildren();
}

void ShieldWindow::layoutChildren() {
    const QRect area = rect();
    if (content_)
        content_->setGeometry(area);
    if (secondary_)
        secondary_->setGeometry(area);
    // The panic hint's bottom sits 22 points above the bottom; the escape hint 8 above it.
    if (panicHint_) {
        const int h = panicHint_->sizeHint().height();
        panicHint_->setGeometry(0, area.bottom() + 1 - 22 - h, area.width(), h);
        panicHint_->raise();
        if (escapeHint_) {
            const int eh = escapeHint_->sizeHint().height();
            escapeHint_->setGeometry(0, panicHint_->y() - 8 - eh, area.width(), eh);
            escapeHint_->raise();
        }
    }
    if (overlay_) {
        overlay_->setGeometry(area);
        overlay_->raise();
    }
}

void ShieldWindow::closeEvent(QCloseEvent* event) {
    if (onClose) {
        event->ignore();
        onClose();
        return;
    }
    QWidget::closeEvent(event);
}

} // namespace tovin

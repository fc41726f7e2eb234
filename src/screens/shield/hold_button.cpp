#include "screens/shield/hold_button.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace tovin {

namespace {
// Floating steps do not land exactly on 0 or 1; this much is "there".
constexpr double epsilon = 1e-9;
} // namespace

HoldButton::HoldButton(QString title, double duration, Clock& clock, QWidget* parent)
    : QWidget(parent)
    , title_(std::move(title))
    , duration_(duration)
    , clock_(clock) {
    setFixedSize(260, 44);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(title_);
}

void HoldButton::engage() {
    if (holding_)
        return;
    holding_ = true;
    // Only an unbroken hold counts: while it lasts, a Space released or a click made anywhere
    // lets go, as focus leaving the button does.
    qApp->installEventFilter(this);
    if (!timer_) {
        lastTick_ = clock_.elapsedSeconds();
        timer_ = clock_.createTimer([this] { tick(); });
        timer_->start(tickSeconds, true);
    }
    update();
}

void HoldButton::release() {
    if (holding_)
        qApp->removeEventFilter(this);
    holding_ = false;
    update();
}

bool HoldButton::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyRelease) {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Space && !key->isAutoRepeat())
            release();
    } else if (event->type() == QEvent::MouseButtonPress && watched != this) {
        const auto* widget = qobject_cast<QWidget*>(watched);
        if (!widget || !isAncestorOf(widget))
            release();
    }
    return QWidget::eventFilter(watched, event);
}

void HoldButton::tick() {
    const double now = clock_.elapsedSeconds();
    const double passed = std::max(0.0, now - lastTick_);
    lastTick_ = now;
    if (holding_)
        progress_ += passed / duration_;
    else
        progress_ -= passed / (duration_ * 0.5);

    if (progress_ >= 1.0 - epsilon) {
        progress_ = 1.0;
        release();
        timer_.reset();
        update();
        if (onComplete)
            onComplete();
        return;
    }
    if (progress_ <= epsilon) {
        progress_ = 0;
        if (!holding_)
            timer_.reset();
    }
    update();
}

void HoldButton::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        engage();
}

void HoldButton::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        release();
}

void HoldButton::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Space && event->text() == u" ") {
        // Holding Space sends repeats; only the first press starts a hold.
        if (!event->isAutoRepeat())
            engage();
        return;
    }
    QWidget::keyPressEvent(event);
}

void HoldButton::keyReleaseEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Space) {
        // X11 reports auto-repeat as release/press pairs; only the real release lets go.
        if (!event->isAutoRepeat())
            release();
        return;
    }
    QWidget::keyReleaseEvent(event);
}

void HoldButton::focusInEvent(QFocusEvent* event) {
    QWidget::focusInEvent(event);
    update();
}

void HoldButton::focusOutEvent(QFocusEvent* event) {
    QWidget::focusOutEvent(event);
    release();
}

void HoldButton::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF shape = QRectF(rect()).adjusted(1, 1, -1, -1);
    QPainterPath path;
    path.addRoundedRect(shape, 10, 10);
    p.fillPath(path, QColor::fromRgbF(0.07f, 0.07f, 0.07f));

    p.save();
    p.setClipPath(path);
    p.fillRect(QRectF(shape.left(), shape.top(), shape.width() * progress_, shape.height()),
               QColor(196, 58, 48));
    p.restore();

    if (hasFocus()) {
        p.setPen(QPen(QColor(120, 170, 255), 2));
        p.drawPath(path);
    }
    QFont f = font();
    f.setPointSizeF(13);
    f.setWeight(QFont::Medium);
    p.setFont(f);
    p.setPen(Qt::white);
    p.drawText(rect(), Qt::AlignCenter, holding_ ? QStringLiteral("Keep holding…") : title_);
}

} // namespace tovin

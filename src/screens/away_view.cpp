#include "screens/away_view.h"

#include "desktop/shield_style.h"

#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>

#include <cmath>

namespace tovin {

AwayView::AwayView(QString label, QDateTime endsAt, Clock& clock, const Calendar& calendar,
                   QWidget* parent)
    : QWidget(parent)
    , label_(std::move(label))
    , endsAt_(std::move(endsAt))
    , clock_(clock) {
    setFocusPolicy(Qt::NoFocus);
    QVBoxLayout* stack = centredColumn(this, 720, 20);
    auto add = [&](const QString& text, qreal points, QFont::Weight weight, qreal alpha) {
        return addColumnLabel(stack, text, points, weight, alpha);
    };
    add(QStringLiteral("You said you'd do this now."), 15, QFont::Medium, 0.4);
    add(label_, 56, QFont::Bold, 1.0);
    remaining_ = add(QString(), 20, QFont::Normal, 0.55);
    comesBack_ =
        add(u"Your screen comes back at " + endsAt_.toTimeZone(calendar.zone()).toString(u"HH:mm"),
            14, QFont::Normal, 0.32);
    refresh();
    ticker_ = clock_.createTimer([this] { refresh(); });
    ticker_->start(1.0, true);
}

QString AwayView::remainingText(double seconds) {
    const qint64 s = std::max<qint64>(0, qint64(std::ceil(seconds)));
    if (s >= 60)
        return QString::asprintf("%lld:%02lld left", s / 60, s % 60);
    return QString::number(s) + u"s left";
}

QString AwayView::countdownText() const {
    return remaining_ ? remaining_->text() : QString();
}

QString AwayView::comesBackText() const {
    return comesBack_ ? comesBack_->text() : QString();
}

void AwayView::refresh() {
    if (remaining_)
        remaining_->setText(remainingText(double(clock_.now().msecsTo(endsAt_)) / 1000.0));
}

void AwayView::paintEvent(QPaintEvent*) {
    QPainter(this).fillRect(rect(), QColor::fromRgbF(0.035f, 0.055f, 0.07f));
}

} // namespace tovin

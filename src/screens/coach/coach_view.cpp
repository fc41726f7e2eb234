#include "screens/coach/coach_view.h"

#include <QPainter>

namespace tovin {

CoachView::CoachView(QWidget* parent)
    : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(480, 360);
}

void CoachView::showFrame(const QImage& image, const PoseFrame& pose) {
    // Mirrored once here, as a person expects to see themselves, not on every repaint.
    image_ = image.mirrored(true, false);
    pose_ = pose;
    update();
}

void CoachView::setStatus(const QString& status, const std::optional<QString>& detail) {
    status_ = status;
    detail_ = detail.value_or(QString());
    update();
}

void CoachView::setCounts(int reps, int clean, int required) {
    reps_ = reps;
    clean_ = clean;
    required_ = required;
    update();
}

void CoachView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), QColor(12, 12, 14));
    p.setRenderHint(QPainter::Antialiasing);
    QRectF picture;
    if (!image_.isNull()) {
        const QSizeF fitted =
            QSizeF(image_.size()).scaled(QSizeF(width(), height()), Qt::KeepAspectRatio);
        picture = QRectF(QPointF((width() - fitted.width()) / 2, (height() - fitted.height()) / 2),
                         fitted);
        p.drawImage(picture, image_);
        auto at = [&](Joint j) -> std::optional<QPointF> {
            const auto pt = pose_.p(j);
            if (!pt)
                return std::nullopt;
            return QPointF(picture.left() + (1 - pt->x()) * picture.width(),
                           picture.top() + (1 - pt->y()) * picture.height());
        };
        static constexpr std::pair<Joint, Joint> bones[] = {
            {Joint::LeftShoulder, Joint::RightShoulder},
            {Joint::LeftShoulder, Joint::LeftElbow},
            {Joint::LeftElbow, Joint::LeftWrist},
            {Joint::RightShoulder, Joint::RightElbow},
            {Joint::RightElbow, Joint::RightWrist},
            {Joint::LeftShoulder, Joint::LeftHip},
            {Joint::RightShoulder, Joint::RightHip},
            {Joint::LeftHip, Joint::RightHip},
            {Joint::LeftHip, Joint::LeftKnee},
            {Joint::LeftKnee, Joint::LeftAnkle},
            {Joint::RightHip, Joint::RightKnee},
            {Joint::RightKnee, Joint::RightAnkle},
            {Joint::Nose, Joint::Neck}};
        p.setPen(QPen(QColor(120, 230, 160), 4, Qt::SolidLine, Qt::RoundCap));
        for (const auto& [a, b] : bones) {
            const auto pa = at(a), pb = at(b);
            if (pa && pb)
                p.drawLine(*pa, *pb);
        }
        p.setBrush(Qt::white);
        p.setPen(Qt::NoPen);
        for (int j = 0; j < jointCount; ++j)
            if (const auto pt = at(Joint(j)))
                p.drawEllipse(*pt, 5, 5);
    }
    // The text column, on a dark band so it reads over any picture.
    const QRectF band(0, 0, width(), 150);
    p.fillRect(band, QColor(0, 0, 0, 170));
    p.setPen(Qt::white);
    QFont font = p.font();
    font.setPixelSize(20);
    p.setFont(font);
    p.drawText(QRectF(24, 14, width() - 48, 28), Qt::AlignLeft, name_);
    p.drawText(QRectF(24, 14, width() - 48, 28), Qt::AlignRight,
               QString::number(reps_) + u" reps · " + QString::number(clean_) + u" clean" +
                   (required_ > 0 ? u" of " + QString::number(required_) : QString()));
    font.setPixelSize(34);
    font.setBold(true);
    p.setFont(font);
    p.drawText(QRectF(24, 46, width() - 48, 44), Qt::AlignLeft, status_);
    font.setPixelSize(16);
    font.setBold(false);
    p.setFont(font);
    p.setPen(QColor(255, 255, 255, 190));
    p.drawText(QRectF(24, 96, width() - 48, 24), Qt::AlignLeft, detail_);
    p.fillRect(QRectF(0, height() - 48, width(), 48), QColor(0, 0, 0, 170));
    p.setPen(QColor(255, 255, 255, 190));
    p.drawText(QRectF(24, height() - 36, width() - 48, 24), Qt::AlignHCenter, legend());
}

} // namespace tovin

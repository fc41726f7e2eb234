#include "screens/coach/image_list_source.h"

namespace tovin {

ImageListSource::ImageListSource(QList<QImage> images, Clock& clock, double interval,
                                 QObject* parent)
    : FrameSource(parent)
    , images_(std::move(images))
    , clock_(clock)
    , interval_(interval) {
}

void ImageListSource::start() {
    if (images_.isEmpty()) {
        QMetaObject::invokeMethod(
            this, [this] { Q_EMIT failed(QStringLiteral("nothing to play")); },
            Qt::QueuedConnection);
        return;
    }
    timer_ = clock_.createTimer([this] {
        Q_EMIT frame(images_.at(next_));
        next_ = (next_ + 1) % images_.size();
    });
    timer_->start(interval_, true);
}

void ImageListSource::stop() {
    timer_.reset();
}

} // namespace tovin

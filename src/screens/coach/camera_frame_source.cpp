#include "screens/coach/camera_frame_source.h"

#include <QCamera>
#include <QMediaCaptureSession>
#include <QMediaDevices>
#include <QVideoFrame>
#include <QVideoSink>

namespace tovin {

CameraFrameSource::CameraFrameSource(QObject* parent)
    : FrameSource(parent) {
}

CameraFrameSource::~CameraFrameSource() {
    stop();
}

void CameraFrameSource::start() {
    const QCameraDevice device = QMediaDevices::defaultVideoInput();
    if (device.isNull()) {
        QMetaObject::invokeMethod(
            this, [this] { Q_EMIT failed(QStringLiteral("no camera found")); },
            Qt::QueuedConnection);
        return;
    }
    camera_ = std::make_unique<QCamera>(device);
    capture_ = std::make_unique<QMediaCaptureSession>();
    sink_ = std::make_unique<QVideoSink>();
    capture_->setCamera(camera_.get());
    capture_->setVideoSink(sink_.get());
    connect(camera_.get(), &QCamera::errorOccurred, this,
            [this](QCamera::Error, const QString& text) {
                Q_EMIT failed(u"the camera couldn't be opened: " + text);
            });
    connect(sink_.get(), &QVideoSink::videoFrameChanged, this, [this](const QVideoFrame& frame) {
        const QImage image = frame.toImage();
        if (!image.isNull())
            Q_EMIT this->frame(image);
    });
    camera_->start();
}

void CameraFrameSource::stop() {
    if (camera_)
        camera_->stop();
    if (capture_) {
        capture_->setCamera(nullptr);
        capture_->setVideoSink(nullptr);
    }
    sink_.reset();
    capture_.reset();
    camera_.reset(); // the device is closed here, not when the lockout object goes
}

bool CameraFrameSource::isActive() const {
    return camera_ && camera_->isActive();
}

} // namespace tovin

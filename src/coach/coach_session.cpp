#include "coach/coach_session.h"

#include "coach/pose_model.h"

#include <QCamera>
#include <QMediaCaptureSession>
#include <QMediaDevices>
#include <QMutexLocker>
#include <QPainter>
#include <QVideoFrame>
#include <QVideoSink>

#include <opencv2/core.hpp>

namespace tovin {

// --- sources --------------------------------------------------------------------------------

CameraFrameSource::CameraFrameSource(QObject* parent) : FrameSource(parent) {}

CameraFrameSource::~CameraFrameSource() {
    stop();
}

void CameraFrameSource::start() {
    const QCameraDevice device = QMediaDevices::defaultVideoInput();
    if (device.isNull()) {
        QMetaObject::invokeMethod(this, [this] { Q_EMIT failed(QStringLiteral("no camera found")); }, Qt::QueuedConnection);
        return;
    }
    camera_ = std::make_unique<QCamera>(device);
    capture_ = std::make_unique<QMediaCaptureSession>();
    sink_ = std::make_unique<QVideoSink>();
    capture_->setCamera(camera_.get());
    capture_->setVideoSink(sink_.get());
    connect(camera_.get(), &QCamera::errorOccurred, this, [this](QCamera::Error, const QString& text) {
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

ImageListSource::ImageListSource(QList<QImage> images, Clock& clock, double interval, QObject* parent)
    : FrameSource(parent), images_(std::move(images)), clock_(clock), interval_(interval) {}

void ImageListSource::start() {
    if (images_.isEmpty()) {
        QMetaObject::invokeMethod(this, [this] { Q_EMIT failed(QStringLiteral("nothing to play")); }, Qt::QueuedConnection);
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

// --- the model's thread ---------------------------------------------------------------------

PoseWorker::PoseWorker(std::unique_ptr<PoseModel> model) : model_(std::move(model)) {
    qRegisterMetaType<tovin::PoseFrame>();
    inThread_ = new QObject;
    inThread_->moveToThread(&thread_);
    connect(&thread_, &QThread::finished, inThread_, &QObject::deleteLater);
    thread_.setObjectName(QStringLiteral("tovin-pose"));
    thread_.start();
}

PoseWorker::~PoseWorker() {
    thread_.quit();
    thread_.wait();
}

void PoseWorker::submit(const QImage& image) {
    {
        QMutexLocker lock(&mutex_);
        if (waiting_)
            ++dropped_; // the older one was never looked at: only the newest matters
        waiting_ = image;
        if (busy_)
            return;
        busy_ = true;
    }
    QMetaObject::invokeMethod(inThread_, [this] { work(); }, Qt::QueuedConnection);
}

void PoseWorker::work() {
    for (;;) {
        QImage image;
        {
            QMutexLocker lock(&mutex_);
            if (!waiting_) {
                busy_ = false;
                return;
            }
            image = std::move(*waiting_);
            waiting_.reset();
        }
        const QImage rgb = image.convertToFormat(QImage::Format_RGB888);
        const cv::Mat mat(rgb.height(), rgb.width(), CV_8UC3, const_cast<uchar*>(rgb.constBits()),
                          size_t(rgb.bytesPerLine()));
        const PoseFrame pose = model_->estimate(mat);
        Q_EMIT estimated(rgb, pose);
    }
}

// --- the view -------------------------------------------------------------------------------

CoachView::CoachView(QWidget* parent) : QWidget(parent) {
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
        const QSizeF fitted = QSizeF(image_.size()).scaled(QSizeF(width(), height()), Qt::KeepAspectRatio);
        picture = QRectF(QPointF((width() - fitted.width()) / 2, (height() - fitted.height()) / 2), fitted);
        p.drawImage(picture, image_);
        auto at = [&](Joint j) -> std::optional<QPointF> {
            const auto pt = pose_.p(j);
            if (!pt)
                return std::nullopt;
            return QPointF(picture.left() + (1 - pt->x()) * picture.width(), picture.top() + (1 - pt->y()) * picture.height());
        };
        static constexpr std::pair<Joint, Joint> bones[] = {
            {Joint::LeftShoulder, Joint::RightShoulder}, {Joint::LeftShoulder, Joint::LeftElbow},
            {Joint::LeftElbow, Joint::LeftWrist},        {Joint::RightShoulder, Joint::RightElbow},
            {Joint::RightElbow, Joint::RightWrist},      {Joint::LeftShoulder, Joint::LeftHip},
            {Joint::RightShoulder, Joint::RightHip},     {Joint::LeftHip, Joint::RightHip},
            {Joint::LeftHip, Joint::LeftKnee},           {Joint::LeftKnee, Joint::LeftAnkle},
            {Joint::RightHip, Joint::RightKnee},         {Joint::RightKnee, Joint::RightAnkle},
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

// --- the session ----------------------------------------------------------------------------

CoachSession::CoachSession(std::unique_ptr<FrameSource> source, std::unique_ptr<PoseModel> model, Clock& clock,
                           Coachbox& voice, int requiredCleanReps, QObject* parent)
    : QObject(parent), source_(std::move(source)), clock_(clock), voice_(voice), required_(std::max(1, requiredCleanReps)) {
    view_ = new CoachView;
    if (model) {
        worker_ = std::make_unique<PoseWorker>(std::move(model));
        connect(worker_.get(), &PoseWorker::estimated, this, &CoachSession::consume);
    }
    if (source_) {
        connect(source_.get(), &FrameSource::frame, this, [this](const QImage& image) {
            if (worker_ && !done_)
                worker_->submit(image);
        });
        connect(source_.get(), &FrameSource::failed, this, [this](const QString& reason) {
            if (!done_) {
                stop();
                Q_EMIT gaveUp(reason);
            }
        });
    }
}

CoachSession::~CoachSession() {
    stop();
}

void CoachSession::start(std::unique_ptr<ExerciseCoach> coach) {
    coach_ = std::move(coach);
    view_->setCoach(coach_->name());
    view_->setCounts(0, 0, required_);
    watchdog_ = clock_.singleShot(watchdogSeconds, [this] {
        if (sawPose_ || done_)
            return;
        stop();
        Q_EMIT gaveUp(frames_ == 0 ? QStringLiteral("no picture from the camera within 20 s")
                                   : QStringLiteral("nobody in view of the camera within 20 s"));
    });
    if (source_)
        source_->start();
}

void CoachSession::stop() {
    done_ = true;
    watchdog_.reset();
    if (source_)
        source_->stop();
}

void CoachSession::switchCoach(std::unique_ptr<ExerciseCoach> coach) {
    coach_ = std::move(coach);
    view_->setCoach(coach_->name());
    resetCoach();
}

void CoachSession::resetCoach() {
    coach_->reset();
    view_->setCounts(0, 0, required_);
    view_->setStatus(QStringLiteral("Get into position"), coach_->setupHint());
}

void CoachSession::consume(const QImage& image, const PoseFrame& pose) {
    if (done_ || !coach_)
        return;
    ++frames_;
    const CoachOutput out = coach_->update(pose);
    // A pose the coach can work with (it did not ask to be shown the body) disarms the watchdog.
    if (!out.status.startsWith(u"Can't see"))
        sawPose_ = true;
    if (view_) {
        view_->showFrame(image, pose);
        view_->setStatus(out.status, out.detail);
        view_->setCounts(coach_->reps(), coach_->cleanReps(), required_);
    }
    const bool finished = coach_->cleanReps() >= required_;
    // The last repetition's praise gives way to the finish, which speaks for itself.
    if (out.speak && !finished)
        voice_.say(*out.speak, out.repJustCompleted.has_value());
    if (finished) {
        done_ = true;
        watchdog_.reset();
        Q_EMIT cleanRepsReached();
    }
}

} // namespace tovin

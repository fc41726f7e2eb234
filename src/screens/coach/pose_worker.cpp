#include "screens/coach/pose_worker.h"

#include "screens/coach/pose_model.h"

#include <QMutexLocker>

#include <opencv2/core.hpp>

namespace tovin {

PoseWorker::PoseWorker(std::unique_ptr<PoseModel> model)
    : model_(std::move(model)) {
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
    QMetaObject::invokeMethod(
        inThread_, [this] { work(); }, Qt::QueuedConnection);
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

} // namespace tovin

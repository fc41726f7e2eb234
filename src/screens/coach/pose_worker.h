#pragma once

#include "core/pose_frame.h"

#include <QImage>
#include <QMutex>
#include <QObject>
#include <QThread>

#include <memory>
#include <optional>

namespace tovin {

class PoseModel;

// Runs the pose model on its own thread over the newest frame only: a frame that arrives while
// the model is busy replaces the one waiting, so the coach never falls behind the camera.
class PoseWorker final : public QObject {
    Q_OBJECT
public:
    explicit PoseWorker(std::unique_ptr<PoseModel> model);
    ~PoseWorker() override;
    void submit(const QImage& image);
    int dropped() const { return dropped_; }

Q_SIGNALS:
    void estimated(const QImage& image, const tovin::PoseFrame& pose);

private:
    void work();

    std::unique_ptr<PoseModel> model_;
    QThread thread_;
    QObject* inThread_ = nullptr;
    QMutex mutex_;
    std::optional<QImage> waiting_;
    bool busy_ = false;
    int dropped_ = 0;
};

} // namespace tovin

Q_DECLARE_METATYPE(tovin::PoseFrame)

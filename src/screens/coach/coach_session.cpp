#include "screens/coach/coach_session.h"

#include "screens/coach/pose_model.h"

namespace tovin {

CoachSession::CoachSession(std::unique_ptr<FrameSource> source, std::unique_ptr<PoseModel> model,
                           Clock& clock, Coachbox& voice, int requiredCleanReps, QObject* parent)
    : QObject(parent)
    , source_(std::move(source))
    , clock_(clock)
    , voice_(voice)
    , required_(std::max(1, requiredCleanReps)) {
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

#pragma once

#include "core/clock.h"
#include "core/coachbox.h"
#include "core/coaches.h"
#include "screens/coach/camera_frame_source.h"
#include "screens/coach/coach_view.h"
#include "screens/coach/frame_source.h"
#include "screens/coach/image_list_source.h"
#include "screens/coach/pose_worker.h"

#include <QObject>
#include <QPointer>
#include <QThread>

#include <memory>
#include <optional>

namespace tovin {

class PoseModel;

// One coached workout: frames → model → coach → view and voice, with a watchdog that gives up
// when no usable pose has arrived in time (a covered or broken camera must never hold anyone).
class CoachSession final : public QObject {
    Q_OBJECT
public:
    static constexpr double watchdogSeconds = 20;

    CoachSession(std::unique_ptr<FrameSource> source, std::unique_ptr<PoseModel> model,
                 Clock& clock, Coachbox& voice, int requiredCleanReps, QObject* parent = nullptr);
    ~CoachSession() override;

    void start(std::unique_ptr<ExerciseCoach> coach);
    void stop();
    void switchCoach(std::unique_ptr<ExerciseCoach> coach);
    void resetCoach();
    ExerciseCoach& coach() { return *coach_; }
    CoachView* view() const { return view_; }
    Coachbox& voice() { return voice_; }
    int framesSeen() const { return frames_; }

    // Handles one estimated frame (the worker's result, or a test's hand-made frame).
    void consume(const QImage& image, const PoseFrame& pose);

Q_SIGNALS:
    void cleanRepsReached();
    void gaveUp(const QString& reason);

private:
    std::unique_ptr<FrameSource> source_;
    std::unique_ptr<PoseWorker> worker_;
    Clock& clock_;
    Coachbox& voice_;
    int required_;
    std::unique_ptr<ExerciseCoach> coach_;
    QPointer<CoachView> view_;
    std::unique_ptr<Timer> watchdog_;
    bool sawPose_ = false;
    bool done_ = false;
    int frames_ = 0;
};

} // namespace tovin

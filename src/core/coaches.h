#pragma once

#include "core/pose_frame.h"

#include <memory>

namespace tovin {

// Squats, facing the camera: depth from the knee angle, forward lean of the torso, knees
// tracking over the feet. Too close for the ankles, it measures depth from the hips' drop
// against the torso instead, once it has seen the person stand tall.
class SquatCoach final : public ExerciseCoach {
public:
    enum class Phase { Unseen, Standing, Down };
    static constexpr double descent = 140, standing = 158, breakingParallel = 105,
                            shallowCutoff = 125;
    static constexpr double leanLimit = 48, trackingLimit = 0.85;
    static constexpr double closeCalibrationFloor = 0.35, closeDescentEnter = 0.35,
                            closeDescentStand = 0.15;
    static constexpr double closeDescentGood = 0.85, closeDescentShallow = 0.6, descentCap = 1.6;

    explicit SquatCoach(RandomPick pick = {})
        : ExerciseCoach(std::move(pick)) {}
    QString name() const override { return QStringLiteral("Squats"); }
    QString setupHint() const override {
        return QStringLiteral(
            "Stand back so your feet and head are both in frame, facing the camera.");
    }
    CoachOutput update(const PoseFrame& frame) override;
    void reset() override;

    Phase phase() const { return phase_; }
    bool isCloseRange() const { return isCloseRange_; }

private:
    CoachOutput normal(const PoseFrame& frame);
    CoachOutput closeRange(const PoseFrame& frame);
    CoachOutput cue(double knee, double lean, double tracking) const;
    CoachOutput closeCue(double lean) const;

    Phase phase_ = Phase::Unseen;
    double minKnee_ = 180, maxLean_ = 0, minTracking_ = 2.0, minDescentSeen_ = 0, maxDescent_ = 0;
    double closeStanding_ = 0;
    bool isCloseRange_ = false;
};

// Jumping jacks: hands over the head and feet apart, in shoulder-widths; the spread is read at
// the knees when the ankles are out of shot.
class JumpingJackCoach final : public ExerciseCoach {
public:
    enum class Phase { Unseen, Closed, Open };
    static constexpr double liftOverhead = 0.75, spreadWide = 1.1, kneeScale = 0.62;

    explicit JumpingJackCoach(RandomPick pick = {})
        : ExerciseCoach(std::move(pick)) {}
    QString name() const override { return QStringLiteral("Jumping Jacks"); }
    QString setupHint() const override {
        return QStringLiteral("Stand back until your raised hands and your feet are both in shot.");
    }
    CoachOutput update(const PoseFrame& frame) override;
    void reset() override;

    Phase phase() const { return phase_; }
    bool isCloseRange() const { return isCloseRange_; }

private:
    CoachOutput openCue() const;

    Phase phase_ = Phase::Unseen;
    double bestLift_ = -9.0, bestSpread_ = 0.0;
    bool isCloseRange_ = false;
};

// Push-ups, filmed side-on: depth from the elbow, the body line from shoulder over hip to knee.
class PushupCoach final : public ExerciseCoach {
public:
    enum class Phase { Unseen, Top, Down };
    static constexpr double depthTarget = 100, bodyLineLimit = 162, descent = 140, lockout = 158,
                            depthCue = 120;

    explicit PushupCoach(RandomPick pick = {})
        : ExerciseCoach(std::move(pick)) {}
    QString name() const override { return QStringLiteral("Push-ups"); }
    QString setupHint() const override {
        return QStringLiteral("Turn the camera side-on so it sees you head to feet in profile.");
    }
    CoachOutput update(const PoseFrame& frame) override;
    void reset() override;

    Phase phase() const { return phase_; }

private:
    CoachOutput depthCueFor(double elbow) const;

    Phase phase_ = Phase::Unseen;
    double minElbow_ = 180, worstBodyLine_ = 180;
    bool sagged_ = false;
};

// The coach a lockout workout names ("coach:squats", "coach:jacks", "coach:pushups"); none for a
// workout of the web app.
std::unique_ptr<ExerciseCoach> coachForWorkout(const QString& workoutID);
inline bool isCoachWorkout(const QString& workoutID) {
    return coachForWorkout(workoutID) != nullptr;
}

} // namespace tovin

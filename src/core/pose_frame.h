#pragma once

#include <QPointF>
#include <QString>
#include <QStringList>

#include <array>
#include <functional>
#include <initializer_list>
#include <optional>

namespace tovin {

// The body joints a pose detector reports. The first seventeen are the COCO keypoints every
// common single-person model finds; the neck is derived (the shoulders' midpoint).
enum class Joint {
    Nose,
    LeftEye,
    RightEye,
    LeftEar,
    RightEar,
    LeftShoulder,
    RightShoulder,
    LeftElbow,
    RightElbow,
    LeftWrist,
    RightWrist,
    LeftHip,
    RightHip,
    LeftKnee,
    RightKnee,
    LeftAnkle,
    RightAnkle,
    Neck,
};
inline constexpr int jointCount = int(Joint::Neck) + 1;

// One camera frame's joints, in image coordinates (y grows downward in a camera image; the
// pipeline flips it so that "above" means a larger y, as the coaches' rules read).
struct PoseFrame {
    static constexpr float minConfidence = 0.25f;

    std::array<std::optional<QPointF>, jointCount> points{};
    std::array<std::optional<float>, jointCount> confidence{};

    void set(Joint joint, QPointF point, float score) {
        points[size_t(joint)] = point;
        confidence[size_t(joint)] = score;
    }
    // The joint's point when it has one and enough confidence.
    std::optional<QPointF> p(Joint joint) const {
        const auto& point = points[size_t(joint)];
        const auto& score = confidence[size_t(joint)];
        if (!point || !score || *score < minConfidence)
            return std::nullopt;
        return point;
    }
    std::optional<QPointF> mid(Joint a, Joint b) const {
        const auto pa = p(a);
        const auto pb = p(b);
        if (!pa || !pb)
            return std::nullopt;
        return (*pa + *pb) / 2.0;
    }
    bool has(std::initializer_list<Joint> joints) const {
        for (const Joint joint : joints) {
            if (!p(joint))
                return false;
        }
        return true;
    }
};

// The angle at b between the rays to a and c, in degrees; a degenerate joint counts as straight
// (180), so a missing limb never looks bent.
double angle(QPointF a, QPointF b, QPointF c);
// The segment's angle from the vertical, 0..90 degrees, blind to its direction.
double leanFromVertical(QPointF from, QPointF to);

// The verdict on one finished repetition.
struct RepReport {
    int index = 0;
    QStringList faults;
    QString headline;
    bool isClean() const { return faults.isEmpty(); }
    bool operator==(const RepReport&) const = default;
};

// What a coach says about one frame.
struct CoachOutput {
    QString status;
    std::optional<QString> detail;
    std::optional<QString> speak;
    std::optional<RepReport> repJustCompleted;
};

// Picks one of n equally likely choices (0..n-1); tests pass a fixed one.
using RandomPick = std::function<int(int n)>;
RandomPick systemRandomPick();

class ExerciseCoach {
public:
    virtual ~ExerciseCoach() = default;
    virtual QString name() const = 0;
    virtual QString setupHint() const = 0;
    int reps() const { return reps_; }
    int cleanReps() const { return cleanReps_; }
    virtual CoachOutput update(const PoseFrame& frame) = 0;
    virtual void reset() = 0;

protected:
    explicit ExerciseCoach(RandomPick pick)
        : pick_(pick ? std::move(pick) : systemRandomPick()) {}
    // Counts a repetition with its faults and returns its report; the headline is the first
    // fault, or a word of praise for a clean one.
    RepReport finishRep(QStringList faults);
    CoachOutput notSeen(const QString& status) const {
        return {status, setupHint(), std::nullopt, std::nullopt};
    }

    int reps_ = 0;
    int cleanReps_ = 0;

private:
    RandomPick pick_;
};

// The praise for a clean repetition.
const std::array<const char16_t*, 7>& praise();

} // namespace tovin

#include "core/coaches.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tovin {

namespace {

using J = Joint;

CoachOutput out(const QString& status, std::optional<QString> detail = std::nullopt,
                std::optional<QString> speak = std::nullopt) {
    return {status, std::move(detail), std::move(speak), std::nullopt};
}

QString tally(int reps, int clean) {
    return QString::number(reps) + u" reps · " + QString::number(clean) + u" clean";
}

CoachOutput repOutput(const RepReport& report, const QString& detail) {
    return {u"Rep " + QString::number(report.index) + u" · " + report.headline, detail,
            report.headline, report};
}

double distance(QPointF a, QPointF b) {
    return std::hypot(a.x() - b.x(), a.y() - b.y());
}

} // namespace

// --- squats ---------------------------------------------------------------------------------

void SquatCoach::reset() {
    reps_ = 0;
    cleanReps_ = 0;
    // Back to the start, as if nobody had been seen: a reset in the middle of a squat must not
    // let the rest of that squat count as a rep.
    phase_ = Phase::Unseen;
    minKnee_ = 180;
    maxLean_ = 0;
    minTracking_ = 2.0;
    minDescentSeen_ = 0;
    maxDescent_ = 0;
    isCloseRange_ = false;
    closeStanding_ = 0; // the close-range calibration is forgotten on purpose
}

CoachOutput SquatCoach::update(const PoseFrame& frame) {
    if (frame.has(
            {J::LeftHip, J::RightHip, J::LeftKnee, J::RightKnee, J::LeftAnkle, J::RightAnkle})) {
        isCloseRange_ = false;
        return normal(frame);
    }
    if (frame.has({J::LeftHip, J::RightHip, J::LeftKnee, J::RightKnee, J::LeftShoulder,
                   J::RightShoulder})) {
        isCloseRange_ = true;
        return closeRange(frame);
    }
    phase_ = Phase::Unseen;
    return notSeen(QStringLiteral("Can't see your hips and knees"));
}

CoachOutput SquatCoach::normal(const PoseFrame& f) {
    const double knee = (angle(*f.p(J::LeftHip), *f.p(J::LeftKnee), *f.p(J::LeftAnkle)) +
                         angle(*f.p(J::RightHip), *f.p(J::RightKnee), *f.p(J::RightAnkle))) /
                        2;
    const auto shoulders = f.mid(J::LeftShoulder, J::RightShoulder);
    const double lean =
        shoulders ? leanFromVertical(*f.mid(J::LeftHip, J::RightHip), *shoulders) : 0;
    const double ankleSpread = std::abs(f.p(J::LeftAnkle)->x() - f.p(J::RightAnkle)->x());
    const double tracking =
        ankleSpread > 0.001 ? std::abs(f.p(J::LeftKnee)->x() - f.p(J::RightKnee)->x()) / ankleSpread
                            : 1.0;
    minKnee_ = std::min(minKnee_, knee);
    maxLean_ = std::max(maxLean_, lean);

    if (knee < descent) {
        minTracking_ = std::min(minTracking_, tracking);
        if (phase_ != Phase::Down) {
            phase_ = Phase::Down;
            minDescentSeen_ = 0;
            maxDescent_ = 0;
            minKnee_ = knee;
            maxLean_ = lean;
            minTracking_ = tracking;
        }
        return cue(knee, lean, tracking);
    }
    if (phase_ != Phase::Down) {
        phase_ = Phase::Standing;
        return out(QStringLiteral("Ready"), tally(reps_, cleanReps_));
    }
    if (knee <= standing)
        return cue(knee, lean, tracking);

    phase_ = Phase::Standing;
    if (!(minKnee_ < descent))
        return out(QStringLiteral("Ready"));
    QStringList faults;
    if (minKnee_ > shallowCutoff)
        faults.append(QStringLiteral("Too shallow — hit parallel"));
    if (maxLean_ > leanLimit)
        faults.append(QStringLiteral("Chest dropped forward"));
    if (minTracking_ < trackingLimit)
        faults.append(QStringLiteral("Knees caved in"));
    const RepReport report = finishRep(faults);
    const QString detail = QString::asprintf("depth %.0f° · lean %.0f° · tracking %.2f", minKnee_,
                                             maxLean_, minTracking_);
    minKnee_ = 180;
    maxLean_ = 0;
    minTracking_ = 2.0;
    minDescentSeen_ = 0;
    maxDescent_ = 0;
    return repOutput(report, detail);
}

CoachOutput SquatCoach::cue(double knee, double lean, double tracking) const {
    if (tracking < trackingLimit)
        return out(QStringLiteral("Knees out"), QStringLiteral("They're collapsing inward"),
                   QStringLiteral("Knees out"));
    if (lean > leanLimit)
        return out(QStringLiteral("Chest up"), QStringLiteral("You're folding forward"),
                   QStringLiteral("Chest up"));
    if (knee > shallowCutoff)
        return out(QStringLiteral("Lower"), QStringLiteral("Hips back and down"),
                   QStringLiteral("Go lower"));
    if (knee <= breakingParallel)
        return out(QStringLiteral("Good depth — drive up"));
    return out(QStringLiteral("Down…"));
}

CoachOutput SquatCoach::closeRange(const PoseFrame& f) {
    const QPointF hips = *f.mid(J::LeftHip, J::RightHip);
    const QPointF knees = *f.mid(J::LeftKnee, J::RightKnee);
    const QPointF shoulders = *f.mid(J::LeftShoulder, J::RightShoulder);
    const double torso = distance(shoulders, hips);
    if (!(torso > 0.001)) {
        phase_ = Phase::Unseen;
        return notSeen(QStringLiteral("Can't see your hips and knees"));
    }
    const double ratio = (hips.y() - knees.y()) / torso;
    closeStanding_ = std::max(closeStanding_, ratio); // the tallest stance ever seen
    if (closeStanding_ < closeCalibrationFloor)
        return out(QStringLiteral("Stand up straight"),
                   QStringLiteral("Close-range mode — stand tall once so Tovin can measure you."));

    const double descentNow = std::clamp(1 - ratio / closeStanding_, 0.0, descentCap);
    const double dy = shoulders.y() - hips.y();
    const double lean = std::abs(dy) > 1e-6 ? std::abs(std::atan((shoulders.x() - hips.x()) / dy)) *
                                                  180 / std::numbers::pi
                                            : 90.0;
    maxDescent_ = std::max(maxDescent_, descentNow);
    maxLean_ = std::max(maxLean_, lean);

    if (phase_ == Phase::Down) {
        if (descentNow >= closeDescentStand)
            return closeCue(lean);
        phase_ = Phase::Standing;
        if (!(maxDescent_ > closeDescentEnter))
            return out(QStringLiteral("Ready"));
        QStringList faults;
        if (maxDescent_ < closeDescentShallow)
            faults.append(QStringLiteral("Too shallow — hit parallel"));
        if (maxLean_ > leanLimit)
            faults.append(QStringLiteral("Chest dropped forward"));
        const RepReport report = finishRep(faults);
        const QString detail =
            QString::asprintf("close-range · depth %.0f%% · lean %.0f° · knee tracking not graded",
                              maxDescent_ * 100, maxLean_);
        maxDescent_ = 0;
        return repOutput(report, detail);
    }
    if (!(descentNow > closeDescentEnter)) {
        phase_ = Phase::Standing;
        return out(QStringLiteral("Ready"), u"Close-range mode · " + tally(reps_, cleanReps_));
    }
    phase_ = Phase::Down;
    minKnee_ = 180;
    minTracking_ = 2.0;
    minDescentSeen_ = 0;
    maxDescent_ = descentNow;
    maxLean_ = lean;
    return closeCue(lean);
}

CoachOutput SquatCoach::closeCue(double lean) const {
    if (lean > leanLimit)
        return out(QStringLiteral("Chest up"), QStringLiteral("You're folding forward"),
                   QStringLiteral("Chest up"));
    if (maxDescent_ < closeDescentShallow)
        return out(QStringLiteral("Lower"), QStringLiteral("Hips back and down"),
                   QStringLiteral("Go lower"));
    if (maxDescent_ < closeDescentGood)
        return out(QStringLiteral("Down…"));
    return out(QStringLiteral("Good depth — drive up"));
}

// --- jumping jacks --------------------------------------------------------------------------

void JumpingJackCoach::reset() {
    reps_ = 0;
    cleanReps_ = 0;
    phase_ = Phase::Unseen;
    bestLift_ = -9.0;
    bestSpread_ = 0.0;
}

CoachOutput JumpingJackCoach::update(const PoseFrame& f) {
    if (!f.has({J::LeftShoulder, J::RightShoulder, J::LeftWrist, J::RightWrist})) {
        phase_ = Phase::Unseen;
        return notSeen(QStringLiteral("Can't see your arms"));
    }
    QPointF left, right;
    double scale = 1.0;
    if (f.has({J::LeftAnkle, J::RightAnkle})) {
        left = *f.p(J::LeftAnkle);
        right = *f.p(J::RightAnkle);
        isCloseRange_ = false;
    } else if (f.has({J::LeftKnee, J::RightKnee})) {
        left = *f.p(J::LeftKnee);
        right = *f.p(J::RightKnee);
        scale = kneeScale;
        isCloseRange_ = true;
    } else {
        return notSeen(QStringLiteral("Can't see your legs"));
    }
    const QPointF ls = *f.p(J::LeftShoulder), rs = *f.p(J::RightShoulder);
    const double width = std::max(distance(ls, rs), 0.001);
    const double lift =
        (std::min(f.p(J::LeftWrist)->y(), f.p(J::RightWrist)->y()) - (ls.y() + rs.y()) / 2) / width;
    const double spread = std::abs(left.x() - right.x()) / (scale * width);
    bestLift_ = std::max(bestLift_, lift);
    bestSpread_ = std::max(bestSpread_, spread);
    const bool open = lift > 0.45 && spread > 0.9;
    const bool closed = lift < 0.1 && spread < 0.7;

    switch (phase_) {
    case Phase::Unseen:
        phase_ = open ? Phase::Open : Phase::Closed;
        bestLift_ = -9.0;
        bestSpread_ = 0.0;
        return openCue();
    case Phase::Closed:
        if (!open)
            return out(QStringLiteral("Ready"), tally(reps_, cleanReps_));
        phase_ = Phase::Open;
        bestLift_ = lift;
        bestSpread_ = spread;
        return openCue();
    case Phase::Open:
        break;
    }
    if (!closed)
        return openCue();
    phase_ = Phase::Closed;
    QStringList faults;
    if (bestLift_ < liftOverhead)
        faults.append(QStringLiteral("Hands never got overhead"));
    if (bestSpread_ < spreadWide)
        faults.append(QStringLiteral("Feet barely moved"));
    const RepReport report = finishRep(faults);
    const QString detail =
        QString::asprintf("lift %.2f · spread %.2f (shoulder-widths)", bestLift_, bestSpread_);
    bestLift_ = -9.0;
    bestSpread_ = 0.0;
    return repOutput(report, detail);
}

CoachOutput JumpingJackCoach::openCue() const {
    if (bestLift_ < liftOverhead)
        return out(QStringLiteral("Arms higher"), QStringLiteral("All the way overhead"),
                   QStringLiteral("Arms higher"));
    if (bestSpread_ < spreadWide)
        return out(QStringLiteral("Wider feet"), std::nullopt, QStringLiteral("Wider"));
    return out(QStringLiteral("Good — keep the rhythm"));
}

// --- push-ups -------------------------------------------------------------------------------

void PushupCoach::reset() {
    reps_ = 0;
    cleanReps_ = 0;
    phase_ = Phase::Unseen;
    minElbow_ = 180;
    worstBodyLine_ = 180;
    sagged_ = false;
}

CoachOutput PushupCoach::update(const PoseFrame& f) {
    const bool left = f.has({J::LeftShoulder, J::LeftElbow, J::LeftWrist, J::LeftHip, J::LeftKnee});
    const bool right =
        !left && f.has({J::RightShoulder, J::RightElbow, J::RightWrist, J::RightHip, J::RightKnee});
    if (!left && !right) {
        phase_ = Phase::Unseen;
        return notSeen(QStringLiteral("Can't see your arm"));
    }
    const QPointF shoulder = *f.p(left ? J::LeftShoulder : J::RightShoulder);
    const QPointF elbow = *f.p(left ? J::LeftElbow : J::RightElbow);
    const QPointF wrist = *f.p(left ? J::LeftWrist : J::RightWrist);
    const QPointF hip = *f.p(left ? J::LeftHip : J::RightHip);
    const QPointF knee = *f.p(left ? J::LeftKnee : J::RightKnee);
    const double elbowAngle = angle(shoulder, elbow, wrist);
    const double bodyLine = angle(shoulder, hip, knee);

    minElbow_ = std::min(minElbow_, elbowAngle);
    if (bodyLine < worstBodyLine_) {
        worstBodyLine_ = bodyLine;
        // Below the straight line from shoulder to knee, at the hip's horizontal position.
        sagged_ = hip.y() < shoulder.y() + (knee.y() - shoulder.y()) * (hip.x() - shoulder.x()) /
                                               (knee.x() - shoulder.x() + 1e-6);
    }

    if (phase_ == Phase::Down) {
        if (elbowAngle <= lockout) {
            if (worstBodyLine_ < bodyLineLimit) {
                const QString status =
                    sagged_ ? QStringLiteral("Hips up") : QStringLiteral("Hips down");
                return out(status, QStringLiteral("Squeeze your glutes, one straight line"),
                           status);
            }
            return depthCueFor(elbowAngle);
        }
        phase_ = Phase::Top;
        if (!(minElbow_ < descent))
            return out(QStringLiteral("Ready"));
        QStringList faults;
        if (minElbow_ > depthTarget)
            faults.append(QStringLiteral("Half rep — go deeper"));
        if (worstBodyLine_ < bodyLineLimit)
            faults.append(sagged_ ? QStringLiteral("Hips sagging")
                                  : QStringLiteral("Hips piked up"));
        const RepReport report = finishRep(faults);
        const QString detail =
            QString::asprintf("depth %.0f° · body line %.0f°", minElbow_, worstBodyLine_);
        minElbow_ = 180;
        worstBodyLine_ = 180;
        sagged_ = false;
        return repOutput(report, detail);
    }
    if (elbowAngle >= descent) {
        phase_ = Phase::Top;
        return out(QStringLiteral("Ready"), tally(reps_, cleanReps_));
    }
    phase_ = Phase::Down;
    minElbow_ = elbowAngle;
    worstBodyLine_ = 180;
    sagged_ = false;
    return depthCueFor(elbowAngle);
}

CoachOutput PushupCoach::depthCueFor(double elbow) const {
    if (elbow > depthCue)
        return out(QStringLiteral("Lower"), QStringLiteral("Chest toward the floor"),
                   QStringLiteral("Lower"));
    return out(QStringLiteral("Good depth — press"));
}

std::unique_ptr<ExerciseCoach> coachForWorkout(const QString& workoutID) {
    if (workoutID == u"coach:squats")
        return std::make_unique<SquatCoach>();
    if (workoutID == u"coach:jacks")
        return std::make_unique<JumpingJackCoach>();
    if (workoutID == u"coach:pushups")
        return std::make_unique<PushupCoach>();
    return nullptr;
}

} // namespace tovin

// The coaches on synthetic frames built from a body model: tables of repetitions at the
// thresholds. Coordinates are normalised with y growing upward, as the pipeline hands them over.

#include "core/coachbox.h"
#include "core/coaches.h"
#include "support/fake_clock.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

using namespace tovin;
using J = Joint;

namespace {

constexpr double rad = std::numbers::pi / 180;

QPointF polar(QPointF from, double length, double degreesFromDown) {
    return from + QPointF(length * std::sin(degreesFromDown * rad),
                          -length * std::cos(degreesFromDown * rad));
}

// A clean repetition is always praised with the first word, so outputs can be compared whole.
int firstPraise(int) {
    return 0;
}

// Facing the camera: the knee angle, the torso's lean and the knees' spread as a fraction of
// the ankles'. Without ankles the squat coach falls back to its close-range measure.
PoseFrame squatFrame(double knee, double lean = 10, double tracking = 1.0, bool ankles = true) {
    PoseFrame f;
    for (const int side : {-1, 1}) {
        const QPointF kneePt(0.5 + side * 0.1 * tracking, 0.3);
        f.set(side < 0 ? J::LeftAnkle : J::RightAnkle, {0.5 + side * 0.1, 0.05},
              ankles ? 0.9f : 0.1f);
        f.set(side < 0 ? J::LeftKnee : J::RightKnee, kneePt, 0.9f);
        f.set(side < 0 ? J::LeftHip : J::RightHip, polar(kneePt, 0.25, knee), 0.9f);
    }
    const QPointF shoulders = polar(*f.mid(J::LeftHip, J::RightHip), 0.3, 180 - lean);
    f.set(J::LeftShoulder, shoulders - QPointF(0.1, 0), 0.9f);
    f.set(J::RightShoulder, shoulders + QPointF(0.1, 0), 0.9f);
    return f;
}

// Facing the camera: lift of the hands and spread of the feet, both in shoulder-widths. The
// knees sit at the share of the ankles' spread the coach assumes when it must read them instead.
PoseFrame jackFrame(double lift, double spread, bool ankles = true) {
    PoseFrame f;
    const double width = 0.2, shoulderY = 0.7;
    f.set(J::LeftShoulder, {0.4, shoulderY}, 0.9f);
    f.set(J::RightShoulder, {0.6, shoulderY}, 0.9f);
    f.set(J::LeftWrist, {0.3, shoulderY + lift * width}, 0.9f);
    f.set(J::RightWrist, {0.7, shoulderY + lift * width + 0.01}, 0.9f); // the lower hand counts
    f.set(J::LeftAnkle, {0.5 - spread * width / 2, 0.05}, ankles ? 0.9f : 0.0f);
    f.set(J::RightAnkle, {0.5 + spread * width / 2, 0.05}, ankles ? 0.9f : 0.0f);
    f.set(J::LeftKnee, {0.5 - 0.62 * spread * width / 2, 0.25}, 0.9f);
    f.set(J::RightKnee, {0.5 + 0.62 * spread * width / 2, 0.25}, 0.9f);
    return f;
}

// Side-on: the elbow angle, and the body line from shoulder over hip to knee; `sag` puts the
// hips below the line, otherwise above it.
PoseFrame pushupFrame(double elbow, double bodyLine = 178, bool sag = true, bool right = false) {
    PoseFrame f;
    const QPointF shoulder(0.3, 0.4), hip(0.6, 0.4), wrist(0.3, 0.1);
    // The elbow is the apex of an isosceles triangle over the 0.3 from shoulder to wrist.
    const double a = (180 - elbow) * rad / 2;
    const double len = 0.15 / std::cos(a);
    const QPointF elbowPt = shoulder + QPointF(len * std::sin(a), -len * std::cos(a));
    const double drop = (180 - bodyLine) * rad;
    const QPointF knee =
        hip + QPointF(0.25 * std::cos(drop), (sag ? 1 : -1) * 0.25 * std::sin(drop));
    const auto side =
        right
            ? std::array{J::RightShoulder, J::RightElbow, J::RightWrist, J::RightHip, J::RightKnee}
            : std::array{J::LeftShoulder, J::LeftElbow, J::LeftWrist, J::LeftHip, J::LeftKnee};
    const std::array<QPointF, 5> pts{shoulder, elbowPt, wrist, hip, knee};
    for (size_t i = 0; i < 5; ++i)
        f.set(side[i], pts[i], 0.9f);
    return f;
}

const QString shallow = QStringLiteral("Too shallow — hit parallel");
const QString chest = QStringLiteral("Chest dropped forward");
const QString caved = QStringLiteral("Knees caved in");

struct Recorder final : Speaker {
    QStringList said;
    void speak(const QString& text, double rate, double, double) override {
        said.append(text);
        EXPECT_DOUBLE_EQ(rate, Coachbox::rate);
    }
};

} // namespace

TEST(PoseGeometry, DegenerateAnglesAndLeanEitherWay) {
    EXPECT_DOUBLE_EQ(angle({1, 1}, {1, 1}, {3, 0}), 180) << "a degenerate limb never looks bent";
    EXPECT_NEAR(leanFromVertical({0, 0}, {-1, 1}), 45, 1e-9) << "blind to direction";
}

TEST(SquatCoach, GradesAndCuesEachRepetitionAtItsThresholds) {
    // The bottom frame of one repetition, the cue it draws, and the verdict when standing again.
    const struct {
        double knee, lean, tracking;
        const char16_t* cue;
        QStringList faults;
        const char16_t* detail;
    } reps[] = {
        {124, 10, 1.0, u"Down…", {}, u"depth 124° · lean 10° · tracking 1.00"},
        {126, 10, 1.0, u"Lower", {shallow}, u"depth 126° · lean 10° · tracking 1.00"},
        {100, 48, 1.0, u"Good depth — drive up", {}, u"depth 100° · lean 48° · tracking 1.00"},
        {100, 48.1, 1.0, u"Chest up", {chest}, u"depth 100° · lean 48° · tracking 1.00"},
        {100, 10, 0.86, u"Good depth — drive up", {}, u"depth 100° · lean 10° · tracking 0.86"},
        {100, 10, 0.84, u"Knees out", {caved}, u"depth 100° · lean 10° · tracking 0.84"},
        {130,
         55,
         0.7,
         u"Knees out",
         {shallow, chest, caved},
         u"depth 130° · lean 55° · tracking 0.70"},
        {100, 10, 1.0, u"Good depth — drive up", {}, u"depth 100° · lean 10° · tracking 1.00"},
    };
    // One coach throughout, so that anything a faulty repetition leaves behind shows on the next.
    SquatCoach coach(firstPraise);
    int index = 0;
    for (const auto& r : reps) {
        EXPECT_EQ(coach.update(squatFrame(175)).status, u"Ready");
        EXPECT_EQ(coach.update(squatFrame(r.knee, r.lean, r.tracking)).status, r.cue)
            << r.knee << ' ' << r.lean;
        EXPECT_FALSE(coach.update(squatFrame(150)).repJustCompleted) << "150° is still down";
        const CoachOutput up = coach.update(squatFrame(159));
        ASSERT_TRUE(up.repJustCompleted) << r.knee;
        EXPECT_EQ(up.repJustCompleted->faults, r.faults)
            << r.knee << ' ' << r.lean << ' ' << r.tracking;
        // The headline, shown and spoken, is the first fault, or praise for a clean one.
        const QString headline =
            r.faults.isEmpty() ? QStringLiteral("Clean rep.") : r.faults.first();
        EXPECT_EQ(up.status, u"Rep " + QString::number(++index) + u" · " + headline);
        EXPECT_EQ(up.speak, headline);
        EXPECT_EQ(up.detail, r.detail);
    }
    EXPECT_EQ(coach.update(squatFrame(175)).detail, u"8 reps · 4 clean");

    // Losing the body drops the repetition in progress.
    coach.update(squatFrame(100));
    EXPECT_EQ(coach.update(PoseFrame{}).status, u"Can't see your hips and knees");
    EXPECT_FALSE(coach.update(squatFrame(170)).repJustCompleted);
    EXPECT_EQ(coach.reps(), 8);
}

TEST(SquatCoach, CloseRangeCalibratesOnceAndForgetsOnReset) {
    const auto close = [](double k) { return squatFrame(k, 0, 1.0, false); };
    SquatCoach coach(firstPraise);
    // Ankles out of frame: close range. Crouched first, so no stance tall enough yet.
    CoachOutput o = coach.update(close(60));
    EXPECT_TRUE(coach.isCloseRange());
    EXPECT_EQ(o.status, u"Stand up straight");
    // Standing tall calibrates; a deep squat counts.
    EXPECT_EQ(coach.update(close(178)).detail, u"Close-range mode · 0 reps · 0 clean");
    for (const double knee : {140, 100, 60, 40})
        EXPECT_FALSE(coach.update(close(knee)).repJustCompleted);
    EXPECT_TRUE(coach.update(close(178)).repJustCompleted.value().isClean()); // throws if none
    // 50–53 % of the standing height: in, but shallow.
    coach.update(close(120));
    coach.update(close(118));
    EXPECT_EQ(coach.update(close(178)).repJustCompleted.value().faults, QStringList{shallow});

    // A reset (the "R" key) zeroes the counts and forgets the calibration on purpose.
    coach.reset();
    EXPECT_EQ(coach.update(close(60)).status, u"Stand up straight");
    EXPECT_EQ(coach.reps(), 0);
}

TEST(JumpingJackCoach, OpensClosesAndGradesLiftAndSpread) {
    JumpingJackCoach coach(firstPraise);
    coach.update(jackFrame(-1.5, 0.3)); // first sight: closed, so nothing is owed yet
    // Neither the open nor the closed test met: nothing counts.
    coach.update(jackFrame(0.5, 0.8));
    coach.update(jackFrame(0.05, 0.3));
    EXPECT_EQ(coach.reps(), 0);

    const auto rep = [&](double lift, double spread, bool ankles = true) {
        coach.update(jackFrame(lift, spread, ankles));
        return coach.update(jackFrame(-1.5, 0.3, ankles))
            .repJustCompleted.value(); // throws if none
    };
    EXPECT_EQ(rep(0.74, 1.5).faults, QStringList{QStringLiteral("Hands never got overhead")});
    EXPECT_TRUE(rep(0.75, 1.5).isClean());
    EXPECT_EQ(rep(1.2, 1.0).faults, QStringList{QStringLiteral("Feet barely moved")});
    // Ankles hidden: the knees, scaled up to what the feet would show.
    EXPECT_TRUE(rep(1.2, 1.5, false).isClean());
    EXPECT_TRUE(coach.isCloseRange());
    EXPECT_EQ(coach.cleanReps(), 2);

    // The open cues, from the best of the repetition so far.
    coach.update(jackFrame(-1.5, 0.3));
    EXPECT_EQ(coach.update(jackFrame(1.0, 1.0)).speak, u"Wider");
    EXPECT_EQ(coach.update(jackFrame(1.0, 1.5)).status, u"Good — keep the rhythm");
    coach.update(jackFrame(-1.5, 0.3));
    EXPECT_EQ(coach.update(jackFrame(0.6, 1.5)).status, u"Arms higher");

    PoseFrame armless = jackFrame(0, 0);
    armless.confidence[size_t(J::LeftWrist)] = 0.1f;
    EXPECT_EQ(coach.update(armless).status, u"Can't see your arms");
    coach.reset();
    EXPECT_EQ(coach.reps(), 0);
}

TEST(PushupCoach, GradesAndCuesEachRepetitionOnEitherSide) {
    const struct {
        double elbow, line;
        bool sag, right;
        const char16_t* cue;
        const char* fault; // none for a clean one
    } reps[] = {
        {101, 178, true, false, u"Good depth — press", "Half rep — go deeper"},
        {99, 178, true, false, u"Good depth — press", nullptr},
        {95, 161, true, false, u"Hips up", "Hips sagging"},
        {95, 161, false, false, u"Hips down", "Hips piked up"},
        {95, 162.5, false, false, u"Good depth — press", nullptr},
        {95, 178, true, true, u"Good depth — press", nullptr}, // only the right side in view
    };
    // One coach throughout, as for the squats.
    PushupCoach coach(firstPraise);
    for (const auto& r : reps) {
        const auto frame = [&](double e, double line = 178) {
            return pushupFrame(e, line, r.sag, r.right);
        };
        EXPECT_EQ(coach.update(frame(170)).status, u"Ready");
        EXPECT_EQ(coach.update(frame(130)).status, u"Lower");
        EXPECT_EQ(coach.update(frame(r.elbow, r.line)).status, r.cue) << r.elbow << ' ' << r.line;
        EXPECT_FALSE(coach.update(frame(150)).repJustCompleted) << "150° keeps the phase";
        const CoachOutput up = coach.update(frame(159));
        ASSERT_TRUE(up.repJustCompleted) << r.elbow << ' ' << r.line;
        EXPECT_EQ(up.repJustCompleted->faults,
                  r.fault ? QStringList{QString::fromUtf8(r.fault)} : QStringList{})
            << r.elbow << ' ' << r.line;
    }
    EXPECT_EQ(coach.cleanReps(), 3);
    EXPECT_EQ(coach.update(PoseFrame{}).status, u"Can't see your arm");
}

// "R" in the middle of a repetition starts over, as if nobody had been seen: coming back up
// from that repetition credits nothing.
TEST(Coaches, AResetMidRepetitionCreditsNothing) {
    SquatCoach squat(firstPraise);
    JumpingJackCoach jacks(firstPraise);
    PushupCoach pushups(firstPraise);
    const struct {
        ExerciseCoach& coach;
        PoseFrame rest, bottom;
    } coaches[] = {{squat, squatFrame(175), squatFrame(100)},
                   {jacks, jackFrame(-1.5, 0.3), jackFrame(1.2, 1.5)},
                   {pushups, pushupFrame(170), pushupFrame(95)}};
    for (const auto& c : coaches) {
        c.coach.update(c.rest);
        c.coach.update(c.bottom);
        c.coach.reset();
        EXPECT_FALSE(c.coach.update(c.rest).repJustCompleted) << c.coach.name().toStdString();
        EXPECT_EQ(c.coach.reps(), 0);
    }
}

TEST(Coachbox, SpacingAndRepeatRules) {
    fakes::FakeClock clock;
    Recorder voice;
    Coachbox box(clock, voice);
    box.say(QStringLiteral("Lower")); // the very first phrase, at once
    EXPECT_EQ(voice.said, QStringList{QStringLiteral("Lower")});
    for (int i = 0; i < 50; ++i) { // offered every frame for 5 s: once
        clock.advance(0.1);
        box.say(QStringLiteral("Lower"), true);
    }
    EXPECT_EQ(voice.said.size(), 1);
    clock.advance(1.0); // 6 s since it was let through
    box.say(QStringLiteral("Lower"));
    EXPECT_EQ(voice.said.size(), 2);

    clock.advance(1.0);
    box.say(QStringLiteral("Chest up")); // different, not urgent, 1.0 s after: dropped
    EXPECT_EQ(voice.said.size(), 2);
    box.say(QStringLiteral("Chest up"), true); // urgent, 1.0 s after: spoken
    EXPECT_EQ(voice.said.size(), 3);
    clock.advance(0.5);
    box.say(QStringLiteral("Knees out"), true); // 0.5 s: below the floor
    EXPECT_EQ(voice.said.size(), 3);
}

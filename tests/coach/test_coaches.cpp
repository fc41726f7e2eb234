// The coaches on synthetic frames: tables at the thresholds, and whole sets of repetitions
// generated from a body model (depth, lean, knee spread; lift and spread; elbow and body line).
// Coordinates are normalised with y growing upward, as the pipeline hands them over.

#include "coach/coachbox.h"
#include "coach/coaches.h"
#include "support/fake_clock.h"
#include "support/fake_platform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

using namespace tovin;
using J = Joint;

namespace {

constexpr double rad = std::numbers::pi / 180;

QPointF polar(QPointF from, double length, double degreesFromDown, double side = 1) {
    return from + QPointF(side * length * std::sin(degreesFromDown * rad), -length * std::cos(degreesFromDown * rad));
}

int firstPraise(int) { return 0; }

// A person facing the camera: the knee angle, the torso's lean and the knees' spread as a
// fraction of the ankles'.
PoseFrame squatFrame(double knee, double lean = 10, double tracking = 1.0, bool ankles = true) {
    PoseFrame f;
    const double ankleHalf = 0.1;
    for (const int side : {-1, 1}) {
        const QPointF ankle(0.5 + side * ankleHalf, 0.05);
        const QPointF kneePt(0.5 + side * ankleHalf * tracking, 0.3);
        const QPointF hip = polar(kneePt, 0.25, knee); // the thigh, knee angle away from the shin
        f.set(side < 0 ? J::LeftAnkle : J::RightAnkle, ankle, ankles ? 0.9f : 0.1f);
        f.set(side < 0 ? J::LeftKnee : J::RightKnee, kneePt, 0.9f);
        f.set(side < 0 ? J::LeftHip : J::RightHip, hip, 0.9f);
    }
    const QPointF hips = *f.mid(J::LeftHip, J::RightHip);
    const QPointF shoulders = polar(hips, 0.3, 180 - lean);
    f.set(J::LeftShoulder, shoulders - QPointF(0.1, 0), 0.9f);
    f.set(J::RightShoulder, shoulders + QPointF(0.1, 0), 0.9f);
    return f;
}

// Feeds a list of knee angles; returns the reports of the repetitions that finished.
template <typename Coach, typename Make>
QList<RepReport> feed(Coach& coach, const QList<double>& values, Make make) {
    QList<RepReport> reports;
    for (const double v : values) {
        const CoachOutput o = coach.update(make(v));
        if (o.repJustCompleted)
            reports.append(*o.repJustCompleted);
    }
    return reports;
}

} // namespace

TEST(PoseGeometry, UsableJointsAnglesAndLean) {
    PoseFrame f;
    f.set(J::Nose, {0.5, 0.5}, 0.25f);
    f.set(J::Neck, {0.5, 0.4}, 0.2499f);
    f.confidence[size_t(J::LeftHip)] = 0.9f; // a confidence but no point
    EXPECT_TRUE(f.p(J::Nose));
    EXPECT_FALSE(f.p(J::Neck));
    EXPECT_FALSE(f.p(J::LeftHip));
    EXPECT_TRUE(f.has({}));
    EXPECT_FALSE(f.has({J::Nose, J::Neck}));
    EXPECT_FALSE(f.mid(J::Nose, J::Neck));
    f.set(J::Neck, {0.5, 0.3}, 0.5f);
    EXPECT_EQ(*f.mid(J::Nose, J::Neck), QPointF(0.5, 0.4));

    EXPECT_DOUBLE_EQ(angle({0, 0}, {1, 0}, {2, 0}), 180);
    EXPECT_NEAR(angle({0, 1}, {0, 0}, {1, 0}), 90, 1e-9);
    EXPECT_DOUBLE_EQ(angle({1, 1}, {1, 1}, {3, 0}), 180);
    EXPECT_DOUBLE_EQ(leanFromVertical({0, 0}, {0, 1}), 0);
    EXPECT_NEAR(leanFromVertical({0, 0}, {1, 1}), 45, 1e-9);
    EXPECT_NEAR(leanFromVertical({0, 0}, {-1, -1}), 45, 1e-9);
    EXPECT_DOUBLE_EQ(leanFromVertical({0, 0}, {1, 0}), 90);
    EXPECT_TRUE((RepReport{1, {}, QStringLiteral("x")}).isClean());
}

TEST(SquatCoach, DepthLeanAndTrackingAtTheirThresholds) {
    SquatCoach coach(firstPraise);
    EXPECT_EQ(coach.update(squatFrame(175)).status, u"Ready");
    EXPECT_EQ(coach.update(squatFrame(175)).detail, u"0 reps · 0 clean");

    // Bottoming at 130°: counts, too shallow. At 120°: no depth fault.
    auto r = feed(coach, {170, 135, 130, 150, 159}, [](double k) { return squatFrame(k); });
    ASSERT_EQ(r.size(), 1);
    EXPECT_EQ(r[0].faults, QStringList{QStringLiteral("Too shallow — hit parallel")});
    r = feed(coach, {120, 150}, [](double k) { return squatFrame(k); });
    EXPECT_TRUE(r.isEmpty()) << "150° is still down";
    const CoachOutput up = coach.update(squatFrame(159));
    ASSERT_TRUE(up.repJustCompleted);
    EXPECT_TRUE(up.repJustCompleted->isClean());
    EXPECT_EQ(up.status, u"Rep 2 · Clean rep.");
    EXPECT_EQ(up.speak, u"Clean rep.");
    EXPECT_EQ(up.detail, u"depth 120° · lean 10° · tracking 1.00");
    EXPECT_EQ(coach.reps(), 2);
    EXPECT_EQ(coach.cleanReps(), 1);

    // Lean 48° is fine, 48.1° is a fault.
    r = feed(coach, {100, 170}, [](double k) { return squatFrame(k, 48); });
    EXPECT_TRUE(r[0].isClean());
    r = feed(coach, {100, 170}, [](double k) { return squatFrame(k, 48.1); });
    EXPECT_EQ(r[0].faults, QStringList{QStringLiteral("Chest dropped forward")});

    // Knees at 0.84 of the ankles' spread: the cue, then the fault.
    const CoachOutput down = coach.update(squatFrame(100, 10, 0.84));
    EXPECT_EQ(down.status, u"Knees out");
    EXPECT_EQ(down.speak, u"Knees out");
    r = feed(coach, {170}, [](double k) { return squatFrame(k); });
    EXPECT_EQ(r[0].faults, QStringList{QStringLiteral("Knees caved in")});

    // The cues while down, in order.
    EXPECT_EQ(coach.update(squatFrame(130)).status, u"Lower");
    EXPECT_EQ(coach.update(squatFrame(115)).status, u"Down…");
    EXPECT_EQ(coach.update(squatFrame(104)).status, u"Good depth — drive up");
    EXPECT_EQ(coach.update(squatFrame(104, 60)).status, u"Chest up");

    // Losing the hips drops the repetition in progress.
    PoseFrame empty;
    EXPECT_EQ(coach.update(empty).status, u"Can't see your hips and knees");
    EXPECT_EQ(coach.phase(), SquatCoach::Phase::Unseen);
    const int before = coach.reps();
    coach.update(squatFrame(170));
    EXPECT_EQ(coach.reps(), before);
}

TEST(SquatCoach, TenGeneratedSquatsAreCountedAndGraded) {
    struct Set {
        double depth, lean, tracking;
        int clean;
        QString fault;
    };
    for (const Set& set : {Set{95, 20, 1.0, 10, {}}, Set{130, 20, 1.0, 0, QStringLiteral("Too shallow — hit parallel")},
                           Set{100, 55, 1.0, 0, QStringLiteral("Chest dropped forward")},
                           Set{100, 20, 0.7, 0, QStringLiteral("Knees caved in")}}) {
        SquatCoach coach;
        QList<double> knees;
        for (int rep = 0; rep < 10; ++rep)
            for (int i = 0; i <= 20; ++i) // down and up again, 21 frames a repetition
                knees.append(170 - (170 - set.depth) * std::sin(i / 20.0 * std::numbers::pi));
        const auto reports = feed(coach, knees, [&](double k) {
            const double through = (170 - k) / (170 - set.depth); // faults build with the descent
            return squatFrame(k, set.lean * through, 1 - (1 - set.tracking) * through);
        });
        EXPECT_EQ(coach.reps(), 10) << set.depth;
        EXPECT_EQ(coach.cleanReps(), set.clean) << set.depth;
        if (!set.fault.isEmpty()) {
            for (const RepReport& r : reports)
                EXPECT_EQ(r.headline, set.fault);
        }
    }
}

TEST(SquatCoach, CloseRangeCalibratesOnceAndForgetsOnReset) {
    SquatCoach coach(firstPraise);
    // Ankles out of frame: close range. Crouched first, so no stance tall enough yet.
    CoachOutput o = coach.update(squatFrame(60, 0, 1.0, false));
    EXPECT_TRUE(coach.isCloseRange());
    EXPECT_EQ(o.status, u"Stand up straight");
    EXPECT_EQ(o.detail, u"Close-range mode — stand tall once so Tovin can measure you.");
    // Standing tall calibrates; a deep squat counts.
    o = coach.update(squatFrame(178, 0, 1.0, false));
    EXPECT_EQ(o.status, u"Ready");
    EXPECT_EQ(o.detail, u"Close-range mode · 0 reps · 0 clean");
    for (const double k : {140.0, 100.0, 60.0, 40.0})
        coach.update(squatFrame(k, 0, 1.0, false));
    o = coach.update(squatFrame(178, 0, 1.0, false));
    ASSERT_TRUE(o.repJustCompleted);
    EXPECT_TRUE(o.repJustCompleted->isClean());
    EXPECT_TRUE(o.detail->startsWith(u"close-range · depth ")) << o.detail->toStdString();
    EXPECT_TRUE(o.detail->endsWith(u"knee tracking not graded"));
    // A shallow one: counted with the depth fault.
    for (const double k : {120.0, 118.0}) // 50–53 % of the standing height: in, but shallow
        coach.update(squatFrame(k, 0, 1.0, false));
    o = coach.update(squatFrame(178, 0, 1.0, false));
    ASSERT_TRUE(o.repJustCompleted);
    EXPECT_EQ(o.repJustCompleted->faults, QStringList{QStringLiteral("Too shallow — hit parallel")});

    coach.reset();
    EXPECT_EQ(coach.update(squatFrame(60, 0, 1.0, false)).status, u"Stand up straight");
}

namespace {

// Facing the camera: lift of the hands and spread of the feet, both in shoulder-widths.
PoseFrame jackFrame(double lift, double spread, bool ankles = true) {
    PoseFrame f;
    const double width = 0.2, shoulderY = 0.7;
    f.set(J::LeftShoulder, {0.4, shoulderY}, 0.9f);
    f.set(J::RightShoulder, {0.6, shoulderY}, 0.9f);
    f.set(J::LeftWrist, {0.3, shoulderY + lift * width}, 0.9f);
    f.set(J::RightWrist, {0.7, shoulderY + lift * width + 0.01}, 0.9f);
    f.set(J::LeftAnkle, {0.5 - spread * width / 2, 0.05}, ankles ? 0.9f : 0.0f);
    f.set(J::RightAnkle, {0.5 + spread * width / 2, 0.05}, ankles ? 0.9f : 0.0f);
    f.set(J::LeftKnee, {0.5 - 0.62 * spread * width / 2, 0.25}, 0.9f);
    f.set(J::RightKnee, {0.5 + 0.62 * spread * width / 2, 0.25}, 0.9f);
    return f;
}

} // namespace

TEST(JumpingJackCoach, OpensClosesAndGradesLiftAndSpread) {
    JumpingJackCoach coach(firstPraise);
    coach.update(jackFrame(-1.5, 0.3)); // first sight: closed
    EXPECT_EQ(coach.phase(), JumpingJackCoach::Phase::Closed);
    CoachOutput o = coach.update(jackFrame(0.0, 0.3));
    EXPECT_EQ(o.status, u"Ready");
    EXPECT_EQ(o.detail, u"0 reps · 0 clean");
    // Neither test met: nothing counts.
    coach.update(jackFrame(0.5, 0.8));
    coach.update(jackFrame(0.05, 0.3));
    EXPECT_EQ(coach.reps(), 0);

    auto rep = [&](double lift, double spread) {
        coach.update(jackFrame(lift, spread));
        return coach.update(jackFrame(-1.5, 0.3));
    };
    o = rep(0.74, 1.5);
    ASSERT_TRUE(o.repJustCompleted);
    EXPECT_EQ(o.repJustCompleted->faults, QStringList{QStringLiteral("Hands never got overhead")});
    o = rep(0.75, 1.5);
    EXPECT_TRUE(o.repJustCompleted->isClean());
    EXPECT_EQ(o.detail, u"lift 0.75 · spread 1.50 (shoulder-widths)");
    o = rep(1.2, 1.0);
    EXPECT_EQ(o.repJustCompleted->faults, QStringList{QStringLiteral("Feet barely moved")});
    EXPECT_EQ(coach.reps(), 3);
    EXPECT_EQ(coach.cleanReps(), 1);

    // The open cues, from the best of the repetition so far.
    EXPECT_EQ(coach.update(jackFrame(1.0, 1.0)).speak, u"Wider");
    EXPECT_EQ(coach.update(jackFrame(1.0, 1.5)).status, u"Good — keep the rhythm");
    coach.update(jackFrame(-1.5, 0.3));
    EXPECT_EQ(coach.update(jackFrame(0.6, 1.5)).status, u"Arms higher");

    // Ankles hidden: the knees, scaled.
    coach.update(jackFrame(-1.5, 0.3, false));
    EXPECT_TRUE(coach.isCloseRange());
    PoseFrame armless = jackFrame(0, 0);
    armless.confidence[size_t(J::LeftWrist)] = 0.1f;
    EXPECT_EQ(coach.update(armless).status, u"Can't see your arms");
    coach.reset();
    EXPECT_EQ(coach.reps(), 0);
    EXPECT_EQ(coach.phase(), JumpingJackCoach::Phase::Unseen);
}

TEST(JumpingJackCoach, KneeSpreadUsesTheScaleAndGeneratedSetsCount) {
    JumpingJackCoach coach(firstPraise);
    for (int i = 0; i < 10; ++i) {
        coach.update(jackFrame(-1.2, 0.2, false));
        coach.update(jackFrame(0.5, 1.0, false));
        coach.update(jackFrame(1.1, 1.6, false));
        coach.update(jackFrame(0.5, 1.0, false));
    }
    coach.update(jackFrame(-1.2, 0.2, false));
    EXPECT_TRUE(coach.isCloseRange());
    EXPECT_EQ(coach.reps(), 10);
    EXPECT_EQ(coach.cleanReps(), 10);
}

namespace {

// Side-on: the elbow angle, and the body line from shoulder over hip to knee; `sag` puts the
// hips below the line, otherwise above it.
PoseFrame pushupFrame(double elbow, double bodyLine = 178, bool sag = true, bool right = false) {
    PoseFrame f;
    const QPointF shoulder(0.3, 0.4), hip(0.6, 0.4);
    const QPointF wrist(0.3, 0.1);
    // The elbow is the apex of an isosceles triangle over the 0.3 from shoulder to wrist.
    const double a = (180 - elbow) * rad / 2;
    const double len = 0.3 / 2 / std::cos(a);
    const QPointF elbowPt = shoulder + QPointF(len * std::sin(a), -len * std::cos(a));
    const double drop = (180 - bodyLine) * rad;
    const QPointF knee = hip + QPointF(0.25 * std::cos(drop), (sag ? 1 : -1) * 0.25 * std::sin(drop));
    const auto side = right ? std::array{J::RightShoulder, J::RightElbow, J::RightWrist, J::RightHip, J::RightKnee}
                            : std::array{J::LeftShoulder, J::LeftElbow, J::LeftWrist, J::LeftHip, J::LeftKnee};
    const std::array<QPointF, 5> pts{shoulder, elbowPt, wrist, hip, knee};
    for (size_t i = 0; i < 5; ++i)
        f.set(side[i], pts[i], 0.9f);
    return f;
}

} // namespace

TEST(PushupCoach, DepthBodyLineAndSides) {
    ASSERT_NEAR(angle(*pushupFrame(110).p(J::LeftShoulder), *pushupFrame(110).p(J::LeftElbow),
                      *pushupFrame(110).p(J::LeftWrist)),
                110, 0.01);
    const PoseFrame line = pushupFrame(170, 161, true);
    ASSERT_NEAR(angle(*line.p(J::LeftShoulder), *line.p(J::LeftHip), *line.p(J::LeftKnee)), 161, 0.01);

    PushupCoach coach(firstPraise);
    EXPECT_EQ(coach.update(pushupFrame(170)).status, u"Ready");
    auto r = feed(coach, {130, 110, 150, 159}, [](double e) { return pushupFrame(e); });
    ASSERT_EQ(r.size(), 1) << "150° keeps the phase; 159° ends it";
    EXPECT_EQ(r[0].faults, QStringList{QStringLiteral("Half rep — go deeper")});
    r = feed(coach, {95, 170}, [](double e) { return pushupFrame(e); });
    EXPECT_TRUE(r[0].isClean());

    // Hips below the shoulder–knee line at 161°: sagging (with its cue); above it: piked.
    coach.update(pushupFrame(130));
    const CoachOutput cue = coach.update(pushupFrame(95, 161, true));
    EXPECT_EQ(cue.status, u"Hips up");
    EXPECT_EQ(cue.detail, u"Squeeze your glutes, one straight line");
    r = feed(coach, {170}, [](double e) { return pushupFrame(e); });
    EXPECT_EQ(r[0].faults, QStringList{QStringLiteral("Hips sagging")});
    r = feed(coach, {130, 95}, [](double e) { return pushupFrame(e, 161, false); });
    r += feed(coach, {170}, [](double e) { return pushupFrame(e); });
    EXPECT_EQ(r[0].faults, QStringList{QStringLiteral("Hips piked up")});
    r = feed(coach, {130, 95}, [](double e) { return pushupFrame(e, 162.5, false); });
    r += feed(coach, {170}, [](double e) { return pushupFrame(e); });
    EXPECT_TRUE(r[0].isClean());

    // Only the right side visible: used. Neither: can't see.
    r = feed(coach, {130, 95, 170}, [](double e) { return pushupFrame(e, 178, true, true); });
    EXPECT_EQ(r.size(), 1);
    EXPECT_EQ(coach.update(PoseFrame{}).status, u"Can't see your arm");
    EXPECT_EQ(coach.reps(), 6);
}

TEST(PushupCoach, TenGeneratedPushupsWithAGivenElbowAndBodyLine) {
    struct Set {
        double elbow, line;
        bool sag;
        int clean;
    };
    for (const Set& set : {Set{85, 175, true, 10}, Set{115, 175, true, 0}, Set{85, 150, true, 0}, Set{85, 150, false, 0}}) {
        PushupCoach coach;
        for (int rep = 0; rep < 10; ++rep)
            for (int i = 0; i <= 20; ++i) {
                const double e = 170 - (170 - set.elbow) * std::sin(i / 20.0 * std::numbers::pi);
                coach.update(pushupFrame(e, set.line, set.sag));
            }
        EXPECT_EQ(coach.reps(), 10) << set.elbow << ' ' << set.line << ' ' << set.sag;
        EXPECT_EQ(coach.cleanReps(), set.clean) << set.elbow << ' ' << set.line << ' ' << set.sag;
    }
}

// --- the voice ------------------------------------------------------------------------------

namespace {
struct Recorder final : Speaker {
    QStringList said;
    void speak(const QString& text, double rate, double, double) override {
        said.append(text);
        EXPECT_DOUBLE_EQ(rate, 0.04);
    }
};
} // namespace

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
    clock.advance(7.0);
    box.say(QStringLiteral("Chest up"));
    EXPECT_EQ(voice.said.last(), u"Chest up");
    EXPECT_EQ(voice.said.size(), 4);
}

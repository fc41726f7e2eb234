// The camera coach without a camera: the real pose model on real pictures (Debian's opencv-doc
// examples), pictures played through model → coach → view, the watchdog, and the coach inside a
// lockout: finishing, its keys, and the fall-back to the web workout.

#include "resident/cycle_fixture.h"
#include "screens/coach/coach_session.h"
#include "screens/coach/pose_model.h"
#include "screens/coach/tts_speaker.h"
#include "screens/shield/shield_window.h"

#include <QElapsedTimer>
#include <QImage>
#include <QTest>

#include <opencv2/core.hpp>

using namespace tovin;
using tovin::fakes::CycleTest;

namespace {

const QString examples = QStringLiteral("/usr/share/doc/opencv-doc/examples/data/");

std::unique_ptr<PoseModel> model() {
    QString error;
    auto m = PoseModel::load(PoseModel::bundledPath(), &error);
    EXPECT_TRUE(m) << error.toStdString();
    return m;
}

cv::Mat rgbOf(const QImage& image) {
    static QImage keep;
    keep = image.convertToFormat(QImage::Format_RGB888);
    return cv::Mat(keep.height(), keep.width(), CV_8UC3, keep.bits(), size_t(keep.bytesPerLine()));
}

QImage picture(const char* name) {
    QImage image(examples + QString::fromLatin1(name));
    if (image.isNull())
        ADD_FAILURE() << name << " is missing: setup.sh installs opencv-doc";
    return image;
}

struct Recorder final : Speaker {
    QStringList said;
    void speak(const QString& text, double, double, double) override { said.append(text); }
};

// Frames only when a test hands them over.
struct QuietSource final : FrameSource {
    void start() override {}
    void stop() override { stopped = true; }
    bool stopped = false;
};
struct BrokenCamera final : FrameSource {
    void start() override { Q_EMIT failed(QStringLiteral("the camera couldn't be opened: busy")); }
    void stop() override {}
};

// Facing the camera: standing straight, or down with the thighs level (knees at 90°).
PoseFrame squat(bool down) {
    PoseFrame f;
    for (const double x : {0.4, 0.6}) {
        const bool left = x < 0.5;
        f.set(left ? Joint::LeftAnkle : Joint::RightAnkle, {x, 0.05}, 0.9f);
        f.set(left ? Joint::LeftKnee : Joint::RightKnee, {x, 0.3}, 0.9f);
        f.set(left ? Joint::LeftHip : Joint::RightHip, {down ? x + 0.25 : x, down ? 0.3 : 0.55},
              0.9f);
    }
    return f;
}

} // namespace

TEST(PoseModel, FindsTheJointsOfARealPersonAndNoneInAFruitBowl) {
    auto m = model();
    ASSERT_TRUE(m);
    const QImage messi = picture("messi5.jpg");
    const PoseFrame f = m->estimate(rgbOf(messi));
    // Checked by hand on the picture (548 × 342, pixels from the top left).
    const struct {
        Joint joint;
        double x, y;
    } expected[] = {{Joint::Nose, 247, 115},          {Joint::LeftShoulder, 275, 125},
                    {Joint::RightShoulder, 192, 127}, {Joint::LeftWrist, 366, 164},
                    {Joint::RightWrist, 88, 105},     {Joint::LeftHip, 300, 236},
                    {Joint::RightHip, 251, 254},      {Joint::LeftKnee, 376, 252},
                    {Joint::RightKnee, 245, 289},     {Joint::LeftAnkle, 434, 275}};
    for (const auto& e : expected) {
        const auto p = f.p(e.joint);
        ASSERT_TRUE(p) << int(e.joint);
        EXPECT_NEAR(p->x() * messi.width(), e.x, 12) << int(e.joint);
        EXPECT_NEAR((1 - p->y()) * messi.height(), e.y, 12) << int(e.joint); // y grows upward
    }

    const PoseFrame fruit = m->estimate(rgbOf(picture("fruits.jpg")));
    int seen = 0;
    for (int j = 0; j < 17; ++j)
        seen += fruit.p(Joint(j)).has_value();
    EXPECT_LE(seen, 1);
}

// The watchdog stays quiet once it has seen a person, and otherwise gives up at 20 s, saying why.
// The pictures play on the test's clock, paced by real time so the model keeps up.
TEST(CoachSession, GivesUpOnlyWhenNobodyIsInViewOrThereIsNoPicture) {
    const struct {
        const char* picture; // none: a camera that sends nothing
        std::optional<QString> gaveUp;
    } cases[] = {{"messi5.jpg", std::nullopt},
                 {"fruits.jpg", u"nobody in view of the camera within 20 s"_qs},
                 {nullptr, u"no picture from the camera within 20 s"_qs}};
    for (const auto& c : cases) {
        fakes::FakeClock clock;
        Recorder voice;
        Coachbox box(clock, voice);
        std::unique_ptr<FrameSource> source = std::make_unique<QuietSource>();
        if (c.picture)
            source =
                std::make_unique<ImageListSource>(QList<QImage>{picture(c.picture)}, clock, 0.5);
        CoachSession session(std::move(source), model(), clock, box, 5);
        std::optional<QString> gaveUp;
        QObject::connect(&session, &CoachSession::gaveUp, [&](const QString& r) { gaveUp = r; });
        session.start(std::make_unique<JumpingJackCoach>());
        EXPECT_EQ(session.view()->status(), u"Starting camera…");
        for (int i = 0; i < 39; ++i) {
            clock.advance(0.5);
            QCoreApplication::processEvents();
        }
        if (c.picture) { // model → coach → view
            ASSERT_TRUE(QTest::qWaitFor([&] { return session.framesSeen() > 0; }, 20'000))
                << c.picture;
            EXPECT_TRUE(session.view()->hasFrame());
            EXPECT_NE(session.view()->status(), u"Starting camera…");
        }
        EXPECT_FALSE(gaveUp);
        clock.advance(1);
        EXPECT_EQ(gaveUp, c.gaveUp) << (c.picture ? c.picture : "no picture");
    }
}

namespace {
class CoachLockout : public CycleTest {
protected:
    // Raised from the menu unless the test brings its own way there.
    void raiseWithCoach(
        std::function<std::unique_ptr<FrameSource>()> source,
        std::function<void(AppController&)> raise = [](AppController& c) {
            c.raiseLockout(false);
        }) {
        prefs.setLockoutWorkoutID(QStringLiteral("coach:squats"));
        prefs.setRequiredCleanReps(2);
        AppController& c = launch();
        screens->setSpeaker(&voice);
        screens->frameSourceFactory = std::move(source);
        raise(c);
        EXPECT_TRUE(shield().isUp());
        // Out of sight: the windows are real, but nobody needs to see them here.
        for (ShieldWindow* w : shield().windows())
            w->move(-30000 + w->x(), -30000 + w->y());
    }
    Recorder voice;
};
} // namespace

TEST_F(CoachLockout, TwoCleanSquatsKeepThePromiseAndKeysSwitchAndReset) {
    QuietSource* camera = nullptr;
    raiseWithCoach([&] {
        auto s = std::make_unique<QuietSource>();
        camera = s.get();
        return s;
    });
    ASSERT_TRUE(screens->coachSession());
    EXPECT_TRUE(built.isEmpty()) << "the coach, not the web page";
    CoachSession& session = *screens->coachSession();

    Q_EMIT shield().keyPressed(QStringLiteral("2"));
    EXPECT_EQ(session.view()->name(), u"Jumping Jacks");
    Q_EMIT shield().keyPressed(QStringLiteral("1"));
    EXPECT_EQ(session.view()->name(), u"Squats");
    session.consume({}, squat(false));
    session.consume({}, squat(true));
    session.consume({}, squat(false)); // one clean rep
    EXPECT_EQ(session.coach().cleanReps(), 1);
    Q_EMIT shield().keyPressed(QStringLiteral("r"));
    EXPECT_EQ(session.coach().reps(), 0);
    EXPECT_EQ(session.view()->status(), u"Get into position");

    for (int rep = 0; rep < 2; ++rep) {
        clock.advance(2);
        session.consume({}, squat(true));
        clock.advance(2);
        session.consume({}, squat(false));
    }
    ASSERT_EQ(ledger.records().size(), 1);
    EXPECT_EQ(ledger.records()[0].outcome, PromiseRecord::Outcome::Tovin);
    EXPECT_EQ(ledger.records()[0].exercise, u"Squats");
    EXPECT_EQ(ledger.records()[0].cleanReps, 2);
    EXPECT_EQ(session.view()->detail(), u"Streak 1 · 2 clean of 2");
    EXPECT_EQ(voice.said.last(), u"Done. That's 1 in a row.");
    Q_EMIT shield().keyPressed(QStringLiteral("2")); // finished: keys do nothing
    EXPECT_EQ(session.view()->name(), u"Squats");

    clock.advance(2.5);
    EXPECT_TRUE(shield().isUp());
    clock.advance(0.2);
    EXPECT_FALSE(shield().isUp());
    EXPECT_EQ(terminations, 1);
    EXPECT_TRUE(camera->stopped) << "the camera is released when the coach ends";
}

// A countdown prepares the web page behind it so the lockout shows at once; with the coach chosen,
// the raise must still open the coach.
TEST_F(CoachLockout, ACountdownRaisesTheCoachNotThePagePreparedBehindIt) {
    setWeek({block("09:00", "Nine")});
    raiseWithCoach(
        [] { return std::make_unique<QuietSource>(); },
        [this](AppController& c) {
            c.startScheduleWatch();
            countdown.snooze(); // the long way round: a countdown, a deferral, a second countdown
            clock.advance(10 * 60 + 60);
        });
    EXPECT_TRUE(screens->coachSession()) << "the camera coach, not the web stand-in";
    EXPECT_TRUE(built.isEmpty());
}

TEST_F(CoachLockout, ACameraThatWontOpenFallsBackToTheWebWorkout) {
    raiseWithCoach([] { return std::make_unique<BrokenCamera>(); });
    QCoreApplication::processEvents();
    EXPECT_TRUE(shield().isUp());
    ASSERT_EQ(built.size(), 1) << "the web workout took the coach's place";
    EXPECT_FALSE(screens->coachSession());
    EXPECT_TRUE(journalLines(QStringLiteral("coach"))
                    .join(u'\n')
                    .contains(u"camera coach gave up — the camera couldn't be opened: busy; "
                              u"running the web workout instead"));
}

TEST_F(CoachLockout, NoModelMeansTheWebWorkoutFromTheStart) {
    raiseWithCoach({}, [this](AppController& c) {
        screens->poseModelFactory = [](QString* why) {
            return PoseModel::load(u"/no/such/model.json"_qs, why);
        };
        c.raiseLockout(false);
    });
    EXPECT_EQ(built.size(), 1);
    EXPECT_TRUE(journalLines(QStringLiteral("coach"))
                    .join(u'\n')
                    .contains(u"camera coach unavailable — the pose model can't be read; running "
                              u"the web workout"));
}

TEST(TextToSpeechSpeaker, SpeakingNeverWaitsForTheEngine) {
    TextToSpeechSpeaker speaker;
    QElapsedTimer t;
    t.start();
    for (int i = 0; i < 20; ++i)
        speaker.speak(QStringLiteral("Lower"), Coachbox::rate, 0, 1);
    EXPECT_LT(t.elapsed(), 500);
    EXPECT_LE(speaker.queued(), 3) << "stale phrases are dropped, not piled up";
    if (speaker.isAvailable()) {
        EXPECT_EQ(speaker.spoken().first(), u"Lower");
    }
}

#pragma once

#include "core/clock.h"
#include "core/screens.h"
#include "screens/coach/coach_session.h"
#include "screens/setup_window.h"
#include "screens/shield/shield_controller.h"
#include "screens/start_window.h"
#include "screens/web/workout_web_view.h"

#include <QPointer>

#include <functional>
#include <memory>

namespace tovin {

class Coachbox;
class Speaker;

// The screens drawn in this process: the shield with its content (the workout page, the away
// screen, the camera coach), the setup window and the start window. The screen helper runs
// this behind its socket; tests run it beside the controller.
class LocalScreens final : public Screens {
    Q_OBJECT
public:
    explicit LocalScreens(Clock& clock, QObject* parent = nullptr);
    ~LocalScreens() override;

    // What a lockout's content is made from; by default the web app or the away screen. Tests
    // hand in lighter content. `prepared` pages start nothing until the shield shows them.
    using ContentFactory = std::function<QWidget*(const LockoutPage& page, bool prepared)>;
    void setContentFactory(ContentFactory factory) { contentFactory_ = std::move(factory); }
    // Where a camera coach gets its frames and its model (the default camera and the bundled
    // model); tests hand in pictures, or nothing to see the fallback.
    std::function<std::unique_ptr<FrameSource>()> frameSourceFactory;
    std::function<std::unique_ptr<PoseModel>(QString* error)> poseModelFactory;
    // The coach's voice: the desktop's speech service unless a test sets another speaker.
    void setSpeaker(Speaker* speaker);
    Coachbox& voice();

    void prepare(const LockoutPage& page) override;
    void dropPrepared() override;
    void raise(const LockoutPage& page, bool rehearsal, double valveMinutes) override;
    void lower() override;
    bool isUp() const override { return shield_.isUp(); }
    bool isRehearsal() const override { return shield_.isRehearsal(); }
    void enforceValve(const QDateTime& now) override { shield_.enforceValve(now); }
    void showStanding(const QString& json) override;
    void coachDone(int streak) override;

    void openSetup(const QString& webRoot, const QJsonObject& native, const SetupStrip& strip,
                   const QByteArray& geometry) override;
    void updateStrip(const SetupStrip& strip) override;
    void hideSetup() override;
    bool setupIsActive() const override;
    bool setupIsVisible() const override;

    void showStart(const StartCard& card) override;

    ShieldController& shield() { return shield_; }
    WorkoutWebView* workoutWeb() const { return workoutWeb_; }
    QWidget* prebuiltContent() const { return prebuilt_; }
    CoachSession* coachSession() const { return coach_; }
    SetupWindow* setupWindow() const { return setupWindow_; }
    StartWindow* startWindow() const { return startWindow_; }
    // Whether anything shows: a shield, a prepared page, the setup or the start window.
    bool showsAnything() const;

Q_SIGNALS:
    // The setup window opened, closed, took or lost the keyboard.
    void setupChanged();

private:
    QWidget* build(const LockoutPage& page, bool prepared);
    WorkoutWebView* webPage(const QString& root, const QJsonObject& native);
    PageRole roleOf(const WorkoutWebView* page) const;
    QWidget* coachLockout(const LockoutPage& page);
    void coachGaveUp(const QString& reason, const LockoutPage& page);
    void coachKey(const QString& key);
    void stopCoach();
    void ended();

    Clock& clock_;
    ShieldController shield_;
    ContentFactory contentFactory_;
    QPointer<WorkoutWebView> workoutWeb_;
    // The lockout's page, built while the countdown runs so it is already rendered when the
    // shield rises.
    QPointer<QWidget> prebuilt_;
    QPointer<WorkoutWebView> prebuiltWeb_;
    LockoutPage prebuiltFor_;
    QPointer<CoachSession> coach_;
    QPointer<QWidget> coachContainer_;
    bool coachEnded_ = false;
    std::unique_ptr<Speaker> ownSpeaker_;
    Speaker* speaker_ = nullptr;
    std::unique_ptr<Coachbox> voice_;
    QPointer<SetupWindow> setupWindow_;
    QPointer<WorkoutWebView> setupWeb_;
    QPointer<StartWindow> startWindow_;
};

} // namespace tovin

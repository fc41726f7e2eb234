#include "screens/local_screens.h"

#include "core/calendar.h"
#include "core/coachbox.h"
#include "core/coaches.h"
#include "screens/away_view.h"
#include "screens/coach/pose_model.h"
#include "screens/coach/tts_speaker.h"
#include "screens/setup_window.h"
#include "screens/web/workout_web_view.h"

#include <QGuiApplication>
#include <QStackedLayout>
#include <QTimer>
#include <QVBoxLayout>
#include <QWebEngineView>

namespace tovin {

LocalScreens::LocalScreens(Clock& clock, QObject* parent)
    : Screens(parent)
    , clock_(clock)
    , shield_(clock) {
    connect(&shield_, &ShieldController::noted, this,
            [this](const QString& text) { Q_EMIT noted(QStringLiteral("shield"), text); });
    // Every ending stops the camera before it is told: nothing outlives its lockout.
    auto ending = [this](auto signal) {
        return [this, signal] {
            stopCoach();
            workoutWeb_ = nullptr;
            Q_EMIT(this->*signal)();
        };
    };
    connect(&shield_, &ShieldController::wasBroken, this,
            [this](std::optional<PromiseRecord::Reason> reason) {
                stopCoach();
                workoutWeb_ = nullptr;
                Q_EMIT shieldWasBroken(reason);
            });
    connect(&shield_, &ShieldController::timedOut, this, ending(&Screens::shieldTimedOut));
    connect(&shield_, &ShieldController::panicked, this, ending(&Screens::shieldPanicked));
    connect(&shield_, &ShieldController::yielded, this, ending(&Screens::shieldYielded));
    connect(&shield_, &ShieldController::keyPressed, this, &LocalScreens::coachKey);
    connect(&shield_, &ShieldController::quitAsked, this, &Screens::quitAsked);
    if (qGuiApp) {
        connect(qGuiApp, &QGuiApplication::focusWindowChanged, this, &LocalScreens::setupChanged);
        connect(qGuiApp, &QGuiApplication::applicationStateChanged, this,
                &LocalScreens::setupChanged);
    }
    frameSourceFactory = [] { return std::make_unique<CameraFrameSource>(); };
    poseModelFactory = [](QString* error) {
        return PoseModel::load(PoseModel::bundledPath(), error);
    };
}

LocalScreens::~LocalScreens() {
    stopCoach();
    delete setupWindow_;
    delete startWindow_;
    delete prebuilt_;
}

void LocalScreens::setSpeaker(Speaker* speaker) {
    speaker_ = speaker;
    voice_.reset();
}

Coachbox& LocalScreens::voice() {
    if (!voice_) {
        if (!speaker_) {
            ownSpeaker_ = std::make_unique<TextToSpeechSpeaker>();
            speaker_ = ownSpeaker_.get();
        }
        voice_ = std::make_unique<Coachbox>(clock_, *speaker_);
    }
    return *voice_;
}

PageRole LocalScreens::roleOf(const WorkoutWebView* page) const {
    if (page == setupWeb_)
        return PageRole::Setup;
    if (page == workoutWeb_)
        return PageRole::Lockout;
    return PageRole::Prepared;
}

WorkoutWebView* LocalScreens::webPage(const QString& root, const QJsonObject& native) {
    auto* web = new WorkoutWebView(root, native, clock_);
    connect(web, &WorkoutWebView::message, this,
            [this, web](const QJsonObject& message) { Q_EMIT pageMessage(roleOf(web), message); });
    connect(web, &WorkoutWebView::failed, this, [this, web](const QString& detail) {
        const PageRole role = roleOf(web);
        // A prepared page that failed is never raised: the raise builds the page again.
        if (role == PageRole::Prepared && web == prebuiltWeb_)
            dropPrepared();
        Q_EMIT pageFailed(role, detail);
    });
    connect(web, &WorkoutWebView::loaded, this, [this, web] { Q_EMIT pageLoaded(roleOf(web)); });
    return web;
}

QWidget* LocalScreens::build(const LockoutPage& page, bool prepared) {
    if (contentFactory_)
        return contentFactory_(page, prepared);
    if (page.kind == LockoutPage::Kind::Away)
        return new AwayView(page.awayLabel, page.awayEndsAt, clock_, Calendar::system());
    auto* container = new QWidget;
    container->setStyleSheet(QStringLiteral("background: black;"));
    auto* layout = new QVBoxLayout(container);
    layout->setContentsMargins(0, 0, 0, 0);
    QJsonObject native = page.native;
    native.insert(u"shown", !prepared);
    WorkoutWebView* web = webPage(page.webRoot, native);
    layout->addWidget(web);
    (prepared ? prebuiltWeb_ : workoutWeb_) = web;
    return container;
}

void LocalScreens::prepare(const LockoutPage& page) {
    dropPrepared();
    prebuiltFor_ = page;
    prebuilt_ = build(page, true);
    // In the shield's own windows, out of sight, where it draws before the raise.
    shield_.prepare(prebuilt_);
}

void LocalScreens::dropPrepared() {
    if (shield_.isPrepared())
        shield_.dropPrepared();
    else if (prebuilt_)
        prebuilt_->deleteLater();
    prebuilt_ = nullptr;
    prebuiltWeb_ = nullptr;
}

void LocalScreens::raise(const LockoutPage& page, bool rehearsal, double valveMinutes) {
    if (shield_.isUp())
        return;
    QWidget* view = nullptr;
    const bool web =
        page.kind == LockoutPage::Kind::Workout || page.kind == LockoutPage::Kind::Retest;
    if (web && prebuilt_ && prebuiltFor_.servesAs(page)) {
        view = prebuilt_;
        workoutWeb_ = prebuiltWeb_;
        prebuilt_ = nullptr;
        prebuiltWeb_ = nullptr;
    } else if (web && !contentFactory_ && QGuiApplication::platformName().startsWith(u"wayland")) {
        // On Wayland a window that takes a web page after it shows is made again, and some
        // compositors lose it: the page goes in first.
        dropPrepared();
        view = build(page, false);
    } else if (web && !contentFactory_) {
        // Nothing prepared ("Lock Me Out Now"): the screens are covered first, and the page,
        // whose engine takes a moment to start, is built inside the cover right after.
        dropPrepared();
        view = new QWidget;
        view->setStyleSheet(QStringLiteral("background: black;"));
        auto* layout = new QVBoxLayout(view);
        layout->setContentsMargins(0, 0, 0, 0);
        QPointer<QWidget> cover(view);
        QTimer::singleShot(0, this, [this, cover, page] {
            if (!cover || !shield_.isUp())
                return;
            WorkoutWebView* web = webPage(page.webRoot, page.native);
            workoutWeb_ = web;
            cover->layout()->addWidget(web);
            web->markShown();
        });
    } else {
        dropPrepared();
        view = page.kind == LockoutPage::Kind::Coach ? coachLockout(page) : build(page, false);
    }
    shield_.raise(view, rehearsal, valveMinutes,
                  {page.escapePhrase.toLower(), page.hintDelay, page.standing});
    // Only now may the page start its workout: its first step gets its whole time.
    if (workoutWeb_)
        workoutWeb_->markShown();
}

void LocalScreens::lower() {
    stopCoach();
    workoutWeb_ = nullptr;
    shield_.lower();
}

void LocalScreens::showStanding(const QString& json) {
    if (workoutWeb_)
        workoutWeb_->showStanding(json);
}

QWidget* LocalScreens::coachLockout(const LockoutPage& page) {
    // The shield holds a container, so a coach that gives up can hand its place to the web
    // workout without the screen ever coming back in between.
    auto* container = new QWidget;
    container->setStyleSheet(QStringLiteral("background: black;"));
    auto* stack = new QStackedLayout(container);
    coachContainer_ = container;
    QString error;
    std::unique_ptr<PoseModel> model = poseModelFactory ? poseModelFactory(&error) : nullptr;
    if (!model) {
        Q_EMIT noted(QStringLiteral("coach"),
                     u"camera coach unavailable — " + error + u"; running the web workout");
        stack->addWidget(build(page, false));
        return container;
    }
    coach_ = new CoachSession(frameSourceFactory ? frameSourceFactory() : nullptr, std::move(model),
                              clock_, voice(), page.requiredCleanReps, this);
    stack->addWidget(coach_->view());
    coachEnded_ = false;
    connect(coach_, &CoachSession::cleanRepsReached, this, [this] {
        if (!coach_ || coachEnded_)
            return;
        coachEnded_ = true; // its keys do nothing now
        ExerciseCoach& coach = coach_->coach();
        Q_EMIT coachFinished(coach.name(), coach.reps(), coach.cleanReps());
    });
    connect(coach_, &CoachSession::gaveUp, this,
            [this, page](const QString& reason) { coachGaveUp(reason, page); });
    auto coach = coachForWorkout(page.coachWorkout);
    Q_EMIT noted(QStringLiteral("coach"), u"camera coach started — " + coach->name());
    // Last: a camera that fails at once gives up from inside start(), replacing the coach.
    coach_->start(std::move(coach));
    return container;
}

void LocalScreens::coachGaveUp(const QString& reason, const LockoutPage& page) {
    if (!coachContainer_)
        return;
    Q_EMIT noted(QStringLiteral("coach"),
                 u"camera coach gave up — " + reason + u"; running the web workout instead");
    stopCoach();
    auto* stack = static_cast<QStackedLayout*>(coachContainer_->layout());
    QWidget* web = build(page, false);
    stack->addWidget(web);
    stack->setCurrentWidget(web);
    if (workoutWeb_ && shield_.isUp())
        workoutWeb_->markShown();
}

void LocalScreens::coachKey(const QString& key) {
    if (!coach_ || coachEnded_)
        return;
    if (key == u"1")
        coach_->switchCoach(std::make_unique<SquatCoach>());
    else if (key == u"2")
        coach_->switchCoach(std::make_unique<JumpingJackCoach>());
    else if (key == u"3")
        coach_->switchCoach(std::make_unique<PushupCoach>());
    else if (key.compare(u"r", Qt::CaseInsensitive) == 0)
        coach_->resetCoach(); // counts back to zero, "Get into position"
}

void LocalScreens::coachDone(int streak) {
    if (!coach_)
        return;
    ExerciseCoach& coach = coach_->coach();
    if (CoachView* view = coach_->view()) {
        view->setStatus(QStringLiteral("Done. Promise tovin."),
                        u"Streak " + QString::number(streak) + u" · " +
                            QString::number(coach.cleanReps()) + u" clean of " +
                            QString::number(coach.reps()));
        view->repaint();
    }
    voice().say(u"Done. That's " + QString::number(streak) + u" in a row.", true);
}

void LocalScreens::stopCoach() {
    if (!coach_)
        return;
    coach_->stop(); // the camera is released now
    coach_->deleteLater();
    coach_ = nullptr;
}

void LocalScreens::openSetup(const QString& webRoot, const QJsonObject& native,
                             const SetupStrip& strip, const QByteArray& geometry) {
    if (!setupWindow_) {
        setupWindow_ = new SetupWindow(geometry);
        connect(setupWindow_, &SetupWindow::chosen, this, &Screens::actionChosen);
        connect(setupWindow_, &SetupWindow::hidden, this, [this] {
            // The page is made whenever the window opens and dropped when it closes: a browser
            // engine holds hundreds of megabytes and must not stay while nothing shows it.
            if (setupWeb_)
                setupWeb_->deleteLater();
            setupWeb_ = nullptr;
            Q_EMIT actionChosen(QStringLiteral("setupGeometry"),
                                QString::fromLatin1(setupWindow_->frame().toBase64()));
            Q_EMIT setupChanged();
        });
    }
    setupWindow_->setStrip(strip);
    if (!setupWeb_) {
        setupWeb_ = webPage(webRoot, native);
        setupWindow_->setPage(setupWeb_);
    }
    setupWindow_->show();
    setupWindow_->raise();
    setupWindow_->activateWindow();
    // The page has the keyboard, not the strip: Space scrolls the page and never presses
    // "Lock Me Out Now".
    setupWeb_->webView()->setFocus(Qt::OtherFocusReason);
    Q_EMIT setupChanged();
}

void LocalScreens::updateStrip(const SetupStrip& strip) {
    if (setupWindow_)
        setupWindow_->setStrip(strip);
}

void LocalScreens::hideSetup() {
    if (setupWindow_)
        setupWindow_->hide();
}

bool LocalScreens::setupIsActive() const {
    return setupWindow_ && setupWindow_->isActiveWindow() &&
           QGuiApplication::applicationState() == Qt::ApplicationActive;
}

bool LocalScreens::setupIsVisible() const {
    return setupWindow_ && setupWindow_->isVisible();
}

void LocalScreens::showStart(const StartCard& card) {
    delete startWindow_;
    startWindow_ = new StartWindow(card);
    connect(startWindow_, &StartWindow::begin, this,
            [this] { Q_EMIT actionChosen(QStringLiteral("begin"), QString()); });
    connect(startWindow_, &StartWindow::closed, this,
            [this] { Q_EMIT actionChosen(QStringLiteral("startClosed"), QString()); });
    startWindow_->show();
    startWindow_->raise();
}

bool LocalScreens::showsAnything() const {
    return shield_.isUp() || prebuilt_ || setupIsVisible() ||
           (startWindow_ && startWindow_->isVisible());
}

} // namespace tovin

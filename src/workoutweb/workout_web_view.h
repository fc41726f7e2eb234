#pragma once

#include "core/clock.h"
#include "schedule/block.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QPointer>
#include <QWidget>

#include <memory>
#include <optional>

class QWebChannel;
class QWebEnginePage;
class QWebEngineProfile;
class QWebEngineView;

namespace tovin {

class PromiseLedger;

// Told what the page did: finished the workout, or failed to show anything. The controller
// then records the promise, or releases the screen rather than hold it for a blank window.
class WorkoutWebDelegate {
public:
    virtual ~WorkoutWebDelegate() = default;
    virtual void workoutCompleted(const QString& exercise, qint64 reps) = 0;
    virtual void workoutWebFailed(const QString& detail) = 0;
};

class WorkoutBridge;

// Hosts the packaged workout web app: serves it over tovin://app, injects window.TOVIN_NATIVE
// before the page's first script, applies the page's messages to the settings, the week and
// the ledger, and watches that the page really rendered. The page gets no network at all.
class WorkoutWebView final : public QWidget {
    Q_OBJECT
public:
    enum class Mode { Setup, Locked, Retest };
    static QString toString(Mode mode);

    // Seconds after the first load before the page must show more than 19 characters.
    static constexpr double defaultRenderGrace = 15;
    // A loaded page is asked every few seconds for an answer; one that gives none for this
    // long (a frozen renderer) has failed, and its renderer is ended.
    static constexpr double answerProbeInterval = 1;
    static constexpr double answerGrace = 15;

    // Where the page and its messages reach; the defaults are the person's real files. Tests
    // point them at throw-away ones.
    struct Sources {
        QString schedulePath;        // the week the page sees and a plan rewrites
        PromiseLedger* ledger = nullptr; // the ledger handed over and merged into
    };

    // A page made with `shown` false is only prepared (a lockout's page, built behind its
    // countdown): it boots with TOVIN_NATIVE.shown false and starts nothing until markShown().
    WorkoutWebView(QString root, Mode mode, std::optional<QString> blockLabel, Clock& clock,
                   QWidget* parent = nullptr, std::optional<Sources> sources = std::nullopt,
                   double renderGrace = defaultRenderGrace, bool shown = true);
    ~WorkoutWebView() override;

    // The installed web app (share/tovin/web beside bin/), else the build tree's staged copy;
    // none when neither holds an index.html.
    static std::optional<QString> bundledRoot();

    // The persistent browser profile all views share, under Tovin's data folder.
    static QWebEngineProfile* profile();

    void setDelegate(WorkoutWebDelegate* delegate) { delegate_ = delegate; }
    void showStanding(const QString& json);

    // The shield now shows this page: tells it (TOVIN_NATIVE.shown = true and the window event
    // 'tovin-shown'), now and after any later load, so its workout starts with its full time.
    void markShown();
    bool isShown() const { return shown_; }

    // One page message: {"type": …, …}. Malformed messages are dropped without a word.
    void handle(const QJsonObject& message);

    // The injected bridge, exactly as the page receives it.
    QString bridgeScript() const;

    QWebEngineView* webView() const { return view_; }
    QWebEnginePage* page() const;
    Mode mode() const { return mode_; }

protected:
    void hideEvent(QHideEvent* event) override;

private:
    void loadFailed(const QString& detail);
    void endFrozenRenderer();
    void startRenderWatchdog();
    void checkRender();
    void announceShown();
    void startAnswerWatch();
    void probeAnswer();
    void killRenderer();

    QString root_;
    Mode mode_;
    std::optional<QString> blockLabel_;
    Clock& clock_;
    Sources sources_;
    double renderGrace_;
    WorkoutWebDelegate* delegate_ = nullptr;
    QWebEngineView* view_ = nullptr;
    QWebChannel* channel_ = nullptr;
    WorkoutBridge* bridge_ = nullptr;
    std::unique_ptr<Timer> renderWatchdog_;
    std::unique_ptr<Timer> answerWatch_;
    bool probeOutstanding_ = false;
    QElapsedTimer probeSent_;
    QElapsedTimer lastAnswer_;
    bool renderChecked_ = false;
    bool failed_ = false;
    bool shown_ = true;
};

} // namespace tovin

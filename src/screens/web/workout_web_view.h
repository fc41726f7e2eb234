#pragma once

#include "core/bridge_contract.h"
#include "core/clock.h"

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

class WorkoutBridge;

// Hosts the packaged workout web app: serves it over tovin://app, injects window.TOVIN_NATIVE
// before the page's first script, passes the page's messages on (it applies none itself: the
// person's files are written elsewhere), and watches that the page really rendered, telling
// `failed` when it did not. The page gets no network at all.
class WorkoutWebView final : public QWidget {
    Q_OBJECT
public:
    using Mode = PageMode;

    // Seconds after the first load before the page must show more than 19 characters.
    static constexpr double defaultRenderGrace = 15;
    // A loaded page is asked every few seconds for an answer; one that gives none for this
    // long (a frozen renderer) has failed, and its renderer is ended.
    static constexpr double answerProbeInterval = 1;
    static constexpr double answerGrace = 15;

    // `native` is TOVIN_NATIVE's data (BridgeMessages::nativeState). A page whose `shown` is
    // false is only prepared (a lockout's page, built behind its countdown): it starts nothing
    // until markShown().
    WorkoutWebView(QString root, QJsonObject native, Clock& clock, QWidget* parent = nullptr,
                   double renderGrace = defaultRenderGrace);
    ~WorkoutWebView() override;

    // The persistent browser profile all views share, under Tovin's data folder.
    static QWebEngineProfile* profile();

    void showStanding(const QString& json);

    // The shield now shows this page: tells it (TOVIN_NATIVE.shown = true and the window event
    // 'tovin-shown'), now and after any later load, so its workout starts with its full time.
    void markShown();
    bool isShown() const { return shown_; }

    // The injected bridge, exactly as the page receives it.
    QString bridgeScript() const;

    QWebEngineView* webView() const { return view_; }
    QWebEnginePage* page() const;
    Mode mode() const { return mode_; }

Q_SIGNALS:
    // One page message, {"type": …, …}, as posted.
    void message(const QJsonObject& message);
    // The page failed to show anything (or stopped answering); told once.
    void failed(const QString& detail);
    // The document finished loading.
    void loaded();

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
    QJsonObject native_;
    Mode mode_;
    Clock& clock_;
    double renderGrace_;
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

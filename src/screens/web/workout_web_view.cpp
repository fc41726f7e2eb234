#include "screens/web/workout_web_view.h"

#include "core/bundle_routes.h"
#include "core/paths.h"
#include "screens/web/bundle_scheme_handler.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QVBoxLayout>
#include <QWebChannel>
#include <QWebEngineDownloadRequest>
#include <QWebEngineLoadingInfo>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineUrlRequestInterceptor>
#include <QWebEngineView>

#include <csignal>
#include <unistd.h>

namespace tovin {

// The page's one way in: the injected bridge posts every message to post().
class WorkoutBridge final : public QObject {
    Q_OBJECT
public:
    explicit WorkoutBridge(WorkoutWebView* view)
        : QObject(view)
        , view_(view) {}
    Q_INVOKABLE void post(const QVariantMap& message) {
        Q_EMIT view_->message(QJsonObject::fromVariantMap(message));
    }

private:
    WorkoutWebView* view_;
};

namespace {

// The page runs inside a lockout: it may load its own files and nothing else.
class OnlyTheBundle final : public QWebEngineUrlRequestInterceptor {
public:
    using QWebEngineUrlRequestInterceptor::QWebEngineUrlRequestInterceptor;
    void interceptRequest(QWebEngineUrlRequestInfo& info) override {
        const QUrl url = info.requestUrl();
        if (url.scheme() != QLatin1String(BundleRoutes::scheme) || url.host() != u"app")
            info.block(true);
    }
};

// No popups and no navigation away from the app's own origin.
class ContainedPage final : public QWebEnginePage {
public:
    using QWebEnginePage::QWebEnginePage;

protected:
    bool acceptNavigationRequest(const QUrl& url, NavigationType, bool) override {
        return url.scheme() == QLatin1String(BundleRoutes::scheme) && url.host() == u"app";
    }
    QWebEnginePage* createWindow(WebWindowType) override { return nullptr; }
};

BundleSchemeHandler* schemeHandler() {
    static BundleSchemeHandler* handler = new BundleSchemeHandler(QString(), qApp);
    return handler;
}

QString webChannelSource() {
    QFile file(QStringLiteral(":/qtwebchannel/qwebchannel.js"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

const char* const errorCapture = R"JS(
(function () {
  window.__tovinErrors = [];
  window.addEventListener('error', function (e) {
    var err = e.error;
    var text = (err && err.stack) || e.message || 'error';
    window.__tovinErrors.push(text + ' @ ' + (e.filename || '?') + ':' + (e.lineno || 0));
  });
  window.addEventListener('unhandledrejection', function (e) {
    var r = e.reason;
    window.__tovinErrors.push('unhandled rejection: ' + ((r && r.stack) || r));
  });
})();
)JS";

// Messages posted before the channel is up wait in a queue, so the bridge works from the
// page's very first script.
const char* const channelSetup = R"JS(
(function () {
  var queue = [];
  var bridge = null;
  new QWebChannel(qt.webChannelTransport, function (channel) {
    bridge = channel.objects.tovin;
    queue.splice(0).forEach(function (m) { bridge.post(m); });
  });
  Object.defineProperty(window, '__tovinPost', {
    value: function (m) { if (bridge) { bridge.post(m); } else { queue.push(m); } }
  });
})();
)JS";

} // namespace

QWebEngineProfile* WorkoutWebView::profile() {
    static QWebEngineProfile* shared = [] {
        auto* p = new QWebEngineProfile(QStringLiteral("Tovin"), qApp);
        p->setPersistentStoragePath(paths::dataDir() + u"/web");
        p->setCachePath(paths::dataDir() + u"/web/cache");
        p->setHttpCacheType(QWebEngineProfile::NoCache);
        p->setUrlRequestInterceptor(new OnlyTheBundle(p));
        p->installUrlSchemeHandler(BundleRoutes::scheme, schemeHandler());
        QObject::connect(p, &QWebEngineProfile::downloadRequested,
                         [](QWebEngineDownloadRequest* download) { download->cancel(); });
        return p;
    }();
    return shared;
}

namespace {
PageMode modeFromNative(const QJsonObject& native) {
    const QString mode = native.value(u"mode").toString();
    return mode == u"setup"    ? PageMode::Setup
           : mode == u"retest" ? PageMode::Retest
                               : PageMode::Locked;
}
} // namespace

WorkoutWebView::WorkoutWebView(QString root, QJsonObject native, Clock& clock, QWidget* parent,
                               double renderGrace)
    : QWidget(parent)
    , root_(std::move(root))
    , native_(std::move(native))
    , mode_(modeFromNative(native_))
    , clock_(clock)
    , renderGrace_(renderGrace)
    , shown_(native_.value(u"shown").toBool(true)) {
    native_.insert(u"shown", shown_);

    schemeHandler()->setRoot(root_);
    auto* page = new ContainedPage(profile(), this);
    page->setBackgroundColor(QColor::fromRgbF(0.04f, 0.05f, 0.07f));

    channel_ = new QWebChannel(this);
    bridge_ = new WorkoutBridge(this);
    channel_->registerObject(QStringLiteral("tovin"), bridge_);
    page->setWebChannel(channel_, QWebEngineScript::MainWorld);

    QWebEngineScript script;
    script.setName(QStringLiteral("tovin-bridge"));
    script.setInjectionPoint(QWebEngineScript::DocumentCreation);
    script.setWorldId(QWebEngineScript::MainWorld);
    script.setRunsOnSubFrames(false);
    script.setSourceCode(bridgeScript());
    page->scripts().insert(script);

    view_ = new QWebEngineView(this);
    // No browser menu (Back, Reload, View source…) in any Tovin page: over the shield it would
    // be a popup above the screen cover and a way around it.
    view_->setContextMenuPolicy(Qt::PreventContextMenu);
    view_->setPage(page);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(view_);

    connect(page, &QWebEnginePage::loadingChanged, this, [this](const QWebEngineLoadingInfo& info) {
        if (info.status() == QWebEngineLoadingInfo::LoadFailedStatus)
            loadFailed(info.errorString().isEmpty() ? QStringLiteral("The page failed to load.")
                                                    : info.errorString());
        else if (info.status() == QWebEngineLoadingInfo::LoadSucceededStatus) {
            Q_EMIT loaded();
            startRenderWatchdog();
            startAnswerWatch();
            // A page shown before its document existed (or loaded again since) learns it here.
            if (shown_)
                announceShown();
        }
    });
    // A renderer that dies leaves a dead page behind; that is a failed page, never a screen
    // held for nothing.
    connect(page, &QWebEnginePage::renderProcessTerminated, this,
            [this](QWebEnginePage::RenderProcessTerminationStatus status, int code) {
                if (status == QWebEnginePage::NormalTerminationStatus)
                    return;
                loadFailed(QStringLiteral("The workout screen stopped working (its renderer "
                                          "ended with code %1).")
                               .arg(code));
            });
    view_->load(QUrl(QStringLiteral("tovin://app/")));
}

WorkoutWebView::~WorkoutWebView() {
    endFrozenRenderer();
    // The page must go before the channel and the bridge it talks to.
    if (view_)
        delete view_->page();
}

void WorkoutWebView::hideEvent(QHideEvent* event) {
    // Hidden is how every lockout ends (the shield's windows go), panic included, which then
    // ends the program before any deferred delete runs: a frozen renderer is ended here.
    endFrozenRenderer();
    QWidget::hideEvent(event);
}

void WorkoutWebView::endFrozenRenderer() {
    // A renderer that stopped answering may not hear the page close either: it is ended rather
    // than left behind, stopped, after Tovin is gone.
    // A healthy page answers every probe within milliseconds, so an answer older than a few
    // probes means it is not answering now.
    if (probeOutstanding_ && lastAnswer_.isValid() && lastAnswer_.elapsed() >= 2500) {
        failed_ = true; // its death is this ending's doing, not a new failure to report
        killRenderer();
    }
}

void WorkoutWebView::startAnswerWatch() {
    if (answerWatch_)
        return;
    lastAnswer_.start();
    answerWatch_ = clock_.createTimer([this] { probeAnswer(); });
    answerWatch_->start(answerProbeInterval, true);
}

void WorkoutWebView::probeAnswer() {
    if (failed_)
        return;
    // The renderer runs in real time whatever clock drives the probes, so its silence is
    // measured on a real one: a test that runs hours in a moment never starves it.
    if (probeOutstanding_) {
        if (probeSent_.elapsed() < qint64(answerGrace * 1000))
            return;
        // A page that has not answered for this long holds the screen for nothing.
        answerWatch_.reset();
        killRenderer();
        loadFailed(QStringLiteral("The workout screen stopped answering for %1 seconds.")
                       .arg(qint64(answerGrace)));
        return;
    }
    probeOutstanding_ = true;
    probeSent_.start();
    QPointer<WorkoutWebView> self(this);
    page()->runJavaScript(QStringLiteral("0"), [self](const QVariant&) {
        if (self) {
            self->probeOutstanding_ = false;
            self->lastAnswer_.start();
        }
    });
}

void WorkoutWebView::killRenderer() {
    const qint64 pid = page() ? page()->renderProcessPid() : 0;
    if (pid > 0 && pid != qint64(::getpid()))
        ::kill(pid_t(pid), SIGKILL);
}

QWebEnginePage* WorkoutWebView::page() const {
    return view_ ? view_->page() : nullptr;
}

QString WorkoutWebView::bridgeScript() const {
    // The data as JSON, which JavaScript reads as it stands; U+2028 and U+2029 are escaped for
    // engines that predate their allowance in string literals.
    QString data = QString::fromUtf8(QJsonDocument(native_).toJson(QJsonDocument::Compact));
    data.replace(QChar(0x2028), QStringLiteral("\\u2028"));
    data.replace(QChar(0x2029), QStringLiteral("\\u2029"));
    const QString native = u"window.TOVIN_NATIVE = Object.assign(" + data + u", {" +
                           BridgeContract::bridgeFunctions() + u"});\n";
    return QString::fromUtf8(errorCapture) + webChannelSource() + QString::fromUtf8(channelSetup) +
           native;
}

void WorkoutWebView::showStanding(const QString& json) {
    if (QWebEnginePage* p = page())
        p->runJavaScript(u"window.dispatchEvent(new CustomEvent('tovin-standing', { detail: " +
                         json + u" }))");
}

void WorkoutWebView::markShown() {
    shown_ = true;
    announceShown();
}

void WorkoutWebView::announceShown() {
    // Idempotent in the page: the event goes out once per document, however often this runs.
    if (QWebEnginePage* p = page())
        p->runJavaScript(
            QStringLiteral("(function () { var n = window.TOVIN_NATIVE; if (n && n.shown === "
                           "false) { n.shown = true; "
                           "window.dispatchEvent(new CustomEvent('tovin-shown')); } })()"));
}

void WorkoutWebView::loadFailed(const QString& detail) {
    if (failed_)
        return;
    failed_ = true;
    renderWatchdog_.reset();
    Q_EMIT failed(detail);
}

void WorkoutWebView::startRenderWatchdog() {
    if (renderChecked_)
        return;
    renderChecked_ = true;
    renderWatchdog_ = clock_.singleShot(renderGrace_, [this] { checkRender(); });
}

void WorkoutWebView::checkRender() {
    QPointer<WorkoutWebView> self(this);
    page()->runJavaScript(
        QStringLiteral("JSON.stringify([document.body ? document.body.innerText.trim().length : 0, "
                       "window.__tovinErrors || []])"),
        [self](const QVariant& result) {
            if (!self)
                return;
            const QJsonDocument doc = QJsonDocument::fromJson(result.toString().toUtf8());
            const QJsonArray pair = doc.array();
            if (!doc.isArray() || pair.size() != 2 || !pair[0].isDouble() || !pair[1].isArray())
                return;
            if (pair[0].toDouble() > 19)
                return;
            QStringList errors;
            for (const QJsonValue e : pair[1].toArray())
                errors.append(e.toString());
            self->loadFailed(errors.isEmpty()
                                 ? QStringLiteral("The workout screen loaded but rendered nothing.")
                                 : u"The workout screen loaded but rendered nothing:\n\n" +
                                       errors.join(u'\n'));
        });
}

} // namespace tovin

#include "workout_web_view.moc"

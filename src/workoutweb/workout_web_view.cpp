#include "workoutweb/workout_web_view.h"

#include "core/json_values.h"
#include "core/paths.h"
#include "promises/promise_ledger.h"
#include "schedule/schedule_store.h"
#include "schedule/settings.h"
#include "workoutweb/bundle_routes.h"
#include "workoutweb/bundle_scheme_handler.h"

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

#include <algorithm>
#include <cstdio>

#include <csignal>
#include <unistd.h>

namespace tovin {

// The page's one way in: the injected bridge posts every message to post().
class WorkoutBridge final : public QObject {
    Q_OBJECT
public:
    explicit WorkoutBridge(WorkoutWebView* view) : QObject(view), view_(view) {}
    Q_INVOKABLE void post(const QVariantMap& message) {
        view_->handle(QJsonObject::fromVariantMap(message));
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

// A JavaScript string literal: JSON's, which escapes quotes, backslashes and control
// characters; U+2028 and U+2029 are escaped too for engines that predate their allowance.
QString jsString(const QString& text) {
    QString literal = QString::fromUtf8(
        QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact));
    literal = literal.mid(1, literal.size() - 2);
    literal.replace(QChar(0x2028), QStringLiteral("\\u2028"));
    literal.replace(QChar(0x2029), QStringLiteral("\\u2029"));
    return literal;
}

// Single-quoted, with backslashes, quotes and line breaks escaped.
QString jsSingleQuoted(QString text) {
    text.replace(u'\\', QStringLiteral("\\\\"));
    text.replace(u'\'', QStringLiteral("\\'"));
    text.replace(u'\n', QStringLiteral("\\n"));
    text.replace(u'\r', QStringLiteral("\\r"));
    text.replace(QChar(0x2028), QStringLiteral("\\u2028"));
    text.replace(QChar(0x2029), QStringLiteral("\\u2029"));
    return u'\'' + text + u'\'';
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

const char* const bridgeFunctions = R"JS(
  complete: function (exercise, reps) {
    window.__tovinPost({ type: 'workoutComplete', exercise: String(exercise || ''), reps: Number(reps || 0) });
  },
  promisesSynced: function (merged) {
    window.__tovinPost({ type: 'promisesSynced', promises: JSON.stringify(merged || []) });
  },
  setBusy: function (reason) {
    window.__tovinPost({ type: 'busy', reason: String(reason || '') });
  },
  clearBusy: function () {
    window.__tovinPost({ type: 'busy', reason: '' });
  },
  saveSchedule: function (blocks) {
    window.__tovinPost({ type: 'saveSchedule', blocks: JSON.stringify(blocks) });
  },
  setWorkoutPlan: function (blocks) {
    window.__tovinPost({ type: 'setWorkoutPlan', blocks: JSON.stringify(blocks || []) });
  },
  saveSettings: function (s) {
    window.__tovinPost(Object.assign({ type: 'saveSettings' }, s));
  }
)JS";

} // namespace

QString WorkoutWebView::toString(Mode mode) {
    switch (mode) {
    case Mode::Setup:
        return QStringLiteral("setup");
    case Mode::Locked:
        return QStringLiteral("locked");
    case Mode::Retest:
        return QStringLiteral("retest");
    }
    return {};
}

std::optional<QString> WorkoutWebView::bundledRoot() {
    QStringList candidates{QCoreApplication::applicationDirPath() + u"/../share/tovin/web"};
#ifdef TOVIN_STAGED_WEB_DIR
    candidates.append(QStringLiteral(TOVIN_STAGED_WEB_DIR));
#endif
    for (const QString& dir : candidates) {
        if (QFileInfo(dir + u"/index.html").isFile())
            return QDir::cleanPath(dir);
    }
    return std::nullopt;
}

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

WorkoutWebView::WorkoutWebView(QString root, Mode mode, std::optional<QString> blockLabel,
                               Clock& clock, QWidget* parent, std::optional<Sources> sources,
                               double renderGrace, bool shown)
    : QWidget(parent), root_(std::move(root)), mode_(mode), blockLabel_(std::move(blockLabel)),
      clock_(clock), renderGrace_(renderGrace), shown_(shown) {
    sources_ = sources.value_or(Sources{ScheduleStore::url(), nullptr});
    if (!sources_.ledger)
        sources_.ledger = &PromiseLedger::shared();

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
    const auto workout = Settings::lockoutWorkoutID();
    QList<int> weekdays(Settings::activeWeekdays().cbegin(), Settings::activeWeekdays().cend());
    std::sort(weekdays.begin(), weekdays.end());
    QStringList days;
    for (int d : weekdays)
        days.append(QString::number(d));

    QString native;
    native += u"window.TOVIN_NATIVE = {\n";
    native += u"  mode: '" + toString(mode_) + u"',\n";
    native += u"  shown: " + QString::fromLatin1(shown_ ? "true" : "false") + u",\n";
    native += u"  lockoutWorkoutId: " +
              (workout ? jsSingleQuoted(*workout) : QStringLiteral("undefined")) + u",\n";
    native += u"  blockLabel: " + (blockLabel_ ? jsString(*blockLabel_) : QStringLiteral("null")) +
              u",\n";
    native += u"  blocks: " +
              QString::fromUtf8(ScheduleStore::encodeBlockList(ScheduleStore::load(sources_.schedulePath))) +
              u",\n";
    native += u"  schedule: { weekdays: [" + days.join(u", ") +
              u"], fromMinute: " + QString::number(Settings::activeFromMinute()) +
              u", toMinute: " + QString::number(Settings::activeToMinute()) +
              u", triggerAfterMinutes: " + QString::number(Settings::triggerAfterMinutes()) +
              u" },\n";
    native += u"  onboarded: " + QString::fromLatin1(Settings::hasOnboarded() ? "true" : "false") +
              u",\n";
    native += u"  promises: " + sources_.ledger->asBridgeJSON() + u",\n";
    native += QString::fromUtf8(bridgeFunctions);
    native += u"};\n";
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
        p->runJavaScript(QStringLiteral(
            "(function () { var n = window.TOVIN_NATIVE; if (n && n.shown === false) { n.shown = true; "
            "window.dispatchEvent(new CustomEvent('tovin-shown')); } })()"));
}

void WorkoutWebView::handle(const QJsonObject& message) {
    const QJsonValue type = message.value(u"type");
    if (!type.isString())
        return;
    const QString kind = type.toString();

    if (kind == u"workoutComplete") {
        if (!delegate_)
            return;
        const QJsonValue exercise = message.value(u"exercise");
        const qint64 reps = jsonInteger(message.value(u"reps")).value_or(0);
        delegate_->workoutCompleted(exercise.isString() ? exercise.toString()
                                                        : QStringLiteral("Workout"),
                                    reps);
    } else if (kind == u"promisesSynced") {
        const QJsonValue text = message.value(u"promises");
        if (!text.isString())
            return;
        const auto merged = PromiseJson::decode(text.toString().toUtf8());
        if (!merged)
            return;
        const bool adopted = sources_.ledger->adopt(*merged);
        std::printf("[promises] merged %lld record(s) from the account — %s\n",
                    static_cast<long long>(merged->size()),
                    adopted ? "adopted" : "ignored, would have shrunk the ledger");
        std::fflush(stdout);
    } else if (kind == u"busy") {
        const QJsonValue reason = message.value(u"reason");
        const QString why = reason.isString() ? reason.toString() : QString();
        if (why.isEmpty()) {
            Settings::setBusyUntil(std::nullopt);
            Settings::setBusyReason(std::nullopt);
        } else {
            Settings::setBusyUntil(clock_.now().addMSecs(qint64(Settings::busyGrace * 1000)));
            Settings::setBusyReason(why);
        }
    } else if (kind == u"setWorkoutPlan") {
        const QJsonValue text = message.value(u"blocks");
        if (!text.isString())
            return;
        const auto plan = ScheduleStore::decodeBlockList(text.toString().toUtf8());
        if (!plan)
            return;
        const bool saved = ScheduleStore::saveWorkoutPlan(*plan, sources_.schedulePath);
        std::printf("[schedule] accepted a plan of %lld workout block(s)%s\n",
                    static_cast<long long>(plan->size()), saved ? "" : " — not saved yet");
        std::fflush(stdout);
    } else if (kind == u"saveSettings") {
        if (const QJsonValue id = message.value(u"lockoutWorkoutId"); id.isString())
            Settings::setLockoutWorkoutID(id.toString().isEmpty()
                                              ? std::nullopt
                                              : std::optional<QString>(id.toString()));
        if (const QJsonValue days = message.value(u"weekdays"); days.isArray()) {
            QSet<int> kept;
            bool allIntegers = true;
            for (const QJsonValue d : days.toArray()) {
                const auto day = jsonInteger(d);
                if (!day) {
                    allIntegers = false;
                    break;
                }
                if (*day >= 1 && *day <= 7)
                    kept.insert(int(*day));
            }
            if (allIntegers)
                Settings::setActiveWeekdays(kept);
        }
        if (const auto from = jsonInteger(message.value(u"fromMinute"), INT_MIN, INT_MAX))
            Settings::setActiveFromMinute(int(*from));
        if (const auto to = jsonInteger(message.value(u"toMinute"), INT_MIN, INT_MAX))
            Settings::setActiveToMinute(int(*to));
        if (const auto trigger = jsonReal(message.value(u"triggerAfterMinutes")))
            Settings::setTriggerAfterMinutes(std::max(5.0, *trigger));
        if (const QJsonValue onboarded = message.value(u"onboarded"); onboarded.isBool())
            Settings::setHasOnboarded(onboarded.toBool());
        if (const auto days = jsonInteger(message.value(u"retestDueInDays"))) {
            Settings::setRetestDueInDays(*days);
            Settings::setRetestReportedAt(clock_.now());
        }
    }
    // "saveSchedule" and anything else: ignored. Plans reach the week only as a workout plan.
}

void WorkoutWebView::loadFailed(const QString& detail) {
    if (failed_)
        return;
    failed_ = true;
    renderWatchdog_.reset();
    if (delegate_)
        delegate_->workoutWebFailed(detail);
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

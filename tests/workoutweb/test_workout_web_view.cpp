// The web view against fixture pages, headless: the bridge is there before the first script,
// the page's messages change exactly what they should, a blank page is caught, and the page
// can reach nothing outside its own bundle.

#include "workoutweb/bundle_routes.h"
#include "workoutweb/bundle_scheme_handler.h"
#include "workoutweb/workout_web_view.h"

#include "journal/journal.h"
#include "promises/promise_ledger.h"
#include "schedule/schedule_store.h"
#include "schedule/settings.h"
#include "support/fake_clock.h"
#include "support/fake_platform.h"

#include <QApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMenu>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QWebEnginePage>
#include <QWebEngineView>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

const QString fixtures = QStringLiteral(TOVIN_WEB_FIXTURES);

// What the page finished and how it failed, as the process that owns the files hears it.
struct Recorder {
    QList<std::pair<QString, qint64>> completed;
    QStringList failures;
};

class WebViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        Settings::setStore(std::make_shared<MemorySettingsStore>());
        Journal::setOverrideURL(dir.filePath(QStringLiteral("tovin-journal-test-web.log")));
        ScheduleStore::saveAll({Block{QStringLiteral("13:00"), QStringLiteral("The Classic 7"),
                                      Block::Kind::Workout, {}, QList<int>{2, 3}},
                                Block{QStringLiteral("16:30"), QStringLiteral("Walk"),
                                      Block::Kind::Away, 15, {}}},
                               schedulePath);
    }
    void TearDown() override {
        view.reset();
        Journal::setOverrideURL(std::nullopt);
        Settings::setStore(nullptr);
    }

    WorkoutWebView& open(const QString& fixture, WorkoutWebView::Mode mode = WorkoutWebView::Mode::Locked,
                         std::optional<QString> label = QStringLiteral("The Classic 7")) {
        make(fixtures + u'/' + fixture, mode, label);
        view->resize(800, 600);
        view->show();
        QSignalSpy loaded(view->page(), &QWebEnginePage::loadFinished);
        EXPECT_TRUE(loaded.wait(30000)) << "the page did not load";
        return *view;
    }

    // A page wired as the app wires it: its messages applied to throw-away files.
    void make(const QString& root, WorkoutWebView::Mode mode, const std::optional<QString>& label) {
        view = std::make_unique<WorkoutWebView>(root, BridgeMessages::nativeState(mode, true, label, schedulePath, ledger),
                                                clock);
        QObject::connect(view.get(), &WorkoutWebView::message, [this](const QJsonObject& m) { bridge.apply(m); });
        QObject::connect(&bridge, &BridgeMessages::workoutCompleted, view.get(),
                         [this](const QString& exercise, qint64 reps) { recorder.completed.append({exercise, reps}); });
        QObject::connect(view.get(), &WorkoutWebView::failed,
                         [this](const QString& detail) { recorder.failures.append(detail); });
    }

    // Runs script in the page and waits for its value.
    QVariant eval(const QString& script) {
        QVariant result;
        bool done = false;
        view->page()->runJavaScript(script, [&](const QVariant& v) {
            result = v;
            done = true;
        });
        EXPECT_TRUE(QTest::qWaitFor([&] { return done; }, 10000)) << script.toStdString();
        return result;
    }

    QJsonObject evalJson(const QString& script) {
        return QJsonDocument::fromJson(eval(u"JSON.stringify(" + script + u")").toString().toUtf8())
            .object();
    }

    QTemporaryDir dir;
    QString schedulePath = dir.filePath(QStringLiteral("schedule.json"));
    PromiseLedger ledger{dir.filePath(QStringLiteral("promises.json"))};
    fakes::FakeClock clock;
    Recorder recorder;
    BridgeMessages bridge{schedulePath, ledger, clock};
    std::unique_ptr<WorkoutWebView> view;
};

} // namespace

TEST_F(WebViewTest, TheBridgeIsThereForTheFirstScript) {
    Settings::setLockoutWorkoutID(QStringLiteral("it's \"the\" \\classic"));
    Settings::setActiveWeekdays({6, 2, 4});
    Settings::setHasOnboarded(true);
    open(QStringLiteral("bridge"), WorkoutWebView::Mode::Locked, QStringLiteral("Lunch \"Mover\" ’25"));
    const QJsonObject seen = evalJson(QStringLiteral("window.__firstSight"));
    EXPECT_EQ(seen.value(u"mode").toString(), u"locked");
    EXPECT_EQ(seen.value(u"lockoutWorkoutId").toString(), u"it's \"the\" \\classic");
    EXPECT_EQ(seen.value(u"blockLabel").toString(), u"Lunch \"Mover\" ’25");
    EXPECT_TRUE(seen.value(u"blocksIsArray").toBool());
    EXPECT_EQ(seen.value(u"blockCount").toInt(), 2);
    EXPECT_EQ(seen.value(u"completeType").toString(), u"function");
    EXPECT_TRUE(seen.value(u"promisesIsArray").toBool());
    EXPECT_EQ(seen.value(u"weekdays").toArray(), (QJsonArray{2, 4, 6}));
    EXPECT_TRUE(seen.value(u"onboarded").toBool());
    // Module scripts and their imports come through the private scheme.
    EXPECT_TRUE(QTest::qWaitFor([&] { return eval(QStringLiteral("window.__moduleLoaded")).toInt() == 42; }, 10000));
}

TEST_F(WebViewTest, ARetestPageWithoutAWorkoutOrABlockSeesThemUnset) {
    open(QStringLiteral("bridge"), WorkoutWebView::Mode::Retest, std::nullopt);
    EXPECT_EQ(eval(QStringLiteral("[TOVIN_NATIVE.mode, typeof TOVIN_NATIVE.lockoutWorkoutId, TOVIN_NATIVE.blockLabel].join()"))
                  .toString(),
              u"retest,undefined,");
}

// Each function the page calls reaches the native side whole; what the rules make of odd
// values is the bridge's own test.
TEST_F(WebViewTest, EveryFunctionThePageCallsLandsInTheFilesItOwns) {
    ledger.record({QDateTime(QDate(2026, 3, 1), QTime(9, 0), QTimeZone::utc()),
                   PromiseRecord::Outcome::Tovin, QStringLiteral("squat"), 10, 10, {}, {}},
                  false);
    open(QStringLiteral("bridge"));
    QSignalSpy changed(ScheduleChangeNotifier::instance(), &ScheduleChangeNotifier::tovinScheduleChanged);
    eval(QStringLiteral(
        "TOVIN_NATIVE.complete('Squat', 12); TOVIN_NATIVE.complete();"
        "TOVIN_NATIVE.saveSettings({ triggerAfterMinutes: 20, weekdays: [1, 7], fromMinute: 480, toMinute: 1200,"
        "  onboarded: true, lockoutWorkoutId: 'classic-7', retestDueInDays: 28 });"
        "TOVIN_NATIVE.setWorkoutPlan([{at: '09:00', label: 'Plan A', kind: 'workout', days: [2]}]);"
        "TOVIN_NATIVE.promisesSynced(TOVIN_NATIVE.promises.concat([{date: '2026-02-27T08:00:00Z',"
        "  outcome: 'broken', exercise: 'pushup', reps: 2, cleanReps: 1, reason: 'Genuinely urgent'}]));"
        "TOVIN_NATIVE.setBusy('mid-workout'); 1"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return Settings::busyReason().has_value(); }, 10000));
    EXPECT_EQ(recorder.completed, (QList<std::pair<QString, qint64>>{{QStringLiteral("Squat"), 12}, {QString(), 0}}));
    EXPECT_EQ(Settings::triggerAfterMinutes(), 20.0);
    EXPECT_EQ(Settings::activeWeekdays(), (QSet<int>{1, 7}));
    EXPECT_EQ(Settings::activeFromMinute(), 480);
    EXPECT_EQ(Settings::activeToMinute(), 1200);
    EXPECT_TRUE(Settings::hasOnboarded());
    EXPECT_EQ(Settings::lockoutWorkoutID(), u"classic-7");
    EXPECT_EQ(Settings::retestDueInDays(), 28);
    EXPECT_EQ(Settings::retestReportedAt(), clock.now());
    QStringList keys;
    for (const Block& b : ScheduleStore::load(schedulePath))
        keys.append(b.key());
    EXPECT_EQ(keys, (QStringList{QStringLiteral("09:00|Plan A|workout"), QStringLiteral("16:30|Walk|away")}));
    EXPECT_EQ(changed.count(), 1);
    ASSERT_EQ(ledger.records().size(), 2);
    EXPECT_EQ(ledger.records()[0].exercise, u"pushup"); // oldest first
    EXPECT_EQ(Settings::busyReason(), u"mid-workout");
    EXPECT_EQ(Settings::busyUntil(), clock.now().addSecs(180));
    eval(QStringLiteral("TOVIN_NATIVE.clearBusy(); 1"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !Settings::busyReason().has_value(); }, 10000));

    // And the other way: the standing reaches a page listener.
    view->showStanding(ledger.standingJSON());
    EXPECT_TRUE(QTest::qWaitFor([&] { return eval(QStringLiteral("window.__standings.length")).toInt() == 1; }, 10000));
    EXPECT_EQ(evalJson(QStringLiteral("window.__standings[0]")),
              QJsonDocument::fromJson(ledger.standingJSON().toUtf8()).object());
}

// The render check after its 15 s grace: a page that threw and drew nothing fails with its
// errors; twenty characters of text count as drawn, nineteen do not.
TEST_F(WebViewTest, APageThatDrawsNothingFailsAfterTheGrace) {
    const struct {
        const char* fixture;
        const char16_t* failure; // empty: no failure
    } cases[] = {{"blank", u"The workout screen loaded but rendered nothing:\n\nError: boom at start"},
                 {"short", u""},
                 {"nineteen", u"The workout screen loaded but rendered nothing."}};
    for (const auto& c : cases) {
        recorder.failures.clear();
        open(QString::fromLatin1(c.fixture));
        clock.advance(14.9);
        QTest::qWait(100);
        EXPECT_TRUE(recorder.failures.isEmpty()) << c.fixture << ": failed inside the grace";
        clock.advance(0.1);
        const QString failure = QString::fromUtf16(c.failure);
        if (failure.isEmpty())
            QTest::qWait(500);
        else
            EXPECT_TRUE(QTest::qWaitFor([&] { return !recorder.failures.isEmpty(); }, 10000)) << c.fixture;
        EXPECT_EQ(recorder.failures.value(0).left(failure.size()), failure) << c.fixture;
    }
}

TEST_F(WebViewTest, ThePageReachesNothingOutsideItsBundle) {
    open(QStringLiteral("bridge"));
    eval(QStringLiteral("window.__net = 'pending'; var x = new XMLHttpRequest();"
                        " x.onload = function () { window.__net = 'loaded'; };"
                        " x.onerror = function () { window.__net = 'refused'; };"
                        " x.open('GET', 'https://example.com/'); x.send(); 1"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return eval(QStringLiteral("window.__net")).toString() == u"refused"; }, 10000));
    // A missing asset of the bundle is a failed load, never the application shell.
    eval(QStringLiteral("window.__missing = 'pending'; var s = document.createElement('script');"
                        " s.src = '/nope.js'; s.onerror = function () { window.__missing = 'error'; };"
                        " s.onload = function () { window.__missing = 'loaded'; }; document.head.appendChild(s); 1"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return eval(QStringLiteral("window.__missing")).toString() == u"error"; }, 10000));
    // No navigation away from the app.
    eval(QStringLiteral("location.href = 'https://example.com/'; 1"));
    QTest::qWait(300);
    EXPECT_EQ(view->page()->url().scheme(), u"tovin");
}

TEST_F(WebViewTest, ARightClickOpensNoBrowserMenu) {
    open(QStringLiteral("short"));
    QWidget* surface = view->webView()->focusProxy();
    ASSERT_TRUE(surface);
    QTest::mouseClick(surface, Qt::RightButton, Qt::NoModifier, QPoint(40, 40));
    QTest::qWait(1500);
    EXPECT_FALSE(QApplication::activePopupWidget());
    for (QWidget* w : QApplication::topLevelWidgets())
        EXPECT_FALSE(qobject_cast<QMenu*>(w) && w->isVisible()) << "a context menu is showing";
}

TEST_F(WebViewTest, AMissingBundleFailsTheLoad) {
    make(dir.filePath(QStringLiteral("no-such-web")), WorkoutWebView::Mode::Locked, std::nullopt);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !recorder.failures.isEmpty(); }, 30000));
}

// The real web build, staged by the build: every mode boots to its screen, a lockout renders
// well past the watchdog's threshold, and setup reports through the bridge.
TEST_F(WebViewTest, TheRealWebAppBootsEveryMode) {
    const auto root = BundleRoutes::bundledRoot();
    ASSERT_TRUE(root) << "the web app was not staged: the web_app target builds it";
    Settings::setLockoutWorkoutID(QStringLiteral("two-minute-spark"));
    const struct {
        WorkoutWebView::Mode mode;
        const char16_t* heading;
    } cases[] = {{WorkoutWebView::Mode::Locked, u"Jumping jacks"},
                 {WorkoutWebView::Mode::Setup, u"Set up your breaks"},
                 {WorkoutWebView::Mode::Retest, u"Push-ups in 60 seconds"}};
    for (const auto& c : cases) {
        make(*root, c.mode, QStringLiteral("Lunch"));
        view->resize(1200, 800);
        view->show();
        QSignalSpy loaded(view->page(), &QWebEnginePage::loadFinished);
        ASSERT_TRUE(loaded.wait(30000));
        const QString heading = QString::fromUtf16(c.heading);
        EXPECT_TRUE(QTest::qWaitFor([&] {
            return eval(QStringLiteral("document.querySelector('h1') ? document.querySelector('h1').innerText : ''"))
                       .toString() == heading;
        }, 10000)) << heading.toStdString();
        clock.advance(15);
        QTest::qWait(300);
        EXPECT_TRUE(recorder.failures.isEmpty()) << recorder.failures.join(u'|').toStdString();
        // A running lockout marks the person busy through the bridge.
        if (c.mode == WorkoutWebView::Mode::Locked) {
            EXPECT_EQ(Settings::busyReason(), u"mid-workout");
        }
    }
}

int main(int argc, char** argv) {
    QTemporaryDir home;
    for (const char* var : {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR", "XDG_CACHE_HOME"}) {
        const QString d = home.path() + u'/' + QString::fromLatin1(var);
        QDir().mkpath(d);
        QFile::setPermissions(d, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv(var, d.toLocal8Bit());
    }
    // Headless, and as root in CI: Chromium's sandbox cannot run there.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--disable-gpu --disable-background-networking");
    BundleSchemeHandler::registerScheme();
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

// The web view against fixture pages, headless: the bridge is there before the first script, the
// page's messages change exactly what they should, a blank page is caught, and nothing outside the
// bundle is reached. The real web app, in every mode, is app_e2e.sh's (workout, retest, firstrun).

#include "resident/records/bridge_messages.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"
#include "screens/web/bundle_scheme_handler.h"
#include "screens/web/workout_web_view.h"
#include "support/fake_clock.h"

#include <QApplication>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QWebEnginePage>
#include <QWebEngineView>

#include <gtest/gtest.h>

using namespace tovin;

namespace {

const QString fixtures = QStringLiteral(TOVIN_WEB_FIXTURES);

class WebViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        week.saveAll({Block{u"16:30"_qs, u"Walk"_qs, Block::Kind::Away, 15, {}}});
    }
    void TearDown() override { view.reset(); }

    void open(const QString& fixture, const std::optional<QString>& label = std::nullopt) {
        make(fixtures + u'/' + fixture, label);
        view->resize(800, 600);
        view->show();
        QSignalSpy loaded(view->page(), &QWebEnginePage::loadFinished);
        EXPECT_TRUE(loaded.wait(30000)) << "the page did not load";
    }

    // A page wired as the app wires it: its messages applied to throw-away files.
    void make(const QString& root, const std::optional<QString>& label) {
        native = BridgeMessages::nativeState(WorkoutWebView::Mode::Locked, true, label, week,
                                             ledger, prefs);
        view = std::make_unique<WorkoutWebView>(root, native, clock);
        QObject::connect(view.get(), &WorkoutWebView::message,
                         [this](const QJsonObject& m) { bridge.apply(m); });
        QObject::connect(&bridge, &BridgeMessages::workoutCompleted, view.get(),
                         [this](const QString& exercise, qint64 reps) {
                             completed.append({exercise, reps});
                         });
        QObject::connect(view.get(), &WorkoutWebView::failed,
                         [this](const QString& detail) { failures.append(detail); });
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
    ScheduleStore week{dir.filePath(QStringLiteral("schedule.json"))};
    PromiseLedger ledger{dir.filePath(QStringLiteral("promises.json"))};
    MemorySettingsStore store;
    Preferences prefs{store};
    fakes::FakeClock clock;
    // What the page finished and how it failed, as the process that owns the files hears it.
    QList<std::pair<QString, qint64>> completed;
    QStringList failures;
    QJsonObject native; // what the view was handed for TOVIN_NATIVE
    BridgeMessages bridge{week, ledger, prefs, clock};
    std::unique_ptr<WorkoutWebView> view;
};

} // namespace

// The first script already sees the data whole, quotes and backslashes and all, and each function
// the page calls reaches the native side whole, even before the channel is up. What the rules make
// of each field and of odd values is the bridge's own test.
TEST_F(WebViewTest, TheBridgeIsThereForTheFirstScriptAndEveryFunctionLandsInTheFilesItOwns) {
    ledger.record({QDateTime(QDate(2026, 3, 1), QTime(9, 0), QTimeZone::utc()),
                   PromiseRecord::Outcome::Tovin,
                   QStringLiteral("squat"),
                   10,
                   10,
                   {},
                   {}},
                  false);
    prefs.setLockoutWorkoutID(u"it's \"the\" \\classic"_qs);
    open(QStringLiteral("bridge"), u"Lunch \"Mover\" ’25"_qs);
    EXPECT_EQ(evalJson(QStringLiteral("window.__firstSight")), native);
    // Module scripts and their imports come through the private scheme.
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return eval(QStringLiteral("window.__moduleLoaded")).toInt() == 42; }, 10000));
    QSignalSpy changed(&week, &ScheduleStore::changed);
    eval(QStringLiteral(
        "TOVIN_NATIVE.complete('Squat', 12); TOVIN_NATIVE.complete();"
        "TOVIN_NATIVE.saveSettings({ triggerAfterMinutes: 20, weekdays: [1, 7], lockoutWorkoutId: "
        "'classic-7' });"
        "TOVIN_NATIVE.setWorkoutPlan([{at: '09:00', label: 'Plan A', kind: 'workout', days: [2]}]);"
        "TOVIN_NATIVE.promisesSynced(TOVIN_NATIVE.promises.concat([{date: '2026-02-27T08:00:00Z',"
        "  outcome: 'broken', exercise: 'pushup', reps: 2, cleanReps: 1, reason: 'Genuinely "
        "urgent'}]));"
        "TOVIN_NATIVE.setBusy('mid-workout'); 1"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return prefs.busyReason().has_value(); }, 10000));
    EXPECT_EQ(completed, (QList<std::pair<QString, qint64>>{
                             {u"first sight"_qs, 1}, {u"Squat"_qs, 12}, {QString(), 0}}));
    EXPECT_EQ(prefs.triggerAfterMinutes(), 20.0);
    EXPECT_EQ(prefs.activeWeekdays(), (QSet<int>{1, 7}));
    EXPECT_EQ(prefs.lockoutWorkoutID(), u"classic-7");
    QStringList keys;
    for (const Block& b : week.load())
        keys.append(b.key());
    EXPECT_EQ(keys, (QStringList{QStringLiteral("09:00|Plan A|workout"),
                                 QStringLiteral("16:30|Walk|away")}));
    EXPECT_EQ(changed.count(), 1);
    ASSERT_EQ(ledger.records().size(), 2);
    EXPECT_EQ(ledger.records()[0].exercise, u"pushup"); // oldest first
    EXPECT_EQ(prefs.busyReason(), u"mid-workout");
    EXPECT_EQ(prefs.busyUntil(), clock.now().addSecs(180));
    eval(QStringLiteral("TOVIN_NATIVE.clearBusy(); 1"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !prefs.busyReason().has_value(); }, 10000));

    // And the other way: the standing reaches a page listener.
    view->showStanding(ledger.standingJSON());
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return eval(QStringLiteral("window.__standings.length")).toInt() == 1; }, 10000));
    EXPECT_EQ(evalJson(QStringLiteral("window.__standings[0]")),
              QJsonDocument::fromJson(ledger.standingJSON().toUtf8()).object());
}

// The render check after its 15 s grace: a page that threw and drew nothing fails with its
// errors; twenty characters of text count as drawn, nineteen do not.
TEST_F(WebViewTest, APageThatDrawsNothingFailsAfterTheGrace) {
    const struct {
        const char* fixture;
        const char16_t* failure; // empty: no failure
    } cases[] = {
        {"blank", u"The workout screen loaded but rendered nothing:\n\nError: boom at start"},
        {"short", u""},
        {"nineteen", u"The workout screen loaded but rendered nothing."}};
    for (const auto& c : cases) {
        failures.clear();
        open(QString::fromLatin1(c.fixture));
        clock.advance(14.9);
        QTest::qWait(100);
        EXPECT_TRUE(failures.isEmpty()) << c.fixture << ": failed inside the grace";
        clock.advance(0.1);
        const QString failure = QString::fromUtf16(c.failure);
        if (failure.isEmpty())
            QTest::qWait(500);
        else
            EXPECT_TRUE(QTest::qWaitFor([&] { return !failures.isEmpty(); }, 10000)) << c.fixture;
        EXPECT_EQ(failures.size(), failure.isEmpty() ? 0 : 1) << c.fixture;
        EXPECT_EQ(failures.value(0).left(failure.size()), failure) << c.fixture;
    }
}

// Not even a server on this machine hears from the page, by request or by navigation; a missing
// asset of the bundle is a failed load, never the application shell; and no browser menu (Back,
// Reload…) opens over the shield.
TEST_F(WebViewTest, ThePageReachesNothingOutsideItsBundle) {
    QTcpServer outside;
    ASSERT_TRUE(outside.listen(QHostAddress::LocalHost));
    const QString url = u"'http://127.0.0.1:"_qs + QString::number(outside.serverPort()) + u"/'";
    open(QStringLiteral("bridge"));
    eval(u"fetch(" + url + u").catch(function () {}); 1");
    eval(QStringLiteral(
        "window.__missing = 'pending'; var s = document.createElement('script');"
        " s.src = '/nope.js'; s.onerror = function () { window.__missing = 'error'; };"
        " s.onload = function () { window.__missing = 'loaded'; }; document.head.appendChild(s); "
        "1"));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return eval(QStringLiteral("window.__missing")).toString() == u"error"; }, 10000));
    eval(u"location.href = " + url + u"; 1");
    QTest::qWait(300);
    EXPECT_FALSE(outside.hasPendingConnections());
    EXPECT_EQ(view->page()->url().scheme(), u"tovin");
    QTest::mouseClick(view->webView()->focusProxy(), Qt::RightButton, Qt::NoModifier,
                      QPoint(40, 40));
    QTest::qWait(1500);
    EXPECT_FALSE(QApplication::activePopupWidget()) << "a context menu is showing";
}

TEST_F(WebViewTest, AMissingBundleFailsTheLoad) {
    make(dir.filePath(QStringLiteral("no-such-web")), std::nullopt);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !failures.isEmpty(); }, 30000));
}

int main(int argc, char** argv) {
    QTemporaryDir home;
    for (const char* var :
         {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR", "XDG_CACHE_HOME"}) {
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

// The real shield on a real X server with two monitors, as another program meets it: the keyboard
// owned against real keys, even after a popup of ours; a window that appears later kept below;
// and a monitor plugged in mid-lockout covered. The ways in and out, and both monitors covered,
// are the whole app's end-to-end checks (app_e2e.sh). Screenshots go to the build tree's
// screenshots/ folder.

#include "screens/shield/shield_controller.h"
#include "screens/shield/shield_window.h"
#include "support/xvfb.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QProcess>
#include <QScreen>
#include <QSocketNotifier>
#include <QTemporaryDir>
#include <QTest>
#include <QWindow>

#include <gtest/gtest.h>
#include <xcb/xcb.h>

using namespace tovin;

namespace {

fakes::XvfbSession* xvfb = nullptr;

// The whole virtual desktop, as the person would see it; saved under `name` when given.
QImage desktop(const QString& name = {}) {
    QScreen* any = QGuiApplication::primaryScreen();
    const QRect all = any->virtualGeometry();
    const QImage shot = any->grabWindow(0, all.x(), all.y(), all.width(), all.height()).toImage();
    if (!name.isEmpty() && QDir().mkpath(QStringLiteral(TOVIN_SCREENSHOT_DIR)))
        shot.save(QStringLiteral(TOVIN_SCREENSHOT_DIR "/") + name);
    return shot;
}

bool isShieldColour(QRgb pixel) {
    const QColor expected = ShieldWindow::shieldColour();
    return std::abs(qRed(pixel) - expected.red()) <= 2 &&
           std::abs(qGreen(pixel) - expected.green()) <= 2 &&
           std::abs(qBlue(pixel) - expected.blue()) <= 2;
}

// Sampled points of a screen that lie on the shield background (away from content and hints).
int uncoveredSamples(const QImage& image, const QRect& screen) {
    int bad = 0;
    for (int i = 1; i <= 4; ++i) {
        for (const double fy : {0.08, 0.3, 0.75}) {
            const QPoint p(screen.x() + screen.width() * i / 5 - 40,
                           screen.y() + int(screen.height() * fy));
            if (!isShieldColour(image.pixel(p)))
                ++bad;
        }
    }
    return bad;
}

class ShieldE2E : public ::testing::Test {
protected:
    void SetUp() override {
        QObject::connect(&shield, &ShieldController::noted,
                         [this](const QString& t) { notes += t; });
        QObject::connect(&shield, &ShieldController::keyPressed,
                         [this](const QString& k) { keys += k; });
    }
    void TearDown() override {
        shield.lower();
        other.kill();
        other.waitForFinished(5000);
    }

    // Another application's window, holding the keyboard focus before the shield goes up.
    void startOtherClient() {
        other.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--other-client")});
        ASSERT_EQ(answer(), QByteArray("ready"));
        xdotool({QStringLiteral("search"), QStringLiteral("--name"), QStringLiteral("other-client"),
                 QStringLiteral("windowfocus"), QStringLiteral("--sync")});
    }
    // The other application's answer to a command (none: its next line).
    QByteArray answer(const char* command = nullptr) {
        if (command)
            other.write(QByteArray(command) + '\n');
        if (!QTest::qWaitFor([&] { return other.canReadLine(); }, 15000))
            return "no answer";
        return other.readLine().trimmed();
    }

    void xdotool(const QStringList& args) {
        ASSERT_TRUE(xvfb->run(QStringLiteral("xdotool"), args)) << args.join(u' ').toStdString();
    }

    void raiseAndWait() {
        shield.raise(new QLabel, false, 15);
        ASSERT_TRUE(QTest::qWaitFor(
            [&] {
                const auto windows = shield.windows();
                return shield.ownsKeyboard() &&
                       std::all_of(windows.begin(), windows.end(), [](ShieldWindow* w) {
                           return w->windowHandle() && w->windowHandle()->isExposed();
                       });
            },
            10000));
        QTest::qWait(150); // let the compositor-less server finish painting
    }

    ShieldController shield{Clock::system()};
    QStringList notes;
    QString keys;
    QProcess other;
};

} // namespace

TEST_F(ShieldE2E, AnotherProgramGetsNoKeyNoGrabAndNoPlaceAboveIt) {
    startOtherClient();
    raiseAndWait();

    // Typing reaches the shield, not the other application, which had the focus.
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("30"),
             QStringLiteral("hello")});
    xdotool({QStringLiteral("key"), QStringLiteral("alt+Tab"), QStringLiteral("super"),
             QStringLiteral("ctrl+q")});
    EXPECT_TRUE(QTest::qWaitFor([&] { return keys.contains(u"hello"); }, 5000))
        << keys.toStdString();
    EXPECT_EQ(answer("report"), QByteArray("typed:")) << "keys leaked past the shield";
    EXPECT_EQ(answer("grab"), QByteArray("grab:already"));

    // A popup of ours (a page's list box, a menu) takes the grab and drops it when it closes.
    QMenu menu;
    menu.addAction(QStringLiteral("one"));
    menu.popup(QPoint(600, 400));
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&menu));
    menu.close();
    EXPECT_TRUE(QTest::qWaitFor([&] { return answer("grab") == "grab:already"; }, 3000))
        << "the keyboard was free for another program after our popup closed";

    // Another program's window that bypasses the window manager (a notification, a popup).
    ASSERT_EQ(answer("popup"), QByteArray("popup:shown"));
    const QPoint inside(500, 450); // inside the popup at 300,300 400×300
    EXPECT_TRUE(QTest::qWaitFor([&] { return isShieldColour(desktop().pixel(inside)); }, 3000))
        << "the other program's popup shows above the shield";
    desktop(QStringLiteral("shield-over-popup.png"));
    EXPECT_TRUE(shield.isUp());
}

TEST_F(ShieldE2E, AMonitorPluggedInMidLockoutIsCovered) {
    raiseAndWait();
    ASSERT_EQ(shield.windowCount(), 2);
    ASSERT_TRUE(
        xvfb->setMonitor(QStringLiteral("EXTRA"), 3840, 1920, 1080, QStringLiteral("none")));
    EXPECT_TRUE(QTest::qWaitFor([&] { return shield.windowCount() == 3; }, 5000));
    EXPECT_EQ(notes.value(notes.size() - 1), u"covered a display attached mid-lockout");
    QTest::qWait(300);
    const QImage shot = desktop(QStringLiteral("shield-three-monitors.png"));
    for (QScreen* screen : QGuiApplication::screens())
        EXPECT_EQ(uncoveredSamples(shot, screen->geometry()), 0) << screen->name().toStdString();
    shield.lower();
    ASSERT_TRUE(xvfb->deleteMonitor(QStringLiteral("EXTRA")));
    EXPECT_TRUE(QTest::qWaitFor([&] { return QGuiApplication::screens().size() == 2; }, 5000));
}

// The other application: a window with a text field, answering one line per command.
static int otherClient(int argc, char** argv) {
    QApplication app(argc, argv);
    QLineEdit field;
    field.setWindowTitle(QStringLiteral("other-client"));
    field.setGeometry(100, 100, 400, 60);
    field.show();
    field.activateWindow();
    if (!QTest::qWaitForWindowExposed(&field))
        return 1;
    std::printf("ready\n");
    std::fflush(stdout);
    QWidget popup;
    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char line[64];
        if (!std::fgets(line, sizeof line, stdin)) {
            app.quit();
            return;
        }
        const QByteArray command = QByteArray(line).trimmed();
        if (command == "grab") {
            // Whether the keyboard can be taken from here: it cannot while the shield owns it.
            xcb_connection_t* c =
                app.nativeInterface<QNativeInterface::QX11Application>()->connection();
            const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
            xcb_grab_keyboard_reply_t* reply =
                xcb_grab_keyboard_reply(c,
                                        xcb_grab_keyboard(c, 0, root, XCB_CURRENT_TIME,
                                                          XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                        nullptr);
            const bool grabbed = reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
            free(reply);
            if (grabbed)
                xcb_ungrab_keyboard(c, XCB_CURRENT_TIME);
            xcb_flush(c);
            std::printf("grab:%s\n", grabbed ? "success" : "already");
        } else if (command == "popup") {
            popup.setWindowFlags(Qt::ToolTip | Qt::FramelessWindowHint |
                                 Qt::X11BypassWindowManagerHint);
            popup.setStyleSheet(QStringLiteral("background: red;"));
            popup.setGeometry(300, 300, 400, 300);
            popup.show();
            (void)QTest::qWaitForWindowExposed(&popup);
            std::printf("popup:shown\n");
        } else {
            std::printf("typed:%s\n", qPrintable(field.text()));
        }
        std::fflush(stdout);
    });
    return app.exec();
}

int main(int argc, char** argv) {
    if (argc > 1 && qstrcmp(argv[1], "--other-client") == 0) {
        qputenv("QT_QPA_PLATFORM", "xcb");
        return otherClient(argc, argv);
    }
    QTemporaryDir home;
    for (const char* var : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"})
        qputenv(var, (home.path() + u'/' + QString::fromLatin1(var)).toLocal8Bit());

    fakes::XvfbSession session;
    xvfb = &session;
    // Room for a third monitor to be plugged in at x = 3840.
    if (!session.startTwoMonitors(5760))
        return 1;
    qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

#include "app/app_shell.h"

#include "app/launch_at_login.h"
#include "app/status_icon.h"
#include "core/paths.h"
#include "journal/instance_record.h"
#include "journal/journal.h"
#include "journal/save_failures.h"
#include "promises/promise_ledger.h"
#include "schedule/schedule_store.h"
#include "schedule/settings.h"
#include "shield/shield_style.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLocalSocket>
#include <QMessageBox>
#include <QScreen>
#include <QShortcut>
#include <QVBoxLayout>
#include <QWebEngineView>

#include <cstdio>

#include <unistd.h>

namespace tovin {

namespace {

// The setup window: closing it only hides it, and its frame is remembered between launches.
class SetupWindow final : public QWidget {
public:
    std::function<void()> onHidden;

    SetupWindow() {
        setWindowTitle(QStringLiteral("Tovin"));
        const QJsonValue saved = Settings::store().value(QStringLiteral("setupWindowGeometry"));
        if (saved.isString() && restoreGeometry(QByteArray::fromBase64(saved.toString().toLatin1())))
            return;
        // 1100 × 860, or as much of it as the screen has, centred.
        const QScreen* screen = QGuiApplication::primaryScreen();
        const QRect area = screen ? screen->availableGeometry() : QRect(0, 0, 1100, 860);
        resize(std::min(1100, area.width()), std::min(860, area.height()));
        move(area.center() - rect().center());
    }

protected:
    void closeEvent(QCloseEvent* event) override {
        remember();
        event->ignore();
        hide();
    }
    void hideEvent(QHideEvent* event) override {
        QWidget::hideEvent(event);
        if (onHidden)
            onHidden();
    }

public:
    void remember() {
        Settings::store().setValue(QStringLiteral("setupWindowGeometry"),
                                   QString::fromLatin1(saveGeometry().toBase64()));
    }
};

QLabel* startLabel(QVBoxLayout* column, const QString& text, qreal points, qreal alpha) {
    auto* label = new QLabel(text);
    QFont f = label->font();
    f.setPointSizeF(points);
    label->setFont(f);
    label->setWordWrap(true);
    label->setFixedWidth(480);
    label->setStyleSheet(whiteAt(alpha));
    column->addWidget(label);
    return label;
}

} // namespace

AppShell::AppShell(Clock& clock, IdleSource& idle, bool launchedForRehearsal, QObject* parent)
    : QObject(parent), controller_(clock, idle), launchedForRehearsal_(launchedForRehearsal) {
    controller_.openSetupWindow = [this] { openSetupWindow(); };
    controller_.hideSetupWindow = [this] { hideSetupWindow(); };
    connect(&controller_, &AppController::pausedChanged, this, [this] {
        refreshTrayIcon();
        refreshSetupStrip();
    });
    connect(&controller_.shield(), &ShieldController::quitAsked, qApp, &QCoreApplication::quit);
}

QIcon AppShell::trayIconNow() const {
    // Paused, the icon is drawn disabled: the person sees at a glance that nothing watches.
    return statusIcon(panelIsDark(), !controller_.pausedUntil());
}

void AppShell::refreshTrayIcon() {
    if (tray_)
        tray_->setIcon(trayIconNow());
}

AppShell::~AppShell() {
    SaveFailures::setNotifier(nullptr);
    if (auto* w = static_cast<SetupWindow*>(setupWindow_.data()))
        w->remember();
    delete setupWindow_;
    delete startWindow_;
}

QString AppShell::instanceName() {
    // Beside the instance record, in the session's own runtime folder: two sessions of one
    // person each run their own Tovin. A relative name would land in /tmp, shared by both.
    return paths::runtimeDir() + u"/instance.socket";
}

bool AppShell::claimSingleInstance(bool standInAsWatcher) {
    QLocalSocket probe;
    probe.connectToServer(instanceName());
    if (probe.waitForConnected(500)) {
        // The running copy answers with its process id; the record is only the fallback.
        probe.write("show\n");
        probe.waitForBytesWritten(500);
        qint64 pid = 0;
        if (probe.waitForReadyRead(1000)) {
            const QByteArray reply = probe.readLine().trimmed();
            if (reply.startsWith("pid "))
                pid = reply.mid(4).toLongLong();
        }
        if (pid <= 0) {
            if (const auto running = InstanceRecord::readLive())
                pid = running->pid;
        }
        if (pid > 0)
            std::printf("Tovin is already running (pid %lld) — bringing it forward\n",
                        static_cast<long long>(pid));
        else
            std::printf("Tovin is already running — bringing it forward\n");
        std::fflush(stdout);
        return false;
    }
    // A rehearsal or a probe defers to a running Tovin but never stands in for it: only the
    // copy that watches the schedule answers a later launch.
    if (!standInAsWatcher)
        return true;
    // Nobody answered: whatever socket is left is a crashed instance's.
    QLocalServer::removeServer(instanceName());
    instanceServer_ = new QLocalServer(this);
    instanceServer_->setSocketOptions(QLocalServer::UserAccessOption);
    if (instanceServer_->listen(instanceName())) {
        connect(instanceServer_, &QLocalServer::newConnection, this, [this] {
            while (QLocalSocket* s = instanceServer_->nextPendingConnection()) {
                connect(s, &QLocalSocket::readyRead, this, [this, s] {
                    if (!s->readAll().startsWith("show"))
                        return;
                    s->write(QByteArray("pid ") + QByteArray::number(qint64(::getpid())) + '\n');
                    s->flush();
                    // Launching Tovin again brings the setup window forward, but never over a
                    // lockout or a rehearsal: there it would take the keyboard from the shield.
                    if (!controller_.shield().isUp())
                        openSetupWindow();
                    s->disconnectFromServer();
                });
                connect(s, &QLocalSocket::disconnected, s, &QObject::deleteLater);
            }
        });
    }
    InstanceRecord{::getpid(), QDateTime::currentDateTimeUtc()}.write();
    return true;
}

void AppShell::tellThePerson(const QString& title, const QString& body) {
    // The desktop's notification service where there is one; the tray's balloon, or a small
    // window of our own, otherwise.
    auto fallBack = [this, title, body] {
        if (tray_ && QSystemTrayIcon::supportsMessages()) {
            tray_->showMessage(title, body, QSystemTrayIcon::Warning);
            return;
        }
        auto* box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Tovin"), title, QMessageBox::Ok);
        box->setInformativeText(body);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->setModal(false);
        box->show();
    };
    if (!QDBusConnection::sessionBus().isConnected()) {
        fallBack();
        return;
    }
    QDBusMessage notify = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
    notify << QStringLiteral("Tovin") << 0u << QStringLiteral("dialog-warning") << title << body
           << QStringList() << QVariantMap() << -1;
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(notify), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [fallBack](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        if (w->isError())
            fallBack();
    });
}

void AppShell::launch() {
    // A save that fails (a full disk, a read-only folder) is told once. Queued: the report may
    // come from inside a writer that holds its own lock.
    SaveFailures::setNotifier([this](const QString& title, const QString& body) {
        QMetaObject::invokeMethod(this, [this, title, body] { tellThePerson(title, body); }, Qt::QueuedConnection);
    });
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        tray_ = new QSystemTrayIcon(trayIconNow(), this);
        tray_->setToolTip(QStringLiteral("Tovin"));
        trayMenu_ = std::make_unique<QMenu>();
        connect(trayMenu_.get(), &QMenu::aboutToShow, this, [this] { rebuildMenu(trayMenu_.get()); });
        rebuildMenu(trayMenu_.get());
        tray_->setContextMenu(trayMenu_.get());
        connect(tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason r) {
            if (r == QSystemTrayIcon::Trigger)
                openSetupWindow();
        });
        tray_->show();
    } else {
        Journal::note(QStringLiteral("shield"),
                      QStringLiteral("no tray on this desktop — the setup window carries the menu"));
    }
    // The first run's example week goes to disk before the setup page reads the week.
    ScheduleStore::writeExampleIfMissing();
    openSetupWindow();
    controller_.usage().start();
    controller_.startScheduleWatch();
    refreshSetupStrip(); // the strip was drawn before the week was read
    updateTimer_ = controller_.clock().singleShot(5.0, [this] { checkForUpdates(true); });
}

void AppShell::rebuildMenu(QMenu* menu) {
    menu->clear();
    refreshTrayIcon();
    menu->addAction(controller_.statusLine())->setEnabled(false);
    menu->addAction(controller_.standingLine())->setEnabled(false);
    menu->addSeparator();
    menu->addAction(QStringLiteral("Setup Window"), QKeySequence(QStringLiteral("Ctrl+0")), this,
                    [this] { openSetupWindow(); });
    menu->addAction(QStringLiteral("Lock Me Out Now"), QKeySequence(QStringLiteral("Ctrl+L")), this,
                    [this] { lockNow(false); });
    menu->addAction(QStringLiteral("Rehearse Lockout (safe)"), QKeySequence(QStringLiteral("Ctrl+Shift+L")),
                    this, [this] { lockNow(true); });
    menu->addSeparator();
    if (!controller_.pausedUntil())
        menu->addAction(QStringLiteral("Pause for an hour"), this, [this] { controller_.pauseAnHour(); });
    else
        menu->addAction(QStringLiteral("Resume watching"), this, [this] { controller_.resumeWatching(); });
    const int status = LaunchAtLogin::status();
    QAction* login = menu->addAction(LaunchAtLogin::menuTitle(status), this, [this] { toggleLaunchAtLogin(); });
    login->setCheckable(true);
    login->setChecked(status == LaunchAtLogin::Enabled);
    login->setEnabled(status != LaunchAtLogin::Blocked);
    menu->addAction(QStringLiteral("Check for Updates…"), this, [this] { checkForUpdates(false); });
    menu->addSeparator();
    menu->addAction(QStringLiteral("Quit Tovin"), QKeySequence(QStringLiteral("Ctrl+Q")), qApp,
                    &QCoreApplication::quit);
}

void AppShell::toggleLaunchAtLogin() {
    const int status = LaunchAtLogin::set(!LaunchAtLogin::isOn());
    if (status == LaunchAtLogin::Blocked)
        controller_.showAlert(LaunchAtLogin::blockedTitle(), LaunchAtLogin::blockedDetail());
    refreshSetupStrip();
}

void AppShell::checkForUpdates(bool quietly) {
    updates_.checkForUpdates(quietly);
}

QWidget* AppShell::buildSetupStrip(QWidget* parent) {
    auto* strip = new QWidget(parent);
    strip->setObjectName(QStringLiteral("menuStrip"));
    // A band of the page's panel colour with a hairline under it, so the strip reads as the
    // page's own header.
    strip->setAttribute(Qt::WA_StyledBackground);
    strip->setStyleSheet(QStringLiteral(
        "#menuStrip { background: #121821; border-bottom: 1px solid #243041; }"
        "#menuStrip QLabel { color: #e8ecf1; }"));
    auto* row = new QHBoxLayout(strip);
    row->setContentsMargins(14, 8, 14, 8);
    auto* lines = new QVBoxLayout;
    stripStatus_ = new QLabel(strip);
    stripStanding_ = new QLabel(strip);
    QFont bold = stripStatus_->font();
    bold.setBold(true);
    stripStatus_->setFont(bold);
    lines->addWidget(stripStatus_);
    lines->addWidget(stripStanding_);
    row->addLayout(lines, 1);
    auto button = [&](const QString& text, auto slot) {
        auto* b = new QPushButton(text, strip);
        connect(b, &QPushButton::clicked, this, slot);
        row->addWidget(b);
        return b;
    };
    button(QStringLiteral("Lock Me Out Now"), [this] { lockNow(false); });
    button(QStringLiteral("Rehearse Lockout (safe)"), [this] { lockNow(true); });
    stripPause_ = button(QStringLiteral("Pause for an hour"), [this] {
        if (controller_.pausedUntil())
            controller_.resumeWatching();
        else
            controller_.pauseAnHour();
        refreshSetupStrip();
    });
    stripLogin_ = new QCheckBox(QStringLiteral("Open at Login"), strip);
    connect(stripLogin_, &QCheckBox::clicked, this, [this] { toggleLaunchAtLogin(); });
    row->addWidget(stripLogin_);
    button(QStringLiteral("Quit Tovin"), [] { QCoreApplication::quit(); });
    return strip;
}

void AppShell::refreshSetupStrip() {
    if (!stripStatus_)
        return;
    stripStatus_->setText(controller_.statusLine());
    stripStanding_->setText(controller_.standingLine());
    stripPause_->setText(controller_.pausedUntil() ? QStringLiteral("Resume watching")
                                                   : QStringLiteral("Pause for an hour"));
    const int status = LaunchAtLogin::status();
    stripLogin_->setText(LaunchAtLogin::menuTitle(status));
    stripLogin_->setChecked(status == LaunchAtLogin::Enabled);
    stripLogin_->setEnabled(status != LaunchAtLogin::Blocked);
}

void AppShell::openSetupWindow() {
    const auto root = WorkoutWebView::bundledRoot();
    if (!root) {
        controller_.explainAndQuit(QStringLiteral("Workout UI is missing."),
                                   QStringLiteral("Rebuild with ./scripts/run.sh, which stages the "
                                                  "web app beside the app."));
        return;
    }
    // The page is made whenever the window opens and dropped when it closes: a browser engine
    // holds hundreds of megabytes and must not stay resident while nothing shows it.
    auto ensurePage = [this, &root] {
        if (setupWeb_)
            return;
        setupWeb_ = new WorkoutWebView(*root, WorkoutWebView::Mode::Setup, std::nullopt,
                                       controller_.clock(), setupWindow_);
        setupWeb_->setDelegate(&controller_);
        static_cast<QVBoxLayout*>(setupWindow_->layout())->addWidget(setupWeb_, 1);
    };
    if (setupWindow_) {
        ensurePage();
        refreshSetupStrip();
        setupWindow_->show();
        setupWindow_->raise();
        setupWindow_->activateWindow();
        setupWeb_->webView()->setFocus(Qt::OtherFocusReason);
        return;
    }
    auto* window = new SetupWindow;
    window->onHidden = [this] {
        if (setupWeb_)
            setupWeb_->deleteLater();
        setupWeb_ = nullptr;
    };
    auto* column = new QVBoxLayout(window);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(buildSetupStrip(window));
    setupWindow_ = window;
    ensurePage();
    // The menu's keys, for desktops where there is no tray to hold them.
    auto shortcut = [&](const char* keys, auto slot) {
        connect(new QShortcut(QKeySequence(QString::fromLatin1(keys)), window), &QShortcut::activated, this, slot);
    };
    shortcut("Ctrl+L", [this] { lockNow(false); });
    shortcut("Ctrl+Shift+L", [this] { lockNow(true); });
    shortcut("Ctrl+Q", [] { QCoreApplication::quit(); });
    shortcut("Ctrl+W", [this] { setupWindow_->close(); });
    controller_.setSetupWindow(window);
    stripTimer_ = controller_.clock().createTimer([this] { refreshSetupStrip(); });
    stripTimer_->start(15, true);
    refreshSetupStrip();
    window->show();
    window->raise();
    window->activateWindow();
    // The page has the keyboard, not the strip: Space scrolls the page and never presses
    // "Lock Me Out Now".
    if (setupWeb_)
        setupWeb_->webView()->setFocus(Qt::OtherFocusReason);
}

void AppShell::lockNow(bool rehearsal) {
    // A lockout asked for by hand is on the record like any other.
    Journal::note(QStringLiteral("shield"), rehearsal ? QStringLiteral("rehearsal asked for from the menu")
                                                      : QStringLiteral("Lock Me Out Now — asked for from the menu"));
    controller_.raiseLockout(rehearsal);
}

void AppShell::hideSetupWindow() {
    if (setupWindow_)
        setupWindow_->hide();
}

void AppShell::buildStartWindow() {
    auto* window = new QWidget;
    window->setWindowTitle(QStringLiteral("Tovin"));
    auto* column = new QVBoxLayout(window);
    column->setContentsMargins(40, 28, 40, 28);
    column->setSpacing(14);
    const PromiseLedger& ledger = controller_.ledger();
    startLabel(column, QStringLiteral("This takes over every screen."), 22, 1.0);
    startLabel(column,
               u"It lifts when you finish the workout. To get out early: type “" +
                   Settings::escapePhrase() +
                   u"”, or press Esc ×3 — either counts as a broken promise.",
               13, 0.6);
    startLabel(column,
               u"If anything goes wrong, press Esc ×5 — the shield drops at once and nothing is "
               u"logged. It also releases itself after " +
                   QString::number(qint64(Settings::maxShieldMinutes())) + u" minutes regardless.",
               12, 0.45);
    startLabel(column,
               QStringLiteral("Pick your workout on the next screen — all 70 exercises, presets "
                              "and custom circuits."),
               12, 0.4);
    startLabel(column, controller_.standingLine(), 15, 0.9);
    if (ledger.streak() < ledger.longestStreak())
        startLabel(column, u"Best run: " + QString::number(ledger.longestStreak()), 12, 0.45);
    startLabel(column, QStringLiteral("Nothing is recorded. No camera, no account needed."), 12, 0.4);
    auto* rehearse = new QCheckBox(QStringLiteral("Rehearsal — run in a window, don't touch my screen"));
    rehearse->setStyleSheet(whiteAt(0.9));
    rehearse->setChecked(launchedForRehearsal_);
    column->addWidget(rehearse);
    // A word joiner after the hyphen keeps "Ctrl-Q" on one line; it draws nothing.
    startLabel(column,
               QStringLiteral("Same escape code, same hold button — in a window, with Ctrl-\u2060Q "
                              "always working."),
               11, 0.35);
    auto* begin = new QPushButton(launchedForRehearsal_ ? QStringLiteral("Begin rehearsal")
                                                        : QStringLiteral("Begin"));
    begin->setDefault(true);
    begin->setAutoDefault(true);
    column->addWidget(begin, 0, Qt::AlignLeft);
    connect(rehearse, &QCheckBox::toggled, begin, [begin](bool on) {
        begin->setText(on ? QStringLiteral("Begin rehearsal") : QStringLiteral("Begin"));
    });
    // The rehearsal comes from the launch switch, not the checkbox: deliberately so.
    connect(begin, &QPushButton::clicked, this, [this] { controller_.raiseLockout(launchedForRehearsal_); });
    window->adjustSize();
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        window->move(screen->availableGeometry().center() - window->rect().center());
    window->show();
    window->raise();
    startWindow_ = window;
}

} // namespace tovin

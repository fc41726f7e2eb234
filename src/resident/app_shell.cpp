#include "resident/app_shell.h"

#include "core/bundle_routes.h"
#include "core/paths.h"
#include "desktop/desktop_hold.h"
#include "desktop/shield_style.h"
#include "desktop/window_system.h"
#include "resident/instance_server.h"
#include "resident/launch_at_login.h"
#include "resident/records/instance_record.h"
#include "resident/records/journal.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/save_failures.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"
#include "resident/status_icon.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFile>
#include <QLocalSocket>

#include <cstdio>
#include <unistd.h>

namespace tovin {

using namespace Qt::Literals::StringLiterals;

AppShell::AppShell(const AppDependencies& deps, LaunchAtLogin& login,
                   QNetworkAccessManager& network, bool launchedForRehearsal, QObject* parent)
    : QObject(parent)
    , deps_(deps)
    , screens_(deps.screens)
    , login_(login)
    , controller_(deps)
    , updates_(controller_, {network, deps.journal})
    , launchedForRehearsal_(launchedForRehearsal) {
    // Everything that happens to the shell is wired here, once.
    connect(&controller_, &AppController::setupWindowWanted, this, &AppShell::openSetupWindow);
    connect(&controller_, &AppController::alertRequested, this, &AppShell::alert);
    connect(&controller_, &AppController::quitRequested, this, &AppShell::quit);
    connect(&controller_, &AppController::pausedChanged, this, [this] {
        refreshTrayIcon();
        refreshSetupStrip();
    });
    connect(&controller_, &AppController::settingsChanged, this, &AppShell::refreshSetupStrip);
    connect(&updates_, &UpdateDialogs::alertRequested, this, &AppShell::alert);
    connect(&screens_, &Screens::actionChosen, this, &AppShell::chosen);
    connect(&screens_, &Screens::quitAsked, qApp, &QCoreApplication::quit);
    // A save that fails (a full disk, a read-only folder) is told once. Queued: the report may
    // come from inside a writer that holds its own lock, on its thread.
    connect(&deps_.saveFailures, &SaveFailures::tellPerson, this, &AppShell::tellThePerson,
            Qt::QueuedConnection);
}

void AppShell::chosen(const QString& action, const QString& value) {
    if (action == u"lock")
        lockNow(false);
    else if (action == u"rehearse")
        lockNow(true);
    else if (action == u"pause") {
        if (controller_.pausedUntil())
            controller_.resumeWatching();
        else
            controller_.pauseAnHour();
        refreshSetupStrip();
    } else if (action == u"login")
        toggleLaunchAtLogin();
    else if (action == u"updates")
        checkForUpdates(false);
    else if (action == u"quit")
        QCoreApplication::quit();
    else if (action == u"begin")
        // The rehearsal comes from the launch switch, not the start window's checkbox.
        controller_.raiseLockout(launchedForRehearsal_);
    else if (action == u"gnomeExtension") {
        deps_.journal.note(QStringLiteral("shield"),
                           value.isEmpty()
                               ? u"GNOME Shell extension installed at the person's word — "_s +
                                     DesktopHold::describe()
                               : u"GNOME Shell extension not installed: "_s + value);
        offerGnomeExtension_ = gnomeExtensionWanted();
        refreshSetupStrip();
    } else if (action == u"setupGeometry")
        deps_.preferences.store().setValue(QStringLiteral("setupWindowGeometry"), value);
}

void AppShell::alert(const QString& title, const QString& detail) {
    // What the person was told belongs with the decisions that led to it.
    deps_.journal.note(QStringLiteral("alert"), title);
    // Not modal: the schedule keeps ticking while the person reads it.
    auto* box =
        new QMessageBox(QMessageBox::Information, QStringLiteral("Tovin"), title, QMessageBox::Ok);
    box->setInformativeText(detail);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::finished, this, [this] {
        if (quitting_)
            QMetaObject::invokeMethod(this, &AppShell::quit, Qt::QueuedConnection);
    });
    alerts_.append(box);
    box->show();
    box->raise();
    box->activateWindow();
}

QList<QMessageBox*> AppShell::openAlerts() const {
    QList<QMessageBox*> open;
    for (const auto& box : alerts_)
        if (box && box->isVisible())
            open.append(box);
    return open;
}

void AppShell::quit() {
    // What made Tovin end is said first: the program ends once the person has read it.
    quitting_ = true;
    if (openAlerts().isEmpty())
        QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
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
    for (const auto& box : alerts_)
        delete box;
}

QString AppShell::instanceName() {
    // Beside the instance record, in the session's own runtime folder: two sessions of one
    // person each run their own Tovin. A relative name would land in /tmp, shared by both.
    const QString dir = paths::runtimeDir();
    return dir.isEmpty() ? QString() : dir + u"/instance.socket";
}

bool AppShell::claimSingleInstance(bool standInAsWatcher) {
    QLocalSocket probe;
    probe.connectToServer(instanceName());
    qint64 pid = 0;
    bool running = false;
    if (probe.waitForConnected(500)) {
        // The running copy answers with its process id; the record is only the fallback.
        running = true;
        probe.write("show\n");
        probe.waitForBytesWritten(500);
        if (probe.waitForReadyRead(1000)) {
            const QByteArray reply = probe.readLine().trimmed();
            if (reply.startsWith("pid "))
                pid = reply.mid(4).toLongLong();
        }
    }
    // Nobody answered, but the copy that wrote the record still runs (its socket is swamped by
    // callers, or was deleted by hand): it is still the watcher, and taking its name would
    // make two.
    const auto record = InstanceRecord::readLive();
    if (!running && record && record->pid != ::getpid() && isRunningTovin(record->pid))
        running = true;
    if (running) {
        if (pid <= 0 && record)
            pid = record->pid;
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
    instanceServer_ = new InstanceServer(instanceName(), deps_.journal, this);
    instanceServer_->start();
    connect(instanceServer_, &InstanceServer::showAsked, this, [this] {
        // Launching Tovin again brings the setup window forward, but never over a lockout or a
        // rehearsal: there it would take the keyboard from the shield.
        if (!screens_.isUp())
            openSetupWindow();
    });
    // Checked on the schedule's own tick, so keeping the socket costs no wake-up of its own.
    connect(&controller_, &AppController::ticked, instanceServer_, &InstanceServer::keepListening);
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
        auto* box =
            new QMessageBox(QMessageBox::Warning, QStringLiteral("Tovin"), title, QMessageBox::Ok);
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
        QStringLiteral("org.freedesktop.Notifications"),
        QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
    notify << QStringLiteral("Tovin") << 0u << QStringLiteral("dialog-warning") << title << body
           << QStringList() << QVariantMap() << -1;
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(notify), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [fallBack](QDBusPendingCallWatcher* w) {
                w->deleteLater();
                if (w->isError())
                    fallBack();
            });
}

void AppShell::launch() {
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        tray_ = new QSystemTrayIcon(trayIconNow(), this);
        tray_->setToolTip(QStringLiteral("Tovin"));
        trayMenu_ = std::make_unique<QMenu>();
        connect(trayMenu_.get(), &QMenu::aboutToShow, this,
                [this] { rebuildMenu(trayMenu_.get()); });
        rebuildMenu(trayMenu_.get());
        tray_->setContextMenu(trayMenu_.get());
        connect(tray_, &QSystemTrayIcon::activated, this,
                [this](QSystemTrayIcon::ActivationReason r) {
                    if (r == QSystemTrayIcon::Trigger)
                        openSetupWindow();
                });
        tray_->show();
    } else {
        deps_.journal.note(
            QStringLiteral("shield"),
            QStringLiteral("no tray on this desktop — the setup window carries the menu"));
    }
    // The first run's example week goes to disk before the setup page reads the week.
    deps_.week.writeExampleIfMissing();
    openSetupWindow();
    controller_.usage().start();
    controller_.startScheduleWatch();
    refreshSetupStrip(); // the strip was drawn before the week was read
    updateTimer_ = deps_.clock.singleShot(5.0, [this] { checkForUpdates(true); });
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
    menu->addAction(QStringLiteral("Rehearse Lockout (safe)"),
                    QKeySequence(QStringLiteral("Ctrl+Shift+L")), this, [this] { lockNow(true); });
    menu->addSeparator();
    if (!controller_.pausedUntil())
        menu->addAction(QStringLiteral("Pause for an hour"), this,
                        [this] { controller_.pauseAnHour(); });
    else
        menu->addAction(QStringLiteral("Resume watching"), this,
                        [this] { controller_.resumeWatching(); });
    const int status = login_.status();
    QAction* login =
        menu->addAction(LaunchAtLogin::menuTitle(status), this, [this] { toggleLaunchAtLogin(); });
    login->setCheckable(true);
    login->setChecked(status == LaunchAtLogin::Enabled);
    login->setEnabled(status != LaunchAtLogin::Blocked);
    menu->addAction(QStringLiteral("Check for Updates…"), this, [this] { checkForUpdates(false); });
    menu->addSeparator();
    menu->addAction(QStringLiteral("Quit Tovin"), QKeySequence(QStringLiteral("Ctrl+Q")), qApp,
                    &QCoreApplication::quit);
}

void AppShell::toggleLaunchAtLogin() {
    const int status = login_.set(!login_.isOn());
    if (status == LaunchAtLogin::Blocked)
        alert(LaunchAtLogin::blockedTitle(), LaunchAtLogin::blockedDetail());
    refreshSetupStrip();
}

void AppShell::checkForUpdates(bool quietly) {
    updates_.checkForUpdates(quietly);
}

SetupStrip AppShell::strip() {
    const int status = login_.status();
    return {controller_.statusLine(),
            controller_.standingLine(),
            controller_.pausedUntil().has_value(),
            LaunchAtLogin::menuTitle(status),
            status == LaunchAtLogin::Enabled,
            status == LaunchAtLogin::Blocked,
            Updater::hasReleaseFeed(),
            offerGnomeExtension_};
}

bool AppShell::gnomeExtensionWanted() {
    if (WindowSystem::session() != WindowSystem::Session::Wayland ||
        DesktopHold::desktop() != DesktopHold::Desktop::Gnome)
        return false;
    const DesktopHold::Extension state = DesktopHold::gnomeExtension();
    return (state == DesktopHold::Extension::Missing || state == DesktopHold::Extension::Off) &&
           DesktopHold::gnomeExtensionRunsHere();
}

void AppShell::refreshSetupStrip() {
    if (screens_.setupIsVisible())
        screens_.updateStrip(strip());
}

void AppShell::openSetupWindow() {
    const auto root = BundleRoutes::bundledRoot();
    if (!root) {
        alert(QStringLiteral("Workout UI is missing."),
              QStringLiteral("Rebuild with ./scripts/run.sh, which stages the web app beside the "
                             "app."));
        quit();
        return;
    }
    // Asked once a window: the strip's lines refresh every few seconds, this need not.
    offerGnomeExtension_ = gnomeExtensionWanted();
    const QJsonValue frame = deps_.preferences.store().value(QStringLiteral("setupWindowGeometry"));
    screens_.openSetup(*root, controller_.nativeFor(PageMode::Setup, true, std::nullopt), strip(),
                       frame.isString() ? QByteArray::fromBase64(frame.toString().toLatin1())
                                        : QByteArray());
    // The strip's lines follow the clock only while the window shows: a resident that waits
    // must not wake for a window nobody sees.
    if (!stripTimer_) {
        stripTimer_ = deps_.clock.createTimer([this] {
            if (screens_.setupIsVisible())
                refreshSetupStrip();
            else
                stripTimer_->stop();
        });
    }
    if (!stripTimer_->isActive())
        stripTimer_->start(15, true);
}

void AppShell::lockNow(bool rehearsal) {
    // A copy launched to rehearse only ever rehearses, whatever its setup window asks.
    rehearsal = rehearsal || launchedForRehearsal_;
    // A lockout asked for by hand is on the record like any other.
    deps_.journal.note(QStringLiteral("shield"),
                       rehearsal ? QStringLiteral("rehearsal asked for from the menu")
                                 : QStringLiteral("Lock Me Out Now — asked for from the menu"));
    controller_.raiseLockout(rehearsal);
}

void AppShell::showStartWindow() {
    PromiseLedger& ledger = deps_.ledger;
    ledger.refresh();
    screens_.showStart({deps_.preferences.escapePhrase(), int(deps_.preferences.maxShieldMinutes()),
                        controller_.standingLine(), ledger.streak(), ledger.longestStreak(),
                        launchedForRehearsal_});
}

} // namespace tovin

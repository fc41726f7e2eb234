#pragma once

#include "resident/app_controller.h"
#include "resident/instance_server.h"
#include "resident/launch_at_login.h"
#include "resident/update_dialogs.h"

#include <QMenu>
#include <QMessageBox>
#include <QPointer>
#include <QSystemTrayIcon>

#include <memory>

namespace tovin {

// The desktop shell around the controller: the tray icon and its menu, the single-instance
// rule, the launch order, the alerts, and the menu items chosen in the windows the screens
// draw (the setup window carries the same items, for desktops without a tray).
class AppShell final : public QObject {
    Q_OBJECT
public:
    // Around a controller over `deps`; the menu's "Open at Login" works through `login`, and
    // the updater through `network`.
    AppShell(const AppDependencies& deps, LaunchAtLogin& login, QNetworkAccessManager& network,
             bool launchedForRehearsal, QObject* parent = nullptr);
    ~AppShell() override;

    AppController& controller() { return controller_; }
    UpdateDialogs& updates() { return updates_; }

    // Launch steps after the switches: tray, setup window, usage watcher, schedule watch, and
    // the quiet update check five seconds later.
    void launch();
    // --layout-check: the start window only.
    void showStartWindow();
    // The single-instance rule. True when no other Tovin runs; otherwise it has asked the
    // running one to come forward and printed why it is leaving. Only a copy that stands in as
    // the watcher takes the name for later launches to find.
    bool claimSingleInstance(bool standInAsWatcher = true);

    void openSetupWindow();
    void rebuildMenu(QMenu* menu);
    void toggleLaunchAtLogin();
    void checkForUpdates(bool quietly);
    // Told, without stopping anything: a box of its own, or several.
    void alert(const QString& title, const QString& detail);
    // Ends the program once every alert on screen has been read.
    void quit();

    QSystemTrayIcon* tray() const { return tray_; }
    QList<QMessageBox*> openAlerts() const;
    // The tray's icon as it is drawn now (faded while paused), tray or no tray.
    QIcon trayIconNow() const;
    SetupStrip strip();

    static QString instanceName();

private:
    void tellThePerson(const QString& title, const QString& body);
    void lockNow(bool rehearsal);
    void chosen(const QString& action, const QString& value);
    void refreshSetupStrip();
    void refreshTrayIcon();
    // Whether the setup window should offer Tovin's GNOME Shell extension: GNOME on Wayland,
    // with the extension missing or turned off.
    static bool gnomeExtensionWanted();

    AppDependencies deps_;
    Screens& screens_;
    LaunchAtLogin& login_;
    AppController controller_;
    UpdateDialogs updates_;
    bool launchedForRehearsal_;
    bool quitting_ = false;
    bool offerGnomeExtension_ = false;
    QPointer<QSystemTrayIcon> tray_;
    std::unique_ptr<QMenu> trayMenu_;
    QList<QPointer<QMessageBox>> alerts_;
    QPointer<InstanceServer> instanceServer_;
    std::unique_ptr<Timer> updateTimer_;
    std::unique_ptr<Timer> stripTimer_;
};

} // namespace tovin

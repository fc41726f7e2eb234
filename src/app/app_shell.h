#pragma once

#include "app/app_controller.h"
#include "app/update_dialogs.h"

#include <QCheckBox>
#include <QLabel>
#include <QLocalServer>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QSystemTrayIcon>

#include <memory>

namespace tovin {

// The desktop shell around the controller: the tray icon and its menu, the setup window (which
// carries the same items, for desktops without a tray), the start window, the single-instance
// rule and the launch order.
class AppShell final : public QObject {
    Q_OBJECT
public:
    AppShell(Clock& clock, IdleSource& idle, bool launchedForRehearsal, QObject* parent = nullptr);
    ~AppShell() override;

    AppController& controller() { return controller_; }
    UpdateDialogs& updates() { return updates_; }

    // Launch steps after the switches: tray, setup window, usage watcher, schedule watch, and
    // the quiet update check five seconds later.
    void launch();
    // --layout-check: the start window only.
    void buildStartWindow();
    // The single-instance rule. True when no other Tovin runs; otherwise it has asked the
    // running one to come forward and printed why it is leaving. Only a copy that stands in as
    // the watcher takes the name for later launches to find.
    bool claimSingleInstance(bool standInAsWatcher = true);

    void openSetupWindow();
    void hideSetupWindow();
    void rebuildMenu(QMenu* menu);
    void toggleLaunchAtLogin();
    void checkForUpdates(bool quietly);

    QWidget* setupWindow() const { return setupWindow_; }
    QWidget* startWindow() const { return startWindow_; }
    QSystemTrayIcon* tray() const { return tray_; }
    // The tray's icon as it is drawn now (faded while paused), tray or no tray.
    QIcon trayIconNow() const;

    static QString instanceName();

private:
    void tellThePerson(const QString& title, const QString& body);
    void lockNow(bool rehearsal);
    void refreshSetupStrip();
    void refreshTrayIcon();
    QWidget* buildSetupStrip(QWidget* parent);

    AppController controller_;
    UpdateDialogs updates_{controller_};
    bool launchedForRehearsal_;
    QPointer<QSystemTrayIcon> tray_;
    std::unique_ptr<QMenu> trayMenu_;
    QPointer<QWidget> setupWindow_;
    QPointer<WorkoutWebView> setupWeb_;
    QPointer<QLabel> stripStatus_;
    QPointer<QLabel> stripStanding_;
    QPointer<QPushButton> stripPause_;
    QPointer<QCheckBox> stripLogin_;
    QPointer<QWidget> startWindow_;
    QPointer<QLocalServer> instanceServer_;
    std::unique_ptr<Timer> updateTimer_;
    std::unique_ptr<Timer> stripTimer_;
};

} // namespace tovin

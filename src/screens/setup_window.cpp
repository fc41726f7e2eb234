#include "screens/setup_window.h"

#include "desktop/desktop_hold.h"
#include "desktop/shield_style.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QVBoxLayout>

namespace tovin {

SetupWindow::SetupWindow(const QByteArray& geometry) {
    setWindowTitle(QStringLiteral("Tovin"));
    column_ = new QVBoxLayout(this);
    column_->setContentsMargins(0, 0, 0, 0);
    column_->setSpacing(0);
    column_->addWidget(buildStrip());
    // The menu's keys, for desktops where there is no tray to hold them.
    auto shortcut = [&](const char* keys, auto slot) {
        connect(new QShortcut(QKeySequence(QString::fromLatin1(keys)), this), &QShortcut::activated,
                this, slot);
    };
    shortcut("Ctrl+L", [this] { Q_EMIT chosen(QStringLiteral("lock")); });
    shortcut("Ctrl+Shift+L", [this] { Q_EMIT chosen(QStringLiteral("rehearse")); });
    shortcut("Ctrl+Q", [this] { Q_EMIT chosen(QStringLiteral("quit")); });
    shortcut("Ctrl+W", [this] { close(); });
    if (!geometry.isEmpty() && restoreGeometry(geometry))
        return;
    // 1100 × 860, or as much of it as the screen has, centred.
    const QScreen* screen = QGuiApplication::primaryScreen();
    const QRect area = screen ? screen->availableGeometry() : QRect(0, 0, 1100, 860);
    resize(std::min(1100, area.width()), std::min(860, area.height()));
    move(area.center() - rect().center());
}

void SetupWindow::closeEvent(QCloseEvent* event) {
    event->ignore();
    hide();
}

void SetupWindow::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    // Only a close is a close: minimising, or the window manager unmapping the window for a
    // workspace switch, leaves the page where it is, ready when the window comes back.
    if (!event->spontaneous())
        Q_EMIT hidden();
}

void SetupWindow::setPage(QWidget* page) {
    page_ = page;
    column_->addWidget(page, 1);
}

QWidget* SetupWindow::buildStrip() {
    auto* strip = new QWidget(this);
    strip->setObjectName(QStringLiteral("menuStrip"));
    // A band of the page's panel colour with a hairline under it, so the strip reads as the
    // page's own header.
    strip->setAttribute(Qt::WA_StyledBackground);
    strip->setStyleSheet(
        QStringLiteral("#menuStrip { background: #121821; border-bottom: 1px solid #243041; }"
                       "#menuStrip QLabel { color: #e8ecf1; }"));
    auto* row = new QHBoxLayout(strip);
    row->setContentsMargins(14, 8, 14, 8);
    auto* lines = new QVBoxLayout;
    status_ = new QLabel(strip);
    standing_ = new QLabel(strip);
    QFont bold = status_->font();
    bold.setBold(true);
    status_->setFont(bold);
    lines->addWidget(status_);
    lines->addWidget(standing_);
    row->addLayout(lines, 1);
    auto button = [&](const QString& text, const char* action) {
        auto* b = new QPushButton(text, strip);
        connect(b, &QPushButton::clicked, this,
                [this, action] { Q_EMIT chosen(QString::fromLatin1(action)); });
        row->addWidget(b);
        return b;
    };
    // Never in the tab chain: a Space meant for the page must not lock the screen. The mouse and
    // Ctrl+L reach it.
    button(QStringLiteral("Lock Me Out Now"), "lock")->setFocusPolicy(Qt::NoFocus);
    button(QStringLiteral("Rehearse Lockout (safe)"), "rehearse");
    pause_ = button(QStringLiteral("Pause for an hour"), "pause");
    updates_ = button(QStringLiteral("Check for Updates…"), "updates");
    updates_->hide();
    gnomeExtension_ = new QPushButton(QStringLiteral("Keep the Shield on Top…"), strip);
    connect(gnomeExtension_, &QPushButton::clicked, this, &SetupWindow::offerGnomeExtension);
    row->addWidget(gnomeExtension_);
    gnomeExtension_->hide();
    login_ = new QCheckBox(QStringLiteral("Open at Login"), strip);
    connect(login_, &QCheckBox::clicked, this, [this] { Q_EMIT chosen(QStringLiteral("login")); });
    row->addWidget(login_);
    button(QStringLiteral("Quit Tovin"), "quit");
    return strip;
}

void SetupWindow::setStrip(const SetupStrip& strip) {
    status_->setText(strip.status);
    standing_->setText(strip.standing);
    pause_->setText(strip.paused ? QStringLiteral("Resume watching")
                                 : QStringLiteral("Pause for an hour"));
    login_->setText(strip.loginTitle);
    login_->setChecked(strip.loginOn);
    login_->setEnabled(!strip.loginBlocked);
    updates_->setVisible(strip.updates);
    gnomeExtension_->setVisible(strip.gnomeExtension);
}

void SetupWindow::offerGnomeExtension() {
    // The person's word first: this adds a program to their desktop, which runs in GNOME Shell.
    QMessageBox ask(QMessageBox::Question, QStringLiteral("Tovin"),
                    QStringLiteral("Keep the shield on top on GNOME?"), QMessageBox::Cancel, this);
    ask.setInformativeText(QStringLiteral(
        "On GNOME, a window that opens during a lockout can cover the shield, and GNOME's own "
        "shortcuts (the Overview, switching windows) still work. Tovin's GNOME Shell extension "
        "stops that while a lockout is up and does nothing at any other time.\n\n"
        "Tovin will copy it into your extensions folder and turn it on. GNOME starts new "
        "extensions only when you log in: log out and back in before it works."));
    QPushButton* install =
        ask.addButton(QStringLiteral("Install and Turn On"), QMessageBox::AcceptRole);
    ask.setDefaultButton(install);
    ask.exec();
    if (ask.clickedButton() != install)
        return;
    const QString error = DesktopHold::installGnomeExtension();
    const bool working =
        error.isEmpty() && DesktopHold::gnomeExtension() == DesktopHold::Extension::On;
    QMessageBox told(QMessageBox::Information, QStringLiteral("Tovin"),
                     error.isEmpty()
                         ? QStringLiteral("Tovin's GNOME Shell extension is installed.")
                         : QStringLiteral("Tovin could not install its GNOME Shell extension."),
                     QMessageBox::Ok, this);
    if (!error.isEmpty())
        told.setInformativeText(error);
    else if (working)
        told.setInformativeText(QStringLiteral("It keeps the shield on top from now on."));
    else
        told.setInformativeText(QStringLiteral("Log out and back in: GNOME starts it with your "
                                               "next session. Until then, other windows can still "
                                               "open over the shield."));
    told.exec();
    Q_EMIT chosen(QStringLiteral("gnomeExtension"), error);
}

} // namespace tovin

#include "screens/setup_window.h"

#include "shield/shield_style.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
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
        connect(new QShortcut(QKeySequence(QString::fromLatin1(keys)), this), &QShortcut::activated, this, slot);
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
    strip->setStyleSheet(QStringLiteral("#menuStrip { background: #121821; border-bottom: 1px solid #243041; }"
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
        connect(b, &QPushButton::clicked, this, [this, action] { Q_EMIT chosen(QString::fromLatin1(action)); });
        row->addWidget(b);
        return b;
    };
    button(QStringLiteral("Lock Me Out Now"), "lock");
    button(QStringLiteral("Rehearse Lockout (safe)"), "rehearse");
    pause_ = button(QStringLiteral("Pause for an hour"), "pause");
    login_ = new QCheckBox(QStringLiteral("Open at Login"), strip);
    connect(login_, &QCheckBox::clicked, this, [this] { Q_EMIT chosen(QStringLiteral("login")); });
    row->addWidget(login_);
    button(QStringLiteral("Quit Tovin"), "quit");
    return strip;
}

void SetupWindow::setStrip(const SetupStrip& strip) {
    status_->setText(strip.status);
    standing_->setText(strip.standing);
    pause_->setText(strip.paused ? QStringLiteral("Resume watching") : QStringLiteral("Pause for an hour"));
    login_->setText(strip.loginTitle);
    login_->setChecked(strip.loginOn);
    login_->setEnabled(!strip.loginBlocked);
}

namespace {

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

StartWindow::StartWindow(const StartCard& card) {
    setWindowTitle(QStringLiteral("Tovin"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(40, 28, 40, 28);
    column->setSpacing(14);
    startLabel(column, QStringLiteral("This takes over every screen."), 22, 1.0);
    startLabel(column,
               u"It lifts when you finish the workout. To get out early: type “" + card.escapePhrase +
                   u"”, or press Esc ×3 — either counts as a broken promise.",
               13, 0.6);
    startLabel(column,
               u"If anything goes wrong, press Esc ×5 — the shield drops at once and nothing is "
               u"logged. It also releases itself after " +
                   QString::number(card.valveMinutes) + u" minutes regardless.",
               12, 0.45);
    startLabel(column,
               QStringLiteral("Pick your workout on the next screen — all 70 exercises, presets "
                              "and custom circuits."),
               12, 0.4);
    startLabel(column, card.standing, 15, 0.9);
    if (card.streak < card.longestStreak)
        startLabel(column, u"Best run: " + QString::number(card.longestStreak), 12, 0.45);
    startLabel(column, QStringLiteral("Nothing is recorded. No camera, no account needed."), 12, 0.4);
    auto* rehearse = new QCheckBox(QStringLiteral("Rehearsal — run in a window, don't touch my screen"));
    rehearse->setStyleSheet(whiteAt(0.9));
    rehearse->setChecked(card.rehearsal);
    column->addWidget(rehearse);
    // A word joiner after the hyphen keeps "Ctrl-Q" on one line; it draws nothing.
    startLabel(column,
               QStringLiteral("Same escape code, same hold button — in a window, with Ctrl-\u2060Q "
                              "always working."),
               11, 0.35);
    auto* begin = new QPushButton(card.rehearsal ? QStringLiteral("Begin rehearsal") : QStringLiteral("Begin"));
    begin->setDefault(true);
    begin->setAutoDefault(true);
    column->addWidget(begin, 0, Qt::AlignLeft);
    connect(rehearse, &QCheckBox::toggled, begin, [begin](bool on) {
        begin->setText(on ? QStringLiteral("Begin rehearsal") : QStringLiteral("Begin"));
    });
    // The rehearsal comes from the launch switch, not the checkbox: deliberately so.
    connect(begin, &QPushButton::clicked, this, &StartWindow::begin);
    adjustSize();
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
}

} // namespace tovin

#include "screens/start_window.h"

#include "desktop/shield_style.h"

#include <QCheckBox>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QVBoxLayout>

namespace tovin {

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
               u"It lifts when you finish the workout. To get out early: type “" +
                   card.escapePhrase + u"”, or press Esc ×3 — either counts as a broken promise.",
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
    startLabel(column, QStringLiteral("Nothing is recorded. No camera, no account needed."), 12,
               0.4);
    auto* rehearse =
        new QCheckBox(QStringLiteral("Rehearsal — run in a window, don't touch my screen"));
    rehearse->setStyleSheet(whiteAt(0.9));
    rehearse->setChecked(card.rehearsal);
    column->addWidget(rehearse);
    // A word joiner after the hyphen keeps "Ctrl-Q" on one line; it draws nothing.
    startLabel(column,
               QStringLiteral("Same escape code, same hold button — in a window, with Ctrl-\u2060Q "
                              "always working."),
               11, 0.35);
    auto* begin = new QPushButton(card.rehearsal ? QStringLiteral("Begin rehearsal")
                                                 : QStringLiteral("Begin"));
    begin->setDefault(true);
    begin->setAutoDefault(true);
    column->addWidget(begin, 0, Qt::AlignLeft);
    connect(rehearse, &QCheckBox::toggled, begin, [begin](bool on) {
        begin->setText(on ? QStringLiteral("Begin rehearsal") : QStringLiteral("Begin"));
    });
    // The rehearsal comes from the launch switch, not the checkbox: deliberately so.
    connect(begin, &QPushButton::clicked, this, &StartWindow::begin);
    // Return begins wherever the focus is: a plain window has no default button of its own.
    for (const int key : {Qt::Key_Return, Qt::Key_Enter})
        connect(new QShortcut(QKeySequence(key), this), &QShortcut::activated, begin,
                &QPushButton::click);
    adjustSize();
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
}

void StartWindow::closeEvent(QCloseEvent* event) {
    QWidget::closeEvent(event);
    Q_EMIT closed();
}

} // namespace tovin

#include "desktop/shield_style.h"

#include <QApplication>
#include <QGridLayout>
#include <QLabel>
#include <QPalette>
#include <QStyleFactory>
#include <QVBoxLayout>

#include <optional>

namespace tovin {

namespace {
// The workout page's own colours (web/src/styles.css), so native and web parts read as one.
constexpr QRgb background = 0x0a0d12;
constexpr QRgb panel = 0x121821;
constexpr QRgb field = 0x0f141b;
constexpr QRgb line = 0x243041;
constexpr QRgb text = 0xe8ecf1;
constexpr QRgb muted = 0x9aa7b8;
constexpr QRgb accent = 0x5fd3b3;
constexpr QRgb accentInk = 0x06251d;
constexpr QRgb focus = 0x8ab4ff;
constexpr QRgb disabled = 0x5b6675;

std::optional<bool> desktopWasDark;
} // namespace

bool desktopIsDark() {
    if (desktopWasDark)
        return *desktopWasDark;
    return QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
}

void applyTovinLook(QApplication& app) {
    if (!desktopWasDark)
        desktopWasDark = desktopIsDark();
    // Fusion draws every control from the palette, whatever the desktop's theme, so a check
    // box's box and a default button's label never vanish into the dark.
    if (QStyle* fusion = QStyleFactory::create(QStringLiteral("Fusion")))
        QApplication::setStyle(fusion);
    QPalette p;
    const auto set = [&p](QPalette::ColorRole role, QRgb rgb) { p.setColor(role, QColor(rgb)); };
    set(QPalette::Window, background);
    set(QPalette::WindowText, text);
    set(QPalette::Base, field);
    set(QPalette::AlternateBase, panel);
    set(QPalette::Text, text);
    set(QPalette::Button, panel);
    set(QPalette::ButtonText, text);
    set(QPalette::BrightText, text);
    set(QPalette::ToolTipBase, panel);
    set(QPalette::ToolTipText, text);
    set(QPalette::PlaceholderText, muted);
    set(QPalette::Highlight, accent);
    set(QPalette::HighlightedText, accentInk);
    set(QPalette::Link, focus);
    set(QPalette::Light, line);
    set(QPalette::Midlight, line);
    set(QPalette::Mid, line);
    set(QPalette::Dark, field);
    set(QPalette::Shadow, 0x000000);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, QColor(disabled));
    QApplication::setPalette(p);

    const auto hex = [](QRgb rgb) { return QColor(rgb).name(); };
    app.setStyleSheet(
        QStringLiteral(
            "QPushButton { background: %1; color: %2; border: 1px solid %3; border-radius: 10px;"
            "  padding: 8px 18px; min-height: 22px; font-weight: 600; }"
            "QPushButton:hover { background: #17202c; border-color: #3a4a60; }"
            "QPushButton:pressed { background: %4; }"
            "QPushButton:default { background: %5; color: %6; border-color: %5; }"
            "QPushButton:focus { border: 2px solid %7; }"
            "QPushButton:disabled { color: %8; }"
            "QCheckBox { color: %2; spacing: 10px; }"
            "QCheckBox::indicator { width: 18px; height: 18px; border: 1px solid #5b6b80;"
            "  border-radius: 5px; background: %4; }"
            "QCheckBox::indicator:checked { background: %5; border-color: %5; }"
            "QCheckBox::indicator:focus { border: 2px solid %7; }"
            "QCheckBox:disabled { color: %8; }"
            "QMenu { background: %1; color: %2; border: 1px solid %3; padding: 6px; }"
            "QMenu::item { padding: 6px 26px 6px 14px; border-radius: 6px; }"
            "QMenu::item:selected { background: #1c2634; }"
            "QMenu::item:disabled { color: %9; }"
            "QMenu::separator { height: 1px; background: %3; margin: 6px 10px; }"
            "QProgressBar { border: 1px solid %3; border-radius: 6px; background: %4;"
            "  color: %2; text-align: center; }"
            "QProgressBar::chunk { background: %5; border-radius: 5px; }"
            "QToolTip { background: %1; color: %2; border: 1px solid %3; }")
            .arg(hex(panel), hex(text), hex(line), hex(field), hex(accent), hex(accentInk),
                 hex(focus), hex(disabled), hex(muted)));
}

QString whiteAt(qreal alpha) {
    return QStringLiteral("color: rgba(255, 255, 255, %1);").arg(qRound(alpha * 255));
}

QVBoxLayout* centredColumn(QWidget* parent, int width, int spacing) {
    // A grid centres it both ways and, unlike an aligned box item, gives wrapped labels the
    // height they need at that width.
    auto* outer = new QGridLayout(parent);
    outer->setRowStretch(0, 1);
    outer->setRowStretch(2, 1);
    outer->setColumnStretch(0, 1);
    outer->setColumnStretch(2, 1);
    auto* column = new QWidget(parent);
    column->setFixedWidth(width);
    auto* stack = new QVBoxLayout(column);
    stack->setSpacing(spacing);
    outer->addWidget(column, 1, 1);
    return stack;
}

QLabel* addColumnLabel(QVBoxLayout* column, const QString& text, qreal points, QFont::Weight weight,
                       qreal alpha) {
    auto* label = new QLabel(text);
    QFont f = label->font();
    f.setPointSizeF(points);
    f.setWeight(weight);
    label->setFont(f);
    label->setAlignment(Qt::AlignHCenter);
    label->setWordWrap(true);
    label->setStyleSheet(whiteAt(alpha));
    column->addWidget(label);
    label->show();
    return label;
}

} // namespace tovin

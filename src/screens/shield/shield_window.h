#pragma once

#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QPointer>
#include <QScreen>
#include <QWidget>

#include <functional>

namespace tovin {

// One surface of the shield: a whole display's worth of the shield colour holding either the
// lockout's content (main display, or the rehearsal window) or the "Back to the other screen."
// panel, with the two hints along the bottom and, on the main surface, room for the warning.
class ShieldWindow final : public QWidget {
    Q_OBJECT
public:
    static QColor shieldColour() { return QColor::fromRgbF(0.04f, 0.05f, 0.07f); }

    explicit ShieldWindow(QWidget* parent = nullptr);

    // Takes ownership: the content lives and dies with this window.
    void setContent(QWidget* content);
    void setSecondaryPanel();
    void setHints(const QString& panicHint);
    // Reveals the escape hint: sets its text and fades it in over 1.2 seconds.
    void revealHint(const QString& text);
    // Lays an overlay (the break warning) over the whole surface.
    void setOverlay(QWidget* overlay);

    QWidget* content() const { return content_; }
    // The display this window was made to cover (none for the rehearsal's window).
    void setTargetScreen(QScreen* screen) { targetScreen_ = screen; }
    QScreen* targetScreen() const { return targetScreen_; }
    QLabel* panicHint() const { return panicHint_; }
    QLabel* escapeHint() const { return escapeHint_; }
    QGraphicsOpacityEffect* escapeHintOpacity() const { return escapeOpacity_; }
    QWidget* secondaryPanel() const { return secondary_; }

    // Runs when the window is closed by the window system (the rehearsal's way out).
    std::function<void()> onClose;

protected:
    void resizeEvent(QResizeEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void layoutChildren();

    QPointer<QScreen> targetScreen_;
    QPointer<QWidget> content_;
    QPointer<QWidget> overlay_;
    QPointer<QLabel> secondary_;
    QPointer<QLabel> panicHint_;
    QPointer<QLabel> escapeHint_;
    QPointer<QGraphicsOpacityEffect> escapeOpacity_;
};

} // namespace tovin

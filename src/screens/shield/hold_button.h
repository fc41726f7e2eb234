#pragma once

#include "core/clock.h"

#include <QWidget>

#include <functional>
#include <memory>

namespace tovin {

// A press-and-hold control: its action happens only after it has been held, without letting
// go, for its whole duration (focus moving away, a click elsewhere or Space released anywhere
// all let go). Letting go drains the bar twice as fast as it filled, so a
// half-done hold cannot be finished later for free. Works with the mouse or with Space (the
// first press, never an auto-repeat). The bar moves by the time that really passed, not by
// the number of animation ticks, so a busy screen cannot stretch the hold.
class HoldButton final : public QWidget {
    Q_OBJECT
public:
    static constexpr double tickSeconds = 1.0 / 60.0;

    HoldButton(QString title, double duration, Clock& clock, QWidget* parent = nullptr);

    std::function<void()> onComplete;

    const QString& title() const { return title_; }
    double duration() const { return duration_; }
    bool isHolding() const { return holding_; }
    // How full the bar is, 0 to 1.
    double fill() const { return progress_; }

    void engage();
    void release();

    QSize sizeHint() const override { return {260, 44}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void tick();

    QString title_;
    double duration_;
    Clock& clock_;
    double progress_ = 0;
    double lastTick_ = 0;
    bool holding_ = false;
    std::unique_ptr<Timer> timer_;
};

} // namespace tovin

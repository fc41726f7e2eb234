#pragma once

#include "core/clock.h"
#include "resident/countdown.h"

#include <QObject>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

class QLabel;

namespace tovin {

class CallDetector;

// The small notice before the screen is taken: "Moving in 60s", a "Start now" button and,
// while the snooze budget lasts, a "Not now" one. It never takes focus, so the person's typing
// stays in their own app, and it cancels itself the moment a call goes live.
class CountdownPanel final : public Countdown {
    Q_OBJECT
public:
    static constexpr int width = 340;
    static constexpr int height = 132;
    static constexpr int inset = 24;

    // Counting down by `clock`; a call `calls` sees cancels it.
    CountdownPanel(Clock& clock, const CallDetector& calls, QObject* parent = nullptr);
    ~CountdownPanel() override;

    void show(double seconds, int snoozesLeft) override;
    void dismiss() override;
    bool isShowing() const override { return showing_; }
    // Where the notice's top left corner goes; by default the main screen's bottom-right
    // corner, inside its work area.
    void placeAt(std::optional<QPoint> topLeft) { placement_ = topLeft; }

    void startNow();
    void snooze();

    double remaining() const { return remaining_; }
    // The countdown line as last shown; it outlives the panel until the next show.
    QString displayedText() const { return text_; }
    // The panel while it is showing (for placement checks and screenshots).
    QWidget* panel() const { return panel_; }

private:
    void tick();
    void render();

    Clock& clock_;
    const CallDetector& calls_;
    std::optional<QPoint> placement_;
    bool showing_ = false;
    double remaining_ = 0;
    QString text_;
    QPointer<QWidget> panel_;
    QPointer<QLabel> label_;
    std::unique_ptr<Timer> timer_;
};

} // namespace tovin

#pragma once

#include "core/clock.h"

#include <QObject>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>

class QLabel;

namespace tovin {

// The small notice before the screen is taken: "Moving in 60s", a "Start now" button and,
// while the snooze budget lasts, a "Not now" one. It never takes focus, so the person's typing
// stays in their own app, and it cancels itself the moment a call goes live.
class CountdownPanel final : public QObject {
    Q_OBJECT
public:
    static constexpr int width = 340;
    static constexpr int height = 132;
    static constexpr int inset = 24;

    // Places every panel far off screen, for tests that must not show anything.
    static inline bool offscreenForTests = false;

    explicit CountdownPanel(Clock& clock, QObject* parent = nullptr);
    ~CountdownPanel() override;

    // Starts a countdown; does nothing while one is showing, so a second due event never
    // restarts a running countdown.
    void show(double seconds, int snoozesLeft);
    // Stops and hides; safe at any time.
    void dismiss();

    void startNow();
    void snooze();

    bool isShowing() const { return showing_; }
    double remaining() const { return remaining_; }
    // The countdown line as last shown; it outlives the panel until the next show.
    QString displayedText() const { return text_; }
    // The panel while it is showing (for placement checks and screenshots).
    QWidget* panel() const { return panel_; }

Q_SIGNALS:
    // How the countdown ended; each comes after the notice is gone.
    void fired();                          // its time ran out, or "Start now"
    void snoozed();                        // "Not now"
    void cancelled(const QString& reason); // a call went live

private:
    void tick();
    void render();

    Clock& clock_;
    bool showing_ = false;
    double remaining_ = 0;
    QString text_;
    QPointer<QWidget> panel_;
    QPointer<QLabel> label_;
    std::unique_ptr<Timer> timer_;
};

} // namespace tovin

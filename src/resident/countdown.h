#pragma once

#include <QObject>
#include <QString>

namespace tovin {

// The notice before the screen is taken, as the controller sees it: shown with its seconds and
// what is left of the snooze budget, and how it ended. In the app it is CountdownPanel.
class Countdown : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Starts a countdown; does nothing while one is showing, so a second due event never
    // restarts a running countdown.
    virtual void show(double seconds, int snoozesLeft) = 0;
    // Stops and hides; safe at any time.
    virtual void dismiss() = 0;
    virtual bool isShowing() const = 0;

Q_SIGNALS:
    // How the countdown ended; each comes after the notice is gone.
    void fired();                          // its time ran out, or "Start now"
    void snoozed();                        // "Not now"
    void cancelled(const QString& reason); // a call went live
};

} // namespace tovin

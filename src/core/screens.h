#pragma once

#include "core/promise_record.h"

#include <QDateTime>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <optional>

namespace tovin {

// What a lockout shows, as the controller decides it. Everything the page needs to know about
// the person (their week, their settings, their promises) travels in `native`, and what the
// shield around it needs (the phrase, the hint's delay, the standing) travels beside it, so
// whatever draws never reads the person's files itself.
struct LockoutPage {
    enum class Kind { Workout, Retest, Away, Coach };
    Kind kind = Kind::Workout;
    QString webRoot;      // the web app's folder
    QJsonObject native;   // the page's TOVIN_NATIVE data (no functions)
    QString awayLabel;    // an away block's label
    QDateTime awayEndsAt; // when an away block ends
    QString coachWorkout; // the camera coach's workout ("coach:squats", …)
    int requiredCleanReps = 0;
    QString standing;      // the break warning's sentence about the promises so far
    QString escapePhrase;  // the phrase that opens the break warning
    double hintDelay = 25; // seconds before the shield hints at the ways out

    // Whether a page prepared for `other` can serve as this one.
    bool servesAs(const LockoutPage& other) const {
        return kind == other.kind && webRoot == other.webRoot &&
               native.value(u"blockLabel") == other.native.value(u"blockLabel");
    }
};

// The setup window's strip: the menu's two lines and the state of its switches.
struct SetupStrip {
    QString status;
    QString standing;
    bool paused = false;
    QString loginTitle;
    bool loginOn = false;
    bool loginBlocked = false;
    // This copy checks a release feed itself: the strip offers "Check for Updates…", which a
    // desktop without a tray has nowhere else.
    bool updates = false;
    // GNOME on Wayland without Tovin's extension: the strip offers to install it.
    bool gnomeExtension = false;
};

// The start window's text, decided by the controller.
struct StartCard {
    QString escapePhrase;
    int valveMinutes = 15;
    QString standing;
    int streak = 0;
    int longestStreak = 0;
    bool rehearsal = false;
};

// Which page spoke or failed.
enum class PageRole { Setup, Prepared, Lockout };

// Everything the controller asks of whatever draws: the shield and its content, the setup
// window, the start window. In the app this is the screen helper, another process that exists
// only while something shows; in tests it is the same drawing code in-process. Either way the
// controller keeps every decision and every write to the person's files: what draws only
// shows, and reports what the person did.
class Screens : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // A lockout's page, built behind its countdown so it is rendered when the shield rises.
    virtual void prepare(const LockoutPage& page) = 0;
    virtual void dropPrepared() = 0;
    // Covers every display with the page (the prepared one when it serves). Does nothing while
    // a shield is up.
    virtual void raise(const LockoutPage& page, bool rehearsal, double valveMinutes) = 0;
    virtual void lower() = 0;
    virtual bool isUp() const = 0;
    virtual bool isRehearsal() const = 0;
    // A tick's reminder that the valve holds even if its timer slept with the machine.
    virtual void enforceValve(const QDateTime& now) = 0;
    // The lockout's page shows the new standing after a kept promise.
    virtual void showStanding(const QString& json) = 0;
    // The camera coach's ending: its panel and voice say the streak.
    virtual void coachDone(int streak) = 0;

    // Opens (or brings forward) the setup window at its remembered frame (saveGeometry's bytes).
    virtual void openSetup(const QString& webRoot, const QJsonObject& native,
                           const SetupStrip& strip, const QByteArray& geometry) = 0;
    virtual void updateStrip(const SetupStrip& strip) = 0;
    virtual void hideSetup() = 0;
    // The setup window has the keyboard and shows (the person may be working in it).
    virtual bool setupIsActive() const = 0;
    virtual bool setupIsVisible() const = 0;

    virtual void showStart(const StartCard& card) = 0;

Q_SIGNALS:
    // How a lockout ended, told by the shield.
    void shieldWasBroken(std::optional<tovin::PromiseRecord::Reason> reason);
    void shieldTimedOut();
    void shieldPanicked();
    void shieldYielded();
    // Ctrl-Q in a rehearsal window.
    void quitAsked();
    // A page's message through its bridge, to be applied by the controller.
    void pageMessage(tovin::PageRole role, const QJsonObject& message);
    void pageFailed(tovin::PageRole role, const QString& detail);
    // A page finished loading (the self-check and the benchmarks wait for it).
    void pageLoaded(tovin::PageRole role);
    void coachFinished(const QString& exercise, qint64 reps, qint64 cleanReps);
    // A journal line from whatever draws, for the resident to write.
    void noted(const QString& tag, const QString& text);
    // A menu item chosen in a window that draws: "lock", "rehearse", "pause", "login", "quit",
    // "begin" and "startClosed" (the start window), "setupGeometry" (with the geometry in
    // `value`).
    void actionChosen(const QString& action, const QString& value);
    // Nothing shows any more (no shield, no page behind a countdown, no window): whatever drew
    // has been told to end.
    void nothingShows();
    // Whatever drew is gone without being asked (it crashed, hung or was killed): any shield
    // and window it held went with it. `stoppedFromOutside` when a signal it did not send
    // itself ended it (a kill, not a crash or a hang).
    void screensLost(const QString& why, bool stoppedFromOutside = false);
};

} // namespace tovin

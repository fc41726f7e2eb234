#pragma once

#include "core/clock.h"
#include "core/promise_record.h"
#include "screens/shield/escape_view.h"
#include "screens/shield/shield_platform.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QPushButton>

#include <functional>
#include <memory>
#include <optional>

class QKeyEvent;
class QScreen;
class QWidget;

namespace tovin {

class ShieldWindow;

// What the shield tells the person, decided by whoever raises it.
struct ShieldTerms {
    QString escapePhrase = QStringLiteral("lark"); // lower-case
    double hintDelay = 25;                         // seconds before the ways out are hinted
    QString standing;                              // the break warning's sentence
};

// The lockout itself: one opaque window over every display, above everything, owning the
// keyboard until the promise is kept or the person leaves by a designed way out: the escape
// phrase or three Esc taps (the break warning), five Esc taps (panic), the safety valve, or the
// system taking the screen (the shield yields). A rehearsal runs the same content and escape
// routes in one ordinary window and never touches the screens.
class ShieldController final : public QObject {
    Q_OBJECT
public:
    static constexpr double tapWindow = 3.0;
    static constexpr int tapsToWarn = 3;
    static constexpr int tapsToPanic = 5;
    static constexpr double yieldGrace = 0.4;

    explicit ShieldController(Clock& clock, QObject* parent = nullptr);
    ~ShieldController() override;

    // Builds the shield's windows around the content ahead of a raise (behind a countdown),
    // mapped out of sight so the content has drawn in them before they cover anything; a raise
    // with the same content only moves them into place. True when it took the content; false
    // (while up, or where windows cannot be placed out of sight) leaves it with the caller.
    bool prepare(QWidget* content);
    // Drops the prepared windows and their content.
    void dropPrepared();
    bool isPrepared() const { return !standby_.isEmpty(); }

    // Takes ownership of the content. Does nothing at all while a shield is up.
    void raise(QWidget* content, bool rehearsal, double valveMinutes, ShieldTerms terms = {});
    void lower();
    bool enforceValve(const QDateTime& now);
    void yieldNow();
    void coverUncoveredScreens();

    // The key monitor: true when the key is consumed.
    bool handle(QKeyEvent* event);
    void showEscape();

    bool isUp() const { return up_; }
    bool isRehearsal() const { return rehearsal_; }
    int windowCount() const;
    bool hasKeyMonitor() const { return monitoring_; }
    bool isShowingEscape() const { return escapeView_ != nullptr; }
    QWidget* currentWindow() const;
    QList<ShieldWindow*> windows() const;
    EscapeView* escapeView() const { return escapeView_; }
    QPushButton* simulateButton() const { return simulate_; }
    double valveMinutes() const { return valveMinutes_; }
    // Whether the keyboard is owned right now (an X grab; never in a rehearsal or on Wayland).
    bool ownsKeyboard() const { return platform_ && platform_->ownsKeyboard(); }
    // Where each raise gets what the window system lets it hold (tests give their own).
    void setPlatformFactory(std::function<std::unique_ptr<ShieldPlatform>()> factory) {
        platformFactory_ = std::move(factory);
    }

Q_SIGNALS:
    // How the shield ended, told to whoever runs the lockout: the shield never decides what an
    // ending means for the ledger. Each comes after the screens are back.
    void wasBroken(std::optional<tovin::PromiseRecord::Reason> reason);
    void timedOut();
    void panicked();
    void yielded();
    // A key typed over the shield that no escape route took (the camera coach's keys).
    void keyPressed(const QString& key);
    // A line for the journal, which whoever runs the shield keeps.
    void noted(const QString& text);
    // The shield went up (true) or came down (false).
    void upChanged(bool up);
    // Ctrl-Q in a rehearsal: the rehearsal window promises it always quits.
    void quitAsked();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    ShieldWindow* makeShieldWindow(QScreen* screen);
    void showCovering(ShieldWindow* window);
    void revealHint();
    void grabInput();
    void scheduleYieldCheck();
    void judgeFocusLoss();
    bool hasFocus() const;
    QList<QWindow*> windowHandles() const;
    void regrabSoon();
    void restack();
    bool isOurs(WId window) const;
    void watchScreens();
    void panic();

    Clock& clock_;
    ShieldTerms terms_;

    QList<QPointer<ShieldWindow>> windows_;
    // Prepared windows, one per screen in order, out of sight until a raise takes them.
    QList<QPointer<ShieldWindow>> standby_;
    QList<QScreen*> standbyScreens_;
    QPointer<QWidget> standbyContent_;
    QPointer<ShieldWindow> mainWindow_;
    QPointer<EscapeView> escapeView_;
    QPointer<QPushButton> simulate_;
    QList<QMetaObject::Connection> watches_;
    std::unique_ptr<Timer> safetyTimer_;
    std::unique_ptr<Timer> hintTimer_;
    std::unique_ptr<Timer> yieldTimer_;
    std::unique_ptr<Timer> grabTimer_;
    std::function<std::unique_ptr<ShieldPlatform>()> platformFactory_ = [this] {
        return ShieldPlatform::create(this);
    };
    std::unique_ptr<ShieldPlatform> platform_;
    QDateTime raisedAt_;
    double valveMinutes_ = 0;
    QString typed_;
    QDateTime lastKeystroke_;
    QList<QDateTime> escapeTaps_;
    bool up_ = false;
    bool rehearsal_ = false;
    bool monitoring_ = false;
    int grabAttempts_ = 0;
    bool notedFocusAway_ = false;
    bool hadFocus_ = false;
};

} // namespace tovin

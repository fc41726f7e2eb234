#include "screens/shield/shield_controller.h"

#include "screens/shield/escape_view.h"
#include "screens/shield/shield_window.h"

#include <QApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QTimer>
#include <QWindow>

namespace tovin {

namespace {

bool onX11() {
    return QGuiApplication::platformName() == u"xcb";
}

bool onWayland() {
    return QGuiApplication::platformName().startsWith(u"wayland");
}

// The characters of a key ignoring Ctrl and the like, lower-cased: Ctrl+A reads "a".
QString keyCharacters(const QKeyEvent* event) {
    QString text = event->text();
    const bool printable = !text.isEmpty() && text.at(0).isPrint();
    if (!printable) {
        const int key = event->key();
        if (key >= Qt::Key_A && key <= Qt::Key_Z)
            text = QChar(u'a' + (key - Qt::Key_A));
        else if (key >= Qt::Key_0 && key <= Qt::Key_9)
            text = QChar(u'0' + (key - Qt::Key_0));
        else
            text.clear();
    }
    return text.toLower();
}

} // namespace

ShieldController::ShieldController(Clock& clock, QObject* parent)
    : QObject(parent)
    , clock_(clock) {
}

ShieldController::~ShieldController() {
    if (monitoring_)
        qApp->removeEventFilter(this);
    for (const auto& w : standby_)
        delete w.data();
    for (const auto& w : windows_)
        delete w.data();
}

int ShieldController::windowCount() const {
    return int(windows().size());
}

QList<ShieldWindow*> ShieldController::windows() const {
    QList<ShieldWindow*> out;
    for (const auto& w : windows_) {
        if (w)
            out.append(w.data());
    }
    return out;
}

QWidget* ShieldController::currentWindow() const {
    return mainWindow_;
}

ShieldWindow* ShieldController::makeShieldWindow(QScreen* screen) {
    auto* window = new ShieldWindow;
    Qt::WindowFlags flags = Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint;
    // Unmanaged windows: no panel, dock or notification of the window manager can be put above.
    if (onX11())
        flags |= Qt::X11BypassWindowManagerHint;
    window->setWindowFlags(flags);
    // The names a desktop's helper (Tovin's GNOME Shell extension, its KWin script) knows the
    // shield by: the main window, which keeps the keyboard, is exactly "Tovin shield".
    window->setWindowTitle(QStringLiteral("Tovin shield (another display)"));
    window->setHints(QStringLiteral("hold on — Esc ×%1 gets you out immediately").arg(tapsToPanic));
    if (screen) {
        window->setTargetScreen(screen);
        window->setScreen(screen);
        window->setGeometry(screen->geometry());
    }
    // A close request (the window manager's close key, a compositor's kill binding) is not a
    // way out: the designed ones are the phrase, the Esc taps and the valve.
    window->onClose = [this] {
        Q_EMIT noted(QStringLiteral("the desktop asked to close the shield — ignored"));
    };
    windows_.append(window);
    return window;
}

void ShieldController::showCovering(ShieldWindow* window) {
    if (!onWayland()) {
        window->show();
        return;
    }
    // A Wayland compositor puts a full-screen window on the output its window names, which
    // the widget's screen alone does not set. Only now, with the content in place: the window
    // is made for what it holds (a web page needs a GL surface), and one made again after it
    // shows is lost by some compositors.
    window->winId();
    if (window->targetScreen())
        window->windowHandle()->setScreen(window->targetScreen());
    window->showFullScreen();
}

bool ShieldController::prepare(QWidget* content) {
    dropPrepared();
    // Out of sight means a position, which only X offers; elsewhere the raise builds them.
    if (up_ || !onX11() || !content)
        return false;
    const QList<QScreen*> screens = QGuiApplication::screens();
    QScreen* primary = QGuiApplication::primaryScreen();
    standbyScreens_ = screens;
    standbyContent_ = content;
    for (QScreen* screen : screens) {
        ShieldWindow* window = makeShieldWindow(screen);
        windows_.removeOne(window);
        if (screen == primary || (!primary && screen == screens.first())) {
            window->setContent(content);
            window->setWindowTitle(QStringLiteral("Tovin shield"));
        } else
            window->setSecondaryPanel();
        window->setAttribute(Qt::WA_ShowWithoutActivating);
        // Mapped far off every screen: drawn, composited, and seen by no one.
        window->move(-3 * window->width() - 10000, -3 * window->height() - 10000);
        window->show();
        standby_.append(window);
    }
    return true;
}

void ShieldController::dropPrepared() {
    for (const auto& w : std::exchange(standby_, {}))
        if (w) {
            w->hide();
            w->deleteLater();
        }
    standbyScreens_.clear();
    standbyContent_ = nullptr;
}

void ShieldController::raise(QWidget* content, bool rehearsal, double valveMinutes,
                             ShieldTerms terms) {
    if (up_)
        return;
    // Prepared windows serve only the content they hold, on the screens they were made for.
    const bool standing =
        !rehearsal && !standby_.isEmpty() && content && content == standbyContent_ &&
        standbyScreens_ == QGuiApplication::screens() &&
        std::all_of(standby_.begin(), standby_.end(), [](const auto& w) { return bool(w); });
    if (!standing && content && content == standbyContent_) {
        // Leaving for other windows: the content must not go down with the prepared ones.
        content->setParent(nullptr);
        standbyContent_ = nullptr;
    }
    if (!standing)
        dropPrepared();
    up_ = true;
    rehearsal_ = rehearsal;
    raisedAt_ = clock_.now();
    valveMinutes_ = valveMinutes;
    terms_ = std::move(terms);
    typed_.clear();
    escapeTaps_.clear();

    if (rehearsal) {
        auto* window = new ShieldWindow;
        window->setWindowTitle(
            QStringLiteral("Tovin — REHEARSAL · your screen is not locked · Ctrl-Q always works"));
        window->resize(1100, 720);
        if (const QScreen* screen = QGuiApplication::primaryScreen())
            window->move(screen->availableGeometry().center() - window->rect().center());
        window->setHints(
            QStringLiteral("hold on — Esc ×%1 gets you out immediately").arg(tapsToPanic));
        if (content)
            window->setContent(content);
        // Closing the rehearsal window is its way out, reported like a panic.
        window->onClose = [this] {
            if (rehearsal_ && up_)
                panic();
        };
        simulate_ =
            new QPushButton(QStringLiteral("Simulate the system taking the screen"), window);
        simulate_->adjustSize();
        simulate_->move(window->width() - simulate_->width() - 16, 16);
        connect(simulate_, &QPushButton::clicked, this, &ShieldController::yieldNow);
        // The title promises Ctrl-Q always works here; the setup window's shortcut does not
        // reach this window.
        auto* quit = new QShortcut(QKeySequence(QStringLiteral("Ctrl+Q")), window);
        connect(quit, &QShortcut::activated, this, &ShieldController::quitAsked);
        windows_.append(window);
        mainWindow_ = window;
        window->show();
        simulate_->raise();
        window->raise();
        window->activateWindow();
    } else {
        const QList<QScreen*> screens = QGuiApplication::screens();
        QScreen* primary = QGuiApplication::primaryScreen();
        if (!primary && !screens.isEmpty())
            primary = screens.first();
        if (standing) {
            for (int i = 0; i < standby_.size(); ++i) {
                ShieldWindow* window = standby_[i];
                windows_.append(window);
                if (window->content() == content)
                    mainWindow_ = window;
                window->setAttribute(Qt::WA_ShowWithoutActivating, false);
                window->setGeometry(standbyScreens_[i]->geometry());
                window->raise();
            }
            standby_.clear();
            standbyScreens_.clear();
            standbyContent_ = nullptr;
        }
        for (QScreen* screen : standing ? QList<QScreen*>() : screens) {
            ShieldWindow* window = makeShieldWindow(screen);
            if (screen == primary) {
                mainWindow_ = window;
                window->setWindowTitle(QStringLiteral("Tovin shield"));
                if (content)
                    window->setContent(content);
            } else {
                window->setSecondaryPanel();
            }
            showCovering(window);
        }
        watchScreens();
        if (mainWindow_) {
            mainWindow_->raise();
            mainWindow_->activateWindow();
        }
        platform_ = platformFactory_();
        connect(platform_.get(), &ShieldPlatform::noted, this,
                [this](const QString& text) { Q_EMIT noted(text); });
        grabInput();
        // Tovin's own popups (a page's list box) belong above the shield; anything else is
        // put below it.
        platform_->watchStacking(
            [](WId id) {
                const auto all = QGuiApplication::allWindows();
                return std::any_of(all.begin(), all.end(),
                                   [id](QWindow* w) { return w->handle() && w->winId() == id; });
            },
            [this] { restack(); });
    }

    qApp->installEventFilter(this);
    monitoring_ = true;

    Q_EMIT upChanged(true);
    hintTimer_ = clock_.singleShot(terms_.hintDelay, [this] { revealHint(); });
    safetyTimer_ = clock_.singleShot(valveMinutes_ * 60.0, [this] {
        lower();
        Q_EMIT timedOut();
    });
}

void ShieldController::watchScreens() {
    auto* app = qGuiApp;
    watches_.append(connect(app, &QGuiApplication::screenAdded, this, [this](QScreen* screen) {
        watches_.append(connect(screen, &QScreen::geometryChanged, this,
                                &ShieldController::coverUncoveredScreens));
        coverUncoveredScreens();
    }));
    watches_.append(connect(app, &QGuiApplication::screenRemoved, this,
                            &ShieldController::coverUncoveredScreens));
    for (QScreen* screen : QGuiApplication::screens())
        watches_.append(connect(screen, &QScreen::geometryChanged, this,
                                &ShieldController::coverUncoveredScreens));
    // Losing the focus or the grab: try to take it back at once, then judge what took it.
    watches_.append(connect(app, &QGuiApplication::applicationStateChanged, this,
                            [this](Qt::ApplicationState state) {
                                if (state != Qt::ApplicationActive)
                                    scheduleYieldCheck();
                            }));
    watches_.append(connect(app, &QGuiApplication::focusWindowChanged, this, [this](QWindow* w) {
        if (!w || !isOurs(w->winId())) {
            scheduleYieldCheck();
        } else {
            hadFocus_ = true;
            regrabSoon(); // back from a popup of ours, which took the grab and let it go
        }
    }));
}

bool ShieldController::isOurs(WId window) const {
    return std::any_of(windows_.begin(), windows_.end(), [window](const auto& w) {
        return w && w->windowHandle() && w->windowHandle()->winId() == window;
    });
}

void ShieldController::regrabSoon() {
    // After the event that closed the popup has been handled: X lets a client hold one grab,
    // and the popup's ungrab released the shield's with it.
    QTimer::singleShot(0, this, [this] {
        if (!up_ || rehearsal_)
            return;
        grabAttempts_ = 0;
        grabInput();
    });
}

void ShieldController::restack() {
    if (!up_ || rehearsal_)
        return;
    for (ShieldWindow* w : windows())
        w->raise();
}

void ShieldController::grabInput() {
    if (!mainWindow_ || rehearsal_ || !platform_)
        return;
    const bool held = platform_->hold(windowHandles());
    // A window is only grabbable once mapped; try again shortly, a bounded number of times.
    if (!held && grabAttempts_++ < 40)
        grabTimer_ = clock_.singleShot(0.05, [this] { grabInput(); });
    else if (held)
        grabAttempts_ = 0;
}

QList<QWindow*> ShieldController::windowHandles() const {
    QList<QWindow*> handles;
    if (mainWindow_ && mainWindow_->windowHandle())
        handles.append(mainWindow_->windowHandle());
    for (ShieldWindow* w : windows())
        if (w != mainWindow_ && w->windowHandle())
            handles.append(w->windowHandle());
    return handles;
}

bool ShieldController::hasFocus() const {
    return (mainWindow_ && mainWindow_->isActiveWindow()) ||
           QGuiApplication::applicationState() == Qt::ApplicationActive;
}

void ShieldController::scheduleYieldCheck() {
    if (!up_ || rehearsal_)
        return;
    if (mainWindow_ && platform_) {
        QList<ShieldSurface> surfaces;
        const auto add = [&](ShieldWindow* w) {
            if (w && w->windowHandle())
                surfaces.append({w->windowHandle(), w->targetScreen()});
        };
        add(mainWindow_);
        for (ShieldWindow* w : windows())
            if (w != mainWindow_)
                add(w);
        platform_->reclaimFocus(surfaces);
        grabAttempts_ = 0;
        grabInput();
    }
    yieldTimer_ = clock_.singleShot(yieldGrace, [this] { judgeFocusLoss(); });
}

void ShieldController::judgeFocusLoss() {
    if (!up_ || !platform_)
        return;
    if (hasFocus()) {
        // Only where any program may take the focus is its coming back worth a line.
        if (!platform_->focusLossMeansYield() && hadFocus_)
            Q_EMIT noted(
                notedFocusAway_
                    ? QStringLiteral("the focus is back on the shield")
                    : QStringLiteral("another window took the focus — the shield took it back"));
        notedFocusAway_ = false;
        return;
    }
    // Past a grab, only the system itself takes the focus: give way.
    if (platform_->focusLossMeansYield()) {
        yieldNow();
        return;
    }
    // Where any program may take it, only a locked session is the system taking the screen.
    const QString locker = platform_->sessionLockedBy();
    if (!locker.isEmpty()) {
        Q_EMIT noted(u"the session is locked (" + locker + u") — giving way");
        yieldNow();
        return;
    }
    if (!notedFocusAway_) {
        notedFocusAway_ = true;
        Q_EMIT noted(QStringLiteral(
            "another window took the focus — the shield stays up and asks for it back"));
    }
    // Keep asking while it is away, and keep watching for a locker.
    scheduleYieldCheck();
    yieldTimer_ = clock_.singleShot(1.0, [this] { judgeFocusLoss(); });
}

void ShieldController::coverUncoveredScreens() {
    if (!up_ || rehearsal_)
        return;
    for (QScreen* screen : QGuiApplication::screens()) {
        const QPoint middle = screen->geometry().center();
        const bool covered = std::any_of(windows_.begin(), windows_.end(), [&](const auto& w) {
            return w && w->geometry().contains(middle);
        });
        if (covered)
            continue;
        ShieldWindow* window = makeShieldWindow(screen);
        window->setSecondaryPanel();
        showCovering(window);
        Q_EMIT noted(QStringLiteral("covered a display attached mid-lockout"));
    }
}

void ShieldController::revealHint() {
    const QString text = QStringLiteral("emergency escape — type “%1”, or press Esc ×%2")
                             .arg(terms_.escapePhrase)
                             .arg(tapsToWarn);
    for (ShieldWindow* w : windows())
        w->revealHint(text);
}

bool ShieldController::enforceValve(const QDateTime& now) {
    if (!up_ || valveMinutes_ <= 0)
        return false;
    const double upSeconds = double(raisedAt_.msecsTo(now)) / 1000.0;
    if (upSeconds < valveMinutes_ * 60.0)
        return false;
    Q_EMIT noted(u"valve enforced by the clock — up " + QString::number(qint64(upSeconds / 60.0)) +
                 u" min, limit " + QString::number(qint64(valveMinutes_)) + u" min");
    lower();
    Q_EMIT timedOut();
    return true;
}

void ShieldController::yieldNow() {
    if (!up_)
        return;
    lower();
    Q_EMIT yielded();
}

void ShieldController::panic() {
    escapeTaps_.clear();
    lower();
    Q_EMIT panicked();
}

void ShieldController::lower() {
    if (!up_)
        return;
    up_ = false;
    hintTimer_.reset();
    safetyTimer_.reset();
    yieldTimer_.reset();
    grabTimer_.reset();
    if (platform_) {
        platform_->stopWatchingStacking();
        platform_->release();
        platform_.reset();
    }
    notedFocusAway_ = false;
    hadFocus_ = false;
    if (monitoring_) {
        qApp->removeEventFilter(this);
        monitoring_ = false;
    }
    for (const auto& c : watches_)
        disconnect(c);
    watches_.clear();
    for (const auto& w : windows_) {
        if (!w)
            continue;
        w->onClose = nullptr;
        w->hide();
        w->deleteLater();
    }
    windows_.clear();
    mainWindow_ = nullptr;
    escapeView_ = nullptr;
    simulate_ = nullptr;
    typed_.clear();
    escapeTaps_.clear();
    Q_EMIT upChanged(false);
}

void ShieldController::showEscape() {
    if (escapeView_ || !mainWindow_)
        return;
    auto* view = new EscapeView(clock_, terms_.standing);
    escapeView_ = view;
    view->onKeepGoing = [this] {
        // Keeping the promise leaves the Esc taps counting toward a panic.
        if (escapeView_)
            escapeView_->deleteLater();
        escapeView_ = nullptr;
    };
    view->onBreak = [this](std::optional<PromiseRecord::Reason> reason) {
        lower();
        Q_EMIT wasBroken(reason);
    };
    mainWindow_->setOverlay(view);
    view->begin();
    // The rehearsal's "Simulate the system taking the screen" stays above the warning, so it
    // can always be clicked.
    if (simulate_)
        simulate_->raise();
}

bool ShieldController::handle(QKeyEvent* event) {
    const Qt::KeyboardModifiers mods = event->modifiers();
    // In a rehearsal, Ctrl (and Meta) shortcuts pass, so Quit always works there. The real
    // shield swallows them with everything else.
    if (rehearsal_ && (mods & (Qt::ControlModifier | Qt::MetaModifier)))
        return false;

    const QDateTime now = clock_.now();
    if (event->key() == Qt::Key_Escape) {
        const QDateTime oldest = now.addMSecs(-qint64(tapWindow * 1000));
        escapeTaps_.removeIf([&](const QDateTime& t) { return t <= oldest; });
        escapeTaps_.append(now);
        const int taps = int(escapeTaps_.size());
        const int remaining = tapsToPanic - taps;
        if (remaining <= 0)
            panic();
        else if (!escapeView_) {
            if (taps == tapsToWarn)
                showEscape();
        } else {
            escapeView_->nudgePanic(remaining);
        }
        return true;
    }
    if (escapeView_)
        return false; // Tab, Space and Return belong to the warning

    if (!lastKeystroke_.isValid() || lastKeystroke_.msecsTo(now) > qint64(tapWindow * 1000))
        typed_.clear();
    lastKeystroke_ = now;
    const QString characters = keyCharacters(event);
    if (characters.isEmpty())
        return true;
    typed_ = QString(typed_ + characters).right(64);
    const QString phrase = terms_.escapePhrase;
    if (!phrase.isEmpty() && typed_.endsWith(phrase)) {
        typed_.clear();
        showEscape();
        return true;
    }
    Q_EMIT keyPressed(characters);
    return true;
}

bool ShieldController::eventFilter(QObject* watched, QEvent* event) {
    if (!up_)
        return QObject::eventFilter(watched, event);
    switch (event->type()) {
    case QEvent::ShortcutOverride: {
        auto* key = static_cast<QKeyEvent*>(event);
        if (rehearsal_ && (key->modifiers() & (Qt::ControlModifier | Qt::MetaModifier)))
            return false;
        // Claim every shortcut so it arrives as a plain key press, which the monitor then
        // judges: no application shortcut (Ctrl-Q among them) fires under a real shield.
        if (!escapeView_ || key->key() == Qt::Key_Escape) {
            key->accept();
            return true;
        }
        return false;
    }
    case QEvent::KeyPress:
    case QEvent::KeyRelease: {
        // Only keys from the window system are judged; key events the app sends to itself
        // (a web view forwarding one, say) are its own business.
        if (!event->spontaneous())
            return false;
        auto* key = static_cast<QKeyEvent*>(event);
        // The warning's keys (Tab, Space, Return) belong to the main window, but on Wayland
        // another window may have the focus for a moment: another of the shield's, or under a
        // real shield this process's own setup window.
        auto* window = qobject_cast<QWindow*>(watched);
        if (escapeView_ && key->key() != Qt::Key_Escape && mainWindow_ && window &&
            window != mainWindow_->windowHandle() && (!rehearsal_ || isOurs(window->winId()))) {
            QWidget* target =
                mainWindow_->focusWidget() ? mainWindow_->focusWidget() : escapeView_.data();
            QKeyEvent copy(key->type(), key->key(), key->modifiers(), key->text(),
                           key->isAutoRepeat(), ushort(key->count()));
            QCoreApplication::sendEvent(target, &copy);
            return true;
        }
        return event->type() == QEvent::KeyPress && handle(key);
    }
    case QEvent::Hide:
        // A popup of ours (a page's menu, a list box) takes the grab while it is open and
        // drops it when it closes: take it back.
        if (auto* window = qobject_cast<QWindow*>(watched); window && window->type() == Qt::Popup)
            regrabSoon();
        return false;
    default:
        return false;
    }
}

} // namespace tovin

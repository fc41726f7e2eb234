#include "resident/countdown_panel.h"

#include "resident/guards/call_detector.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include <cmath>

namespace tovin {

namespace {

// The notice window: a small frameless card above everything, never activated, drawn in the
// page's panel colour with a hairline border. Closing it (by the window system) is the same as
// "Not now" while a snooze is left; otherwise it cannot be closed.
class PanelWindow final : public QWidget {
public:
    std::function<void()> onClose;

protected:
    void closeEvent(QCloseEvent* event) override {
        event->ignore();
        if (onClose)
            onClose();
    }
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.fillRect(rect(), QColor(0x12, 0x18, 0x21));
        p.setPen(QColor(0x3a, 0x4a, 0x60));
        p.drawRect(rect().adjusted(0, 0, -1, -1));
    }
};

} // namespace

CountdownPanel::CountdownPanel(Clock& clock, const CallDetector& calls, QObject* parent)
    : Countdown(parent)
    , clock_(clock)
    , calls_(calls) {
}

CountdownPanel::~CountdownPanel() {
    delete panel_;
}

void CountdownPanel::show(double seconds, int snoozesLeft) {
    if (showing_)
        return;
    showing_ = true;
    remaining_ = seconds;

    auto* window = new PanelWindow;
    window->setWindowTitle(QStringLiteral("Tovin countdown"));
    Qt::WindowFlags flags = Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                            Qt::WindowDoesNotAcceptFocus;
    // Outside the window manager's hands on X11: no title bar, no placement of its own, and a
    // click on it never makes the window manager activate another of Tovin's windows (the
    // setup window would then count as "in use" and hold the lockout off).
    if (QGuiApplication::platformName() == u"xcb")
        flags |= Qt::X11BypassWindowManagerHint;
    window->setWindowFlags(flags);
    window->setAttribute(Qt::WA_ShowWithoutActivating);
    window->setAttribute(Qt::WA_DeleteOnClose, false);
    window->setFixedSize(width, height);

    auto* column = new QVBoxLayout(window);
    column->setContentsMargins(18, 0, 18, 0);
    column->setSpacing(10);
    column->addStretch();

    auto* label = new QLabel(window);
    QFont big = label->font();
    big.setPointSizeF(15);
    big.setWeight(QFont::DemiBold);
    label->setFont(big);
    column->addWidget(label);

    auto* hint = new QLabel(
        QStringLiteral("Finish your sentence. Your screen comes back when you're done."), window);
    QFont small = hint->font();
    small.setPointSizeF(11);
    hint->setFont(small);
    hint->setWordWrap(true);
    hint->setMaximumWidth(300);
    hint->setForegroundRole(QPalette::PlaceholderText);
    column->addWidget(hint);

    auto* row = new QHBoxLayout;
    row->setSpacing(8);
    auto* start = new QPushButton(QStringLiteral("Start now"), window);
    start->setDefault(true);
    start->setFocusPolicy(Qt::NoFocus);
    connect(start, &QPushButton::clicked, this, &CountdownPanel::startNow);
    row->addWidget(start);
    if (snoozesLeft >= 1) {
        auto* later =
            new QPushButton(snoozesLeft == 1 ? QStringLiteral("Not now (last one)")
                                             : QStringLiteral("Not now (%1 left)").arg(snoozesLeft),
                            window);
        later->setFocusPolicy(Qt::NoFocus);
        connect(later, &QPushButton::clicked, this, &CountdownPanel::snooze);
        row->addWidget(later);
        window->onClose = [this] { snooze(); };
    }
    row->addStretch();
    column->addLayout(row);
    column->addStretch();

    if (placement_) {
        window->move(*placement_);
    } else if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        window->move(area.right() + 1 - width - inset, area.bottom() + 1 - height - inset);
    }

    delete panel_;
    panel_ = window;
    label_ = label;
    render();
    window->show();
    window->raise();

    timer_ = clock_.createTimer([this] { tick(); });
    timer_->start(1.0, true);
}

void CountdownPanel::dismiss() {
    showing_ = false;
    timer_.reset();
    if (panel_) {
        panel_->hide();
        panel_->deleteLater();
        panel_ = nullptr;
    }
}

void CountdownPanel::startNow() {
    dismiss();
    Q_EMIT fired();
}

void CountdownPanel::snooze() {
    dismiss();
    Q_EMIT snoozed();
}

void CountdownPanel::tick() {
    // A call or a screen share that starts mid-countdown cancels the lockout, even on the last
    // second.
    const CallDetector::State call = calls_.current();
    if (CallDetector::isBusy(call)) {
        const QString why = CallDetector::explanation(call);
        dismiss();
        Q_EMIT cancelled(why);
        return;
    }
    remaining_ -= 1.0;
    if (remaining_ <= 0) {
        dismiss();
        Q_EMIT fired();
        return;
    }
    render();
}

void CountdownPanel::render() {
    text_ = QStringLiteral("Moving in %1s").arg(std::lround(remaining_));
    if (label_)
        label_->setText(text_);
}

} // namespace tovin

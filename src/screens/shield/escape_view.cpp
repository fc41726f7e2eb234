#include "screens/shield/escape_view.h"

#include "desktop/shield_style.h"
#include "screens/shield/hold_button.h"

#include <QApplication>
#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

namespace tovin {

EscapeView::EscapeView(Clock& clock, QString standing, QWidget* parent)
    : QWidget(parent)
    , clock_(clock)
    , standing_(std::move(standing)) {
    setFocusPolicy(Qt::StrongFocus);
    // A fixed-width column: wrapped labels need a definite width to get their full height.
    stack_ = centredColumn(this, 620, 18);
}

QLabel* EscapeView::addLabel(const QString& text, qreal points, QFont::Weight weight, qreal alpha) {
    return addColumnLabel(stack_, text, points, weight, alpha);
}

QPushButton* EscapeView::addButton(const QString& text) {
    auto* button = new QPushButton(text);
    button->setMinimumSize(260, 44);
    QFont f = button->font();
    f.setPointSizeF(13); // the large control size of a warning meant to be read at a glance
    button->setFont(f);
    button->setFocusPolicy(Qt::StrongFocus);
    stack_->addWidget(button, 0, Qt::AlignHCenter);
    button->show();
    return button;
}

void EscapeView::clearStack() {
    while (QLayoutItem* item = stack_->takeAt(0)) {
        if (QWidget* w = item->widget())
            w->deleteLater();
        delete item;
    }
}

void EscapeView::begin() {
    clearStack();
    addLabel(QStringLiteral("You told yourself you'd move first."), 34, QFont::Bold, 1.0);
    addLabel(standing_, 17, QFont::Medium, 0.62);
    addLabel(QStringLiteral("Nobody else ever sees this. You will."), 15, QFont::Normal, 0.34);
    stack_->addSpacing(14);

    QPushButton* keep = addButton(QStringLiteral("Keep the promise"));
    keep->setDefault(true);
    keep->setAutoDefault(true);
    connect(keep, &QPushButton::clicked, this, &EscapeView::keepTapped);

    hold_ = new HoldButton(QStringLiteral("Hold to break it"), 3.0, clock_);
    hold_->onComplete = [this] { askReason(); };
    stack_->addWidget(hold_, 0, Qt::AlignHCenter);
    hold_->show();

    panicLabel_ =
        addLabel(QStringLiteral("Mouse not working? Hold Space. Still stuck? Keep tapping Esc."),
                 12, QFont::Normal, 0.3);
    // Space reaches the hold at once; Return is caught by the shield window for "Keep".
    hold_->setFocus(Qt::OtherFocusReason);
}

void EscapeView::nudgePanic(int remaining) {
    if (!panicLabel_)
        return;
    panicLabel_->setText(remaining < 2
                             ? QStringLiteral("One more Esc and you're out.")
                             : QStringLiteral("%1 more Esc taps and you're out.").arg(remaining));
    panicLabel_->setStyleSheet(whiteAt(0.75));
}

void EscapeView::keepTapped() {
    if (onKeepGoing)
        onKeepGoing();
}

void EscapeView::askReason() {
    asking_ = true;
    clearStack();
    hold_ = nullptr;
    panicLabel_ = nullptr;
    addLabel(QStringLiteral("Which was it?"), 30, QFont::Bold, 1.0);
    addLabel(QStringLiteral("Answer honestly — it only goes in your own log."), 15, QFont::Normal,
             0.4);
    QPushButton* first = nullptr;
    for (const auto reason : PromiseRecord::allReasons()) {
        QPushButton* button = addButton(toString(reason));
        button->setObjectName(toString(reason));
        button->setAutoDefault(true);
        button->installEventFilter(this);
        connect(button, &QPushButton::clicked, this, [this, button] { reasonTapped(button); });
        if (!first) {
            first = button;
            button->setDefault(true);
        }
    }
    addLabel(QStringLiteral("Tab to move · Space or Return to choose."), 12, QFont::Normal, 0.3);
    firstReason_ = first;
    pressedSinceAsked_.clear();
    if (first)
        first->setFocus(Qt::OtherFocusReason);
}

void EscapeView::keyPressEvent(QKeyEvent* event) {
    // Return keeps the promise wherever the focus is; once a reason is asked, it chooses the
    // first one (a focused reason button takes Return itself).
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        if (!asking_)
            keepTapped();
        else if (firstReason_)
            firstReason_->click();
        return;
    }
    QWidget::keyPressEvent(event);
}

bool EscapeView::eventFilter(QObject* watched, QEvent* event) {
    // The reason is a choice made after the question appeared: a key still held from the hold
    // (its repeats, its release) answers nothing, and Return means the first reason wherever
    // the focus is.
    if (!asking_ || (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease))
        return QWidget::eventFilter(watched, event);
    auto* key = static_cast<QKeyEvent*>(event);
    if (key->isAutoRepeat())
        return true;
    // X sends a held key's repeats as a release and a press with one timestamp. Qt marks them
    // by peeking at the queue, which a busy machine has not filled yet: the timestamps decide.
    if (key->timestamp() != 0) {
        if (event->type() == QEvent::KeyRelease) {
            releasedAt_.insert(key->key(), key->timestamp());
        } else if (const auto released = releasedAt_.find(key->key());
                   released != releasedAt_.end() && key->timestamp() - *released <= 10) {
            return true;
        }
    }
    if (event->type() == QEvent::KeyPress) {
        pressedSinceAsked_.insert(key->key());
        if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
            if (firstReason_)
                firstReason_->click();
            return true;
        }
        return false;
    }
    return !pressedSinceAsked_.contains(key->key());
}

bool EscapeView::focusNextPrevChild(bool next) {
    // Tab and Shift+Tab go round the warning's own buttons (keep and hold, or the two reasons)
    // and never on to the page underneath, where Space and Return would press its buttons.
    QList<QWidget*> ring;
    for (int i = 0; i < stack_->count(); ++i) {
        QWidget* w = stack_->itemAt(i)->widget();
        if (w && (w->focusPolicy() & Qt::TabFocus) && !qobject_cast<QLabel*>(w))
            ring.append(w);
    }
    if (ring.isEmpty())
        return true;
    const qsizetype at = ring.indexOf(QApplication::focusWidget());
    const qsizetype to = at < 0 ? 0 : (at + (next ? 1 : ring.size() - 1)) % ring.size();
    ring[to]->setFocus(next ? Qt::TabFocusReason : Qt::BacktabFocusReason);
    return true;
}

void EscapeView::reasonTapped(QPushButton* button) {
    // A button naming no known reason still breaks the promise, with no reason.
    const auto reason = button ? reasonFromString(button->objectName()) : std::nullopt;
    if (onBreak)
        onBreak(reason);
}

QStringList EscapeView::texts() const {
    QStringList out;
    for (int i = 0; i < stack_->count(); ++i) {
        QWidget* w = stack_->itemAt(i)->widget();
        if (!w)
            continue;
        if (auto* label = qobject_cast<QLabel*>(w))
            out.append(label->text());
        else if (auto* button = qobject_cast<QPushButton*>(w))
            out.append(button->text());
        else if (auto* hold = qobject_cast<HoldButton*>(w))
            out.append(hold->title());
    }
    return out;
}

void EscapeView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), QColor::fromRgbF(0.02f, 0.02f, 0.02f, 0.94f));
}

} // namespace tovin

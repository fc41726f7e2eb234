#pragma once

#include "core/clock.h"
#include "core/promise_record.h"
#include "screens/shield/hold_button.h"

#include <QHash>
#include <QLabel>
#include <QPointer>
#include <QSet>
#include <QWidget>

#include <functional>
#include <optional>
class QPushButton;
class QVBoxLayout;

namespace tovin {

// The break warning: what the person promised, what breaking it costs (the ledger's standing),
// "Keep the promise" (the default) and "Hold to break it"; once the hold completes, an honest
// reason. Usable without a mouse: Space holds, Return keeps the promise, Tab moves between.
class EscapeView final : public QWidget {
    Q_OBJECT
public:
    EscapeView(Clock& clock, QString standing, QWidget* parent = nullptr);

    std::function<void()> onKeepGoing;
    std::function<void(std::optional<PromiseRecord::Reason>)> onBreak;

    void begin();
    void nudgePanic(int remaining);
    void keepTapped();
    void reasonTapped(QPushButton* button);
    void askReason();

    HoldButton* hold() const { return hold_; }
    QLabel* panicLabel() const { return panicLabel_; }
    // Every text on the view, top to bottom (for checks and screenshots).
    QStringList texts() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    bool focusNextPrevChild(bool next) override;

private:
    QLabel* addLabel(const QString& text, qreal points, QFont::Weight weight, qreal alpha);
    QPushButton* addButton(const QString& text);
    void clearStack();

    Clock& clock_;
    QString standing_;
    QVBoxLayout* stack_ = nullptr;
    QPointer<HoldButton> hold_;
    QPointer<QLabel> panicLabel_;
    QPointer<QPushButton> firstReason_;
    bool asking_ = false;
    QSet<int> pressedSinceAsked_;
    QHash<int, quint64> releasedAt_; // the window system's time of each key's last release
};

} // namespace tovin

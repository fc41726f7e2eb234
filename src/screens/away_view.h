#pragma once

#include "core/calendar.h"
#include "core/clock.h"

#include <QDateTime>
#include <QPointer>
#include <QWidget>

#include <memory>

class QLabel;

namespace tovin {

// What the shield shows during an away block: there is nothing to do but leave the desk, so it
// names the block, counts down and says when the screen comes back. No buttons, no input.
class AwayView final : public QWidget {
    Q_OBJECT
public:
    AwayView(QString label, QDateTime endsAt, Clock& clock, const Calendar& calendar,
             QWidget* parent = nullptr);

    // "15:00 left", "1:01 left", "59s left", "0s left": seconds rounded up, never below 0.
    static QString remainingText(double seconds);

    QString countdownText() const;
    QString comesBackText() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void refresh();

    QString label_;
    QDateTime endsAt_;
    Clock& clock_;
    QPointer<QLabel> remaining_;
    QPointer<QLabel> comesBack_;
    std::unique_ptr<Timer> ticker_;
};

} // namespace tovin

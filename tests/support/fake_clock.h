#pragma once

#include "core/clock.h"

#include <QTimeZone>

namespace tovin::fakes {

// A clock that stands still until the test moves it.
class FakeClock final : public Clock {
public:
    explicit FakeClock(QDateTime start = QDateTime(QDate(2026, 3, 2), QTime(9, 0),
                                                   QTimeZone::utc()))
        : now_(std::move(start)) {}

    QDateTime now() const override { return now_; }
    void set(QDateTime at) { now_ = std::move(at); }
    void advance(double seconds) { now_ = now_.addMSecs(qint64(seconds * 1000.0)); }

private:
    QDateTime now_;
};

} // namespace tovin::fakes

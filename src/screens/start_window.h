#pragma once

#include "core/screens.h"

#include <QWidget>

namespace tovin {

// The start window of --layout-check: what the shield is and how to get out of it, before the
// first lockout. "Begin" leaves as `begin`.
class StartWindow final : public QWidget {
    Q_OBJECT
public:
    explicit StartWindow(const StartCard& card);

Q_SIGNALS:
    void begin();
    // The person closed the window without beginning.
    void closed();

protected:
    void closeEvent(QCloseEvent* event) override;
};

} // namespace tovin

#pragma once

#include "core/screen_protocol.h"
#include "screens/local_screens.h"

#include <QElapsedTimer>
#include <QLocalSocket>
#include <QObject>
#include <QTimer>

namespace tovin {

// The screen helper's end of the wire: runs each command the resident sends on the screens
// drawn here, and sends back every event, a heartbeat each second and the journal's notes. The
// helper exists for the resident: when the resident's end closes (it quit, crashed or was
// killed), the shield comes down and the helper ends at once.
class ScreenHost final : public QObject {
    Q_OBJECT
public:
    explicit ScreenHost(LocalScreens& screens, QObject* parent = nullptr);

    // Takes the inherited end of the resident's socket pair. Refused, with the reason, unless
    // the kernel says the other end is this user's and the process that started this one: no
    // other process can hand the helper a page, a key to send on or a folder to serve.
    bool attach(int fd, QString* why);

    static constexpr int heartbeatMs = 1000;
    // The longest a newly opened setup window waits for the keyboard before it is reported.
    static constexpr int firstReportWithinMs = 2000;

private:
    void send(const ScreenProtocol::AnyEvent& event);
    void readCommands();
    void run(const ScreenProtocol::AnyCommand& command);
    void residentGone();
    void reportSetup(bool always);

    LocalScreens& screens_;
    QLocalSocket socket_;
    QTimer heartbeat_;
    QTimer coverWatch_;
    QElapsedTimer coverSince_;
    bool lastActive_ = false;
    bool lastVisible_ = false;
    qint64 setupGeneration_ = 0;
    QElapsedTimer setupOpened_;
};

} // namespace tovin

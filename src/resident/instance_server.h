#pragma once

#include <QLocalServer>

#include <functional>

namespace tovin {

class Journal;

// The running Tovin's answer to a later launch: a socket in the private runtime folder where a
// second copy says "show" and hears "pid N". Anything of this user's can call it, so it is
// bounded: a few callers at a time (more are closed as they arrive, before they cost a thing),
// each with a second to say what it wants and a line's worth of bytes to say it in. A flood of
// idle callers never takes the descriptors a lockout needs.
class InstanceServer final : public QLocalServer {
    Q_OBJECT
public:
    static constexpr int maxCallers = 8;
    static constexpr int answerWithinMs = 1000;
    static constexpr qint64 maxRequestBytes = 64;

    InstanceServer(QString name, Journal& journal, QObject* parent = nullptr);

    // Listens at the name, replacing whatever a crashed copy left there, once its folder is
    // found private again (else it says why in the journal, once).
    bool start();
    // Listens again when the socket went away (closed by the system, or deleted by hand).
    void keepListening();
    int callers() const { return callers_; }

Q_SIGNALS:
    // A later launch asked the running copy to come forward.
    void showAsked();

protected:
    void incomingConnection(quintptr socketDescriptor) override;

private:
    void take();

    QString name_;
    Journal& journal_;
    QString refusedBecause_;
    int callers_ = 0;
};

} // namespace tovin

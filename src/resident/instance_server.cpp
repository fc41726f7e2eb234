#include "resident/instance_server.h"

#include "core/paths.h"
#include "resident/records/journal.h"

#include <QFileInfo>
#include <QLocalSocket>
#include <QTimer>

#include <unistd.h>

namespace tovin {

InstanceServer::InstanceServer(QString name, Journal& journal, QObject* parent)
    : QLocalServer(parent)
    , name_(std::move(name))
    , journal_(journal) {
    setSocketOptions(QLocalServer::UserAccessOption);
    connect(this, &QLocalServer::newConnection, this, &InstanceServer::take);
}

bool InstanceServer::start() {
    if (name_.isEmpty())
        return false;
    // Checked again at every listen: the folder may have been deleted and made again by
    // somebody else since launch, and a socket in their folder is theirs to replace.
    QString why;
    if (!paths::isPrivateDir(QFileInfo(name_).absolutePath(), &why)) {
        if (why != refusedBecause_)
            journal_.note(QStringLiteral("launch"),
                          u"the instance socket is not listening: " + why);
        refusedBecause_ = why;
        return false;
    }
    refusedBecause_.clear();
    QLocalServer::removeServer(name_);
    return listen(name_);
}

void InstanceServer::keepListening() {
    // Qt closes a server whose accept() fails (no descriptors left) without a word, and a
    // socket file deleted by hand leaves a server nobody can reach: either way, listen again.
    if (isListening() && QFileInfo(fullServerName()).exists())
        return;
    close();
    start();
}

void InstanceServer::incomingConnection(quintptr socketDescriptor) {
    if (callers_ >= maxCallers) {
        ::close(int(socketDescriptor));
        return;
    }
    ++callers_;
    QLocalServer::incomingConnection(socketDescriptor);
}

void InstanceServer::take() {
    while (QLocalSocket* s = nextPendingConnection()) {
        const auto drop = [s] {
            s->abort();
            s->deleteLater();
        };
        connect(s, &QLocalSocket::disconnected, s, &QObject::deleteLater);
        connect(s, &QObject::destroyed, this, [this] { --callers_; });
        // A caller that says nothing useful in time is not a launch of Tovin.
        QTimer::singleShot(answerWithinMs, s, drop);
        connect(s, &QLocalSocket::readyRead, this, [this, s, drop] {
            if (!s->canReadLine()) {
                if (s->bytesAvailable() > maxRequestBytes)
                    drop();
                return;
            }
            if (s->readLine(maxRequestBytes).trimmed() != "show") {
                drop();
                return;
            }
            s->write(QByteArray("pid ") + QByteArray::number(qint64(::getpid())) + '\n');
            s->flush();
            s->disconnectFromServer();
            Q_EMIT showAsked();
        });
    }
}

} // namespace tovin

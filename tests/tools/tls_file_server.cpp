// A small HTTPS file server for the updater's tests: serves one folder over TLS on 127.0.0.1
// with the certificate it is given, and prints its port on the first line of stdout.
//
//   tls_file_server ROOT CERT.pem KEY.pem

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>

#include <cstdio>
#include <memory>

namespace {

void respond(QSslSocket* socket, const QString& root, const QByteArray& requestLine) {
    const QByteArray path = QByteArray::fromPercentEncoding(requestLine.split(' ').value(1));
    const QString file = QDir::cleanPath(root + u'/' + QString::fromUtf8(path));
    QFile f(file);
    const bool found = file.startsWith(root) && f.open(QIODevice::ReadOnly);
    const QByteArray body = found ? f.readAll() : QByteArray();
    socket->write(QByteArray(found ? "HTTP/1.1 200 OK" : "HTTP/1.1 404 Not Found") +
                  "\r\nContent-Length: " + QByteArray::number(body.size()) +
                  "\r\nConnection: close\r\n\r\n" + body);
    socket->disconnectFromHost(); // once everything written has gone out
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc != 4) {
        std::fprintf(stderr, "usage: tls_file_server ROOT CERT.pem KEY.pem\n");
        return 2;
    }
    const QString root = QDir(QString::fromLocal8Bit(argv[1])).canonicalPath();
    QFile keyFile(QString::fromLocal8Bit(argv[3]));
    keyFile.open(QIODevice::ReadOnly);
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.setLocalCertificateChain(QSslCertificate::fromPath(QString::fromLocal8Bit(argv[2])));
    ssl.setPrivateKey(QSslKey(&keyFile, QSsl::Ec));
    ssl.setPeerVerifyMode(QSslSocket::VerifyNone);

    QSslServer server;
    server.setSslConfiguration(ssl);
    QObject::connect(&server, &QSslServer::pendingConnectionAvailable, &server, [&] {
        while (QTcpSocket* plain = server.nextPendingConnection()) {
            auto* socket = static_cast<QSslSocket*>(plain);
            QObject::connect(socket, &QSslSocket::disconnected, socket, &QObject::deleteLater);
            auto consume = [socket, root, request = std::make_shared<QByteArray>()] {
                request->append(socket->readAll());
                if (!request->contains("\r\n\r\n"))
                    return;
                QObject::disconnect(socket, &QSslSocket::readyRead, nullptr, nullptr); // answered
                respond(socket, root, request->left(request->indexOf("\r\n")));
            };
            QObject::connect(socket, &QSslSocket::readyRead, socket, consume);
            // The request may have arrived with the handshake, before anyone was listening.
            consume();
        }
    });
    if (!server.listen(QHostAddress::LocalHost, 0)) {
        std::fprintf(stderr, "tls_file_server: cannot listen: %s\n",
                     qPrintable(server.errorString()));
        return 1;
    }
    std::printf("%d\n", int(server.serverPort()));
    std::fflush(stdout);
    return app.exec();
}

// A small HTTPS file server for the updater's tests: serves one folder over TLS on 127.0.0.1
// with the certificate it is given, prints its port on the first line of stdout and then one line
// per request ("GET /path"). A path under /cut/ serves the first half of the file while promising
// all of it, then hangs up: a download cut off half-way.
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
#include <QTextStream>

#include <cstdio>

namespace {

void respond(QSslSocket* socket, const QString& root, const QByteArray& requestLine) {
    const QList<QByteArray> parts = requestLine.split(' ');
    QByteArray path = parts.value(1);
    std::printf("%s\n", requestLine.constData());
    std::fflush(stdout);
    bool cut = false;
    if (path.startsWith("/cut/")) {
        cut = true;
        path = path.mid(4);
    }
    const QString file = QDir::cleanPath(root + u'/' + QString::fromUtf8(QByteArray::fromPercentEncoding(path)));
    QFile f(file);
    if (parts.value(0) != "GET" || !file.startsWith(root) || !f.open(QIODevice::ReadOnly)) {
        socket->write("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
        socket->disconnectFromHost();
        return;
    }
    const QByteArray body = f.readAll();
    socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                  QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n");
    // Closing once everything written has gone out; a cut body is then short of its length.
    socket->write(cut ? body.left(body.size() / 2) : body);
    socket->disconnectFromHost();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc != 4) {
        std::fprintf(stderr, "usage: tls_file_server ROOT CERT.pem KEY.pem\n");
        return 2;
    }
    const QString root = QDir(QString::fromLocal8Bit(argv[1])).canonicalPath();
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    const auto chain = QSslCertificate::fromPath(QString::fromLocal8Bit(argv[2]));
    QFile keyFile(QString::fromLocal8Bit(argv[3]));
    if (chain.isEmpty() || !keyFile.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "tls_file_server: cannot read the certificate or key\n");
        return 2;
    }
    ssl.setLocalCertificateChain(chain);
    ssl.setPrivateKey(QSslKey(&keyFile, QSsl::Ec));
    ssl.setPeerVerifyMode(QSslSocket::VerifyNone);

    QSslServer server;
    server.setSslConfiguration(ssl);
    QObject::connect(&server, &QSslServer::pendingConnectionAvailable, &server, [&] {
        while (QTcpSocket* plain = server.nextPendingConnection()) {
            auto* socket = static_cast<QSslSocket*>(plain);
            auto* request = new QByteArray("");
            QObject::connect(socket, &QSslSocket::disconnected, socket, [socket, request] {
                delete request;
                socket->deleteLater();
            });
            auto consume = [socket, request, root] {
                if (request->isNull())
                    return; // answered already
                request->append(socket->readAll());
                if (!request->contains("\r\n\r\n"))
                    return;
                const QByteArray line = request->left(request->indexOf("\r\n"));
                *request = QByteArray();
                respond(socket, root, line);
            };
            QObject::connect(socket, &QSslSocket::readyRead, socket, consume);
            // The request may have arrived with the handshake, before anyone was listening.
            consume();
        }
    });
    if (!server.listen(QHostAddress::LocalHost, 0)) {
        std::fprintf(stderr, "tls_file_server: cannot listen: %s\n", qPrintable(server.errorString()));
        return 1;
    }
    std::printf("%d\n", int(server.serverPort()));
    std::fflush(stdout);
    return app.exec();
}

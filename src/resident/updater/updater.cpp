#include "resident/updater/updater.h"

#include "core/atomic_file.h"
#include "resident/records/journal.h"
#include "resident/updater/release_check.h"
#include "resident/updater/unpack.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QThreadPool>
#include <QUuid>

namespace tovin::Updater {

namespace {

constexpr int timeoutMs = 15'000;
// A release of Tovin is tens of megabytes; a feed is a few hundred bytes. Anything far larger
// is not what was published, and must not fill the disk or the memory on its way in.
constexpr qint64 maxArchiveBytes = 1024LL * 1024 * 1024;
constexpr qint64 maxFeedBytes = 64 * 1024;

void note(Journal& journal, const QString& message) {
    journal.note(QStringLiteral("update"), message);
}

QNetworkRequest request(const QUrl& url) {
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setTransferTimeout(timeoutMs);
    // Redirects may move between https addresses only, whatever session carries the request.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    if (isTestBuild()) {
        // A test build may trust the throw-away authority of a test server as well.
        const QString ca = qEnvironmentVariable("TOVIN_UPDATE_CA");
        if (!ca.isEmpty()) {
            QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
            ssl.addCaCertificates(QSslCertificate::fromPath(ca));
            request.setSslConfiguration(ssl);
        }
    }
    return request;
}

QString installFolderOf(const QString& binDir) {
    return QDir::cleanPath(binDir + u"/..");
}

QString quoted(const QString& path) {
    // The script's paths are always in double quotes; these characters would still be live
    // inside them, so they are escaped.
    QString escaped = path;
    for (const QChar c : {u'\\', u'"', u'$', u'`'})
        escaped.replace(c, QString(u'\\') + c);
    return u'"' + escaped + u'"';
}

} // namespace

QUrl feedURL() {
    if (isTestBuild()) {
        const QString override = qEnvironmentVariable("TOVIN_UPDATE_FEED");
        if (!override.isEmpty())
            return QUrl(override);
    }
    return QUrl(QStringLiteral(TOVIN_FEED_URL));
}

bool managedByPackageManager() {
#ifdef TOVIN_PACKAGED
    return true;
#else
    return false;
#endif
}

bool hasReleaseFeed() {
    if (managedByPackageManager())
        return false;
    const QUrl url = feedURL();
    return url.isValid() && !url.isEmpty() && !trustedKeys().isEmpty();
}

QString feedSummary() {
    if (managedByPackageManager())
        return QStringLiteral("managed by the package manager");
    if (!hasReleaseFeed())
        return QStringLiteral("no release feed configured — this copy gets its updates elsewhere");
    return u"checks " + feedURL().toString() + u" (running " + currentVersion() + u')';
}

QString currentVersion() {
    const QString folder = installFolderOf(QCoreApplication::applicationDirPath());
    return folderVersion(folder).value_or(QStringLiteral("0"));
}

void check(Session session, QObject* context, std::function<void(const Status&)> completion) {
    const QUrl url = feedURL();
    QPointer<QObject> guard(context);
    auto deliver = [guard, &journal = session.journal,
                    completion = std::move(completion)](const Status& status) {
        if (status.kind == Status::Failed)
            note(journal, u"check failed — " + status.message);
        if (guard)
            completion(status);
    };
    if (url.scheme() != u"https") {
        deliver(Status::failed(QStringLiteral("the release feed has no usable https address")));
        return;
    }
    QNetworkReply* reply = session.network.get(request(url));
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply,
                     [reply](qint64 received, qint64) {
                         if (received > maxFeedBytes)
                             reply->abort();
                     });
    QObject::connect(
        reply, &QNetworkReply::finished, context, [reply, deliver, &journal = session.journal] {
            reply->deleteLater();
            if (reply->error() != QNetworkReply::NoError) {
                deliver(Status::failed(reply->errorString()));
                return;
            }
            const auto release = decodeRelease(reply->read(maxFeedBytes));
            if (!release) {
                deliver(Status::failed(QString::fromLatin1(unreadableFeed)));
                return;
            }
            const QString current = currentVersion();
            if (isNewer(release->version, current)) {
                note(journal, release->version + u" is available (running " + current + u')');
                deliver(Status::available(*release));
            } else {
                note(journal, u"up to date on " + current);
                deliver(Status::upToDate());
            }
        });
}

// ---------------------------------------------------------------------------------------------

Download::Download(Session session, const Release& release,
                   std::function<void(const Fetched&)> completion)
    : session_(session)
    , release_(release)
    , completion_(std::move(completion)) {
}

Download* fetch(Session session, const Release& release, QObject* context,
                std::function<void(const Fetched&)> completion) {
    auto* download = new Download(session, release, std::move(completion));
    download->start(context);
    return download;
}

void Download::start(QObject* context) {
    context_ = context;
    const QUrl url(release_.url, QUrl::StrictMode);
    if (!url.isValid() || url.scheme() != u"https" || url.host().isEmpty()) {
        // Deliver after fetch has returned, as every other outcome is.
        QMetaObject::invokeMethod(
            this, [this] { fail(QStringLiteral("that release has no usable https address")); },
            Qt::QueuedConnection);
        return;
    }
    note(session_.journal, u"downloading " + release_.version + u" from " + url.toString());
    working_ = QDir::temp().filePath(u"tovin-update-" +
                                     QUuid::createUuid().toString(QUuid::WithoutBraces));
    file_ = new QFile(working_ + u"/Tovin.tar.gz", this);
    const bool kept = QDir().mkpath(working_) && file_->open(QIODevice::WriteOnly);
    if (!kept) {
        const QString error = file_->errorString();
        QMetaObject::invokeMethod(
            this, [this, error] { fail(u"couldn't keep the download: " + error); },
            Qt::QueuedConnection);
        return;
    }

    reply_ = session_.network.get(request(url));
    connect(reply_, &QNetworkReply::downloadProgress, this, [this](qint64 received, qint64 total) {
        Q_EMIT progress(received, total);
        if (received > maxArchiveBytes)
            reply_->abort();
    });
    connect(reply_, &QNetworkReply::readyRead, this, [this] {
        const QByteArray chunk = reply_->readAll();
        if (file_->write(chunk) != chunk.size())
            reply_->abort();
    });
    connect(reply_, &QNetworkReply::finished, this, &Download::downloaded);
}

void Download::downloaded() {
    if (cancelled_)
        return;
    reply_->deleteLater();
    const QByteArray rest = reply_->readAll();
    const bool written = file_->write(rest) == rest.size() && file_->flush();
    file_->close();
    if (reply_->error() != QNetworkReply::NoError || file_->size() == 0) {
        note(session_.journal, u"transfer failed: " + reply_->errorString());
        fail(QStringLiteral("the download didn't finish"));
        return;
    }
    if (!written) {
        fail(u"couldn't keep the download: " + file_->errorString());
        return;
    }
    note(session_.journal, u"downloaded " + QString::number(file_->size()) + u" bytes");

    // Hashing, unpacking and verifying take seconds on a real release: off the main thread.
    const QString working = working_;
    const Release release = release_;
    const QString current = currentVersion();
    const QList<PublicKey> keys = trustedKeys();
    QPointer<Download> self(this);
    QThreadPool::globalInstance()->start([self, working, release, current, keys,
                                          &journal = session_.journal] {
        auto finish = [self](Fetched result) {
            QMetaObject::invokeMethod(
                self.data(),
                [self, result] {
                    if (!self)
                        return;
                    if (result.failure)
                        self->fail(result.failure->message);
                    else
                        self->complete(result);
                },
                Qt::QueuedConnection);
        };
        auto refuse = [&](const QString& message) { finish({{}, working, Failure{message}}); };

        const QString archive = working + u"/Tovin.tar.gz";
        const auto hash = sha256(archive);
        if (!hash)
            return refuse(QStringLiteral("couldn't read the download"));
        if (hash->compare(release.sha256, Qt::CaseInsensitive) != 0) {
            note(journal, QStringLiteral("hash mismatch — refusing"));
            return refuse(
                QStringLiteral("the download didn't match its checksum, so it wasn't installed"));
        }
        note(journal, QStringLiteral("hash matched"));

        const QString unpacked = working + u"/unpacked";
        if (!QDir().mkpath(unpacked))
            return refuse(QStringLiteral("couldn't unpack the download"));
        if (!unpack(archive, unpacked))
            return refuse(QStringLiteral("the download wouldn't unpack"));
        note(journal, QStringLiteral("unpacked"));

        const QString app = unpacked + u"/Tovin";
        // Both halves of Tovin or nothing: a resident without its screen helper shows nothing.
        if (!QFileInfo(app + u"/bin/tovin").isFile() ||
            !QFileInfo(app + u"/bin/tovin-screens").isFile())
            return refuse(QStringLiteral("that download doesn't contain Tovin"));
        if (!isSignedRelease(app, keys)) {
            note(journal, u"refused " + app + u" — not notarised Developer ID");
            return refuse(QStringLiteral(
                "that download isn't signed by Tovin's developer, so it wasn't installed"));
        }
        note(journal, QStringLiteral("signature verified"));

        const QString version = folderVersion(app).value_or(QStringLiteral("0"));
        if (!isNewer(version, current))
            return refuse(u"that download is version " + version + u", which isn't newer than " +
                          current);
        note(journal, QStringLiteral("downloaded and verified"));
        finish({app, working, std::nullopt});
    });
}

void Download::cancel() {
    if (finished_ || cancelled_)
        return;
    cancelled_ = true;
    if (reply_)
        reply_->abort();
    if (file_)
        file_->close();
    // Whatever the worker still does with the folder, it no longer matters: its result is
    // dropped, and the folder goes once it is done with it.
    const QString working = working_;
    QThreadPool::globalInstance()->start([working] {
        if (!working.isEmpty())
            QDir(working).removeRecursively();
    });
    deleteLater();
}

void Download::fail(const QString& message) {
    if (cancelled_ || finished_)
        return;
    note(session_.journal, message);
    if (file_)
        file_->close();
    if (!working_.isEmpty())
        QDir(working_).removeRecursively();
    complete({{}, {}, Failure{message}});
}

void Download::complete(const Fetched& result) {
    if (cancelled_ || finished_)
        return;
    finished_ = true;
    if (context_)
        completion_(result);
    deleteLater();
}

// ---------------------------------------------------------------------------------------------

InstalledCopy runningCopy() {
    return {installFolderOf(QCoreApplication::applicationDirPath()),
            QCoreApplication::applicationPid()};
}

QByteArray swapScript(qint64 pid, const QString& current, const QString& previous,
                      const QString& newApp, const QString& workingFolder) {
    const QString start = u"setsid " + quoted(current + u"/bin/tovin") + u" >/dev/null 2>&1 &";
    const QString cleanup =
        workingFolder.isEmpty()
            ? QStringLiteral("cleanup() { rm -f \"$0\"; }")
            : u"cleanup() { rm -rf " + quoted(workingFolder) + u"; rm -f \"$0\"; }";
    const QStringList lines{
        QStringLiteral("#!/bin/sh"),
        cleanup,
        QStringLiteral("trap cleanup EXIT"),
        QStringLiteral("# Wait for Tovin to exit before touching its bundle."),
        u"while kill -0 " + QString::number(pid) + u" 2>/dev/null; do sleep 0.2; done",
        u"rm -rf " + quoted(previous),
        u"mv " + quoted(current) + u' ' + quoted(previous) + u" || exit 1",
        u"if ! mv " + quoted(newApp) + u' ' + quoted(current) + u"; then",
        QStringLiteral("  # Put the old one back rather than leaving nothing installed."),
        u"  mv " + quoted(previous) + u' ' + quoted(current),
        u"  " + start,
        QStringLiteral("  exit 1"),
        QStringLiteral("fi"),
        u"rm -rf " + quoted(previous),
        start,
    };
    return (lines.join(u'\n') + u'\n').toUtf8();
}

std::optional<Failure> install(Journal& journal, const QString& newApp,
                               const QString& workingFolder, const std::function<void()>& quitting,
                               const InstalledCopy& copy) {
    // Whatever stops the install here, the download it came from is not left behind.
    auto refuse = [&workingFolder, &journal](const Failure& failure) {
        note(journal, failure.message);
        if (!workingFolder.isEmpty())
            QDir(workingFolder).removeRecursively();
        return failure;
    };
    const QFileInfo current(copy.folder);
    if (current.fileName() != u"Tovin" || !QFileInfo(copy.folder + u"/bin/tovin").isFile() ||
        !QFileInfo(copy.folder + u"/share/tovin/VERSION").isFile()) {
        return refuse({QStringLiteral(
            "this doesn't look like an installed copy of Tovin, so it wasn't replaced")});
    }
    const QString parent = current.absolutePath();
    if (!QFileInfo(parent).isWritable()) {
        return refuse(
            {u"Tovin can't write to " + parent + u" — move it to a folder you own and try again"});
    }

    const QString previous = parent + u"/Tovin (previous)";
    const QString script = QDir::temp().filePath(
        u"tovin-swap-" + QUuid::createUuid().toString(QUuid::WithoutBraces) + u".sh");
    if (!writeFileAtomically(script, swapScript(copy.pid, current.absoluteFilePath(), previous,
                                                newApp, workingFolder)) ||
        !QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner)) {
        QFile::remove(script);
        return refuse({u"couldn't prepare the update: can't write " + script});
    }
    // Detached: the script must outlive this process, which is what it waits for.
    if (!QProcess::startDetached(QStringLiteral("/bin/sh"), {script})) {
        QFile::remove(script);
        return refuse({QStringLiteral("couldn't start the update")});
    }
    note(journal, QStringLiteral("installing — handing over and quitting"));
    quitting();
    return std::nullopt;
}

} // namespace tovin::Updater

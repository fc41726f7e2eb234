#pragma once

#include "resident/updater/release.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

class QFile;
class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;

namespace tovin {
class Journal;
}

namespace tovin::Updater {

// What the updater works through, both the caller's: the network session (one for the
// program, so connections are reused) and the journal every step is written to.
struct Session {
    QNetworkAccessManager& network;
    Journal& journal;
};

// A step that did not work, in words for the person.
struct Failure {
    QString message;
    bool operator==(const Failure&) const = default;
};

// What a check of the release feed found.
struct Status {
    enum Kind { Available, UpToDate, Failed };
    Kind kind = Failed;
    Release release; // when Available
    QString message; // when Failed

    static Status available(const Release& release) { return {Available, release, {}}; }
    static Status upToDate() { return {UpToDate, {}, {}}; }
    static Status failed(const QString& message) { return {Failed, {}, message}; }
};

// The feed the check asks: the address this build was made with. A test build alone may be
// pointed elsewhere by TOVIN_UPDATE_FEED (and trust a test authority in TOVIN_UPDATE_CA).
QUrl feedURL();

// Whether this copy was built as a distribution's package: the package manager keeps it up to
// date, and it never checks, downloads or installs an update itself.
bool managedByPackageManager();

// Whether this build checks for updates itself: it names a release feed and trusts a release
// key, and is no package. A build made without them gets its updates elsewhere and never
// pretends to check.
bool hasReleaseFeed();
// One line for `--why`: the feed this copy asks, or that it has none.
QString feedSummary();

// The running copy's version: its share/tovin/VERSION, as a release writes it; "0" when the
// file is missing or not text (a build tree, for instance), so any release reads as newer and
// install then refuses it for not being an installed copy.
QString currentVersion();

// Asks the feed, bypassing every cache, giving up after 15 s. The completion runs on the
// thread of `context` (the main thread), never after `context` is gone. Journalled under "update".
void check(Session session, QObject* context, std::function<void(const Status&)> completion);

// What fetch hands back: the verified new install folder, or why there is none. `workingFolder`
// holds the download and its unpacked copy (removed already on a failure).
struct Fetched {
    QString newApp;
    QString workingFolder;
    std::optional<Failure> failure;
};

// A download in progress: it reports progress and can be cancelled. It deletes itself once it
// has completed or been cancelled.
class Download : public QObject {
    Q_OBJECT
public:
    // Stops the download (or ignores the verification still running), removes the working
    // folder, and never calls the completion.
    void cancel();
    bool isFinished() const { return finished_; }

Q_SIGNALS:
    void progress(qint64 received, qint64 total);

private:
    friend Download* fetch(Session, const Release&, QObject*, std::function<void(const Fetched&)>);
    Download(Session session, const Release& release,
             std::function<void(const Fetched&)> completion);
    void start(QObject* context);
    void downloaded();
    void complete(const Fetched& result);
    void fail(const QString& message);

    Session session_;
    Release release_;
    std::function<void(const Fetched&)> completion_;
    QPointer<QObject> context_;
    QString working_;
    QPointer<QNetworkReply> reply_;
    QFile* file_ = nullptr;
    bool cancelled_ = false;
    bool finished_ = false;
};

// Downloads the release, checks its SHA-256, unpacks it safely, checks its signature and that
// it is newer than what runs; every step is journalled. Hashing, unpacking and verifying run off
// the main thread; the completion is delivered on the thread of `context`.
Download* fetch(Session session, const Release& release, QObject* context,
                std::function<void(const Fetched&)> completion);

// An installed copy of Tovin and the process that runs it.
struct InstalledCopy {
    QString folder; // ".../Tovin", holding bin/tovin
    qint64 pid = 0;
};

// The copy this process runs from: the folder above bin/.
InstalledCopy runningCopy();

// The hand-over script: waits for `pid` to exit, moves the current copy aside, moves the new
// one in (putting the old one back and starting it again if that fails), and starts Tovin.
// However it ends, it removes the download's working folder (when given) and itself.
QByteArray swapScript(qint64 pid, const QString& current, const QString& previous,
                      const QString& newApp, const QString& workingFolder = {});

// Replaces the installed copy with the verified `newApp`: writes and starts the hand-over script,
// journals it, and calls `quitting`, which must end the program so the script can proceed.
// On a failure nothing has changed but the working folder, which is removed.
std::optional<Failure> install(Journal& journal, const QString& newApp,
                               const QString& workingFolder, const std::function<void()>& quitting,
                               const InstalledCopy& copy = runningCopy());

} // namespace tovin::Updater

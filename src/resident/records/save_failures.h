#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include <functional>
#include <mutex>

namespace tovin {

class Journal;

// Saves of the person's own files (the ledger, the week, the settings) that did not reach the
// disk: a full disk, a read-only folder, a directory where the file should be. The owner keeps
// what it could not write in memory and hands over a retry; the retry runs on every scheduler
// tick until it succeeds, and the owner's own next save ends the episode too. Each episode is
// journalled when it starts and ends, and the person is told once, when it starts, naming the
// folder and the reason. Thread-safe; retries run on the thread that calls retryPending().
class SaveFailures final : public QObject {
    Q_OBJECT
public:
    using Retry = std::function<bool()>;

    explicit SaveFailures(Journal& journal, QObject* parent = nullptr);

    // `what` names the file for a person ("your promises"); `tag` is the journal's.
    void failed(const QString& path, const QString& what, const QString& tag, const QString& reason,
                Retry retry);
    void succeeded(const QString& path);
    // An owner that goes away takes its retry with it.
    void forget(const QString& path);

    void retryPending();
    bool isPending(const QString& path) const;

Q_SIGNALS:
    // What the person is told when an episode starts (a desktop notification, in the app).
    // Emitted on the thread whose save failed.
    void tellPerson(const QString& title, const QString& body);

private:
    struct Pending {
        QString tag;
        Retry retry;
    };
    Journal& journal_;
    mutable std::mutex mutex_;
    QHash<QString, Pending> pending_;
};

} // namespace tovin

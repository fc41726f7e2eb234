#include "resident/records/save_failures.h"

#include "resident/records/journal.h"

#include <QFileInfo>

namespace tovin {

SaveFailures::SaveFailures(Journal& journal, QObject* parent)
    : QObject(parent)
    , journal_(journal) {
}

void SaveFailures::failed(const QString& path, const QString& what, const QString& tag,
                          const QString& reason, Retry retry) {
    {
        std::lock_guard lock(mutex_);
        const bool episodeStarts = !pending_.contains(path);
        pending_.insert(path, {tag, std::move(retry)});
        if (!episodeStarts)
            return;
    }
    const QString folder = QFileInfo(path).absolutePath();
    // The journal may sit on the same full disk; it swallows its own errors.
    journal_.note(tag, u"couldn't save " + path + u" — " + reason +
                           u"; kept in memory, trying again every tick");
    Q_EMIT tellPerson(u"Tovin couldn't save " + what,
                      u"Writing to " + folder + u" failed: " + reason +
                          u". Nothing is lost: Tovin keeps it and tries again every half minute. "
                          u"Free some space, or make the folder writable.");
}

void SaveFailures::succeeded(const QString& path) {
    QString tag;
    {
        std::lock_guard lock(mutex_);
        const auto it = pending_.constFind(path);
        if (it == pending_.cend())
            return;
        tag = it->tag;
        pending_.erase(it);
    }
    journal_.note(tag, u"saved " + path + u" after all");
}

void SaveFailures::forget(const QString& path) {
    std::lock_guard lock(mutex_);
    pending_.remove(path);
}

void SaveFailures::retryPending() {
    QList<Retry> retries;
    {
        std::lock_guard lock(mutex_);
        for (auto it = pending_.cbegin(); it != pending_.cend(); ++it)
            retries.append(it->retry);
    }
    // Each retry saves through its owner, which reports success or failure itself.
    for (const Retry& retry : retries)
        if (retry)
            retry();
}

bool SaveFailures::isPending(const QString& path) const {
    std::lock_guard lock(mutex_);
    return pending_.contains(path);
}

} // namespace tovin

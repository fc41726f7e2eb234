#include "resident/records/save_failures.h"

#include "resident/records/journal.h"

#include <QFileInfo>
#include <QHash>

#include <mutex>

namespace tovin::SaveFailures {

namespace {

struct Pending {
    QString tag;
    Retry retry;
};

struct Registry {
    std::mutex mutex;
    QHash<QString, Pending> pending;
    Notifier notifier;
};

Registry& registry() {
    static Registry* r = new Registry;
    return *r;
}

} // namespace

void failed(const QString& path, const QString& what, const QString& tag, const QString& reason,
            Retry retry) {
    Registry& r = registry();
    Notifier notify;
    {
        std::lock_guard lock(r.mutex);
        const bool episodeStarts = !r.pending.contains(path);
        r.pending.insert(path, {tag, std::move(retry)});
        if (!episodeStarts)
            return;
        notify = r.notifier;
    }
    const QString folder = QFileInfo(path).absolutePath();
    // The journal may sit on the same full disk; it swallows its own errors.
    Journal::note(tag, u"couldn't save " + path + u" — " + reason +
                           u"; kept in memory, trying again every tick");
    if (notify)
        notify(u"Tovin couldn't save " + what,
               u"Writing to " + folder + u" failed: " + reason +
                   u". Nothing is lost: Tovin keeps it and tries again every half minute. Free "
                   u"some space, or make the folder writable.");
}

void succeeded(const QString& path) {
    Registry& r = registry();
    QString tag;
    {
        std::lock_guard lock(r.mutex);
        const auto it = r.pending.constFind(path);
        if (it == r.pending.cend())
            return;
        tag = it->tag;
        r.pending.erase(it);
    }
    Journal::note(tag, u"saved " + path + u" after all");
}

void forget(const QString& path) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    r.pending.remove(path);
}

void retryPending() {
    Registry& r = registry();
    QList<std::pair<QString, Retry>> retries;
    {
        std::lock_guard lock(r.mutex);
        for (auto it = r.pending.cbegin(); it != r.pending.cend(); ++it)
            retries.append({it.key(), it->retry});
    }
    // Each retry saves through its owner, which reports success or failure itself.
    for (const auto& [path, retry] : retries)
        if (retry)
            retry();
}

bool isPending(const QString& path) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    return r.pending.contains(path);
}

void setNotifier(Notifier notifier) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    r.notifier = std::move(notifier);
}

} // namespace tovin::SaveFailures

#pragma once

#include "core/file_lock.h"
#include "core/promise_record.h"

#include <QList>
#include <QString>

namespace tovin {

class Journal;
class SaveFailures;

class Journal;
class SaveFailures;

// The person's private record of promises honoured and broken, oldest first, in promises.json.
// The list only changes through record() (append) and adopt() (replace with a merged set that
// is at least as large), and each saves the whole file at once, atomically: once record()
// returns, the promise is on disk. Used from the main thread only.
//
// Two copies of Tovin may run at once (a layout check beside the watcher), each with the file
// in memory. Every write takes the file's lock, takes in whatever the other copy wrote since
// (merged, never dropped), then writes the whole: neither copy loses the other's records. A
// write that cannot take the lock, or cannot read what changed, is not made: it waits for the
// retry like any failed save.
class PromiseLedger {
public:
    // A ledger over this file, read now. A missing or unreadable file is an empty ledger. What
    // it records is journalled, and saves that fail are retried through `failures` (either may
    // be none: a ledger read only to be shown needs neither).
    explicit PromiseLedger(QString path, Journal* journal = nullptr,
                           SaveFailures* failures = nullptr);
    // promises.json in Tovin's data folder.
    static QString defaultPath();
    ~PromiseLedger();
    PromiseLedger(PromiseLedger&&) = default;
    PromiseLedger& operator=(PromiseLedger&&) = default;

    // Copies the ledger of an older install into place when there is none yet. Copy, not move;
    // a failed copy is ignored.
    static void migrateLegacy(const QString& path, const QString& legacyPath);

    const QList<PromiseRecord>& records() const { return records_; }
    const QString& url() const { return path_; }

    // Takes in whatever another copy of Tovin recorded since this one last read or wrote the
    // file, so what is shown (the standing, the counts) is what is on disk.
    void refresh() { (void)absorbDisk(); }

    // Appends and saves; a rehearsal stores nothing. Either way the journal says what happened.
    void record(PromiseRecord promise, bool rehearsal);

    // Writes the whole list; false when the file could not be replaced. The list in memory stays
    // as it is either way, and a failed save is retried on every tick until one succeeds (the
    // person is told once; see SaveFailures).
    bool save();

    // Takes the page's merged set when it would not shrink the ledger: sorted by date (stable),
    // replaces the list and saves. Returns false, changing nothing, for a smaller set.
    bool adopt(QList<PromiseRecord> merged);

    // Every promise of both lists, each as many times as the list holding it most, by date; a
    // promise on both sides comes as the preferred side holds it.
    static QList<PromiseRecord> merged(const QList<PromiseRecord>& preferred,
                                       const QList<PromiseRecord>& other);

    // Which file is on disk (inode, size, modification time): a change means somebody wrote.
    struct DiskVersion {
        qint64 inode = 0, size = 0, modifiedNs = 0;
        bool operator==(const DiskVersion&) const = default;
    };

    // The records as one compact JSON array for the page; "[]" if that cannot be made.
    QString asBridgeJSON() const;

    int tovin() const;
    int broken() const;
    int attestedCount() const;
    // Held promises since the newest broken one.
    int streak() const;
    // The longest run of held promises anywhere.
    int longestStreak() const;

    // What a break would cost, shown on the break warning.
    QString standing() const;
    // {"streak":…,"tovin":…,"broken":…,"attested":…,"best":…} for the page.
    QString standingJSON() const;

private:
    // False when the file changed but could not be read again: no write may go over it then.
    bool absorbDisk();
    bool saveLocked(const FileLock& lock);
    bool writeOut(QString* reason);

    void note(const QString& message) const;

    QString path_;
    Journal* journal_ = nullptr;
    SaveFailures* failures_ = nullptr;
    QList<PromiseRecord> records_;
    // records_ exactly as the file holds them (Pretty), kept so a record is one append.
    QByteArray encoded_;
    bool encodedValid_ = false;
    bool unreadableOnDisk_ = false;
    DiskVersion diskVersion_;
};

} // namespace tovin

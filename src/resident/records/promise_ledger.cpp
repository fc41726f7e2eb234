#include "resident/records/promise_ledger.h"

#include "core/atomic_file.h"
#include "core/file_lock.h"
#include "core/paths.h"
#include "core/unreadable_copy.h"
#include "resident/records/journal.h"
#include "resident/records/save_failures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimeZone>

#include <algorithm>
#include <sys/stat.h>

namespace tovin {

namespace {
// Years of promises are a few hundred kilobytes; this only stops a runaway file.
constexpr qint64 maxLedgerBytes = 256 * 1024 * 1024;

bool isHeld(const PromiseRecord& r) {
    return r.outcome == PromiseRecord::Outcome::Tovin;
}

void sortByDate(QList<PromiseRecord>& records) {
    std::stable_sort(
        records.begin(), records.end(),
        [](const PromiseRecord& a, const PromiseRecord& b) { return a.date < b.date; });
}

// Which version of the file is on disk: every save renames a new file into place, so a write by
// anybody shows as a new inode even when size and time happen to match.
PromiseLedger::DiskVersion versionOf(const QString& path) {
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return {};
    return {qint64(st.st_ino), qint64(st.st_size),
            qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
}
} // namespace

QList<PromiseRecord> PromiseLedger::merged(const QList<PromiseRecord>& preferred,
                                           const QList<PromiseRecord>& other) {
    // A record is the same promise on both sides when it ended at the same second the same way,
    // with the same exercise and counts; what may differ (attested, set by an account's merge)
    // is taken from the preferred side. Each promise appears as many times as the side holding
    // it most: the other copy's new records join, none is doubled.
    const auto samePromise = [](const PromiseRecord& a, const PromiseRecord& b) {
        return a.date == b.date && a.outcome == b.outcome && a.exercise == b.exercise &&
               a.reps == b.reps && a.cleanReps == b.cleanReps;
    };
    QList<PromiseRecord> all = preferred;
    QList<PromiseRecord> unmatched = preferred;
    for (const PromiseRecord& r : other) {
        const auto at = std::find_if(unmatched.begin(), unmatched.end(),
                                     [&](const PromiseRecord& p) { return samePromise(p, r); });
        if (at != unmatched.end())
            unmatched.erase(at);
        else
            all.append(r);
    }
    sortByDate(all);
    return all;
}

QString PromiseLedger::defaultPath() {
    return paths::dataDir() + u"/promises.json";
}

void PromiseLedger::migrateLegacy(const QString& path, const QString& legacyPath) {
    if (QFileInfo::exists(path) || !QFileInfo(legacyPath).isFile())
        return;
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile::copy(legacyPath, path);
}

PromiseLedger::PromiseLedger(QString path, Journal* journal, SaveFailures* failures)
    : path_(std::move(path))
    , journal_(journal)
    , failures_(failures) {
    // Only a file can be unreadable; anything else in its place (a folder) simply fails to be
    // written over, and the save says why.
    if (!QFileInfo(path_).isFile())
        return;
    diskVersion_ = versionOf(path_);
    const auto bytes = readWholeFile(path_, maxLedgerBytes);
    if (!bytes) {
        unreadableOnDisk_ = true;
        return;
    }
    // The file as Tovin wrote it is also the start of the next one: a new record is appended to
    // these bytes rather than encoding years of records again.
    if (auto records = PromiseJson::decodeCanonical(*bytes)) {
        records_ = std::move(*records);
        encoded_ = *bytes;
        encodedValid_ = true;
    } else if (auto general = PromiseJson::decodeGeneral(*bytes)) {
        records_ = std::move(*general);
    } else {
        unreadableOnDisk_ = true;
    }
}

PromiseLedger::~PromiseLedger() {
    if (failures_)
        failures_->forget(path_);
}

void PromiseLedger::note(const QString& message) const {
    if (journal_)
        journal_->note(QStringLiteral("ledger"), message);
}

void PromiseLedger::record(PromiseRecord promise, bool rehearsal) {
    if (rehearsal) {
        note(u"rehearsal — " + promise.exercise + u" not recorded");
        return;
    }
    // Memory holds exactly what the file will: whole seconds, and text as UTF-8 carries it (a
    // lone surrogate does not survive), or the record would never match itself read back.
    promise.date = QDateTime::fromSecsSinceEpoch(promise.date.toSecsSinceEpoch(), QTimeZone::utc());
    promise.exercise = QString::fromUtf8(promise.exercise.toUtf8());
    const QString outcome = toString(promise.outcome);
    const QString exercise = promise.exercise;
    const FileLock lock(path_);
    absorbDisk();
    if (encodedValid_)
        PromiseJson::appendPretty(encoded_, promise);
    records_.append(std::move(promise));
    const bool saved = saveLocked(lock);
    note(outcome + u" — " + exercise + u" (now " + QString::number(tovin()) + u" tovin / " +
         QString::number(records_.size()) + u" total)" +
         (saved ? QString() : QStringLiteral(" — not saved yet")));
}

bool PromiseLedger::absorbDisk() {
    // Another copy of Tovin (a layout check beside the watcher) may have recorded since this one
    // last read or wrote the file: its records are taken in before this copy writes the whole.
    const DiskVersion now = versionOf(path_);
    if (now == diskVersion_ || now == DiskVersion{})
        return true;
    const auto bytes = readWholeFile(path_, maxLedgerBytes);
    if (!bytes)
        return false; // there, but not readable now (no descriptor left, say): try again later
    diskVersion_ = now;
    const auto onDisk = PromiseJson::decodeGeneral(*bytes);
    if (!onDisk) {
        // Damaged since: kept aside by the write, as an unreadable file at launch is.
        unreadableOnDisk_ = true;
        return true;
    }
    QList<PromiseRecord> all = merged(*onDisk, records_);
    if (all != records_) {
        records_ = std::move(all);
        encodedValid_ = false;
    }
    return true;
}

bool PromiseLedger::save() {
    const FileLock lock(path_);
    return saveLocked(lock);
}

bool PromiseLedger::saveLocked(const FileLock& lock) {
    QString reason;
    bool written = false;
    if (lock.isBusy())
        reason = QStringLiteral("another copy of Tovin is holding the file");
    else if (!absorbDisk())
        reason = QStringLiteral("it changed on disk and could not be read again");
    else
        written = writeOut(&reason);
    if (!written) {
        // Nothing is dropped: the records stay here and are written by the next save, or by the
        // retry on the next tick, whichever comes first.
        if (failures_)
            failures_->failed(path_, QStringLiteral("your promises"), QStringLiteral("ledger"),
                              reason, [this] { return save(); });
        return false;
    }
    diskVersion_ = versionOf(path_);
    if (failures_)
        failures_->succeeded(path_);
    return true;
}

bool PromiseLedger::writeOut(QString* reason) {
    // An unreadable ledger starts empty and the next save writes over it; a copy of what was
    // there is kept first, so a file damaged by hand can still be mended by hand. Without that
    // copy the original is the only record of the person's history: it is not overwritten.
    if (unreadableOnDisk_) {
        const QString copy = keepUnreadableCopy(path_);
        if (copy.isEmpty() && QFileInfo::exists(path_)) {
            *reason = QStringLiteral("the unreadable ledger could not be copied aside first");
            return false;
        }
        if (!copy.isEmpty())
            note(u"unreadable ledger kept as " + copy);
        unreadableOnDisk_ = false;
    }
    if (!encodedValid_) {
        encoded_ = PromiseJson::encode(records_, PromiseJson::Layout::Pretty);
        encodedValid_ = true;
    }
    return writeFileAtomically(path_, encoded_, reason);
}

bool PromiseLedger::adopt(QList<PromiseRecord> incoming) {
    const FileLock lock(path_);
    // Judged against every record there is, the other copy's included; and what the page did
    // not know of (recorded by the other copy since the page was handed the ledger) stays.
    absorbDisk();
    if (incoming.size() < records_.size())
        return false;
    for (PromiseRecord& r : incoming)
        r.exercise = QString::fromUtf8(r.exercise.toUtf8());
    records_ = merged(incoming, records_);
    encodedValid_ = false;
    saveLocked(lock);
    return true;
}

QString PromiseLedger::asBridgeJSON() const {
    const QByteArray json = PromiseJson::encode(records_, PromiseJson::Layout::Compact);
    if (!QUtf8StringView(json).isValidUtf8())
        return QStringLiteral("[]");
    return QString::fromUtf8(json);
}

int PromiseLedger::tovin() const {
    return int(std::count_if(records_.cbegin(), records_.cend(), isHeld));
}

int PromiseLedger::broken() const {
    return int(records_.size()) - tovin();
}

int PromiseLedger::attestedCount() const {
    return int(std::count_if(records_.cbegin(), records_.cend(), [](const PromiseRecord& r) {
        return isHeld(r) && r.attested.value_or(false);
    }));
}

int PromiseLedger::streak() const {
    int run = 0;
    for (auto it = records_.crbegin(); it != records_.crend() && isHeld(*it); ++it)
        ++run;
    return run;
}

int PromiseLedger::longestStreak() const {
    int best = 0;
    int run = 0;
    for (const PromiseRecord& r : records_) {
        run = isHeld(r) ? run + 1 : 0;
        best = std::max(best, run);
    }
    return best;
}

QString PromiseLedger::standing() const {
    if (records_.isEmpty())
        return QStringLiteral("This would be the first one you break.");
    const int attested = attestedCount();
    const int run = streak();
    QString text = QString::number(tovin()) + u" tovin";
    if (attested > 0)
        text += u" (" + QString::number(attested) + u" on your word)";
    text += u" · " + QString::number(broken()) + u" broken.";
    if (run == 0)
        text += u" Your streak is already at zero.";
    else
        text += u" This breaks a streak of " + QString::number(run) + u'.';
    return text;
}

QString PromiseLedger::standingJSON() const {
    return u"{\"streak\":" + QString::number(streak()) + u",\"tovin\":" + QString::number(tovin()) +
           u",\"broken\":" + QString::number(broken()) + u",\"attested\":" +
           QString::number(attestedCount()) + u",\"best\":" + QString::number(longestStreak()) +
           u'}';
}

} // namespace tovin

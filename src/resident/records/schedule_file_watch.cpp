#include "resident/records/schedule_file_watch.h"

#include "core/atomic_file.h"
#include "resident/records/schedule_store.h"

#include <QFileInfo>

namespace tovin {

ScheduleFileWatch::ScheduleFileWatch(ScheduleStore& store, QObject* parent)
    : QObject(parent)
    , store_(store)
    , path_(store.url()) {
    known_ = readBytes();
    settle_.setSingleShot(true);
    settle_.setInterval(settleMs);
    connect(&settle_, &QTimer::timeout, this, &ScheduleFileWatch::changed);
    connect(&watcher_, &QFileSystemWatcher::fileChanged, &settle_, qOverload<>(&QTimer::start));
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, &settle_,
            qOverload<>(&QTimer::start));
    // A save of Tovin's own is announced already; remember what it wrote so the file event it
    // causes is not taken for a hand edit.
    connect(&store_, &ScheduleStore::changed, this, [this] { known_ = readBytes(); });
    rewatch();
}

QByteArray ScheduleFileWatch::readBytes() const {
    // A week is a few kilobytes; anything past this is not one, and reads as unreadable.
    return readWholeFile(path_, 4 * 1024 * 1024).value_or(QByteArray());
}

void ScheduleFileWatch::rewatch() {
    const QString folder = QFileInfo(path_).absolutePath();
    if (!watcher_.directories().contains(folder))
        watcher_.addPath(folder);
    // A file replaced by a rename is a new file: the old watch went with the old one.
    if (QFileInfo::exists(path_) && !watcher_.files().contains(path_))
        watcher_.addPath(path_);
}

void ScheduleFileWatch::changed() {
    rewatch();
    const QByteArray now = readBytes();
    if (now == known_)
        return;
    known_ = now;
    Q_EMIT store_.changed();
}

} // namespace tovin

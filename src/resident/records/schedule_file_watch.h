#pragma once

#include <QByteArray>
#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>

namespace tovin {

class ScheduleStore;

// Watches the week's file for edits made outside Tovin (the person's own editor) and announces
// them like a save, through the store's changed(), once per real change. Saves of Tovin's own are
// already announced and are not announced twice. Editors replace files by renaming, so the folder
// is watched as well as the file; a burst of writes settles for a moment before it is read.
class ScheduleFileWatch final : public QObject {
    Q_OBJECT
public:
    static constexpr int settleMs = 250;

    explicit ScheduleFileWatch(ScheduleStore& store, QObject* parent = nullptr);

private:
    void changed();
    void rewatch();
    QByteArray readBytes() const;

    ScheduleStore& store_;
    QString path_;
    QFileSystemWatcher watcher_;
    QTimer settle_;
    QByteArray known_;
};

} // namespace tovin

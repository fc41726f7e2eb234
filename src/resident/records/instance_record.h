#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

namespace tovin {

// Whether a live process with this id is a Tovin (tovin, or the test build tovin_testkey): a
// pid in a file outlives its process, and may since belong to anybody. Where /proc cannot be
// read, a live process is the best there is.
bool isRunningTovin(qint64 pid);

// Which process is the running Tovin, written at launch to the per-user runtime folder so the
// command-line reports can say whether anything is there to fire.
struct InstanceRecord {
    qint64 pid = 0;
    std::optional<QDateTime> launchedAt;

    static QString defaultPath();

    // The record when it names a live process; none when missing, unreadable or stale.
    static std::optional<InstanceRecord> readLive(const QString& path = defaultPath());
    bool write(const QString& path = defaultPath()) const;

    bool operator==(const InstanceRecord&) const = default;
};

} // namespace tovin

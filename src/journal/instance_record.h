#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

namespace tovin {

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

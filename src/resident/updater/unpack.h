#pragma once

#include <QString>

namespace tovin::Updater {

struct UnpackLimits {
    qint64 maxBytes = 1024LL * 1024 * 1024; // what the unpacked files may add up to
    qint64 maxEntries = 50'000;
};

// Unpacks a .tar.gz into `destination` (which must exist), refusing the whole archive when any
// entry is absolute, climbs with "..", is a link of any kind, a device, FIFO or socket, or when
// the archive grows past the limits (a decompression bomb cannot fill the disk). Returns false,
// having removed whatever it wrote, on any refusal or error.
bool unpack(const QString& archive, const QString& destination, const UnpackLimits& limits = {});

} // namespace tovin::Updater

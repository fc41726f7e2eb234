#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace tovin {

// Replaces the file with exactly these bytes or leaves it as it was: the bytes go to a
// temporary file beside it, are flushed to disk and renamed over the old one. A crash at any
// instant leaves either the old file or the new one, never a torn or empty one. The parent
// folder is created when missing. Returns false, with the old file intact, on any failure.
bool writeFileAtomically(const QString& path, const QByteArray& bytes);

// The whole file, or none when it is missing, unreadable, not a regular file or larger than
// maxBytes (a hand-edited file the size of a disk is not read into memory).
std::optional<QByteArray> readWholeFile(const QString& path, qint64 maxBytes);

} // namespace tovin

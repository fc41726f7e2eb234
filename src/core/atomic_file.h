#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace tovin {

// Replaces the file with exactly these bytes or leaves it as it was: the bytes go to a
// temporary file beside it, are written, synced and closed, each step checked, and only then
// renamed over the old one (and the folder synced). A crash, a full disk or any write error
// leaves either the old file or the new one, never a torn or empty one. The parent folder is
// created when missing. Returns false, with the old file intact and no temporary file left,
// on any failure; `error` then says why in plain words (the system's own text).
bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* error = nullptr);

// The whole file, or none when it is missing, unreadable, not a regular file or larger than
// maxBytes (a hand-edited file the size of a disk is not read into memory).
std::optional<QByteArray> readWholeFile(const QString& path, qint64 maxBytes);

} // namespace tovin

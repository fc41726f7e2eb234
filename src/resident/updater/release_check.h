#pragma once

#include "resident/updater/minisign.h"
#include "resident/updater/trusted_keys.h"

#include <QList>
#include <QString>

#include <optional>

namespace tovin::Updater {

// Lower-case hexadecimal SHA-256 of a file; none when it cannot be read.
std::optional<QString> sha256(const QString& path);

// Whether an unpacked install folder is a release Tovin's key signed: MANIFEST.minisig verifies
// MANIFEST against a trusted key; every listed file exists with its size and hash; nothing
// exists that the manifest does not list; and nothing is a symlink, device, FIFO or socket.
bool isSignedRelease(const QString& folder, const QList<PublicKey>& keys = trustedKeys());

// The manifest of a folder, as a release build writes it: "<sha256>  <size>  <path>" per file,
// sorted by path (MANIFEST and its signature excluded). None if something in the folder cannot
// be listed (a symlink, a device).
std::optional<QByteArray> makeManifest(const QString& folder);

// The version a downloaded install folder carries, from share/tovin/VERSION, read as text and
// never by running anything in it.
std::optional<QString> folderVersion(const QString& folder);

} // namespace tovin::Updater

#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace tovin::Updater {

// One entry of the release feed: {"version", "url", "sha256", "notes"?}.
struct Release {
    QString version;
    QString url;
    QString sha256;
    std::optional<QString> notes;
    bool operator==(const Release&) const = default;
};

// The dotted numbers of a version ("1..2" reads as 1, 2); none when any piece is not a base-10
// integer ("1.2-beta", "dev", "") — an unreadable version is never newer and never forces one.
std::optional<QList<qint64>> versionParts(const QString& version);

// Numeric, piece by piece, a missing piece counting as 0: "0.10" is newer than "0.9"; "1.0" and
// "1" are the same version; nothing unreadable is newer, and nothing is newer than an
// unreadable current version.
bool isNewer(const QString& candidate, const QString& current);

// The feed body as a release; none when it is not a JSON object with the three required texts.
std::optional<Release> decodeRelease(const QByteArray& body);

// What a failed read of the feed says to the person.
inline const char* const unreadableFeed = "the release feed couldn't be read";

} // namespace tovin::Updater

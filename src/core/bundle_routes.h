#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace tovin {

// How the private scheme maps a request to the packaged web app: pure functions of the path,
// the root folder and what exists on disk, kept apart from the browser engine so they can be
// checked (and fuzzed) on their own.
namespace BundleRoutes {

inline constexpr char scheme[] = "tovin";
inline constexpr char origin[] = "tovin://app";

// The file inside `root` that answers the URL path, or none (a refusal or a real 404; every
// path is refused when root is empty or relative):
// "" and "/" mean index.html; "." and ".." are collapsed; the result must be root itself or lie
// below root + "/" (a sibling such as web-private beside web never passes); an existing file or
// folder answers; a missing path with an extension is a 404; a missing extension-less route is
// the application shell, index.html, so client-side routing can boot on any deep link.
std::optional<QString> resolve(const QString& root, const QString& urlPath);

// The Content-Type for a file name, by its extension compared in lower case.
QByteArray mimeType(const QString& fileName);

// The whole answer to one request: 200 with the file, 404 "not found" or 404 "unreadable",
// with exactly the headers Content-Type, Content-Length and Cache-Control: no-store (so an
// update that replaces the folder is never hidden behind a cache).
struct Answer {
    int status = 404;
    QByteArray contentType;
    QByteArray body;
    QList<std::pair<QByteArray, QByteArray>> headers;
};
Answer answer(const QString& root, const QString& host, const QString& urlPath);

// The installed web app (share/tovin/web beside bin/), else the build tree's staged copy; none
// when neither holds an index.html.
std::optional<QString> bundledRoot();

} // namespace BundleRoutes
} // namespace tovin

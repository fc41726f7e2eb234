#include "core/bundle_routes.h"

#include "core/paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace tovin::BundleRoutes {

namespace {

// The extension of the last path component: what follows its last dot, when that dot is
// neither the first character (".well-known" has none) nor the last.
QString extension(const QString& path) {
    const QString name = path.section(u'/', -1);
    const qsizetype dot = name.lastIndexOf(u'.');
    if (dot <= 0 || dot == name.size() - 1)
        return {};
    return name.mid(dot + 1);
}

bool within(const QString& base, const QString& candidate) {
    return candidate == base || candidate.startsWith(base + u'/');
}

} // namespace

std::optional<QString> resolve(const QString& root, const QString& urlPath) {
    // No bundle is no folder at all, never the whole disk: an empty root would let "/" + path
    // pass for a path below it.
    if (root.isEmpty() || !QDir::isAbsolutePath(root))
        return std::nullopt;
    const QString base = QDir::cleanPath(root);
    const QString path =
        (urlPath.isEmpty() || urlPath == u"/") ? QStringLiteral("/index.html") : urlPath;
    // Appended as a path, then standardised: "a/../../x" collapses before containment is judged.
    const QString candidate = QDir::cleanPath(base + u'/' + path);
    if (!within(base, candidate))
        return std::nullopt;
    const QFileInfo info(candidate);
    if (info.exists()) {
        // A link inside the bundle must not lead out of it either.
        const QString real = info.canonicalFilePath();
        const QString realBase = QFileInfo(base).canonicalFilePath();
        if (!real.isEmpty() && !realBase.isEmpty() && !within(realBase, real))
            return std::nullopt;
        return candidate;
    }
    if (!extension(candidate).isEmpty())
        return std::nullopt;
    return base + u"/index.html";
}

QByteArray mimeType(const QString& fileName) {
    const QString ext = extension(fileName).toLower();
    if (ext == u"html")
        return "text/html; charset=utf-8";
    if (ext == u"js" || ext == u"mjs")
        return "text/javascript; charset=utf-8";
    if (ext == u"css")
        return "text/css; charset=utf-8";
    if (ext == u"json" || ext == u"webmanifest")
        return "application/json; charset=utf-8";
    if (ext == u"svg")
        return "image/svg+xml";
    if (ext == u"png")
        return "image/png";
    if (ext == u"jpg" || ext == u"jpeg")
        return "image/jpeg";
    if (ext == u"webp")
        return "image/webp";
    if (ext == u"woff2")
        return "font/woff2";
    if (ext == u"woff")
        return "font/woff";
    return "application/octet-stream";
}

Answer answer(const QString& root, const QString& host, const QString& urlPath) {
    auto make = [](int status, QByteArray type, QByteArray body) {
        Answer a{status, type, std::move(body), {}};
        a.headers = {{QByteArrayLiteral("Content-Type"), type},
                     {QByteArrayLiteral("Content-Length"), QByteArray::number(a.body.size())},
                     {QByteArrayLiteral("Cache-Control"), QByteArrayLiteral("no-store")}};
        return a;
    };
    const auto file = host == u"app" ? resolve(root, urlPath) : std::nullopt;
    if (!file)
        return make(404, QByteArrayLiteral("text/plain"), QByteArrayLiteral("not found"));
    // A folder (the root itself, say) resolves but cannot be read: 404, not a server error.
    QFile f(*file);
    if (!QFileInfo(*file).isFile() || !f.open(QIODevice::ReadOnly))
        return make(404, QByteArrayLiteral("text/plain"), QByteArrayLiteral("unreadable"));
    QByteArray body = f.readAll();
    if (f.error() != QFileDevice::NoError)
        return make(404, QByteArrayLiteral("text/plain"), QByteArrayLiteral("unreadable"));
    return make(200, mimeType(*file), std::move(body));
}

std::optional<QString> bundledRoot() {
    QStringList candidates{paths::installedShare(QStringLiteral("web"))};
#ifdef TOVIN_STAGED_WEB_DIR
    candidates.append(QStringLiteral(TOVIN_STAGED_WEB_DIR));
#endif
    for (const QString& dir : candidates) {
        if (QFileInfo(dir + u"/index.html").isFile())
            return QDir::cleanPath(dir);
    }
    return std::nullopt;
}

} // namespace tovin::BundleRoutes

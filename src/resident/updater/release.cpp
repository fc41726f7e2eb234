#include "resident/updater/release.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace tovin::Updater {

std::optional<QList<qint64>> versionParts(const QString& version) {
    QList<qint64> parts;
    for (const QStringView piece : QStringView(version).tokenize(u'.', Qt::SkipEmptyParts)) {
        // An optional sign, then digits only: no spaces, letters or suffixes.
        qsizetype i = (piece.startsWith(u'+') || piece.startsWith(u'-')) ? 1 : 0;
        if (i == piece.size() || piece.size() > 18)
            return std::nullopt;
        for (qsizetype j = i; j < piece.size(); ++j) {
            if (piece[j] < u'0' || piece[j] > u'9')
                return std::nullopt;
        }
        parts.append(piece.toLongLong());
    }
    if (parts.isEmpty())
        return std::nullopt;
    return parts;
}

bool isNewer(const QString& candidate, const QString& current) {
    const auto a = versionParts(candidate);
    const auto b = versionParts(current);
    if (!a || !b)
        return false;
    const qsizetype n = std::max(a->size(), b->size());
    for (qsizetype i = 0; i < n; ++i) {
        const qint64 x = i < a->size() ? (*a)[i] : 0;
        const qint64 y = i < b->size() ? (*b)[i] : 0;
        if (x != y)
            return x > y;
    }
    return false;
}

std::optional<Release> decodeRelease(const QByteArray& body) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    const QJsonObject o = doc.object();
    const QJsonValue version = o.value(u"version");
    const QJsonValue url = o.value(u"url");
    const QJsonValue sha = o.value(u"sha256");
    if (!version.isString() || !url.isString() || !sha.isString())
        return std::nullopt;
    Release r{version.toString(), url.toString(), sha.toString(), std::nullopt};
    if (const QJsonValue notes = o.value(u"notes"); notes.isString())
        r.notes = notes.toString();
    return r;
}

} // namespace tovin::Updater

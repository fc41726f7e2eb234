#include "resident/updater/release_check.h"

#include "core/atomic_file.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <sys/stat.h>

namespace tovin::Updater {

namespace {

constexpr qint64 maxManifestBytes = 16 * 1024 * 1024;

// Every entry under the folder, relative, with what lstat says it is. None when an entry is
// anything but a plain file or folder.
std::optional<QStringList> plainFiles(const QString& folder) {
    QStringList files;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        struct stat st {};
        if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
            return std::nullopt;
        if (S_ISDIR(st.st_mode))
            continue;
        if (!S_ISREG(st.st_mode))
            return std::nullopt; // a symlink, device, FIFO or socket
        files.append(QDir(folder).relativeFilePath(path));
    }
    files.sort();
    return files;
}

} // namespace

std::optional<QString> sha256(const QString& path) {
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&file))
        return std::nullopt;
    return QString::fromLatin1(hash.result().toHex());
}

std::optional<QByteArray> makeManifest(const QString& folder) {
    const auto files = plainFiles(folder);
    if (!files)
        return std::nullopt;
    QByteArray manifest;
    for (const QString& rel : *files) {
        if (rel == u"MANIFEST" || rel == u"MANIFEST.minisig")
            continue;
        const QString path = folder + u'/' + rel;
        const auto hash = sha256(path);
        if (!hash)
            return std::nullopt;
        manifest += hash->toLatin1() + "  " + QByteArray::number(QFileInfo(path).size()) + "  " +
                    rel.toUtf8() + '\n';
    }
    return manifest;
}

bool isSignedRelease(const QString& folder, const QList<PublicKey>& keys) {
    const auto manifest = readWholeFile(folder + u"/MANIFEST", maxManifestBytes);
    const auto signature = readWholeFile(folder + u"/MANIFEST.minisig", 64 * 1024);
    if (!manifest || !signature)
        return false;
    const bool signedByUs = std::any_of(keys.begin(), keys.end(), [&](const PublicKey& key) {
        return verify(*manifest, *signature, key);
    });
    if (!signedByUs)
        return false;

    // Now the manifest can be trusted: the folder must be exactly what it lists.
    QHash<QString, std::pair<QString, qint64>> listed;
    for (const QByteArray& raw : manifest->split('\n')) {
        if (raw.isEmpty())
            continue;
        const QList<QByteArray> fields = raw.split(' ');
        // "<hash>  <size>  <path>": the path may itself hold spaces.
        const qsizetype a = raw.indexOf("  ");
        const qsizetype b = a < 0 ? -1 : raw.indexOf("  ", a + 2);
        if (a != 64 || b < 0)
            return false;
        bool ok = false;
        const qint64 size = raw.mid(a + 2, b - a - 2).toLongLong(&ok);
        const QString path = QString::fromUtf8(raw.mid(b + 2));
        if (!ok || size < 0 || path.isEmpty() || path.startsWith(u'/') ||
            path.split(u'/').contains(QStringLiteral("..")) || listed.contains(path))
            return false;
        listed.insert(path, {QString::fromLatin1(raw.left(64)).toLower(), size});
        (void)fields;
    }
    const auto files = plainFiles(folder);
    if (!files)
        return false;
    QSet<QString> seen;
    for (const QString& rel : *files) {
        if (rel == u"MANIFEST" || rel == u"MANIFEST.minisig")
            continue;
        const auto entry = listed.constFind(rel);
        if (entry == listed.constEnd())
            return false; // a file nobody signed for
        const QString path = folder + u'/' + rel;
        if (QFileInfo(path).size() != entry->second || sha256(path) != entry->first)
            return false;
        seen.insert(rel);
    }
    return seen.size() == listed.size(); // and nothing listed is missing
}

std::optional<QString> folderVersion(const QString& folder) {
    const auto bytes = readWholeFile(folder + u"/share/tovin/VERSION", 256);
    if (!bytes)
        return std::nullopt;
    const QString version = QString::fromUtf8(bytes->trimmed());
    return version.isEmpty() ? std::nullopt : std::optional<QString>(version);
}

} // namespace tovin::Updater

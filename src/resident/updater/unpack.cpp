#include "resident/updater/unpack.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <archive.h>
#include <archive_entry.h>
#include <memory>

namespace tovin::Updater {

namespace {

struct ReaderDeleter {
    void operator()(archive* a) const { archive_read_free(a); }
};

bool safePath(const QString& path) {
    if (path.isEmpty() || path.startsWith(u'/') || path.contains(u'\\'))
        return false;
    for (const QStringView part : QStringView(path).tokenize(u'/', Qt::SkipEmptyParts)) {
        if (part == u"..")
            return false;
    }
    return true;
}

bool extract(const QString& archivePath, const QString& destination, const UnpackLimits& limits) {
    std::unique_ptr<archive, ReaderDeleter> reader(archive_read_new());
    archive_read_support_filter_gzip(reader.get());
    archive_read_support_format_tar(reader.get());
    if (archive_read_open_filename(reader.get(), QFile::encodeName(archivePath).constData(),
                                   64 * 1024) != ARCHIVE_OK)
        return false;

    const QDir root(destination);
    qint64 total = 0;
    qint64 entries = 0;
    archive_entry* entry = nullptr;
    for (;;) {
        const int r = archive_read_next_header(reader.get(), &entry);
        if (r == ARCHIVE_EOF)
            return true;
        if (r != ARCHIVE_OK || ++entries > limits.maxEntries)
            return false;
        const char* rawName = archive_entry_pathname(entry);
        const QString name = rawName ? QString::fromUtf8(rawName) : QString();
        if (!safePath(name) || archive_entry_hardlink(entry) || archive_entry_symlink(entry))
            return false;
        const QString target = QDir::cleanPath(root.filePath(name));
        if (!target.startsWith(QDir::cleanPath(destination) + u'/'))
            return false;

        const mode_t type = archive_entry_filetype(entry);
        if (type == AE_IFDIR) {
            if (!QDir().mkpath(target))
                return false;
            continue;
        }
        if (type != AE_IFREG)
            return false; // links, devices, FIFOs and sockets have no place in a release
        if (!QDir().mkpath(QFileInfo(target).absolutePath()))
            return false;
        QFile out(target);
        if (out.exists() || !out.open(QIODevice::WriteOnly))
            return false;
        const void* block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        for (;;) {
            const int d = archive_read_data_block(reader.get(), &block, &size, &offset);
            if (d == ARCHIVE_EOF)
                break;
            if (d != ARCHIVE_OK)
                return false;
            total += qint64(size);
            if (total > limits.maxBytes)
                return false;
            if (out.pos() != offset && !out.seek(offset))
                return false;
            if (out.write(static_cast<const char*>(block), qint64(size)) != qint64(size))
                return false;
        }
        // Only the owner's execute bit carries over; nothing set-uid, nothing world-writable.
        const bool executable = archive_entry_perm(entry) & 0100;
        out.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup |
                           QFile::ReadOther |
                           (executable ? QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther
                                       : QFile::Permissions()));
    }
}

} // namespace

bool unpack(const QString& archive, const QString& destination, const UnpackLimits& limits) {
    if (!QFileInfo(destination).isDir())
        return false;
    // Unpack into a fresh folder inside the destination first: a refusal halfway leaves
    // nothing behind.
    const QString staging = destination + u"/.unpacking";
    QDir(staging).removeRecursively();
    if (!QDir().mkpath(staging))
        return false;
    if (!extract(archive, staging, limits)) {
        QDir(staging).removeRecursively();
        return false;
    }
    const QDir from(staging);
    for (const QString& name :
         from.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)) {
        if (!QFile::rename(from.filePath(name), destination + u'/' + name)) {
            QDir(staging).removeRecursively();
            return false;
        }
    }
    from.rmdir(staging);
    return true;
}

} // namespace tovin::Updater

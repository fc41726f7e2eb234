#pragma once
// Writes a .tar.gz the way a careless or hostile server might: any path, links, special files.

#include <QFile>
#include <QList>
#include <QString>

#include <archive.h>
#include <archive_entry.h>

namespace tovin::testing {

struct TarEntry {
    QByteArray path;
    QByteArray data;
    mode_t type = AE_IFREG;
    QByteArray link; // a symlink's target, or for a regular file the path it is a hard link to
};

inline bool writeTarGz(const QString& path, const QList<TarEntry>& entries) {
    archive* a = archive_write_new();
    archive_write_add_filter_gzip(a);
    archive_write_set_format_pax_restricted(a);
    bool ok = archive_write_open_filename(a, QFile::encodeName(path).constData()) == ARCHIVE_OK;
    for (const TarEntry& e : entries) {
        archive_entry* entry = archive_entry_new();
        archive_entry_set_pathname(entry, e.path.constData());
        archive_entry_set_filetype(entry, e.type);
        archive_entry_set_perm(entry, 0755);
        archive_entry_set_size(entry, e.type == AE_IFREG ? e.data.size() : 0);
        if (!e.link.isEmpty() && e.type == AE_IFLNK)
            archive_entry_set_symlink(entry, e.link.constData());
        else if (!e.link.isEmpty())
            archive_entry_set_hardlink(entry, e.link.constData());
        ok = archive_write_header(a, entry) >= ARCHIVE_WARN && ok;
        if (e.type == AE_IFREG && e.link.isEmpty())
            archive_write_data(a, e.data.constData(), size_t(e.data.size()));
        archive_entry_free(entry);
    }
    ok = archive_write_close(a) == ARCHIVE_OK && ok;
    archive_write_free(a);
    return ok;
}

} // namespace tovin::testing

#include "core/unreadable_copy.h"

#include "core/atomic_file.h"

#include <QDateTime>
#include <QFile>

namespace tovin {

namespace {
// More than any file of ours should ever be; a bigger one is not copied (nor overwritten).
constexpr qint64 maxCopyBytes = 512LL * 1024 * 1024;
} // namespace

QString keepUnreadableCopy(const QString& path) {
    if (!QFile::exists(path))
        return {};
    const QString stamp = QDateTime::currentDateTimeUtc().toString(u"yyyyMMdd-HHmmss-zzz");
    const QString copy = path + u".unreadable-" + stamp;
    // Read whole and written through the checked atomic writer: a copy that did not fully reach
    // the disk is no copy, and the caller must then not write over the original.
    const auto bytes = readWholeFile(path, maxCopyBytes);
    return bytes && writeFileAtomically(copy, *bytes) ? copy : QString();
}

} // namespace tovin

#include "core/atomic_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace tovin {

bool writeFileAtomically(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

std::optional<QByteArray> readWholeFile(const QString& path, qint64 maxBytes) {
    // Only regular files: opening a FIFO someone put in our place would block the caller.
    if (!QFileInfo(path).isFile())
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > maxBytes)
        return std::nullopt;
    QByteArray bytes = file.read(maxBytes + 1);
    if (bytes.size() > maxBytes || file.error() != QFileDevice::NoError)
        return std::nullopt;
    return bytes;
}

} // namespace tovin

#include "core/atomic_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tovin {

namespace {

QString systemError(int code) {
    return QString::fromLocal8Bit(std::strerror(code));
}

// write(2) until every byte is out; a short write is retried, an error is final.
bool writeAll(int fd, const char* data, qint64 size, int* code) {
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size_t(std::min<qint64>(size, 1 << 30)));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            *code = errno;
            return false;
        }
        data += n;
        size -= n;
    }
    return true;
}

} // namespace

bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* error) {
    // Everything below is plain POSIX so that every step's result is seen: a buffered writer
    // reports a full disk only when it flushes, and must never be followed by the rename.
    auto fail = [error](const QString& why) {
        if (error)
            *error = why;
        return false;
    };
    const QFileInfo info(path);
    const QString folder = info.absolutePath();
    if (!QDir().mkpath(folder))
        return fail(u"can't create the folder " + folder);
    const QByteArray target = QFile::encodeName(info.absoluteFilePath());
    QByteArray temp = QFile::encodeName(folder + u"/." + info.fileName() + u".XXXXXX");

    const int fd = ::mkostemp(temp.data(), O_CLOEXEC);
    if (fd < 0)
        return fail(systemError(errno));
    // mkstemp makes the file private; an existing file keeps its own permissions.
    struct stat old {};
    if (::stat(target.constData(), &old) == 0 && S_ISREG(old.st_mode))
        ::fchmod(fd, old.st_mode & 07777);

    int code = 0;
    bool ok = writeAll(fd, bytes.constData(), bytes.size(), &code);
    if (ok && ::fsync(fd) != 0) {
        ok = false;
        code = errno;
    }
    if (::close(fd) != 0 && ok) {
        ok = false;
        code = errno;
    }
    if (ok && ::rename(temp.constData(), target.constData()) != 0) {
        ok = false;
        code = errno;
    }
    if (!ok) {
        ::unlink(temp.constData());
        return fail(systemError(code));
    }
    // The rename itself reaches the disk with the folder's entry.
    const int dir =
        ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
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

#include "core/file_lock.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace tovin {

FileLock::FileLock(const QString& guardedPath, int patienceMs) {
    const QByteArray path = QFile::encodeName(guardedPath + u".lock");
    const int fd = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        return; // a read-only folder: the write that follows fails and says why
    const QDeadlineTimer deadline(patienceMs);
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        if ((error != EWOULDBLOCK && error != EINTR) || deadline.hasExpired()) {
            busy_ = error == EWOULDBLOCK || error == EINTR;
            ::close(fd);
            return;
        }
        QThread::msleep(5);
    }
    fd_ = fd;
}

FileLock::~FileLock() {
    if (fd_ >= 0)
        ::close(fd_); // closing the only descriptor releases the lock
}

} // namespace tovin

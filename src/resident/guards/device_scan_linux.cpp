#include "resident/guards/device_scan_linux.h"

#include <QDir>
#include <QFile>

#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tovin {

AlsaCapture scanAlsaCapture(const QString& asoundDir) {
    AlsaCapture result;
    const QDir root(asoundDir);
    for (const QString& card : root.entryList({QStringLiteral("card*")}, QDir::Dirs)) {
        const QDir cardDir(root.filePath(card));
        // pcm0c, pcm1c, …: the capture devices of this card.
        for (const QString& pcm : cardDir.entryList({QStringLiteral("pcm*c")}, QDir::Dirs)) {
            ++result.devices;
            const QDir pcmDir(cardDir.filePath(pcm));
            for (const QString& sub : pcmDir.entryList({QStringLiteral("sub*")}, QDir::Dirs)) {
                QFile status(pcmDir.filePath(sub + u"/status"));
                if (status.open(QIODevice::ReadOnly) &&
                    status.read(4096).contains("state: RUNNING"))
                    result.running = true;
            }
        }
    }
    return result;
}

qint64 anotherProcessHoldsVideoDevice(const QString& deviceDir, const QString& procDir,
                                      const QList<qint64>& alsoOurs) {
    // Plain POSIX calls: this runs once a second during a countdown and walks every open file
    // of every process, so it avoids building a QString per entry.
    const QByteArray prefix = QFile::encodeName(QDir::cleanPath(deviceDir)) + "/video";
    const QByteArray proc = QFile::encodeName(procDir);
    const long self = long(::getpid());

    DIR* processes = ::opendir(proc.constData());
    if (!processes)
        return 0;
    qint64 found = 0;
    char link[4096];
    while (!found) {
        const dirent* p = ::readdir(processes);
        if (!p)
            break;
        char* end = nullptr;
        const long pid = std::strtol(p->d_name, &end, 10);
        if (pid <= 0 || *end != '\0' || pid == self || alsoOurs.contains(qint64(pid)))
            continue;
        const QByteArray fdDir = proc + '/' + p->d_name + "/fd";
        DIR* fds = ::opendir(fdDir.constData());
        if (!fds)
            continue; // another user's process, or gone already
        while (const dirent* f = ::readdir(fds)) {
            if (f->d_name[0] == '.')
                continue;
            const QByteArray path = fdDir + '/' + f->d_name;
            const ssize_t n = ::readlink(path.constData(), link, sizeof link - 1);
            if (n <= 0)
                continue;
            link[n] = '\0';
            if (std::strncmp(link, prefix.constData(), size_t(prefix.size())) == 0) {
                found = pid;
                break;
            }
        }
        ::closedir(fds);
    }
    ::closedir(processes);
    return found;
}

QList<qint64> ownProcessesNamed(const QByteArray& comm, const QString& procDir) {
    QList<qint64> found;
    const QByteArray proc = QFile::encodeName(procDir);
    DIR* processes = ::opendir(proc.constData());
    if (!processes)
        return found;
    while (const dirent* p = ::readdir(processes)) {
        char* end = nullptr;
        const long pid = std::strtol(p->d_name, &end, 10);
        if (pid <= 0 || *end != '\0' || pid == long(::getpid()))
            continue;
        const QByteArray dir = proc + '/' + p->d_name;
        struct stat st {};
        if (::stat(dir.constData(), &st) != 0 || st.st_uid != ::getuid())
            continue;
        QFile name(QFile::decodeName(dir + "/comm"));
        if (name.open(QIODevice::ReadOnly) && name.readAll().trimmed() == comm)
            found.append(pid);
    }
    ::closedir(processes);
    return found;
}

} // namespace tovin

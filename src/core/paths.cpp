#include "core/paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace tovin::paths {

namespace {
QString ensured(const QString& dir) {
    QDir().mkpath(dir);
    return dir;
}

QString base(QStandardPaths::StandardLocation location) {
    QString dir = QStandardPaths::writableLocation(location);
    if (dir.isEmpty())
        dir = QDir::homePath();
    return dir;
}

// Makes the folder with mode 0700 when it is not there, then checks what is there: made by us
// a moment ago or by anybody before, only a private folder of ours passes.
QString privateFolder(const QString& path, QString* why) {
    const QByteArray native = QFile::encodeName(path);
    if (::mkdir(native.constData(), 0700) != 0 && errno != EEXIST) {
        if (why)
            *why = u"cannot make " + path + u": " + QString::fromLocal8Bit(std::strerror(errno));
        return {};
    }
    return isPrivateDir(path, why) ? path : QString();
}
} // namespace

QString dataDir() {
    return ensured(base(QStandardPaths::GenericDataLocation) + u"/Tovin");
}

QString legacyLedgerFile() {
    return base(QStandardPaths::GenericDataLocation) + u"/ARVEL/promises.json";
}

QString configDir() {
    return ensured(base(QStandardPaths::GenericConfigLocation) + u"/Tovin");
}

bool isPrivateDir(const QString& path, QString* why) {
    struct stat st {};
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0) {
        if (why)
            *why = path + u": " + QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    QString wrong;
    if (S_ISLNK(st.st_mode))
        wrong = path + u" is a symbolic link, not a folder";
    else if (!S_ISDIR(st.st_mode))
        wrong = path + u" is not a folder";
    else if (st.st_uid != ::geteuid())
        wrong = path + u" belongs to another user (uid " + QString::number(st.st_uid) + u')';
    else if ((st.st_mode & 077) != 0)
        wrong = path + u" is open to other users (mode " +
                QString::number(st.st_mode & 0777, 8).rightJustified(4, u'0') + u')';
    if (wrong.isEmpty())
        return true;
    if (why)
        *why = wrong;
    return false;
}

QString runtimeDir(QString* why) {
    // The session's runtime folder counts only when it is what it claims to be; `su`, cron and
    // bare X sessions leave it unset or point at somebody else's.
    const QString session = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!session.isEmpty() && QDir::isAbsolutePath(session) && isPrivateDir(session))
        return privateFolder(session + u"/tovin", why);
    // The temporary folder is shared with every user: whoever makes a name there first owns
    // it, so the name carries the uid and an impostor's folder is refused, never used.
    return privateFolder(QDir::tempPath() + u"/tovin-" + QString::number(::geteuid()), why);
}

namespace {
QString orRunning(const QString& programDir) {
    return programDir.isEmpty() ? QCoreApplication::applicationDirPath() : programDir;
}
} // namespace

QString installedShare(const QString& relative, const QString& programDir) {
    const QString dir = orRunning(programDir);
    for (const QString& share :
         {QString(dir + u"/../share/tovin/"), QString(dir + u"/../../share/tovin/")}) {
        if (QFileInfo::exists(share + relative))
            return QDir::cleanPath(share + relative);
    }
    return {};
}

QString installedProgram(const QString& name, const QString& programDir) {
    const QString dir = orRunning(programDir);
    const QString beside = dir + u'/' + name;
    if (QFileInfo(beside).isExecutable())
        return beside;
    const QString packaged = QDir::cleanPath(dir + u"/../libexec/tovin/" + name);
    return QFileInfo(packaged).isExecutable() ? packaged : beside;
}

} // namespace tovin::paths

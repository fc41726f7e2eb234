#include "resident/launch_at_login.h"

#include "core/atomic_file.h"
#include "resident/records/journal.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

namespace tovin {

namespace {

// Desktop-entry quoting for an Exec argument.
QString quoted(QString path) {
    path.replace(u'\\', QStringLiteral("\\\\"))
        .replace(u'"', QStringLiteral("\\\""))
        .replace(u'`', QStringLiteral("\\`"))
        .replace(u'$', QStringLiteral("\\$"));
    return u'"' + path + u'"';
}

} // namespace

LaunchAtLogin::LaunchAtLogin(QString entryPath, QString executable, Journal& journal)
    : entryPath_(std::move(entryPath))
    , executable_(std::move(executable))
    , journal_(journal) {
}

QString LaunchAtLogin::defaultEntryPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           u"/autostart/dev.tovin.Tovin.desktop";
}

QString LaunchAtLogin::thisExecutable() {
    return QCoreApplication::applicationFilePath();
}

QString LaunchAtLogin::executable() const {
    return QFileInfo(executable_).isExecutable() ? executable_ : QString();
}

int LaunchAtLogin::status() const {
    if (executable().isEmpty())
        return NotFound;
    QFile file(entryPath_);
    if (!file.open(QIODevice::ReadOnly))
        return NotRegistered;
    // Both the standard switch and GNOME's own make the desktop skip an entry that exists.
    for (const QByteArray& raw : file.readAll().split('\n')) {
        const QByteArray line = raw.trimmed();
        if (line == "Hidden=true" || line == "X-GNOME-Autostart-enabled=false")
            return Blocked;
    }
    return Enabled;
}

int LaunchAtLogin::set(bool on) {
    const QString& path = entryPath_;
    QString error;
    if (on) {
        const QString exe = executable();
        const QByteArray entry =
            (QStringLiteral("[Desktop Entry]\n"
                            "Type=Application\n"
                            "Name=Tovin\n"
                            "Comment=Holds you to the breaks you promised yourself\n"
                            "Icon=dev.tovin.Tovin\n"
                            "Exec=") +
             quoted(exe) + u"\nTerminal=false\nX-GNOME-Autostart-enabled=true\n")
                .toUtf8();
        if (exe.isEmpty())
            error = QStringLiteral("no installed executable to start");
        else if (!writeFileAtomically(path, entry))
            error = u"cannot write " + path;
        if (!error.isEmpty())
            journal_.note(QStringLiteral("login"), u"couldn't register: " + error);
    } else if (QFile::exists(path) && !QFile::remove(path)) {
        journal_.note(QStringLiteral("login"), u"couldn't unregister: cannot remove " + path);
    }
    const int now = status();
    journal_.note(QStringLiteral("login"),
                  QString::fromUtf8(on ? "asked for on — now " : "asked for off — now ") +
                      describe(now));
    return now;
}

QString LaunchAtLogin::describe(int s) {
    switch (s) {
    case NotRegistered:
        return QStringLiteral("not registered");
    case Enabled:
        return QStringLiteral("enabled");
    case Blocked:
        return QStringLiteral("requires approval in your desktop's startup settings");
    case NotFound:
        return QStringLiteral("not found");
    default:
        return QStringLiteral("unknown");
    }
}

QString LaunchAtLogin::menuTitle(int s) {
    return s == Blocked
               ? QStringLiteral("Open at Login — blocked in your desktop's startup settings")
               : QStringLiteral("Open at Login");
}

QString LaunchAtLogin::blockedTitle() {
    return QStringLiteral("Your desktop is blocking Tovin from opening at login.");
}

QString LaunchAtLogin::blockedDetail() {
    return QStringLiteral(
        "It's switched off in your desktop's startup settings. Turn Tovin on there and this will "
        "stick.\n\nUntil then Tovin won't be running after a restart, and a day it isn't running "
        "looks exactly like a day you didn't sit still long enough.");
}

} // namespace tovin

#include "core/paths.h"
#include "desktop/desktop_hold.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>

namespace tovin::DesktopHold {

using namespace Qt::Literals::StringLiterals;

namespace {

// A desktop that hangs must not hang Tovin: every question has a short answer time.
constexpr int askTimeoutMs = 1000;

QDBusMessage ask(const QString& service, const QString& path, const QString& interface,
                 const QString& method, const QVariantList& arguments = {}) {
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, method);
    call.setArguments(arguments);
    return QDBusConnection::sessionBus().call(call, QDBus::Block, askTimeoutMs);
}

QDBusMessage askKWin(const QString& method, const QVariantList& arguments = {}) {
    return ask(u"org.kde.KWin"_s, u"/Scripting"_s, u"org.kde.kwin.Scripting"_s, method, arguments);
}

bool answered(const QDBusMessage& reply) {
    return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty();
}

QString extensionFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           u"/gnome-shell/extensions/"_s + QLatin1String(gnomeExtensionUuid);
}

// GNOME keeps the extensions it runs in one setting, a list; the tool that edits settings is
// GNOME's own, so Tovin never writes its database behind its back.
QStringList enabledExtensions(bool* ok) {
    QProcess gsettings;
    gsettings.start(u"gsettings"_s, {u"get"_s, u"org.gnome.shell"_s, u"enabled-extensions"_s});
    *ok = gsettings.waitForFinished(3000) && gsettings.exitCode() == 0;
    QStringList uuids;
    static const QRegularExpression quoted(QStringLiteral("'([^']*)'"));
    const QString text = QString::fromUtf8(gsettings.readAllStandardOutput());
    for (const auto& match : quoted.globalMatch(text))
        uuids.append(match.captured(1));
    return uuids;
}

QString copyExtension() {
    const QString source =
        paths::installedShare(u"gnome-shell/"_s + QLatin1String(gnomeExtensionUuid));
    if (source.isEmpty())
        return u"Tovin's GNOME Shell extension is missing from this copy of Tovin."_s;
    const QString target = extensionFolder();
    if (!QDir().mkpath(target))
        return u"Tovin could not make the folder " + target + u'.';
    for (const QString& name : QDir(source).entryList(QDir::Files)) {
        QFile in(source + u'/' + name);
        QSaveFile out(target + u'/' + name);
        if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::WriteOnly) ||
            out.write(in.readAll()) < 0 || !out.commit())
            return u"Tovin could not write " + out.fileName() + u": " + out.errorString();
    }
    return {};
}

} // namespace

Desktop desktop() {
    const QStringList names = qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':');
    if (names.contains(u"GNOME"_s, Qt::CaseInsensitive))
        return Desktop::Gnome;
    if (names.contains(u"KDE"_s, Qt::CaseInsensitive))
        return Desktop::Kde;
    return Desktop::Other;
}

QString loadKWinScript() {
    const QString script = paths::installedShare(u"kwin/tovin-shield.js"_s);
    if (script.isEmpty())
        return u"KWin: Tovin's script is missing from this copy — other windows can open over "
               u"the shield"_s;
    const QString name = QLatin1String(kwinScriptName);
    const QDBusMessage loaded = askKWin(u"isScriptLoaded"_s, {name});
    if (!answered(loaded))
        return u"KWin does not answer on the session bus — other windows can open over the "
               u"shield"_s;
    // A copy left by an earlier run (or an older Tovin) gives way to this one's.
    if (loaded.arguments().constFirst().toBool())
        askKWin(u"unloadScript"_s, {name});
    const QDBusMessage id = askKWin(u"loadScript"_s, {script, name});
    if (!answered(id) || id.arguments().constFirst().toInt() < 0)
        return u"KWin refused Tovin's script (" + script +
               u") — other windows can open over the shield";
    askKWin(u"start"_s);
    return u"KWin: Tovin's script keeps the shield above other windows, with the keyboard"_s;
}

int gnomeShellVersion() {
    const QDBusMessage reply =
        ask(u"org.gnome.Shell"_s, u"/org/gnome/Shell"_s, u"org.freedesktop.DBus.Properties"_s,
            u"Get"_s, {u"org.gnome.Shell"_s, u"ShellVersion"_s});
    if (!answered(reply))
        return 0;
    const QString version =
        reply.arguments().constFirst().value<QDBusVariant>().variant().toString();
    return version.section(u'.', 0, 0).toInt();
}

bool gnomeExtensionRunsHere() {
    const int version = gnomeShellVersion();
    return version == 43 || version == 44;
}

Extension gnomeExtension() {
    const QDBusMessage reply =
        ask(u"org.gnome.Shell"_s, u"/org/gnome/Shell"_s, u"org.gnome.Shell.Extensions"_s,
            u"GetExtensionInfo"_s, {QString::fromLatin1(gnomeExtensionUuid)});
    if (!answered(reply))
        return Extension::NoShell;
    const QVariantMap info = qdbus_cast<QVariantMap>(reply.arguments().constFirst());
    if (info.isEmpty()) {
        // Unknown to the running shell: not installed, or installed since it started.
        if (!QFileInfo::exists(extensionFolder() + u"/extension.js"_s))
            return Extension::Missing;
        bool ok = false;
        return enabledExtensions(&ok).contains(QLatin1String(gnomeExtensionUuid))
                   ? Extension::Waiting
                   : Extension::Off;
    }
    // GNOME Shell's own numbers: 1 enabled, 2 disabled, 6 initialised but never enabled.
    switch (int(info.value(u"state"_s).toDouble())) {
    case 1:
        return Extension::On;
    case 2:
    case 6:
        return Extension::Off;
    default:
        return Extension::Broken;
    }
}

QString installGnomeExtension() {
    if (QString error = copyExtension(); !error.isEmpty())
        return error;
    // A shell that already knows the extension turns it on at once; a new one it learns of only
    // at the next log-in, so it goes into the list the shell reads then.
    const QDBusMessage enabled =
        ask(u"org.gnome.Shell"_s, u"/org/gnome/Shell"_s, u"org.gnome.Shell.Extensions"_s,
            u"EnableExtension"_s, {QString::fromLatin1(gnomeExtensionUuid)});
    if (answered(enabled) && enabled.arguments().constFirst().toBool() &&
        gnomeExtension() == Extension::On)
        return {};
    bool ok = false;
    QStringList uuids = enabledExtensions(&ok);
    if (!ok)
        return u"Tovin could not read GNOME's list of extensions (is gsettings installed?)."_s;
    if (!uuids.contains(QLatin1String(gnomeExtensionUuid))) {
        uuids.append(QLatin1String(gnomeExtensionUuid));
        QStringList quoted;
        for (const QString& uuid : uuids)
            quoted.append(u'\'' + uuid + u'\'');
        QProcess gsettings;
        gsettings.start(u"gsettings"_s, {u"set"_s, u"org.gnome.shell"_s, u"enabled-extensions"_s,
                                         u'[' + quoted.join(u", "_s) + u']'});
        if (!gsettings.waitForFinished(3000) || gsettings.exitCode() != 0)
            return u"GNOME did not accept the extension: " +
                   QString::fromUtf8(gsettings.readAllStandardError()).trimmed();
    }
    return {};
}

// Whether GNOME has stored the person's "Allow" for Tovin's shortcuts inhibitor. Without it,
// asking puts a system dialog over the shield, one per window, that Esc (Tovin's own way out)
// answers "Deny".
bool gnomeAllowsShortcutsInhibitor() {
    QDBusMessage lookup = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.impl.portal.PermissionStore"),
        QStringLiteral("/org/freedesktop/impl/portal/PermissionStore"),
        QStringLiteral("org.freedesktop.impl.portal.PermissionStore"), QStringLiteral("Lookup"));
    lookup << QStringLiteral("gnome") << QStringLiteral("shortcuts-inhibitor");
    const QDBusMessage reply = QDBusConnection::sessionBus().call(lookup, QDBus::Block, 500);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return false;
    const QDBusArgument permissions = reply.arguments().constFirst().value<QDBusArgument>();
    bool granted = false;
    permissions.beginMap();
    while (!permissions.atEnd()) {
        QString app;
        QStringList answer;
        permissions.beginMapEntry();
        permissions >> app >> answer;
        permissions.endMapEntry();
        // GNOME keys the answer by the app's desktop file.
        if (app == u"dev.tovin.Tovin.desktop"_s || app == u"dev.tovin.Tovin"_s)
            granted = answer.value(0) == u"GRANTED"_s;
    }
    permissions.endMap();
    return granted;
}

bool holdsShield() {
    switch (desktop()) {
    case Desktop::Kde: {
        const QDBusMessage loaded = askKWin(u"isScriptLoaded"_s, {QLatin1String(kwinScriptName)});
        return answered(loaded) && loaded.arguments().constFirst().toBool();
    }
    case Desktop::Gnome:
        return gnomeExtension() == Extension::On;
    case Desktop::Other:
        return false;
    }
    return false;
}

QString describe() {
    const QString reachOver = u" — other windows, the Overview and GNOME's shortcuts reach over "
                              u"the shield"_s;
    switch (desktop()) {
    case Desktop::Kde:
        return holdsShield() ? u"KWin: Tovin's script keeps the shield above other windows, with "
                               u"the keyboard"_s
                             : u"KWin: Tovin's script is not loaded — a window that opens during a "
                               u"lockout can cover the shield and take the keyboard"_s;
    case Desktop::Gnome:
        switch (gnomeExtension()) {
        case Extension::On:
            return u"GNOME: Tovin's extension keeps the shield above other windows, with the "
                   u"keyboard, and holds GNOME's shortcuts and Overview"_s;
        case Extension::Waiting:
            return u"GNOME: Tovin's extension is installed and turned on; it starts working after "
                   u"you log out and back in"_s;
        case Extension::Off:
            return u"GNOME: Tovin's extension is turned off (the Extensions app turns it on)"_s +
                   reachOver;
        case Extension::Broken:
            return u"GNOME: Tovin's extension failed to start (see GNOME's Extensions app)"_s +
                   reachOver;
        case Extension::Missing:
            if (!gnomeExtensionRunsHere())
                return u"GNOME: Tovin's extension runs on GNOME 43 and 44 only, not on this "
                       u"one"_s +
                       reachOver;
            return u"GNOME: Tovin's extension is not installed (the setup window offers it)"_s +
                   reachOver;
        case Extension::NoShell:
            // A desktop that calls itself GNOME but runs no GNOME Shell (Budgie, say): nothing
            // of GNOME's applies.
            break;
        }
        break;
    case Desktop::Other:
        break;
    }
    return u"no helper of this desktop's own keeps the shield above other windows"_s;
}

} // namespace tovin::DesktopHold

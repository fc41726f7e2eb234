#include "core/paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace tovin;

// The runtime folder: the session's own only when it really is this user's and closed to
// others, else a folder of Tovin's making in the temporary folder; a folder loosened since is
// refused, not used.
TEST(Paths, RuntimeFolderIsPrivateOrRefused) {
    QTemporaryDir dir;
    const QString session = dir.filePath(QStringLiteral("session"));
    const QString open = dir.filePath(QStringLiteral("open"));
    const QString tmp = dir.filePath(QStringLiteral("tmp"));
    for (const QString& d : {session, open, tmp})
        ASSERT_TRUE(QDir().mkpath(d));
    ::chmod(QFile::encodeName(session).constData(), 0700);
    ::chmod(QFile::encodeName(open).constData(), 0755);
    const QByteArray savedRuntime = qgetenv("XDG_RUNTIME_DIR");
    const QByteArray savedTmp = qgetenv("TMPDIR");
    qputenv("TMPDIR", QFile::encodeName(tmp));
    const QString fallback = tmp + u"/tovin-" + QString::number(::geteuid());

    const struct {
        QString runtime, expected;
    } cases[] = {
        {session, session + u"/tovin"},
        {open, fallback},                       // others may enter the session's folder
        {QStringLiteral("relative"), fallback}, // not a place at all
        {QString(), fallback},
    };
    for (const auto& c : cases) {
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(c.runtime));
        EXPECT_EQ(paths::runtimeDir(), c.expected) << c.runtime.toStdString();
        struct stat st {};
        ASSERT_EQ(::lstat(QFile::encodeName(c.expected).constData(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0700u);
    }

    ::chmod(QFile::encodeName(fallback).constData(), 0750);
    QString why;
    EXPECT_EQ(paths::runtimeDir(&why), QString());
    EXPECT_EQ(why, fallback + u" is open to other users (mode 0750)");

    qputenv("XDG_RUNTIME_DIR", savedRuntime);
    qputenv("TMPDIR", savedTmp);
}

// Both install layouts: a self-contained copy (everything in bin/ beside share/tovin) and a
// package (/usr/bin, the helper in /usr/libexec/tovin, share/tovin under /usr).
TEST(Paths, ShippedFilesAreFoundFromEitherLayout) {
    QTemporaryDir root;
    const auto make = [&](const QString& relative, bool executable) {
        const QString path = root.filePath(relative);
        QDir().mkpath(QFileInfo(path).path());
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        if (executable)
            f.setPermissions(f.permissions() | QFileDevice::ExeOwner);
    };
    make(QStringLiteral("own/bin/tovin-screens"), true);
    make(QStringLiteral("own/share/tovin/web/index.html"), false);
    make(QStringLiteral("usr/libexec/tovin/tovin-screens"), true);
    make(QStringLiteral("usr/share/tovin/web/index.html"), false);
    QDir().mkpath(root.filePath(QStringLiteral("usr/bin")));
    const QString ownBin = root.filePath(QStringLiteral("own/bin"));
    const QString usrBin = root.filePath(QStringLiteral("usr/bin"));
    const QString usrHelper = root.filePath(QStringLiteral("usr/libexec/tovin"));

    EXPECT_EQ(paths::installedProgram(QStringLiteral("tovin-screens"), ownBin),
              ownBin + u"/tovin-screens");
    EXPECT_EQ(paths::installedProgram(QStringLiteral("tovin-screens"), usrBin),
              usrHelper + u"/tovin-screens");
    EXPECT_EQ(paths::installedShare(QStringLiteral("web"), ownBin),
              root.filePath(QStringLiteral("own/share/tovin/web")));
    EXPECT_EQ(paths::installedShare(QStringLiteral("web"), usrBin),
              root.filePath(QStringLiteral("usr/share/tovin/web")));
    EXPECT_EQ(paths::installedShare(QStringLiteral("web"), usrHelper),
              root.filePath(QStringLiteral("usr/share/tovin/web")));
    EXPECT_EQ(paths::installedShare(QStringLiteral("models"), usrHelper), QString());
}

#include "core/atomic_file.h"
#include "resident/launch_at_login.h"
#include "resident/records/journal.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace tovin;

// The menu's check box and its greyed, skipped entry are the shell's test; here, each status
// the autostart entry maps to.
TEST(LaunchAtLogin, StatusesMapTheAutostartEntryHonestly) {
    QTemporaryDir dir;
    Journal journal(dir.filePath(QStringLiteral("tovin-journal-test-login.log")));
    const QString entry = dir.filePath(QStringLiteral("autostart/dev.tovin.Tovin.desktop"));
    LaunchAtLogin login(entry, QCoreApplication::applicationFilePath(), journal);

    EXPECT_EQ(login.status(), LaunchAtLogin::NotRegistered);
    EXPECT_EQ(login.set(true), LaunchAtLogin::Enabled);
    EXPECT_TRUE(
        readWholeFile(entry, 4096)->contains(QCoreApplication::applicationFilePath().toUtf8()));
    // The desktop's own switch turned it off: blocked, and said so.
    ASSERT_TRUE(writeFileAtomically(
        entry, "[Desktop Entry]\nExec=tovin\nX-GNOME-Autostart-enabled=false\n"));
    EXPECT_EQ(login.status(), LaunchAtLogin::Blocked);
    EXPECT_EQ(login.set(false), LaunchAtLogin::NotRegistered);

    LaunchAtLogin missing(entry, dir.filePath(QStringLiteral("no-such-tovin")), journal);
    EXPECT_EQ(missing.set(true), LaunchAtLogin::NotFound);
    EXPECT_TRUE(journal.tail(2).value(0).endsWith(
        u"[login] couldn't register: no installed executable to start"));
}

#pragma once

#include <QString>

namespace tovin {

// Opening Tovin at login, through the desktop's autostart folder: an entry
// $XDG_CONFIG_HOME/autostart/dev.tovin.Tovin.desktop that starts this executable.
namespace LaunchAtLogin {

enum Status {
    NotRegistered = 0, // no entry
    Enabled = 1,       // an entry that the desktop will start
    Blocked = 2,       // an entry the desktop was told to skip (Hidden=true, or its own switch)
    NotFound = 3,      // no executable that an entry could name
};

// The entry's location; a test may point it elsewhere.
QString entryPath();
void setEntryPathForTesting(const QString& path);
// The executable an entry starts; empty when none can be named.
QString executable();
void setExecutableForTesting(const QString& path);

int status();
bool isOn();
// Registers or removes the entry, journals what happened, and returns the status after it.
int set(bool on);
QString describe(int status);
QString menuTitle(int status);

// What a person is told when the desktop blocks the entry.
QString blockedTitle();
QString blockedDetail();

} // namespace LaunchAtLogin
} // namespace tovin

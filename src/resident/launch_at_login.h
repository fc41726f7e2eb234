#pragma once

#include <QString>

namespace tovin {

// Opening Tovin at login, through the desktop's autostart folder: an entry
// $XDG_CONFIG_HOME/autostart/dev.tovin.Tovin.desktop that starts this executable.
class Journal;

class LaunchAtLogin {
public:
    enum Status {
        NotRegistered = 0, // no entry
        Enabled = 1,       // an entry that the desktop will start
        Blocked = 2,       // an entry the desktop was told to skip (Hidden=true, or its own switch)
        NotFound = 3,      // no executable that an entry could name
    };

    // The entry at `entryPath`, starting `executable`; what happens is journalled.
    LaunchAtLogin(QString entryPath, QString executable, Journal& journal);
    // The desktop's autostart folder, and this program.
    static QString defaultEntryPath();
    static QString thisExecutable();

    const QString& entryPath() const { return entryPath_; }
    // The executable an entry starts; empty when none can be named.
    QString executable() const;

    int status() const;
    bool isOn() const { return status() == Enabled; }
    // Registers or removes the entry, journals what happened, and returns the status after it.
    int set(bool on);

    static QString describe(int status);
    static QString menuTitle(int status);
    // What a person is told when the desktop blocks the entry.
    static QString blockedTitle();
    static QString blockedDetail();

private:
    QString entryPath_;
    QString executable_;
    Journal& journal_;
};

} // namespace tovin

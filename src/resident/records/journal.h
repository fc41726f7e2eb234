#pragma once

#include "core/clock.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <mutex>

namespace tovin {

// The record of what was decided and why, one timestamped line per entry in tovin.log:
//
//   2026-03-02T09:00:12Z  [4211] [schedule] idle — no blocks scheduled today
//
// Events go through note() and are written every time. Conditions go through state() and are
// written when they change, plus a heartbeat while they stay the same, so a scheduler ticking
// every 30 seconds writes one line per change and one every half hour while idle: a reader
// tells "idle" from "stopped ticking" by the heartbeat. Every line also goes to the system log.
//
// All file work is serialised under one lock and each call waits for it, so a line is in the
// file when note() or state() returns, whichever thread called. Errors are swallowed: the
// journal never disturbs the program.
class Journal {
public:
    static constexpr double defaultHeartbeat = 1800; // seconds
    // Above this size the file is halved after a write, keeping the newer half.
    static constexpr qint64 rotateAboveBytes = 524288;
    // A longer message is cut, with a visible marker saying how much went.
    static constexpr qsizetype maxMessageChars = 2000;

    // The journal in this file (tovin.log in Tovin's data folder for the person's own), stamped
    // by this clock.
    explicit Journal(QString path = defaultPath(), const Clock& clock = Clock::system());
    static QString defaultPath();

    void note(const QString& tag, const QString& message);
    void state(const QString& tag, const QString& message, double heartbeat = defaultHeartbeat);

    // The last n non-empty lines, oldest first; empty for a missing or unreadable file.
    QStringList tail(int n) const;
    // The file written.
    const QString& url() const { return path_; }

private:
    void writeLocked(const QString& tag, const QString& text, bool unchanged);

    struct Memory {
        QString message;
        qint64 writtenAtMs = 0;
    };
    const QString path_;
    const Clock& clock_;
    std::mutex lock_;
    QHash<QString, Memory> lastState_;
};
} // namespace tovin

#pragma once

#include "core/clock.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

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
namespace Journal {

inline constexpr double defaultHeartbeat = 1800; // seconds
// Above this size the file is halved after a write, keeping the newer half.
inline constexpr qint64 rotateAboveBytes = 524288;
// A longer message is cut, with a visible marker saying how much went.
inline constexpr qsizetype maxMessageChars = 2000;

void note(const QString& tag, const QString& message);
void state(const QString& tag, const QString& message, double heartbeat = defaultHeartbeat);

// The last n non-empty lines, oldest first; empty for a missing or unreadable file.
QStringList tail(int n);

// The file in use: the override when set, else tovin.log in Tovin's data folder.
QString url();
std::optional<QString> overrideURL();
// Points the journal somewhere else (the self-check uses a throw-away file); none restores it.
void setOverrideURL(const std::optional<QString>& path);

// In a process that only draws, notes go to the process that keeps the journal instead of the
// file: one writer, so rotation never races another process. None restores the file.
void setForward(std::function<void(const QString& tag, const QString& message)> forward);

// Forgets what state() last wrote for every tag.
void resetForTesting();
// The clock for timestamps and heartbeats; null restores the system clock.
void setClock(const Clock* clock);

} // namespace Journal
} // namespace tovin

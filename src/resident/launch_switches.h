#pragma once

#include "resident/guards/call_detector.h"

#include <QString>
#include <QStringList>

class QTextStream;

namespace tovin {

// What a launch does, from its command line. Switches are whole arguments anywhere on the line;
// when several are given, the first in this order wins.
enum class LaunchMode {
    Help,
    Version,
    Why,          // the report of why it did or didn't fire, then exit
    UpdateDryRun, // an update check and download without the install, then exit
    LayoutCheck,  // the start window only; no single-instance rule, no schedule
    SelfTest,     // the built-in self-check against throw-away files, then exit
    ProbeCall,    // a line a second: would a call hold a lockout off; no schedule
    ProbeIdle,    // a line a second: seconds since the last input, then nothing else
    Rehearse,     // a rehearsal lockout at once; no schedule, no usage watcher
    Normal,
};

LaunchMode launchModeFor(const QStringList& arguments);

// "--rehearse" anywhere on the line means a rehearsal, whatever switch decides the launch: a
// start window opened with it begins a rehearsal, never a real lockout.
bool launchedForRehearsal(const QStringList& arguments);

// The single-instance rule applies to every launch but the two test modes.
bool checksSingleInstance(LaunchMode mode);

// The call probe's opening lines: how many recording-capable audio devices there are and what
// this desktop lets Tovin see, source by source.
void writeProbeHeader(QTextStream& out, int inputDevices, const QStringList& sources);
// One line of the call probe: each source, who is using it, and whether a lockout could start.
QString probeLine(const CallState& state);

} // namespace tovin

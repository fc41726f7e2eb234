#pragma once

#include "core/calendar.h"
#include "core/clock.h"

#include <QString>
#include <QStringList>

namespace tovin {

class Journal;
class Preferences;
class PromiseLedger;

// The plain-text answer to "why didn't it fire?", printed by `tovin --why`. It reads the
// schedule, settings, ledger and journal and changes nothing.
namespace Diagnostics {

struct WhySources {
    QString schedulePath;
    QString instancePath;
    const PromiseLedger* ledger = nullptr;

    // Where updates come from (the updater's summary); no line when empty.
    QString updates;
    // What the shield holds on this desktop; no line when empty.
    QString shield;
    // Where the idle time comes from; no line when empty.
    QString idle;
    // Whether a call or a shared screen would hold a lockout off now, and what the call
    // detector can see on this desktop, one line per source; none when empty.
    QStringList calls;
};

QString why(const WhySources& sources, const Preferences& preferences, const Journal& journal,
            const Clock& clock, const Calendar& calendar);

} // namespace Diagnostics
} // namespace tovin

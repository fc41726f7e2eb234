// Any bytes in settings.json: every setting reads as a value within its clamp (or its default),
// never a crash.
#include "resident/records/settings.h"

#include <QTimeZone>

#include <cstdint>
#include <cstdlib>

using namespace tovin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    MemorySettingsStore store(QStringLiteral("fuzz"), JsonFileSettingsStore::parse(bytes));
    const Preferences prefs(store);

    if (prefs.requiredCleanReps() < 1 || prefs.maxShieldMinutes() < 10.0 ||
        prefs.warningSeconds() < 10.0 || prefs.activeWeekdays().isEmpty())
        std::abort();
    if (prefs.escapePhrase() != prefs.escapePhrase().toLower())
        std::abort();
    (void)prefs.hintDelay();
    (void)prefs.lockoutWorkoutID();
    (void)prefs.triggerAfterMinutes();
    (void)prefs.idleResetsAfterMinutes();
    (void)prefs.snoozesPerLockout();
    (void)prefs.snoozeMinutes();
    (void)prefs.busyReason();
    (void)prefs.retestDueInDays();
    (void)prefs.retestReportedAt();
    (void)prefs.firedBlocksDay();
    (void)prefs.firedBlocks();
    (void)prefs.hasOnboarded();
    const QDateTime now(QDate(2026, 3, 2), QTime(12, 0), QTimeZone::utc());
    (void)prefs.isBusy(now);
    (void)prefs.scheduleAllows(now, Calendar::utc());
    return 0;
}

// Any bytes in settings.json: every setting reads as a value within its clamp (or its default),
// never a crash.
#include "resident/records/settings.h"

#include <QTimeZone>

#include <cstdint>
#include <cstdlib>

using namespace tovin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    Settings::setStore(std::make_shared<MemorySettingsStore>(
        QStringLiteral("fuzz"), JsonFileSettingsStore::parse(bytes)));

    if (Settings::requiredCleanReps() < 1 || Settings::maxShieldMinutes() < 10.0 ||
        Settings::warningSeconds() < 10.0 || Settings::activeWeekdays().isEmpty())
        std::abort();
    if (Settings::escapePhrase() != Settings::escapePhrase().toLower())
        std::abort();
    (void)Settings::hintDelay();
    (void)Settings::lockoutWorkoutID();
    (void)Settings::triggerAfterMinutes();
    (void)Settings::idleResetsAfterMinutes();
    (void)Settings::snoozesPerLockout();
    (void)Settings::snoozeMinutes();
    (void)Settings::busyReason();
    (void)Settings::retestDueInDays();
    (void)Settings::retestReportedAt();
    (void)Settings::firedBlocksDay();
    (void)Settings::firedBlocks();
    (void)Settings::hasOnboarded();
    const QDateTime now(QDate(2026, 3, 2), QTime(12, 0), QTimeZone::utc());
    (void)Settings::isBusy(now);
    (void)Settings::scheduleAllows(now, Calendar::utc());
    Settings::setStore(nullptr);
    return 0;
}

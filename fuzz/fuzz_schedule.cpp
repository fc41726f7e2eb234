// Any bytes in schedule.json: the reader answers with a week or with nothing, never a crash,
// and what it accepts, once written, reads back and writes again byte for byte the same.
#include "core/schedule.h"
#include "resident/records/schedule_store.h"

#include <QTimeZone>

#include <cstdint>
#include <cstdlib>

using namespace tovin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const auto week = ScheduleStore::decode(bytes);
    if (!week)
        return 0;
    const QByteArray written = ScheduleStore::encode(*week);
    const auto reread = ScheduleStore::decode(written);
    if (!reread || ScheduleStore::encode(*reread) != written)
        std::abort();
    // Every decision over an accepted week must be answerable.
    const Schedule schedule{*week};
    const Calendar calendar = Calendar::utc();
    const QDateTime start(QDate(2026, 3, 2), QTime(0, 0), QTimeZone::utc());
    for (int minute = 0; minute < 7 * 1440; minute += 97) {
        const QDateTime now = start.addSecs(minute * 60);
        (void)schedule.tick(now, {}, {}, calendar).summary();
        (void)schedule.upcoming(now, {}, calendar);
    }
    for (const Block& b : schedule.blocks())
        (void)Schedule::heldMinutes(b);
    return 0;
}

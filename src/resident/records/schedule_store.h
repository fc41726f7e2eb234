#pragma once

#include "core/block.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

#include <optional>

namespace tovin {

// The process-wide "the week was rewritten" notification. Open views and the scheduler connect
// to it to reload; it carries nothing, the file is the truth.
class ScheduleChangeNotifier final : public QObject {
    Q_OBJECT
public:
    static ScheduleChangeNotifier* instance();

Q_SIGNALS:
    void tovinScheduleChanged();

private:
    ScheduleChangeNotifier() = default;
};

// The week of blocks in schedule.json, which the person may also edit by hand. There is no
// cache: a hand edit takes effect at the next load. Saves sort the week by time of day and
// replace the file whole and atomically, then announce the change.
namespace ScheduleStore {

QString url();

// The week; an empty list for a missing, unreadable or malformed file (never a partial week).
QList<Block> load(const QString& path = url());

// Replaces the week with exactly these blocks. False when the file could not be written: the
// week is then kept and written by the retry on every tick (SaveFailures), and announced once
// it is on disk.
bool saveAll(QList<Block> blocks, const QString& path = url());

// Replaces every workout block with the plan, keeping away and retest blocks as they are.
bool saveWorkoutPlan(const QList<Block>& plan, const QString& path = url());

// Writes the example week when there is no file at all (an unreadable one counts as a file).
void writeExampleIfMissing(const QString& path = url());

// The file form: decode refuses the whole file on any bad block; encode writes sorted keys.
std::optional<QList<Block>> decode(const QByteArray& bytes);
// A bare JSON array of block objects (as the workout page sends a plan).
std::optional<QList<Block>> decodeBlockList(const QByteArray& bytes);
// The week as a compact JSON array in the file's block form (for the workout page).
QByteArray encodeBlockList(const QList<Block>& blocks);
QByteArray encode(const QList<Block>& blocks);

// Stable sort by minute of day, a malformed time counting as minute 0.
void sortByTimeOfDay(QList<Block>& blocks);

QList<Block> exampleWeek();

} // namespace ScheduleStore
} // namespace tovin

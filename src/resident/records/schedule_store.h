#pragma once

#include "core/block.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

#include <optional>

namespace tovin {

class SaveFailures;

// The week of blocks in schedule.json, which the person may also edit by hand. There is no
// cache: a hand edit takes effect at the next load. Saves sort the week by time of day and
// replace the file whole and atomically, then announce the change.
class ScheduleStore final : public QObject {
    Q_OBJECT
public:
    // The week in this file; saves that do not reach the disk are reported to `failures` and
    // retried from there (none: the caller only hears false).
    explicit ScheduleStore(QString path, SaveFailures* failures = nullptr,
                           QObject* parent = nullptr);
    ~ScheduleStore() override;
    // schedule.json in Tovin's data folder.
    static QString defaultPath();
    const QString& url() const { return path_; }

    // The week; an empty list for a missing, unreadable or malformed file (never a partial week).
    QList<Block> load() const { return load(path_); }
    static QList<Block> load(const QString& path);

    // Replaces the week with exactly these blocks. False when the file could not be written:
    // the week is then kept and written by the retry on every tick, and announced once it is on
    // disk.
    bool saveAll(QList<Block> blocks);
    // Replaces every workout block with the plan, keeping away and retest blocks as they are.
    bool saveWorkoutPlan(const QList<Block>& plan);
    // Writes the example week when there is no file at all (an unreadable one counts as a file).
    void writeExampleIfMissing();

    // The file form: decode refuses the whole file on any bad block; encode writes sorted keys.
    static std::optional<QList<Block>> decode(const QByteArray& bytes);
    // A bare JSON array of block objects (as the workout page sends a plan).
    static std::optional<QList<Block>> decodeBlockList(const QByteArray& bytes);
    // The week as a compact JSON array in the file's block form (for the workout page).
    static QByteArray encodeBlockList(const QList<Block>& blocks);
    static QByteArray encode(const QList<Block>& blocks);
    // Stable sort by minute of day, a malformed time counting as minute 0.
    static void sortByTimeOfDay(QList<Block>& blocks);
    static QList<Block> exampleWeek();

Q_SIGNALS:
    // The week was rewritten: saved here, or edited by hand (the file's watch says so). It
    // carries nothing; the file is the truth.
    void changed();

private:
    bool writeAndAnnounce(const QList<Block>& blocks);

    QString path_;
    SaveFailures* failures_;
};

} // namespace tovin

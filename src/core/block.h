#pragma once

#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

namespace tovin {

// One promise in the week: stop at this minute of the day, on these weekdays, for this.
struct Block {
    enum class Kind { Workout, Away, Retest };

    QString at;    // "HH:MM" or "H:MM", exactly as written
    QString label; // shown to the person and written to the journal
    Kind kind = Kind::Workout;
    std::optional<int> minutes;     // how long the break is held; none means the default
    std::optional<QList<int>> days; // 1 = Sunday … 7 = Saturday; none means every day

    // The time text as minutes since midnight; none when it is malformed. A malformed time is
    // never guessed at: such a block is never due, never upcoming and never counted as missed.
    std::optional<int> minuteOfDay() const;

    // Identity in the served-today set: "{at}|{label}|{kind}". Minutes and days are not part of
    // it, so editing a block's length does not make it due again the same day.
    QString key() const;

    // Whether the block runs on the weekday (1 = Sunday … 7 = Saturday).
    bool runsOn(int weekday) const;

    bool operator==(const Block&) const = default;
};

QString toString(Block::Kind kind);
std::optional<Block::Kind> blockKindFromString(QStringView text);

// Reads a time text as minutes since midnight: split at ':' dropping empty pieces, exactly two
// base-10 integers (an optional sign allowed), hour 0…23 and minute 0…59.
std::optional<int> parseMinuteOfDay(QStringView at);

} // namespace tovin

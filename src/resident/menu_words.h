#pragma once

#include "core/schedule.h"

#include <QString>

#include <optional>

namespace tovin::MenuWords {

// What the menu's first line is made of, read from the controller at one instant.
struct StatusInputs {
    bool shieldUp = false;
    std::optional<double> pausedSecondsLeft;
    std::optional<Schedule::Upcoming> next;
    bool hoursAllow = true;
    bool usageRunning = false;
    bool workoutChosen = false;
    double triggerSeconds = 0;
    double continuousUseSeconds = 0;
};

// The menu's two lines: what happens next, and how the promises stand.
QString status(const StatusInputs& in);
QString standing(qsizetype records, int streak, int tovin, int broken);

} // namespace tovin::MenuWords

#include "resident/menu_words.h"

#include <algorithm>

namespace tovin::MenuWords {

QString status(const StatusInputs& in) {
    auto describe = [](const Schedule::Upcoming& next) {
        if (next.minutesAway < 2)
            return QString(next.block.label + u" — any minute");
        return QString(next.block.label + u" in " + QString::number(next.minutesAway) + u" min");
    };
    if (in.shieldUp)
        return QStringLiteral("Locked out now");
    if (in.pausedSecondsLeft)
        return u"Paused — " +
               QString::number(std::max<qint64>(0, qint64(*in.pausedSecondsLeft / 60))) +
               u" min left";
    if (in.usageRunning && in.workoutChosen) {
        const double left = in.triggerSeconds - in.continuousUseSeconds;
        const qint64 usageLeft = std::max<qint64>(1, qint64(left / 60.0));
        if (left <= 0 && !in.next)
            return QStringLiteral("Due — waiting for a good moment");
        if (in.next && in.next->minutesAway <= usageLeft)
            return describe(*in.next);
        return u"Next lockout in about " + QString::number(usageLeft) + u" min";
    }
    if (in.next)
        return describe(*in.next);
    if (!in.workoutChosen)
        return QStringLiteral("Not set up — nothing will happen");
    return in.hoursAllow ? QStringLiteral("Not watching")
                         : QStringLiteral("Outside your hours — won't interrupt");
}

QString standing(qsizetype records, int streak, int tovin, int broken) {
    if (records == 0)
        return QStringLiteral("No promises yet");
    const QString prefix =
        streak > 0 ? QString::number(streak) + u" in a row · " : QStringLiteral("Streak broken · ");
    return prefix + QString::number(tovin) + u" tovin · " + QString::number(broken) + u" broken";
}

} // namespace tovin::MenuWords

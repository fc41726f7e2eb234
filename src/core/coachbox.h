#pragma once

#include "core/clock.h"

#include <QDateTime>
#include <QString>

#include <limits>

namespace tovin {

// Whatever turns text into speech. Speaking must never block: the phrase is queued behind any
// speech under way, and a voice with no sound server simply says nothing.
class Speaker {
public:
    virtual ~Speaker() = default;
    // rate and pitch on a -1..1 scale, 0 normal; volume 0..1.
    virtual void speak(const QString& text, double rate, double pitch, double volume) = 0;
};

// Turns the coaches' stream of cues (one nearly every frame) into occasional speech: the same
// phrase at most every 6 s, 1.6 s between phrases (0.8 s for an urgent one), nothing stopped
// mid-sentence.
class Coachbox {
public:
    // The platform's 0.52 on a 0..1 scale where 0.5 is normal: a touch quicker than normal.
    static constexpr double rate = 0.04;

    Coachbox(const Clock& clock, Speaker& speaker)
        : clock_(clock)
        , speaker_(speaker) {}

    // Speaks the phrase or drops it. A dropped phrase costs two time differences and one text
    // comparison, and leaves the memory as it was.
    void say(const QString& text, bool urgent = false);

    const QString& lastPhrase() const { return lastPhrase_; }

private:
    const Clock& clock_;
    Speaker& speaker_;
    QString lastPhrase_;
    qint64 lastSpokenMs_ = std::numeric_limits<qint64>::min() / 2; // the distant past
    qint64 lastRepeatMs_ = std::numeric_limits<qint64>::min() / 2;
};

} // namespace tovin

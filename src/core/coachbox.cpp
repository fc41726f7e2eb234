#include "core/coachbox.h"

namespace tovin {

void Coachbox::say(const QString& text, bool urgent) {
    const qint64 now = clock_.now().toMSecsSinceEpoch();
    const qint64 sinceSpoken = now - lastSpokenMs_;
    if (now - lastRepeatMs_ < 6000 && text == lastPhrase_)
        return; // never the same phrase twice within 6 s
    if (!urgent && sinceSpoken < 1600)
        return;
    if (sinceSpoken < 800)
        return; // the floor between any two phrases, urgent or not
    lastRepeatMs_ = now;
    lastPhrase_ = text;
    lastSpokenMs_ = now;
    speaker_.speak(text, rate, 0.0, 1.0);
}

} // namespace tovin

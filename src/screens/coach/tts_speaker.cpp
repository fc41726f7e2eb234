#include "screens/coach/tts_speaker.h"

#include <QTextToSpeech>

namespace tovin {

namespace {
// A phrase that sits in the queue longer than this is stale: the person has moved on.
constexpr int maxQueued = 3;
} // namespace

TextToSpeechSpeaker::TextToSpeechSpeaker(QObject* parent)
    : QObject(parent) {
    // Named, because the order Qt finds its engines in varies between machines.
    if (QTextToSpeech::availableEngines().contains(u"speechd"))
        engine_ = std::make_unique<QTextToSpeech>(QStringLiteral("speechd"));
    if (!engine_)
        return;
    connect(engine_.get(), &QTextToSpeech::stateChanged, this, [this](QTextToSpeech::State state) {
        if (state == QTextToSpeech::Ready) {
            busy_ = false;
            next();
        }
    });
}

TextToSpeechSpeaker::~TextToSpeechSpeaker() = default;

bool TextToSpeechSpeaker::isAvailable() const {
    return engine_ && engine_->state() != QTextToSpeech::Error;
}

void TextToSpeechSpeaker::speak(const QString& text, double rate, double pitch, double volume) {
    if (!isAvailable())
        return;
    engine_->setRate(rate);
    engine_->setPitch(pitch);
    engine_->setVolume(volume);
    queue_.append(text);
    while (queue_.size() > maxQueued)
        queue_.removeFirst();
    next();
}

void TextToSpeechSpeaker::next() {
    // The engine says one thing at a time; a new say() would cut the current one off, so the
    // next phrase waits for it to finish. If the engine never reports back (no sound server),
    // the queue just stays short and nothing blocks.
    if (busy_ || queue_.isEmpty())
        return;
    busy_ = true;
    const QString text = queue_.takeFirst();
    spoken_.append(text);
    engine_->say(text);
}

} // namespace tovin

#pragma once

#include "core/coachbox.h"

#include <QObject>
#include <QStringList>

#include <memory>

class QTextToSpeech;

namespace tovin {

// The coach's voice through the desktop's speech service (speech-dispatcher, which speaks with
// espeak-ng). Phrases queue behind the one being spoken; nothing here ever waits for the
// engine, so a session with no sound server is silent rather than stuck.
class TextToSpeechSpeaker final : public QObject, public Speaker {
    Q_OBJECT
public:
    explicit TextToSpeechSpeaker(QObject* parent = nullptr);
    ~TextToSpeechSpeaker() override;

    void speak(const QString& text, double rate, double pitch, double volume) override;

    // Whether the engine could be loaded at all.
    bool isAvailable() const;
    // What has been handed to the engine (kept for the self-check and the tests).
    const QStringList& spoken() const { return spoken_; }
    int queued() const { return int(queue_.size()); }

private:
    void next();

    std::unique_ptr<QTextToSpeech> engine_;
    QStringList queue_;
    QStringList spoken_;
    bool busy_ = false;
};

} // namespace tovin

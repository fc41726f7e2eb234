#pragma once

#include "core/clock.h"
#include "screens/coach/frame_source.h"

#include <QList>

#include <memory>

namespace tovin {

// Plays pictures in a loop, one every `interval` seconds of the given clock.
class ImageListSource final : public FrameSource {
    Q_OBJECT
public:
    ImageListSource(QList<QImage> images, Clock& clock, double interval, QObject* parent = nullptr);
    void start() override;
    void stop() override;

private:
    QList<QImage> images_;
    Clock& clock_;
    double interval_;
    std::unique_ptr<Timer> timer_;
    qsizetype next_ = 0;
};

} // namespace tovin

#pragma once

#include "screens/coach/frame_source.h"

#include <QPointer>

class QCamera;
class QMediaCaptureSession;
class QVideoSink;

namespace tovin {

// The default camera through Qt Multimedia. Frames stay in memory; nothing is written or sent.
class CameraFrameSource final : public FrameSource {
    Q_OBJECT
public:
    explicit CameraFrameSource(QObject* parent = nullptr);
    ~CameraFrameSource() override;
    void start() override;
    void stop() override; // releases the camera at once
    bool isActive() const;

private:
    std::unique_ptr<QMediaCaptureSession> capture_;
    std::unique_ptr<QCamera> camera_;
    std::unique_ptr<QVideoSink> sink_;
};

} // namespace tovin

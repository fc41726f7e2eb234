#pragma once

#include <QImage>
#include <QObject>

namespace tovin {

// Where frames come from: a camera, or (in tests and the benchmark) a list of pictures.
class FrameSource : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    virtual void start() = 0;
    virtual void stop() = 0;
Q_SIGNALS:
    void frame(const QImage& image);
    void failed(const QString& reason);
};

} // namespace tovin

#pragma once

#include "coach/coachbox.h"
#include "coach/coaches.h"
#include "core/clock.h"

#include <QImage>
#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QThread>
#include <QWidget>

#include <memory>
#include <optional>

class QCamera;
class QMediaCaptureSession;
class QVideoSink;

namespace tovin {

class PoseModel;

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

// Runs the pose model on its own thread over the newest frame only: a frame that arrives while
// the model is busy replaces the one waiting, so the coach never falls behind the camera.
class PoseWorker final : public QObject {
    Q_OBJECT
public:
    explicit PoseWorker(std::unique_ptr<PoseModel> model);
    ~PoseWorker() override;
    void submit(const QImage& image);
    int dropped() const { return dropped_; }

Q_SIGNALS:
    void estimated(const QImage& image, const tovin::PoseFrame& pose);

private:
    void work();

    std::unique_ptr<PoseModel> model_;
    QThread thread_;
    QObject* inThread_ = nullptr;
    QMutex mutex_;
    std::optional<QImage> waiting_;
    bool busy_ = false;
    int dropped_ = 0;
};

// The coach's screen: the camera picture with the skeleton over it, the exercise, what to do,
// the counts, and the keys.
class CoachView final : public QWidget {
    Q_OBJECT
public:
    explicit CoachView(QWidget* parent = nullptr);
    void showFrame(const QImage& image, const PoseFrame& pose);
    void setCoach(const QString& name) { name_ = name; update(); }
    void setStatus(const QString& status, const std::optional<QString>& detail);
    void setCounts(int reps, int clean, int required);

    QString status() const { return status_; }
    QString detail() const { return detail_; }
    QString name() const { return name_; }
    QString legend() const { return QStringLiteral("1 squats · 2 jacks · 3 push-ups · R reset"); }
    bool hasFrame() const { return !image_.isNull(); }

protected:
    void paintEvent(QPaintEvent*) override;

private:
    QImage image_;
    PoseFrame pose_;
    QString name_;
    QString status_ = QStringLiteral("Starting camera…");
    QString detail_;
    int reps_ = 0, clean_ = 0, required_ = 0;
};

// One coached workout: frames → model → coach → view and voice, with a watchdog that gives up
// when no usable pose has arrived in time (a covered or broken camera must never hold anyone).
class CoachSession final : public QObject {
    Q_OBJECT
public:
    static constexpr double watchdogSeconds = 20;

    CoachSession(std::unique_ptr<FrameSource> source, std::unique_ptr<PoseModel> model, Clock& clock,
                 Coachbox& voice, int requiredCleanReps, QObject* parent = nullptr);
    ~CoachSession() override;

    void start(std::unique_ptr<ExerciseCoach> coach);
    void stop();
    void switchCoach(std::unique_ptr<ExerciseCoach> coach);
    void resetCoach();
    ExerciseCoach& coach() { return *coach_; }
    CoachView* view() const { return view_; }
    Coachbox& voice() { return voice_; }
    int framesSeen() const { return frames_; }

    // Handles one estimated frame (the worker's result, or a test's hand-made frame).
    void consume(const QImage& image, const PoseFrame& pose);

Q_SIGNALS:
    void cleanRepsReached();
    void gaveUp(const QString& reason);

private:
    std::unique_ptr<FrameSource> source_;
    std::unique_ptr<PoseWorker> worker_;
    Clock& clock_;
    Coachbox& voice_;
    int required_;
    std::unique_ptr<ExerciseCoach> coach_;
    QPointer<CoachView> view_;
    std::unique_ptr<Timer> watchdog_;
    bool sawPose_ = false;
    bool done_ = false;
    int frames_ = 0;
};

} // namespace tovin

Q_DECLARE_METATYPE(tovin::PoseFrame)

// The camera coach's throughput on this machine: the pose model alone on a real photograph, and
// the whole pipeline (frame source → model thread → coach → view → voice) fed as fast as a
// camera could, counting the frames the coach actually saw and the ones dropped as stale.
//
//   pose_pipeline [seconds]

#include "screens/coach/coach_session.h"
#include "screens/coach/pose_model.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QTimer>

#include <cstdio>
#include <opencv2/core.hpp>

using namespace tovin;

namespace {
struct SilentSpeaker final : Speaker {
    void speak(const QString&, double, double, double) override {}
};
} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const double seconds = argc > 1 ? std::atof(argv[1]) : 10;
    QString error;
    auto model = PoseModel::load(PoseModel::bundledPath(), &error);
    if (!model) {
        std::fprintf(stderr, "pose_pipeline: %s\n", qPrintable(error));
        return 1;
    }
    const QImage photo =
        QImage(QStringLiteral("/usr/share/doc/opencv-doc/examples/data/messi5.jpg"))
            .convertToFormat(QImage::Format_RGB888);
    if (photo.isNull()) {
        std::fprintf(stderr,
                     "pose_pipeline: opencv-doc's messi5.jpg is missing (scripts/setup.sh)\n");
        return 1;
    }
    const cv::Mat mat(photo.height(), photo.width(), CV_8UC3, const_cast<uchar*>(photo.constBits()),
                      size_t(photo.bytesPerLine()));
    for (int i = 0; i < 5; ++i)
        model->estimate(mat); // warm up
    QElapsedTimer t;
    t.start();
    int n = 0;
    while (t.elapsed() < seconds * 500) {
        model->estimate(mat);
        ++n;
    }
    const double perFrame = double(t.elapsed()) / n;
    std::printf("model alone: %.1f ms a frame, %.1f frames/s (%d frames, 192 × 192, %d threads)\n",
                perFrame, 1000 / perFrame, n, cv::getNumThreads());

    // The pipeline: a 30 frames/s camera, on the real clock.
    SilentSpeaker speaker;
    Coachbox voice(Clock::system(), speaker);
    auto source =
        std::make_unique<ImageListSource>(QList<QImage>{photo}, Clock::system(), 1.0 / 30);
    CoachSession session(std::move(source), std::move(model), Clock::system(), voice, 1000);
    session.start(std::make_unique<SquatCoach>());
    QElapsedTimer run;
    run.start();
    QTimer::singleShot(int(seconds * 500), &app, &QCoreApplication::quit);
    app.exec();
    const double elapsed = run.elapsed() / 1000.0;
    std::printf("pipeline: %.1f frames/s reached the coach over %.1f s (camera at 30 frames/s)\n",
                session.framesSeen() / elapsed, elapsed);
    session.stop();
    return 0;
}

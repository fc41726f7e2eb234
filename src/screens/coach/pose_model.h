#pragma once

#include "core/pose_frame.h"

#include <QString>

#include <memory>

namespace cv {
class Mat;
}

namespace tovin {

// A single-person pose model (MoveNet Lightning, 192 × 192) on the CPU through OpenCV's DNN
// module. The network is built layer by layer from the model as TensorFlow.js ships it (graph
// JSON and fp16 weights): the backbone and the four heads run in OpenCV; the keypoint decode
// (the centre's argmax, the regression, the weighted heatmaps and the offsets) runs here.
class PoseModel {
public:
    static constexpr int inputSize = 192;
    static constexpr int gridSize = 48;

    // None, with the reason in `error`, when the files are missing or not the model expected.
    static std::unique_ptr<PoseModel> load(const QString& graphJson, QString* error = nullptr);
    // Where an installed or build-tree Tovin keeps the model; empty when none is found.
    static QString bundledPath();

    ~PoseModel();

    // Finds the joints in an 8-bit RGB image of any size (the picture is padded to a square, so
    // proportions are kept). Points come back in 0..1 of the image, y growing upward.
    PoseFrame estimate(const cv::Mat& rgb);

private:
    PoseModel();
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace tovin

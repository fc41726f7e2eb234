#include "screens/coach/pose_model.h"

#include "core/atomic_file.h"
#include "core/paths.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <cstring>
#include <functional>
#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

namespace tovin {

namespace {

constexpr qint64 maxModelBytes = 64 * 1024 * 1024;

struct Tensor {
    std::vector<int> shape;
    std::vector<float> values;
};

float halfToFloat(quint16 h) {
    const quint32 sign = quint32(h & 0x8000) << 16;
    quint32 exponent = (h >> 10) & 0x1f;
    quint32 mantissa = h & 0x3ff;
    quint32 bits;
    if (exponent == 0) {
        if (mantissa == 0) {
            bits = sign;
        } else { // subnormal: normalise it
            exponent = 127 - 15 + 1;
            while (!(mantissa & 0x400)) {
                mantissa <<= 1;
                --exponent;
            }
            bits = sign | (exponent << 23) | ((mantissa & 0x3ff) << 13);
        }
    } else if (exponent == 31) {
        bits = sign | 0x7f800000 | (mantissa << 13);
    } else {
        bits = sign | ((exponent + 127 - 15) << 23) | (mantissa << 13);
    }
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

QString shortName(QString name) {
    return name.remove(QStringLiteral("StatefulPartitionedCall/"));
}

// The TF.js weights: every tensor of the manifest, widened to fp32.
std::optional<QHash<QString, Tensor>> readWeights(const QJsonObject& model, const QString& folder,
                                                  QString* error) {
    const QJsonArray manifest = model.value(u"weightsManifest").toArray();
    if (manifest.size() != 1) {
        *error = QStringLiteral("the model's weight manifest is not the expected one");
        return std::nullopt;
    }
    const QJsonObject group = manifest.at(0).toObject();
    const auto bin = readWholeFile(folder + u'/' + group.value(u"paths").toArray().at(0).toString(),
                                   maxModelBytes);
    if (!bin) {
        *error = QStringLiteral("the model's weights can't be read");
        return std::nullopt;
    }
    QHash<QString, Tensor> weights;
    qint64 offset = 0;
    for (const QJsonValue& v : group.value(u"weights").toArray()) {
        const QJsonObject w = v.toObject();
        Tensor t;
        qint64 count = 1;
        for (const QJsonValue& dim : w.value(u"shape").toArray()) {
            t.shape.push_back(dim.toInt());
            count *= std::max(0, dim.toInt());
        }
        const bool half =
            w.value(u"quantization").toObject().value(u"dtype").toString() == u"float16";
        const bool integer = w.value(u"dtype").toString() == u"int32";
        const qint64 bytes = count * (half ? 2 : 4);
        if (offset + bytes > bin->size()) {
            *error = QStringLiteral("the model's weights are shorter than its manifest");
            return std::nullopt;
        }
        const char* p = bin->constData() + offset;
        t.values.resize(size_t(count));
        for (qint64 i = 0; i < count; ++i) {
            if (half) {
                quint16 h;
                std::memcpy(&h, p + 2 * i, 2);
                t.values[size_t(i)] = halfToFloat(h);
            } else if (integer) {
                qint32 n;
                std::memcpy(&n, p + 4 * i, 4);
                t.values[size_t(i)] = float(n);
            } else {
                std::memcpy(&t.values[size_t(i)], p + 4 * i, 4);
            }
        }
        offset += bytes;
        weights.insert(shortName(w.value(u"name").toString()), std::move(t));
    }
    return weights;
}

QStringList fusedOps(const QJsonObject& attr) {
    QStringList ops;
    for (const QJsonValue& s :
         attr.value(u"fused_ops").toObject().value(u"list").toObject().value(u"s").toArray())
        ops.append(QString::fromLatin1(QByteArray::fromBase64(s.toString().toLatin1())));
    return ops;
}

std::vector<int> listOf(const QJsonObject& attr, QStringView key) {
    std::vector<int> out;
    for (const QJsonValue& v :
         attr.value(key).toObject().value(u"list").toObject().value(u"i").toArray())
        out.push_back(v.toString().toInt());
    return out;
}

QString stringOf(const QJsonObject& attr, QStringView key) {
    return QString::fromLatin1(
        QByteArray::fromBase64(attr.value(key).toObject().value(u"s").toString().toLatin1()));
}

const char* const headNames[] = {"kpt_heatmap_0/conv2d_5/BiasAdd", "center_0/conv2d_4/BiasAdd",
                                 "kpt_regress_0/conv2d_6/BiasAdd", "kpt_offset_0/conv2d_7/BiasAdd"};

float sigmoid(float x) {
    return 1.0f / (1.0f + std::exp(-x));
}

} // namespace

struct PoseModel::Impl {
    cv::dnn::Net net;
    std::vector<cv::String> outputs;
    std::vector<float> centreWeight; // 48 × 48: the prior that favours a person near the middle
    float distanceBias = 1.8f;
};

PoseModel::PoseModel()
    : d(std::make_unique<Impl>()) {
}
PoseModel::~PoseModel() = default;

QString PoseModel::bundledPath() {
    QStringList candidates{paths::installedShare(QStringLiteral("models/movenet-lightning.json"))};
#ifdef TOVIN_STAGED_MODEL_DIR
    candidates.append(QStringLiteral(TOVIN_STAGED_MODEL_DIR "/movenet-lightning.json"));
#endif
    for (const QString& candidate : candidates) {
        if (QFileInfo(candidate).isFile())
            return QFileInfo(candidate).canonicalFilePath();
    }
    return {};
}

std::unique_ptr<PoseModel> PoseModel::load(const QString& graphJson, QString* errorOut) {
    QString scratch;
    QString* error = errorOut ? errorOut : &scratch;
    const auto bytes = readWholeFile(graphJson, maxModelBytes);
    const QJsonObject model = bytes ? QJsonDocument::fromJson(*bytes).object() : QJsonObject();
    if (model.isEmpty()) {
        *error = QStringLiteral("the pose model can't be read");
        return nullptr;
    }
    auto weights = readWeights(model, QFileInfo(graphJson).absolutePath(), error);
    if (!weights)
        return nullptr;

    QHash<QString, QJsonObject> nodes;
    for (const QJsonValue& v : model.value(u"modelTopology").toObject().value(u"node").toArray()) {
        const QJsonObject node = v.toObject();
        nodes.insert(shortName(node.value(u"name").toString()), node);
    }

    std::unique_ptr<PoseModel> self(new PoseModel);
    cv::dnn::Net& net = self->d->net;
    net.setInputsNames({"input"});
    QHash<QString, int> built;                // node → layer id
    built.insert(QStringLiteral("sub_1"), 0); // the normalised input: blobFromImage does that part
    bool ok = true;

    auto add = [&](const QString& name, const char* type, cv::dnn::LayerParams& params, int from) {
        const int id = net.addLayer(name.toStdString(), type, params);
        net.connect(from, 0, id, 0);
        return id;
    };
    std::function<int(const QString&)> build = [&](const QString& rawName) -> int {
        const QString name = rawName.section(u':', 0, 0);
        if (const auto it = built.constFind(name); it != built.constEnd())
            return *it;
        const QJsonObject node = nodes.value(name);
        const QString op = node.value(u"op").toString();
        const QJsonObject attr = node.value(u"attr").toObject();
        QStringList inputs;
        for (const QJsonValue& in : node.value(u"input").toArray())
            inputs.append(shortName(in.toString()));
        int id = -1;
        if (op == u"_FusedConv2D" || op == u"FusedDepthwiseConv2dNative" ||
            op == u"DepthwiseConv2dNative") {
            const bool depthwise = op != u"_FusedConv2D";
            const Tensor& w = (*weights)[inputs.value(1)];
            if (w.shape.size() != 4) {
                ok = false;
                return 0;
            }
            const int kh = w.shape[0], kw = w.shape[1], in = w.shape[2], out = w.shape[3];
            const int outputs = depthwise ? in * out : out;
            cv::Mat kernel({outputs, depthwise ? 1 : in, kh, kw}, CV_32F);
            float* k = kernel.ptr<float>();
            for (int y = 0; y < kh; ++y)
                for (int x = 0; x < kw; ++x)
                    for (int c = 0; c < in; ++c)
                        for (int o = 0; o < out; ++o) {
                            const float value = w.values[size_t(((y * kw + x) * in + c) * out + o)];
                            if (depthwise) // [h, w, in, multiplier] → [in × multiplier, 1, h, w]
                                k[((c * out + o) * kh + y) * kw + x] = value;
                            else // [h, w, in, out] → [out, in, h, w]
                                k[((o * in + c) * kh + y) * kw + x] = value;
                        }
            const QStringList fused = fusedOps(attr);
            const bool bias = fused.contains(QStringLiteral("BiasAdd"));
            const std::vector<int> strides = listOf(attr, u"strides");
            cv::dnn::LayerParams p;
            p.set("kernel_h", kh);
            p.set("kernel_w", kw);
            p.set("stride_h", strides.size() == 4 ? strides[1] : 1);
            p.set("stride_w", strides.size() == 4 ? strides[2] : 1);
            p.set("pad_mode", stringOf(attr, u"padding").toStdString());
            p.set("num_output", outputs);
            p.set("group", depthwise ? in : 1);
            p.set("bias_term", bias);
            p.blobs.push_back(kernel);
            if (bias) {
                const Tensor& b = (*weights)[inputs.value(2)];
                cv::Mat biasBlob(1, outputs, CV_32F);
                std::memcpy(biasBlob.ptr<float>(), b.values.data(),
                            sizeof(float) * size_t(outputs));
                p.blobs.push_back(biasBlob);
            }
            const int from = build(inputs.value(0));
            id = add(name, "Convolution", p, from);
            for (const QString& act : fused) {
                if (act == u"Relu6") {
                    cv::dnn::LayerParams r;
                    r.set("min_value", 0.0f);
                    r.set("max_value", 6.0f);
                    id = add(name + u"/relu6", "ReLU6", r, id);
                } else if (act == u"Relu") {
                    cv::dnn::LayerParams r;
                    id = add(name + u"/relu", "ReLU", r, id);
                } else if (act != u"BiasAdd") {
                    ok = false;
                }
            }
        } else if (op == u"AddV2") {
            const int a = build(inputs.value(0));
            const int b = build(inputs.value(1));
            cv::dnn::LayerParams p;
            p.set("operation", "sum");
            id = net.addLayer(name.toStdString(), "Eltwise", p);
            net.connect(a, 0, id, 0);
            net.connect(b, 0, id, 1);
        } else if (op == u"ResizeBilinear") {
            cv::dnn::LayerParams p;
            p.set("interpolation", "bilinear");
            p.set("zoom_factor", 2); // the feature pyramid doubles each level
            p.set("align_corners", attr.value(u"align_corners").toObject().value(u"b").toBool());
            p.set("half_pixel_centers",
                  attr.value(u"half_pixel_centers").toObject().value(u"b").toBool());
            id = add(name, "Resize", p, build(inputs.value(0)));
        } else {
            ok = false; // an operation this builder does not know: not the expected model
            return 0;
        }
        built.insert(name, id);
        return id;
    };
    for (const char* head : headNames) {
        build(QString::fromLatin1(head));
        self->d->outputs.push_back(head);
    }
    const Tensor& prior = (*weights)[QStringLiteral("ConstantFolding/truediv_2_recip")];
    const Tensor& bias = (*weights)[QStringLiteral("add_5/y")];
    if (!ok || prior.values.size() != size_t(gridSize * gridSize) || bias.values.size() != 1) {
        *error = QStringLiteral("the pose model is not the one Tovin expects");
        return nullptr;
    }
    self->d->centreWeight = prior.values;
    self->d->distanceBias = bias.values[0];
    net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
    net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
    return self;
}

PoseFrame PoseModel::estimate(const cv::Mat& rgb) {
    // Pad to a square at the bottom and right, so the person keeps their proportions.
    const int side = std::max(rgb.cols, rgb.rows);
    cv::Mat square;
    cv::copyMakeBorder(rgb, square, 0, side - rgb.rows, 0, side - rgb.cols, cv::BORDER_CONSTANT,
                       cv::Scalar::all(0));
    // x / 127.5 − 1, as the model's own first steps do.
    const cv::Mat blob = cv::dnn::blobFromImage(square, 1.0 / 127.5, cv::Size(inputSize, inputSize),
                                                cv::Scalar::all(127.5), false, false, CV_32F);
    d->net.setInput(blob);
    std::vector<cv::Mat> out;
    d->net.forward(out, d->outputs);
    constexpr int n = gridSize;
    const float* heat = out[0].ptr<float>();    // [1, 17, 48, 48], logits
    const float* centre = out[1].ptr<float>();  // [1, 1, 48, 48], logits
    const float* regress = out[2].ptr<float>(); // [1, 34, 48, 48]
    const float* offset = out[3].ptr<float>();  // [1, 34, 48, 48]

    int best = 0;
    float bestScore = -1;
    for (int i = 0; i < n * n; ++i) {
        const float s = sigmoid(centre[i]) * d->centreWeight[size_t(i)];
        if (s > bestScore) {
            bestScore = s;
            best = i;
        }
    }
    const int cy = best / n, cx = best % n;
    PoseFrame frame;
    const double scale = double(side) / n;
    for (int k = 0; k < 17; ++k) {
        const float ey = float(cy) + regress[(2 * k) * n * n + best];
        const float ex = float(cx) + regress[(2 * k + 1) * n * n + best];
        int at = 0;
        float atScore = -1;
        const float* h = heat + k * n * n;
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) {
                const float dist = std::sqrt((float(y) - ey) * (float(y) - ey) +
                                             (float(x) - ex) * (float(x) - ex));
                const float s = sigmoid(h[y * n + x]) / (dist + d->distanceBias);
                if (s > atScore) {
                    atScore = s;
                    at = y * n + x;
                }
            }
        const double py = (at / n + offset[(2 * k) * n * n + at]) * scale; // pixels of the square
        const double px = (at % n + offset[(2 * k + 1) * n * n + at]) * scale;
        // Back to 0..1 of the original picture, y growing upward for the coaches.
        const QPointF point(px / rgb.cols, 1.0 - py / rgb.rows);
        frame.set(Joint(k), point, sigmoid(h[at]));
    }
    if (const auto neck = frame.mid(Joint::LeftShoulder, Joint::RightShoulder)) {
        frame.set(Joint::Neck, *neck,
                  std::min(*frame.confidence[size_t(Joint::LeftShoulder)],
                           *frame.confidence[size_t(Joint::RightShoulder)]));
    }
    return frame;
}

} // namespace tovin

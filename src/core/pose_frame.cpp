#include "core/pose_frame.h"

#include <QRandomGenerator>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tovin {

namespace {
constexpr double degrees = 180.0 / std::numbers::pi;
}

double angle(QPointF a, QPointF b, QPointF c) {
    const QPointF ba = a - b;
    const QPointF bc = c - b;
    const double lengths = std::hypot(ba.x(), ba.y()) * std::hypot(bc.x(), bc.y());
    if (!(lengths > 1e-6))
        return 180.0;
    const double cosine = std::clamp(QPointF::dotProduct(ba, bc) / lengths, -1.0, 1.0);
    return std::acos(cosine) * degrees;
}

double leanFromVertical(QPointF from, QPointF to) {
    const double dy = to.y() - from.y();
    if (!(std::abs(dy) > 1e-6))
        return 90.0;
    return std::abs(std::atan((to.x() - from.x()) / dy)) * degrees;
}

RandomPick systemRandomPick() {
    return [](int n) { return int(QRandomGenerator::global()->bounded(n)); };
}

const std::array<const char16_t*, 7>& praise() {
    static const std::array<const char16_t*, 7> words{
        u"Clean rep.", u"That's the one.", u"Textbook.",       u"Nice depth.",
        u"Strong.",    u"Perfect form.",   u"Keep that shape."};
    return words;
}

RepReport ExerciseCoach::finishRep(QStringList faults) {
    ++reps_;
    QString headline;
    if (faults.isEmpty()) {
        ++cleanReps_;
        const int n = int(praise().size());
        headline = QString::fromUtf16(praise()[size_t(std::clamp(pick_(n), 0, n - 1))]);
    } else {
        headline = faults.first();
    }
    return {reps_, std::move(faults), headline};
}

} // namespace tovin

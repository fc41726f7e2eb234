#include "core/json_values.h"

#include <QVariant>

#include <cmath>

namespace tovin {

std::optional<qint64> jsonInteger(const QJsonValue& value) {
    if (!value.isDouble())
        return std::nullopt;
    // Qt keeps integers written without a fraction or exponent as exact 64-bit values; only
    // the rest goes through a double, where precision must be checked before converting.
    const QVariant variant = value.toVariant();
    if (variant.typeId() == QMetaType::LongLong)
        return variant.toLongLong();
    const double d = value.toDouble();
    if (!std::isfinite(d) || d != std::trunc(d))
        return std::nullopt;
    // 2^63 itself is out of range; every double below it converts exactly.
    if (d < -9223372036854775808.0 || d >= 9223372036854775808.0)
        return std::nullopt;
    return static_cast<qint64>(d);
}

std::optional<qint64> jsonInteger(const QJsonValue& value, qint64 min, qint64 max) {
    const auto i = jsonInteger(value);
    if (!i || *i < min || *i > max)
        return std::nullopt;
    return i;
}

std::optional<double> jsonReal(const QJsonValue& value) {
    if (!value.isDouble())
        return std::nullopt;
    const double d = value.toDouble();
    if (!std::isfinite(d))
        return std::nullopt;
    return d;
}

} // namespace tovin

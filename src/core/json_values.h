#pragma once

#include <QJsonValue>

#include <optional>

namespace tovin {

// Typed reads of JSON values. A value of the wrong type reads as none, so every reader can fall
// back to its documented default instead of guessing.

// An integral number that fits in 64 bits: 5 and 5.0 both qualify, 5.5 and 1e300 do not.
std::optional<qint64> jsonInteger(const QJsonValue& value);

// An integral number within [min, max].
std::optional<qint64> jsonInteger(const QJsonValue& value, qint64 min, qint64 max);

// Any finite number.
std::optional<double> jsonReal(const QJsonValue& value);

} // namespace tovin

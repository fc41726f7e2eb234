#pragma once

#include <QDateTime>
#include <QStringView>

#include <optional>

namespace tovin {

// "2026-03-02T09:15:00Z": UTC, whole seconds, trailing Z. Sub-second parts are dropped.
QString formatIsoSeconds(const QDateTime& instant);

// Reads exactly the whole-second form: "YYYY-MM-DDTHH:MM:SS" followed by "Z" or "±HH:MM".
// Fractional seconds, missing zones and anything else are refused.
std::optional<QDateTime> parseIsoSeconds(QStringView text);

// "2026-03-02T09:15:00.250Z": UTC with milliseconds, for instants that need them.
QString formatIsoMillis(const QDateTime& instant);

// Reads an ISO 8601 instant with an explicit zone, with or without fractional seconds.
std::optional<QDateTime> parseIsoInstant(QStringView text);

} // namespace tovin

#include "core/json_values.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using namespace tovin;

namespace {
QJsonValue parsed(const char* json) {
    return QJsonDocument::fromJson(QByteArray("{\"v\":") + json + "}").object().value(u"v");
}
} // namespace

// Wrong types reading as the default is the settings tests'; here, the numbers at the edges.
TEST(JsonValues, IntegersStayExactAndOnlyFiniteNumbersCount) {
    // Through a double the largest integer would round up to 2^63, out of range.
    EXPECT_EQ(jsonInteger(parsed("9223372036854775807")), std::numeric_limits<qint64>::max());
    EXPECT_EQ(jsonInteger(parsed("-12.0")), -12);
    for (const char* notInteger : {"5.5", "1e300", "\"5\"", "[5]"})
        EXPECT_FALSE(jsonInteger(parsed(notInteger))) << notInteger;
    EXPECT_EQ(jsonReal(parsed("2.5")), 2.5);
    EXPECT_FALSE(jsonReal(QJsonValue(std::numeric_limits<double>::infinity())));
}

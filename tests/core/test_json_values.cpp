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

TEST(JsonValues, IntegersAreIntegralNumbersOnly) {
    EXPECT_EQ(jsonInteger(parsed("5")), 5);
    EXPECT_EQ(jsonInteger(parsed("5.0")), 5);
    EXPECT_EQ(jsonInteger(parsed("-12")), -12);
    EXPECT_EQ(jsonInteger(parsed("9223372036854775807")), std::numeric_limits<qint64>::max());
    for (const char* notInteger : {"5.5", "1e300", "\"5\"", "true", "null", "[5]"})
        EXPECT_FALSE(jsonInteger(parsed(notInteger))) << notInteger;
    EXPECT_FALSE(jsonInteger(parsed("3000000000"), INT_MIN, INT_MAX));
}

TEST(JsonValues, RealsAreAnyFiniteNumber) {
    EXPECT_EQ(jsonReal(parsed("45")), 45.0);
    EXPECT_EQ(jsonReal(parsed("2.5")), 2.5);
    EXPECT_FALSE(jsonReal(parsed("\"2.5\"")));
    EXPECT_FALSE(jsonReal(parsed("false")));
    EXPECT_FALSE(jsonReal(QJsonValue(std::numeric_limits<double>::infinity())));
}

#include "updater/release.h"

#include <gtest/gtest.h>

using namespace tovin::Updater;

TEST(Release, VersionOrder) {
    const struct {
        const char* candidate;
        const char* current;
        bool newer;
    } cases[] = {
        {"1.2", "1.1", true},    {"1.1", "1.1", false},  {"1.0", "1.1", false},
        {"0.10", "0.9", true},   {"1.0.1", "1.0", true}, {"1.0", "1", false},
        {"1", "1.0", false},     {"1.0.0", "1", false},  {"1", "1.0.0", false},
        {"banana", "1.0", false}, {"", "1.0", false},    {"2.0", "dev", false},
        {"1.2-beta", "1.0", false}, {"1..2", "1.1", true}, {" 1.2", "1.0", false},
        {"99999999999999999999", "1", false}, {"2", "", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(isNewer(QString::fromLatin1(c.candidate), QString::fromLatin1(c.current)), c.newer)
            << c.candidate << " vs " << c.current;
    EXPECT_EQ(versionParts(QStringLiteral("1..2")), (QList<qint64>{1, 2}));
}

TEST(Release, FeedDecoding) {
    const auto example = decodeRelease(
        R"({"version":"9.9","url":"https://example.invalid/download/Tovin-9.9.tar.gz","sha256":"abc"})");
    ASSERT_TRUE(example);
    EXPECT_EQ(example->version, u"9.9");
    EXPECT_EQ(example->sha256, u"abc");
    EXPECT_FALSE(example->notes);
    EXPECT_EQ(decodeRelease(R"({"version":"1","url":"u","sha256":"s","notes":"n","x":1})")->notes, u"n");
    for (const char* bad : {R"({"version":"9.9","url":"https://x/T.tar.gz"})", R"({"version":9.9,"url":"u","sha256":"s"})",
                            R"([])", "", "not json"})
        EXPECT_FALSE(decodeRelease(bad)) << bad;
}

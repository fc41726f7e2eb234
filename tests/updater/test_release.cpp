#include "resident/updater/release.h"

#include <gtest/gtest.h>

using namespace tovin::Updater;

TEST(Release, VersionOrder) {
    const struct {
        const char* candidate;
        const char* current;
        bool newer;
    } cases[] = {
        {"1.2", "1.1", true},   {"1.1", "1.1", false},      {"1.0", "1.1", false},
        {"0.10", "0.9", true},  {"1.0.1", "1.0", true},     {"1.0", "1", false},
        {"1", "1.0.0", false},  {"1..2", "1.1", true},      {"banana", "1.0", false},
        {"", "1.0", false},     {"2.0", "dev", false},      {"2", "", false},
        {" 1.2", "1.0", false}, {"1.2-beta", "1.0", false}, {"99999999999999999999", "1", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(isNewer(QString::fromLatin1(c.candidate), QString::fromLatin1(c.current)),
                  c.newer)
            << c.candidate << " vs " << c.current;
}

// Reading a good feed is the update flow's; here, what is not a feed.
TEST(Release, AFeedWithoutItsThreeTextsIsUnreadable) {
    for (const char* bad : {R"({"version":"9.9","url":"https://x/T.tar.gz"})",
                            R"({"version":9.9,"url":"u","sha256":"s"})", R"([])", "not json"})
        EXPECT_FALSE(decodeRelease(bad)) << bad;
}

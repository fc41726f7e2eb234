#include "workoutweb/bundle_routes.h"

#include "core/atomic_file.h"
#include "support/fake_platform.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace tovin;

TEST(BundleRoutes, ResolveTable) {
    QTemporaryDir dir;
    const QString root = dir.filePath(QStringLiteral("web"));
    for (const char* file : {"web/index.html", "web/assets/app-1234.js", "web/APP.JS",
                             "web/.well-known/x.txt", "web-private/secret.txt", "secret.txt"})
        ASSERT_TRUE(writeFileAtomically(dir.filePath(QString::fromLatin1(file)), "x"));
    ASSERT_TRUE(QFile::link(dir.filePath(QStringLiteral("secret.txt")),
                            root + u"/leak.txt"));

    const struct {
        const char* path;
        std::optional<QString> expected;
    } cases[] = {
        {"", root + u"/index.html"},
        {"/assets/app-1234.js", root + u"/assets/app-1234.js"},
        {"/workout", root + u"/index.html"},
        {"/.well-known", root + u"/.well-known"},
        {"/nope.js", std::nullopt}, // a missing asset is never the application shell
        {"/../secret.txt", std::nullopt},
        {"/assets/../../secret.txt", std::nullopt},
        {"/..", std::nullopt},
        {"/assets/..", root},
        {"/./assets/./app-1234.js", root + u"/assets/app-1234.js"},
        {"/APP.JS", root + u"/APP.JS"},
        {"/leak.txt", std::nullopt}, // a link out of the bundle
        {"//etc/passwd", root + u"/index.html"}, // stays inside: just a deep route
    };
    for (const auto& c : cases)
        EXPECT_EQ(BundleRoutes::resolve(root, QString::fromLatin1(c.path)), c.expected) << c.path;
    // The root given with a trailing slash behaves the same.
    EXPECT_EQ(BundleRoutes::resolve(root + u'/', QStringLiteral("/workout")), root + u"/index.html");
}

TEST(BundleRoutes, TheThreeAnswersCarryExactlyTheirHeaders) {
    QTemporaryDir dir;
    const QString root = dir.filePath(QStringLiteral("web"));
    ASSERT_TRUE(writeFileAtomically(root + u"/index.html", "<!doctype html><p>hi</p>"));
    using H = QList<std::pair<QByteArray, QByteArray>>;

    auto shell = BundleRoutes::answer(root, QStringLiteral("app"), QStringLiteral("/workout"));
    EXPECT_EQ(shell.status, 200);
    EXPECT_EQ(shell.body, QByteArray("<!doctype html><p>hi</p>"));
    EXPECT_EQ(shell.headers, (H{{"Content-Type", "text/html; charset=utf-8"},
                               {"Content-Length", "24"},
                               {"Cache-Control", "no-store"}}));

    auto missing = BundleRoutes::answer(root, QStringLiteral("app"), QStringLiteral("/nope.js"));
    EXPECT_EQ(missing.status, 404);
    EXPECT_EQ(missing.body, QByteArray("not found"));
    EXPECT_EQ(missing.headers, (H{{"Content-Type", "text/plain"},
                                 {"Content-Length", "9"},
                                 {"Cache-Control", "no-store"}}));

    auto folder = BundleRoutes::answer(root, QStringLiteral("app"), QStringLiteral("/x/.."));
    EXPECT_EQ(folder.status, 404);
    EXPECT_EQ(folder.body, QByteArray("unreadable"));

    EXPECT_EQ(BundleRoutes::answer(root, QStringLiteral("evil"), QStringLiteral("/")).status, 404);
}

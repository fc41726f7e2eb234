#include "core/atomic_file.h"
#include "core/bundle_routes.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace tovin;

TEST(BundleRoutes, ResolveTable) {
    QTemporaryDir dir;
    const QString root = dir.filePath(QStringLiteral("web"));
    for (const char* file : {"web/index.html", "web/assets/app-1234.js", "web/.well-known/x.txt",
                             "web-private/secret.txt", "secret.txt"})
        ASSERT_TRUE(writeFileAtomically(dir.filePath(QString::fromLatin1(file)), "x"));
    ASSERT_TRUE(QFile::link(dir.filePath(QStringLiteral("secret.txt")), root + u"/leak.txt"));

    const struct {
        const char* path;
        std::optional<QString> expected;
    } cases[] = {
        {"", root + u"/index.html"},
        {"/assets/app-1234.js", root + u"/assets/app-1234.js"},
        {"/workout", root + u"/index.html"},
        {"/.well-known", root + u"/.well-known"},
        {"/nope.js", std::nullopt}, // a missing asset is never the application shell
        {"/../web-private/secret.txt", std::nullopt}, // a sibling that merely starts alike
        {"/assets/../../secret.txt", std::nullopt},
        {"/..", std::nullopt},
        {"/assets/..", root},
        {"/./assets/./app-1234.js", root + u"/assets/app-1234.js"},
        {"/leak.txt", std::nullopt},             // a link out of the bundle
        {"//etc/passwd", root + u"/index.html"}, // stays inside: just a deep route
    };
    for (const auto& c : cases)
        EXPECT_EQ(BundleRoutes::resolve(root, QString::fromLatin1(c.path)), c.expected) << c.path;
    // The root given with a trailing slash behaves the same.
    EXPECT_EQ(BundleRoutes::resolve(root + u'/', QStringLiteral("/workout")),
              root + u"/index.html");
    // No bundle (an empty root) or a relative one serves nothing, least of all the whole disk.
    const QString secret = dir.filePath(QStringLiteral("secret.txt"));
    EXPECT_EQ(BundleRoutes::resolve(QString(), secret), std::nullopt);
    EXPECT_EQ(BundleRoutes::resolve(QStringLiteral("web"), QStringLiteral("/index.html")),
              std::nullopt);
}

TEST(BundleRoutes, TheThreeAnswersCarryExactlyTheirHeaders) {
    QTemporaryDir dir;
    const QString root = dir.filePath(QStringLiteral("web"));
    ASSERT_TRUE(writeFileAtomically(root + u"/index.html", "<!doctype html><p>hi</p>"));
    const struct {
        const char *path, *type;
        int status;
        QByteArray body;
    } cases[] = {{"/workout", "text/html; charset=utf-8", 200, "<!doctype html><p>hi</p>"},
                 {"/nope.js", "text/plain", 404, "not found"},
                 {"/x/..", "text/plain", 404, "unreadable"}}; // the root: a folder
    for (const auto& c : cases) {
        const auto a =
            BundleRoutes::answer(root, QStringLiteral("app"), QString::fromLatin1(c.path));
        EXPECT_EQ(a.status, c.status) << c.path;
        EXPECT_EQ(a.body, c.body) << c.path;
        const QList<std::pair<QByteArray, QByteArray>> headers{
            {"Content-Type", c.type},
            {"Content-Length", QByteArray::number(c.body.size())},
            {"Cache-Control", "no-store"}};
        EXPECT_EQ(a.headers, headers) << c.path;
    }
    EXPECT_EQ(BundleRoutes::answer(root, QStringLiteral("evil"), QStringLiteral("/")).status, 404);
}

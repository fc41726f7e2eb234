// Signatures are checked against Debian's minisign, a real implementation of the format; the
// archives are made with libarchive, hostile ones included.

#include "updater/release_check.h"
#include "updater/unpack.h"

#include "core/atomic_file.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include "support/tar_gz.h"

#include <gtest/gtest.h>

using namespace tovin;
using namespace tovin::Updater;

namespace {

// A minisign key pair made for the test, and signing with it through the real tool.
struct Signer {
    QTemporaryDir dir;
    QString pub = dir.filePath(QStringLiteral("k.pub"));
    QString key = dir.filePath(QStringLiteral("k.key"));
    Signer() {
        QProcess p;
        p.start(QStandardPaths::findExecutable(QStringLiteral("minisign")),
                {QStringLiteral("-G"), QStringLiteral("-W"), QStringLiteral("-p"), pub, QStringLiteral("-s"), key});
        p.closeWriteChannel();
        EXPECT_TRUE(p.waitForFinished(20000) && p.exitCode() == 0) << "minisign is missing: setup.sh installs it";
    }
    PublicKey publicKey() const { return *parsePublicKey(*readWholeFile(pub, 4096)); }
    bool sign(const QString& file, bool legacy = false) const {
        QStringList args{QStringLiteral("-S"), QStringLiteral("-s"), key, QStringLiteral("-m"), file,
                         QStringLiteral("-t"), QStringLiteral("Tovin release")};
        if (legacy)
            args.append(QStringLiteral("-l"));
        QProcess p;
        p.start(QStandardPaths::findExecutable(QStringLiteral("minisign")), args);
        p.closeWriteChannel();
        return p.waitForFinished(20000) && p.exitCode() == 0;
    }
};

void put(const QString& path, const QByteArray& bytes) {
    ASSERT_TRUE(writeFileAtomically(path, bytes)) << path.toStdString();
}

// A release folder: files, its manifest and the manifest's signature.
QString release(const QTemporaryDir& dir, const Signer& signer) {
    const QString root = dir.filePath(QStringLiteral("Tovin"));
    put(root + u"/bin/tovin", "#!/bin/sh\necho new\n");
    put(root + u"/share/tovin/VERSION", "1.2.0\n");
    put(root + u"/share/tovin/web/index.html", "<!doctype html><p>hi</p>");
    put(root + u"/share/tovin/web/a file with spaces.js", "x");
    put(root + u"/MANIFEST", *makeManifest(root));
    EXPECT_TRUE(signer.sign(root + u"/MANIFEST"));
    return root;
}

} // namespace

TEST(Minisign, VerifiesWhatTheRealToolSignsAndNothingElse) {
    Signer signer;
    Signer other;
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("m.txt"));
    put(file, "what was signed\n");
    for (const bool legacy : {false, true}) {
        ASSERT_TRUE(signer.sign(file, legacy));
        const QByteArray sig = *readWholeFile(file + u".minisig", 4096);
        EXPECT_TRUE(verify("what was signed\n", sig, signer.publicKey())) << legacy;
        EXPECT_FALSE(verify("what was signed!\n", sig, signer.publicKey())) << legacy;
        EXPECT_FALSE(verify("what was signed\n", sig, other.publicKey())) << legacy;
        QByteArray forged = sig;
        forged.replace("Tovin release", "Tovin releasf");
        EXPECT_FALSE(verify("what was signed\n", forged, signer.publicKey())) << "the trusted comment is signed";
    }
    EXPECT_FALSE(parsePublicKey("not a key"));
    EXPECT_FALSE(verify("x", "garbage", signer.publicKey()));
}

TEST(ReleaseCheck, OnlyTheExactSignedFolderPasses) {
    Signer signer;
    Signer stranger;
    QTemporaryDir dir;
    const QString root = release(dir, signer);
    const QList<PublicKey> keys{signer.publicKey()};
    ASSERT_TRUE(isSignedRelease(root, keys));
    EXPECT_EQ(folderVersion(root), u"1.2.0");
    EXPECT_FALSE(isSignedRelease(root, {stranger.publicKey()})) << "signed by another key";
    EXPECT_FALSE(isSignedRelease(root, {})) << "no trusted key at all";

    const QString tovin = root + u"/bin/tovin";
    const auto original = *readWholeFile(tovin, 4096);
    put(tovin, "#!/bin/sh\necho evil\n"); // same size, other bytes
    EXPECT_FALSE(isSignedRelease(root, keys)) << "a file changed after signing";
    put(tovin, original);
    ASSERT_TRUE(isSignedRelease(root, keys));

    put(root + u"/bin/extra", "unlisted");
    EXPECT_FALSE(isSignedRelease(root, keys)) << "an extra unlisted file";
    QFile::remove(root + u"/bin/extra");
    ASSERT_TRUE(QFile::link(tovin, root + u"/bin/link"));
    EXPECT_FALSE(isSignedRelease(root, keys)) << "a symlink";
    QFile::remove(root + u"/bin/link");
    QFile::remove(root + u"/share/tovin/web/index.html");
    EXPECT_FALSE(isSignedRelease(root, keys)) << "a listed file missing";
    put(root + u"/share/tovin/web/index.html", "<!doctype html><p>hi</p>");
    ASSERT_TRUE(isSignedRelease(root, keys));
    QFile::remove(root + u"/MANIFEST.minisig");
    EXPECT_FALSE(isSignedRelease(root, keys)) << "no signature";
}

using tovin::testing::TarEntry;

namespace {

// A .tar.gz of the given entries in the test's folder.
QString archiveOf(const QTemporaryDir& dir, const QString& name, const QList<TarEntry>& entries) {
    const QString path = dir.filePath(name);
    EXPECT_TRUE(tovin::testing::writeTarGz(path, entries)) << name.toStdString();
    return path;
}

} // namespace

TEST(Unpack, AGoodArchiveUnpacksAndHostileOnesLeaveNothingBehind) {
    QTemporaryDir dir;
    const QString good = archiveOf(dir, QStringLiteral("good.tar.gz"),
                                   {{"Tovin/", {}, AE_IFDIR}, {"Tovin/bin/tovin", "#!/bin/sh\n"},
                                    {"Tovin/share/tovin/VERSION", "1.2.0\n"}});
    const QString out = dir.filePath(QStringLiteral("out"));
    QDir().mkpath(out);
    ASSERT_TRUE(unpack(good, out));
    EXPECT_EQ(readWholeFile(out + u"/Tovin/share/tovin/VERSION", 64), QByteArray("1.2.0\n"));
    EXPECT_TRUE(QFileInfo(out + u"/Tovin/bin/tovin").isExecutable());

    const struct {
        const char* name;
        QList<TarEntry> entries;
    } hostile[] = {
        {"dotdot", {{"Tovin/a", "x"}, {"Tovin/../../escaped", "x"}}},
        {"absolute", {{"/tmp/tovin-absolute-escape", "x"}}},
        {"symlink", {{"Tovin/bin/tovin", {}, AE_IFLNK, "/bin/sh"}}},
        {"hardlink", {{"Tovin/a", "x"}, {"Tovin/b", {}, AE_IFREG, "/etc/passwd"}}},
        {"fifo", {{"Tovin/pipe", {}, AE_IFIFO}}},
        {"device", {{"Tovin/dev", {}, AE_IFCHR}}},
    };
    for (const auto& h : hostile) {
        const QString path = archiveOf(dir, QString::fromLatin1(h.name) + u".tar.gz", h.entries);
        const QString target = dir.filePath(QString::fromLatin1(h.name));
        QDir().mkpath(target);
        EXPECT_FALSE(unpack(path, target)) << h.name;
        EXPECT_TRUE(QDir(target).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)) << h.name;
    }
    EXPECT_FALSE(QFile::exists(QStringLiteral("/tmp/tovin-absolute-escape")));

    // A bomb: more than the limit allows.
    const QString bomb = archiveOf(dir, QStringLiteral("bomb.tar.gz"), {{"Tovin/zeros", QByteArray(4 << 20, '\0')}});
    const QString target = dir.filePath(QStringLiteral("bomb"));
    QDir().mkpath(target);
    EXPECT_FALSE(unpack(bomb, target, {1 << 20, 100}));
    EXPECT_TRUE(QDir(target).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
    put(dir.filePath(QStringLiteral("cut.tar.gz")), readWholeFile(good, 1 << 20)->left(40));
    EXPECT_FALSE(unpack(dir.filePath(QStringLiteral("cut.tar.gz")), target)) << "a download cut off";
}

// Signatures are checked against Debian's minisign, a real implementation of the format; the
// archives are made with libarchive, hostile ones included.

#include "core/atomic_file.h"
#include "resident/updater/release_check.h"
#include "resident/updater/unpack.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

using namespace tovin;
using namespace tovin::Updater;
using namespace Qt::Literals::StringLiterals;

namespace {

bool minisign(const QStringList& args) {
    QProcess p;
    p.start(u"minisign"_s, args);
    p.closeWriteChannel();
    return p.waitForFinished(20'000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

// A minisign key pair made for the test, and signing with it through the real tool.
struct Signer {
    QTemporaryDir dir;
    QString pub = dir.filePath(u"k.pub"_s);
    QString key = dir.filePath(u"k.key"_s);
    Signer() {
        EXPECT_TRUE(minisign({u"-G"_s, u"-W"_s, u"-p"_s, pub, u"-s"_s, key}))
            << "setup.sh installs minisign";
    }
    PublicKey publicKey() const { return *parsePublicKey(*readWholeFile(pub, 4096)); }
    bool sign(const QString& file, bool legacy = false) const {
        const QStringList args{u"-S"_s, u"-s"_s, key, u"-m"_s, file, u"-t"_s, u"Tovin release"_s};
        return minisign(legacy ? args + QStringList{u"-l"_s} : args);
    }
};

void put(const QString& path, const QByteArray& bytes) {
    ASSERT_TRUE(writeFileAtomically(path, bytes)) << path.toStdString();
}

} // namespace

TEST(Minisign, VerifiesWhatTheRealToolSignsAndNothingElse) {
    Signer signer;
    Signer other;
    QTemporaryDir dir;
    const QString file = dir.filePath(u"m.txt"_s);
    put(file, "what was signed\n");
    for (const bool legacy : {false, true}) {
        ASSERT_TRUE(signer.sign(file, legacy));
        const QByteArray sig = *readWholeFile(file + u".minisig", 4096);
        EXPECT_TRUE(verify("what was signed\n", sig, signer.publicKey())) << legacy;
        EXPECT_FALSE(verify("what was signed!\n", sig, signer.publicKey())) << legacy;
        EXPECT_FALSE(verify("what was signed\n", sig, other.publicKey())) << legacy;
        QByteArray forged = sig;
        forged.replace("Tovin release", "Tovin releasf");
        EXPECT_FALSE(verify("what was signed\n", forged, signer.publicKey()))
            << "the trusted comment is signed";
    }
    EXPECT_FALSE(parsePublicKey("")) << "the shipped program's test key: none";
    EXPECT_FALSE(verify("x", "garbage", signer.publicKey()));
}

TEST(ReleaseCheck, OnlyTheExactSignedFolderPasses) {
    Signer signer;
    QTemporaryDir dir;
    const QString root = dir.filePath(u"Tovin"_s);
    const QString tovin = root + u"/bin/tovin";
    const QString page = root + u"/share/tovin/web/a page with spaces.html";
    put(tovin, "#!/bin/sh\necho new\n");
    put(root + u"/share/tovin/VERSION", "1.2.0\n");
    put(page, "<!doctype html><p>hi</p>");
    put(root + u"/MANIFEST", *makeManifest(root));
    ASSERT_TRUE(signer.sign(root + u"/MANIFEST"));
    const QList<PublicKey> keys{signer.publicKey()};
    ASSERT_TRUE(isSignedRelease(root, keys));
    EXPECT_EQ(folderVersion(root), u"1.2.0"_s);
    EXPECT_FALSE(isSignedRelease(root, {Signer().publicKey()})) << "signed by another key";
    EXPECT_FALSE(isSignedRelease(root, {})) << "no trusted key at all";

    put(tovin, "#!/bin/sh\necho evil\n"); // same size, other bytes
    EXPECT_FALSE(isSignedRelease(root, keys)) << "a file changed after signing";
    put(tovin, "#!/bin/sh\necho new\n");
    put(root + u"/bin/extra", "unlisted");
    EXPECT_FALSE(isSignedRelease(root, keys)) << "an extra unlisted file";
    QFile::remove(root + u"/bin/extra");
    QFile::remove(page);
    EXPECT_FALSE(isSignedRelease(root, keys)) << "a listed file missing";
    put(page, "<!doctype html><p>hi</p>");
    ASSERT_TRUE(isSignedRelease(root, keys)) << "each change above was undone";
    QFile::remove(root + u"/MANIFEST.minisig");
    EXPECT_FALSE(isSignedRelease(root, keys)) << "no signature";
}

namespace {

struct TarEntry {
    QByteArray path;
    QByteArray data;
    mode_t type = AE_IFREG;
    QByteArray link; // a symlink's target, or for a regular file the path it is a hard link to
};

// A .tar.gz the way a careless or hostile server might write it: any path, links, special files.
QString archiveOf(const QTemporaryDir& dir, const QString& name, const QList<TarEntry>& entries) {
    const QString path = dir.filePath(name);
    archive* a = archive_write_new();
    archive_write_add_filter_gzip(a);
    archive_write_set_format_pax_restricted(a);
    EXPECT_EQ(archive_write_open_filename(a, QFile::encodeName(path).constData()), ARCHIVE_OK);
    for (const TarEntry& e : entries) {
        archive_entry* entry = archive_entry_new();
        archive_entry_set_pathname(entry, e.path.constData());
        archive_entry_set_filetype(entry, e.type);
        archive_entry_set_perm(entry, 0755);
        archive_entry_set_size(entry, e.type == AE_IFREG ? e.data.size() : 0);
        if (!e.link.isEmpty() && e.type == AE_IFLNK)
            archive_entry_set_symlink(entry, e.link.constData());
        else if (!e.link.isEmpty())
            archive_entry_set_hardlink(entry, e.link.constData());
        EXPECT_GE(archive_write_header(a, entry), ARCHIVE_WARN) << e.path.constData();
        if (e.type == AE_IFREG && e.link.isEmpty())
            archive_write_data(a, e.data.constData(), size_t(e.data.size()));
        archive_entry_free(entry);
    }
    EXPECT_EQ(archive_write_close(a), ARCHIVE_OK);
    archive_write_free(a);
    return path;
}

} // namespace

TEST(Unpack, HostileArchivesAreRefusedAndLeaveNothingBehind) {
    QTemporaryDir dir;
    const struct {
        const char* name;
        QList<TarEntry> entries;
        UnpackLimits limits = {};
    } hostile[] = {
        {"dotdot", {{"Tovin/a", "x"}, {"Tovin/../../escaped", "x"}}},
        {"absolute", {{"/tmp/tovin-absolute-escape", "x"}}},
        {"symlink", {{"Tovin/bin/tovin", {}, AE_IFLNK, "/bin/sh"}}},
        {"hardlink", {{"Tovin/a", "x"}, {"Tovin/b", {}, AE_IFREG, "/etc/passwd"}}},
        {"fifo", {{"Tovin/pipe", {}, AE_IFIFO}}},
        {"device", {{"Tovin/dev", {}, AE_IFCHR}}},
        {"bomb", {{"Tovin/zeros", QByteArray(4 << 20, '\0')}}, {1 << 20, 100}},
    };
    for (const auto& h : hostile) {
        const QString name = QString::fromLatin1(h.name);
        const QString target = dir.filePath(name);
        QDir().mkpath(target);
        EXPECT_FALSE(unpack(archiveOf(dir, name + u".tar.gz", h.entries), target, h.limits))
            << h.name;
        EXPECT_TRUE(QDir(target).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot))
            << h.name;
    }
    EXPECT_FALSE(QFile::exists(u"/tmp/tovin-absolute-escape"_s));
}

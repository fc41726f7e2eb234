#include "resident/updater/minisign.h"

#include <QList>

#include <sodium.h>

namespace tovin::Updater {

namespace {

bool sodiumReady() {
    static const bool ready = sodium_init() >= 0;
    return ready;
}

// The lines of a minisign file without their line endings.
QList<QByteArray> lines(const QByteArray& text) {
    QList<QByteArray> out;
    for (QByteArray line : text.split('\n')) {
        if (line.endsWith('\r'))
            line.chop(1);
        out.append(line);
    }
    return out;
}

std::optional<QByteArray> base64(const QByteArray& text) {
    const auto decoded =
        QByteArray::fromBase64Encoding(text.trimmed(), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    return *decoded;
}

} // namespace

std::optional<PublicKey> parsePublicKey(const QByteArray& text) {
    QByteArray line = text.trimmed();
    const QList<QByteArray> all = lines(text);
    if (all.size() >= 2 && all[0].startsWith("untrusted comment:"))
        line = all[1].trimmed();
    const auto raw = base64(line);
    if (!raw || raw->size() != 42 || !raw->startsWith("Ed"))
        return std::nullopt;
    return PublicKey{raw->mid(2, 8), raw->mid(10, 32)};
}

bool verify(const QByteArray& message, const QByteArray& signatureFile, const PublicKey& key) {
    if (!sodiumReady() || key.key.size() != crypto_sign_PUBLICKEYBYTES || key.keyId.size() != 8)
        return false;
    const QList<QByteArray> l = lines(signatureFile);
    if (l.size() < 4 || !l[0].startsWith("untrusted comment:") ||
        !l[2].startsWith("trusted comment: "))
        return false;
    const auto sig = base64(l[1]);
    const auto global = base64(l[3]);
    if (!sig || sig->size() != 74 || !global || global->size() != crypto_sign_BYTES)
        return false;
    const QByteArray algorithm = sig->left(2);
    if (sig->mid(2, 8) != key.keyId)
        return false;
    const auto* pk = reinterpret_cast<const unsigned char*>(key.key.constData());
    const auto* signature = reinterpret_cast<const unsigned char*>(sig->constData() + 10);

    bool ok = false;
    if (algorithm == "ED") {
        unsigned char digest[crypto_generichash_BYTES_MAX];
        crypto_generichash(digest, sizeof digest,
                           reinterpret_cast<const unsigned char*>(message.constData()),
                           size_t(message.size()), nullptr, 0);
        ok = crypto_sign_verify_detached(signature, digest, sizeof digest, pk) == 0;
    } else if (algorithm == "Ed") {
        ok = crypto_sign_verify_detached(
                 signature, reinterpret_cast<const unsigned char*>(message.constData()),
                 size_t(message.size()), pk) == 0;
    }
    if (!ok)
        return false;
    // The trusted comment is signed together with the signature itself.
    const QByteArray trusted = sig->mid(10, 64) + l[2].mid(int(qstrlen("trusted comment: ")));
    return crypto_sign_verify_detached(reinterpret_cast<const unsigned char*>(global->constData()),
                                       reinterpret_cast<const unsigned char*>(trusted.constData()),
                                       size_t(trusted.size()), pk) == 0;
}

} // namespace tovin::Updater

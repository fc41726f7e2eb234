#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace tovin::Updater {

// A minisign (Ed25519) public key: the two-byte algorithm, an 8-byte key id, 32 key bytes.
struct PublicKey {
    QByteArray keyId; // 8 bytes
    QByteArray key;   // 32 bytes
};

// Reads a public key as minisign writes it: either the whole .pub file or its base64 line.
std::optional<PublicKey> parsePublicKey(const QByteArray& text);

// True only when the .minisig text signs `message` with `key`: the key ids match, the Ed25519
// signature verifies (over the message itself, or over its BLAKE2b-512 digest for the
// pre-hashed "ED" form minisign writes by default), and the signature over the trusted comment
// verifies too, so the comment cannot be swapped either.
bool verify(const QByteArray& message, const QByteArray& signatureFile, const PublicKey& key);

} // namespace tovin::Updater

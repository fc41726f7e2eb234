// Which release keys this program trusts: Tovin's release key, compiled in. A test build of the
// program (tovin_testkey) links test_key.cpp, whose definition of testPublicKey() replaces the
// empty one here and names the build tree's test key. Nothing read at run time adds a key.

#include "resident/updater/trusted_keys.h"

namespace tovin::Updater {

__attribute__((weak)) const char* testPublicKey() {
    return "";
}

QList<PublicKey> trustedKeys() {
    QList<PublicKey> keys;
    for (const char* text : {TOVIN_RELEASE_PUBKEY, testPublicKey()}) {
        if (const auto key = parsePublicKey(QByteArray(text)))
            keys.append(*key);
    }
    return keys;
}

bool isTestBuild() {
    return parsePublicKey(QByteArray(testPublicKey())).has_value();
}

} // namespace tovin::Updater

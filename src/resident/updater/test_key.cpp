// Linked into the test build of the program only: the build tree's test release key.

#include "resident/updater/trusted_keys.h"

namespace tovin::Updater {

const char* testPublicKey() {
    return TOVIN_TEST_PUBKEY;
}

} // namespace tovin::Updater

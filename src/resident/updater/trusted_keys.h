#pragma once

#include "resident/updater/minisign.h"

#include <QList>

namespace tovin::Updater {

// The keys a release may be signed with: the release key built into the program, and, in a
// build made for the tests only, a second key given at build time. Never anything at run time.
QList<PublicKey> trustedKeys();

// Whether this is a test build of the program (it trusts a test key). Only such a build lets
// the environment point it at another release feed or certificate authority.
bool isTestBuild();

// The test build's key (minisign's base64 line); empty in the shipped program.
const char* testPublicKey();

} // namespace tovin::Updater

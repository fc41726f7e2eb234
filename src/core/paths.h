#pragma once

#include <QString>

namespace tovin::paths {

// The folder for Tovin's own files: the schedule, the ledger and the journal
// ($XDG_DATA_HOME/Tovin on Linux). Asking for it creates it; a failure to create is ignored,
// and the first write will then fail quietly like any other write error.
QString dataDir();

// Where the legacy ledger folder of an older install lies: beside dataDir(), same parent.
QString legacyLedgerFile();

// The folder for settings ($XDG_CONFIG_HOME/Tovin on Linux), created on demand.
QString configDir();

// A per-user folder for what lives only while a session does ($XDG_RUNTIME_DIR/tovin).
QString runtimeDir();

} // namespace tovin::paths

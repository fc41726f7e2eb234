#pragma once

#include "resident/updater/updater.h"

class QTextStream;

namespace tovin::Diagnostics {

// "Would an update work?": checks the feed and, when something newer is there, downloads and
// verifies it exactly as a real update would, prints what happened, and installs nothing (the
// download is removed again). Needs a running QCoreApplication; returns the exit status.
int updateDryRun(QTextStream& out, Updater::Session session);

} // namespace tovin::Diagnostics

#pragma once

namespace tovin {

// `tovin --self-test`: drives the real subsystems offscreen, on a clock moved by hand, against a
// throw-away settings store, journal, schedule and ledger (never the person's files). Prints one
// verdict per check and "N passed, N failed"; returns the process exit code.
int runSelfTest();

} // namespace tovin

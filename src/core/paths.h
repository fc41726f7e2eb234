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

// A folder for what lives only while a session does (the single-instance socket and record),
// private to this user: $XDG_RUNTIME_DIR/tovin when the session has a runtime folder of this
// user's own, else tovin-<uid> in the temporary folder, made here with mode 0700. Either way it
// is checked on every call, without following links: a folder this user does not own, or one
// that others may enter, is refused. Empty on refusal, with the reason in `why`.
QString runtimeDir(QString* why = nullptr);

// A file or folder Tovin ships, under share/tovin beside the running program: for a program in
// bin/ (a self-contained copy, or /usr/bin) that is ../share/tovin, for one in libexec/tovin/
// (the screen helper of a package) ../../share/tovin. Empty when neither holds it.
QString installedShare(const QString& relative, const QString& programDir = {});

// A program Tovin ships beside this one: in the same folder (a self-contained copy), else in
// ../libexec/tovin (a package, where only the commands people run sit in bin/).
QString installedProgram(const QString& name, const QString& programDir = {});

// Whether `path` is a real folder (not a link to one) owned by this user that nobody else may
// read, write or enter; when not, `why` says what is wrong in plain words.
bool isPrivateDir(const QString& path, QString* why = nullptr);

} // namespace tovin::paths

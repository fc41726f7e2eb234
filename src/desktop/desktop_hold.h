#pragma once

#include <QString>

// What a Wayland desktop itself does to keep the shield on top. No Wayland protocol lets a
// program stay above others or keep the keyboard, so Tovin brings each desktop's own means:
// a KWin script, which Tovin loads into KWin whenever it starts, and a GNOME Shell extension,
// which the person installs from the setup window (GNOME loads new extensions only when a
// session starts). Both act on Tovin's windows alone, known by app id and title: while a shield
// window is up they keep it above every other window with the keyboard on the main one, and
// refuse the desktop's own ways around it (the Overview, window switching, the run dialog).
namespace tovin::DesktopHold {

enum class Desktop { Gnome, Kde, Other };
// The desktop this session runs, from XDG_CURRENT_DESKTOP.
Desktop desktop();

inline constexpr char gnomeExtensionUuid[] = "tovin-shield@tovin.dev";
inline constexpr char kwinScriptName[] = "tovin-shield";

// Loads Tovin's KWin script into this session's KWin, replacing a copy a previous run left.
// Returns the journal's line for what happened.
QString loadKWinScript();

enum class Extension {
    NoShell, // GNOME Shell does not answer
    Missing, // not installed for this person
    Waiting, // installed and turned on, loaded at the next log-in
    Off,     // installed, turned off (by the person, or all extensions are off)
    On,      // running: it holds the shield
    Broken,  // GNOME reports an error or an unsupported version
};
Extension gnomeExtension();
// GNOME Shell's major version (0 when it does not answer), and whether Tovin's extension, written
// for GNOME 43 and 44, runs on it.
int gnomeShellVersion();
bool gnomeExtensionRunsHere();

// Copies the extension into the person's extensions folder and turns it on. Empty when done;
// otherwise why not, in words for the person.
QString installGnomeExtension();

// Whether GNOME has stored the person's "Allow" for Tovin's shortcuts inhibitor. Without it,
// asking puts a system dialog over the shield, one per window, that Esc (Tovin's own way out)
// answers "Deny".
bool gnomeAllowsShortcutsInhibitor();

// Whether the desktop's own means hold the shield now.
bool holdsShield();

// One line for `--why` and the journal: what keeps the shield above other windows here, or
// what does not and what would.
QString describe();

} // namespace tovin::DesktopHold

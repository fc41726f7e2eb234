// Tovin's shield under KWin: while a shield window is up, it stays above every other window and
// keeps the keyboard; a window that opens or is activated meanwhile goes back behind it. The
// countdown notice stays above the windows it warns about. Tovin loads this through KWin's
// scripting interface when it starts; it acts only on Tovin's own windows.
const appId = "dev.tovin.Tovin";
const shieldTitle = "Tovin shield";
const noticeTitle = "Tovin countdown";

function ours(window) {
    return window && window.desktopFileName === appId;
}
function isShield(window) {
    return ours(window) && window.caption.startsWith(shieldTitle);
}
function shields() {
    return workspace.clientList().filter(isShield);
}
// The main shield (exactly the title) holds the keyboard; the others cover their displays.
function mainShield(list) {
    return list.find(window => window.caption === shieldTitle) || list[0];
}

function hold(window) {
    if (isShield(window) || (ours(window) && window.caption === noticeTitle))
        window.keepAbove = true;
}

// A window that takes the focus while the shield is up gives it back: another program's window
// is minimised, to be found in the task manager once the lockout is over (never the window the
// person was using when the lockout began: only one that opens or is activated meanwhile), and
// the main shield is activated. KWin finishes an activation after telling scripts of it, so the
// focus is given back a moment later: after a round trip to KWin's own bus name, the one timer a
// script has.
function reclaim(intruder) {
    const list = shields();
    if (list.length === 0)
        return;
    if (intruder && !ours(intruder) && (intruder.normalWindow || intruder.dialog))
        intruder.minimized = true;
    if (workspace.activeClient === mainShield(list))
        return;
    callDBus("org.kde.KWin", "/Scripting", "org.kde.kwin.Scripting", "isScriptLoaded",
             "tovin-shield", () => {
                 const now = shields();
                 const main = now.length > 0 ? mainShield(now) : null;
                 if (main && workspace.activeClient !== main)
                     workspace.activeClient = main;
             });
}

workspace.clientList().forEach(hold);
workspace.clientAdded.connect(window => {
    hold(window);
    reclaim(ours(window) ? null : window);
});
// Only once a shield has had the focus is another window's activation an intrusion.
let shieldHadFocus = false;
workspace.clientActivated.connect(window => {
    if (shields().length === 0) {
        shieldHadFocus = false;
        return;
    }
    if (isShield(window))
        shieldHadFocus = true;
    reclaim(shieldHadFocus ? window : null);
});

#!/usr/bin/env bash
# The shield under KDE Plasma's compositor, as a person on KDE meets it: KWin 5.27 virtual with
# two outputs, keys and pointer through KWin's fake-input protocol, windows read through a
# KWin script of the check's own, pictures through KWin's screenshot interface. As root,
# KWin and every client run as the unprivileged user nobody.
#   - Tovin loads its KWin script at start and --why says what it holds
#   - the countdown stays above the other windows, the setup window among them
#   - a due block covers both outputs; Super, Alt+Tab, Alt+F2 and a new window leave the shield
#     on top with the keyboard, and typing reaches nobody
#   - the phrase, Esc ×3 and Esc ×5 each end as they should
#   - idle time from the compositor grows and resets with input
#
#   wayland_kwin_e2e.sh BIN_DIR SHARE_DIR TOOLS_DIR SCREENSHOT_DIR
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/lib.sh"
. "$here/desktop_lib.sh"
desktop=kde
cp "$tools_dir/kwin_keys" "$work/app/bin/"

# The installed kwin_wayland carries a file capability that an unprivileged user in a
# container may not take up: a copy without it runs the same compositor.
cp /usr/bin/kwin_wayland "$work/kwin_wayland"; chmod 755 "$work/kwin_wayland"
export XDG_CURRENT_DESKTOP=KDE WAYLAND_DISPLAY=wayland-k
KWIN_WAYLAND_NO_PERMISSION_CHECKS=1 "${as_user[@]}" "$work/kwin_wayland" --virtual --width 1280 \
    --height 720 --output-count 2 --socket wayland-k >"$work/kwin.log" 2>&1 & pids+=($!)
waitfor 20 sh -c "$(printf '%q ' "${as_user[@]}") gdbus call --session --dest org.kde.KWin \
    --object-path /Scripting --method org.kde.kwin.Scripting.isScriptLoaded x >/dev/null 2>&1" ||
    { cat "$work/kwin.log"; give_up "KWin did not start"; }

# KWin shows its screenshots only to programs a desktop file allows, found through KDE's cache.
mkdir -p "$XDG_DATA_HOME/applications"
cat > "$XDG_DATA_HOME/applications/tovin-e2e-shot.desktop" <<DESKTOP
[Desktop Entry]
Type=Application
Name=Tovin end-to-end screenshots
Exec=$(readlink -f /usr/bin/python3)
NoDisplay=true
X-KDE-DBUS-Restricted-Interfaces=org.kde.KWin.ScreenShot2
DESKTOP
[ "$(id -u)" -eq 0 ] && chown -R 65534:65534 "$HOME"
run kbuildsycoca5 >/dev/null 2>&1

keys() { # steps in kwin_keys' words
    local step out=()
    for step in "$@"; do
        case $step in
            *+*) out+=("+${step%%+*}" "${step#*+}" "-${step%%+*}") ;;
            hold=*) out+=(+space "wait=${step#hold=}" -space) ;;
            *) out+=("$step") ;;
        esac
    done
    run "$work/app/bin/kwin_keys" "${out[@]}"
}
nudge() { run "$work/app/bin/kwin_keys" move; }

# The windows as KWin sees them, through a script loaded for one look: its lines go to KWin's
# output, marked with a number of their own.
cat > "$work/windows.js" <<'JS'
print("WINDOWS" + readConfig("mark", "") + " " + JSON.stringify(workspace.clientList().map(w => ({
    caption: w.caption, app: w.desktopFileName, order: w.stackingOrder, layer: w.layer,
    x: w.frameGeometry.x, y: w.frameGeometry.y, w: w.frameGeometry.width, h: w.frameGeometry.height,
    active: w === workspace.activeClient, above: w.keepAbove, minimized: w.minimized}))));
JS
chmod 644 "$work/windows.js"
windows() { # each look has a mark of its own (it may run in a pipeline's subshell)
    local look; look=$(date +%s%N)
    local name=look$look
    sed "s/readConfig(\"mark\", \"\")/\"$look\"/" "$work/windows.js" > "$work/$name.js"; chmod 644 "$work/$name.js"
    call --dest org.kde.KWin --object-path /Scripting --method org.kde.kwin.Scripting.loadScript "$work/$name.js" "$name" >/dev/null
    call --dest org.kde.KWin --object-path /Scripting --method org.kde.kwin.Scripting.start >/dev/null
    waitfor 3 grep -q "WINDOWS$look " "$work/kwin.log"
    call --dest org.kde.KWin --object-path /Scripting --method org.kde.kwin.Scripting.unloadScript "$name" >/dev/null
    rm -f "$work/$name.js"
    grep -a "WINDOWS$look " "$work/kwin.log" | tail -n 1 | sed "s/^.*WINDOWS$look //"
}
py_windows='
import json, sys
mode = sys.argv[1]
windows = [w for w in json.load(sys.stdin) if not w["minimized"]]
ours = lambda w: w["app"] == "dev.tovin.Tovin"
shields = [w for w in windows if ours(w) and w["caption"].startswith("Tovin shield")]
# Above everything else: a higher layer, or the same layer and later in the stacking order.
def over(a, b): return (a["layer"], a["order"]) > (b["layer"], b["order"])
def covers(w, x): return w["x"] <= x < w["x"] + w["w"] and w["w"] >= 1280 and w["h"] >= 720
if mode == "covered":
    ok = all(any(covers(s, x) and all(over(s, o) for o in windows if not ours(o)) for s in shields) for x in (0, 1280))
    main = [s for s in shields if s["caption"] == "Tovin shield"]
    sys.exit(0 if ok and main and main[0]["active"] else 1)
if mode == "uncovered":
    sys.exit(1 if shields else 0)
if mode == "notice-on-top":
    notice = [w for w in windows if ours(w) and w["caption"] == "Tovin countdown"]
    sys.exit(0 if notice and all(over(notice[0], o) for o in windows if o is not notice[0]) else 1)
if mode == "show":
    for w in windows: print("     ", w)
'
covered() { windows > "$work/seen.json"; python3 -c "$py_windows" covered < "$work/seen.json"; }
uncovered() { windows | python3 -c "$py_windows" uncovered; }
notice_on_top() { windows | python3 -c "$py_windows" notice-on-top; }
shot() { # KWin hands the picture over a pipe, raw; it is written out as a PNG here
    run /usr/bin/python3 - "$work/shot.png" <<'PY'
import dbus, os, struct, sys, zlib
shooter = dbus.SessionBus().get_object("org.kde.KWin", "/org/kde/KWin/ScreenShot2")
r, w = os.pipe()
info = shooter.CaptureWorkspace({"native-resolution": True}, dbus.types.UnixFd(w),
                                dbus_interface="org.kde.KWin.ScreenShot2")
os.close(w)
raw = bytearray()
while chunk := os.read(r, 1 << 20):
    raw += chunk
width, height, stride = int(info["width"]), int(info["height"]), int(info["stride"])
rows = []
for y in range(height):  # BGRA in memory, opaque: to RGB rows, each with PNG's "no filter"
    row = raw[y * stride:y * stride + width * 4]
    rgb = bytearray(width * 3)
    rgb[0::3], rgb[1::3], rgb[2::3] = row[2::4], row[1::4], row[0::4]
    rows.append(b"\0" + rgb)
def chunk(kind, body):
    return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
with open(sys.argv[1], "wb") as out:
    out.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
              + chunk(b"IDAT", zlib.compress(b"".join(rows), 6)) + chunk(b"IEND", b""))
PY
    cp "$work/shot.png" "$shots/$1.png"
}

due_now
start_tovin
check "Tovin loads its KWin script when it starts, and says so" \
    waitfor 20 journal_has "KWin: Tovin's script keeps the shield above other windows, with the keyboard"
check "--why says what holds the shield on KDE" \
    sh -c "$(printf '%q ' "${as_user[@]}") '$tovin' --why | grep -q 'shield: Wayland.*KWin: Tovin.s script keeps the shield above'"
check "--why names the compositor's idle notifications" \
    sh -c "$(printf '%q ' "${as_user[@]}") '$tovin' --why | grep -q 'idle: the compositor.s idle notifications'"

# The setup window is open (no tray here) and another program has the focus when the block
# falls due: the notice must show above both.
setup_shows() { windows | grep -q '"caption":"Tovin","app":"dev.tovin.Tovin"'; }
waitfor 30 setup_shows
intrude
check "the block falls due with the setup window open behind another program" waitfor 40 journal_has 'FIRE Desktop block'
check "the countdown shows above every other window" waitfor 5 notice_on_top
sleep 0.5; shot kde-countdown
check "the due block covers both outputs" waitfor 40 covered
pkill -f "$work/app/bin/key_sink" ; : > "$work/typed"
check "... and the journal says what KWin holds, at the lockout too" \
    test "$(grep -c "KWin: Tovin's script keeps the shield above" "$data/tovin.log")" -ge 2
sleep 2; shot kde-shield

# A KWin that lost the script (or never answered when Tovin started) gets it at the next lockout.
forget_script() {
    call --dest org.kde.KWin --object-path /Scripting --method org.kde.kwin.Scripting.unloadScript \
        tovin-shield >/dev/null
}
between_lockouts=forget_script between_said=", KWin having lost the script, which the shield loads again"
try_the_ways_around
ways_out
idle_follows_input "the compositor's idle notifications"
if [ "$failed" -gt 0 ]; then
    echo "--- the windows KWin showed last"; python3 -c "$py_windows" show < "$work/seen.json"
    echo "--- KWin"; grep -av 'WINDOWS[0-9]' "$work/kwin.log" | tail -n 15
fi
finish

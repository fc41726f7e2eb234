#!/usr/bin/env bash
# The shield under GNOME Shell, as a person on GNOME meets it: GNOME Shell 43 headless with two
# virtual monitors, keys and pointer from a virtual keyboard inside the shell, windows and the
# Overview read through the shell's Eval, pictures through its screenshot interface (both open
# to a small test extension of the check's own). As root, the shell and every client run as
# the unprivileged user nobody.
#   - without Tovin's extension, --why says what is not held and that the setup window offers it
#   - with it (installed, then a new session), --why and the journal say it holds the shield
#   - the countdown stays above the other windows, the setup window among them
#   - a due block covers both monitors; Super, Alt+Tab, Alt+F2, Super+Escape and a new window
#     leave the shield on top with the keyboard and the Overview shut; typing reaches nobody
#   - the phrase, Esc ×3 and Esc ×5 each end as they should
#   - idle time from GNOME's idle monitor grows and resets with input
#
#   wayland_gnome_e2e.sh BIN_DIR SHARE_DIR TOOLS_DIR SCREENSHOT_DIR
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/lib.sh"
. "$here/desktop_lib.sh"
desktop=gnome
export XDG_CURRENT_DESKTOP=GNOME GSETTINGS_BACKEND=keyfile WAYLAND_DISPLAY=wayland-g

# The check's own extension opens the shell's Eval and screenshots (its "unsafe mode").
extensions=$XDG_DATA_HOME/gnome-shell/extensions
mkdir -p "$extensions/unsafe@e2e.tovin.dev" "$XDG_CONFIG_HOME/glib-2.0/settings"
echo '{"uuid": "unsafe@e2e.tovin.dev", "name": "e2e", "description": "checks", "shell-version": ["43", "44"]}' \
    > "$extensions/unsafe@e2e.tovin.dev/metadata.json"
printf 'function init() {}\nfunction enable() { global.context.unsafe_mode = true; }\nfunction disable() {}\n' \
    > "$extensions/unsafe@e2e.tovin.dev/extension.js"
enable_extensions() {
    printf '[org/gnome/shell]\nenabled-extensions=[%s]\n' "$1" > "$XDG_CONFIG_HOME/glib-2.0/settings/keyfile"
    [ "$(id -u)" -eq 0 ] && chown -R 65534:65534 "$HOME"
    return 0
}
shell_pid=
start_shell() {
    "${as_user[@]}" gnome-shell --headless --wayland --no-x11 --wayland-display wayland-g \
        --virtual-monitor 1280x720 --virtual-monitor 1280x720 >>"$work/shell.log" 2>&1 &
    shell_pid=$!; pids+=($shell_pid)
    waitfor 30 sh -c "$(printf '%q ' "${as_user[@]}") /usr/bin/python3 '$work/shell.py' 'global.context.unsafe_mode' 2>/dev/null | grep -q true"
}
stop_shell() { # as a log-out does
    kill "$shell_pid"; wait "$shell_pid" 2>/dev/null
    waitfor 10 sh -c "! test -e '$XDG_RUNTIME_DIR/wayland-g'"
}

# The shell's Eval, through python's D-Bus (what it returns is JSON).
cat > "$work/shell.py" <<'PY'
import dbus, sys
shell = dbus.SessionBus().get_object("org.gnome.Shell", "/org/gnome/Shell")
ok, result = shell.Eval(sys.argv[1], dbus_interface="org.gnome.Shell")
print(result)
sys.exit(0 if ok else 1)
PY
chmod 644 "$work/shell.py"
shell() { run /usr/bin/python3 "$work/shell.py" "$1"; }

# Keys from a virtual keyboard of the shell's own seat, as from the person's.
keys() {
    local step steps=() sym
    keysym() {
        case $1 in
            super) echo 0xffeb ;; alt) echo 0xffe9 ;; ctrl) echo 0xffe3 ;; shift) echo 0xffe1 ;;
            tab) echo 0xff09 ;; return) echo 0xff0d ;; escape) echo 0xff1b ;; f2) echo 0xffbf ;;
            space) echo 0x20 ;; ?) printf '0x%x' "'$1" ;;
        esac
    }
    for step in "$@"; do
        case $step in
            text=*) local word=${step#text=} i
                for ((i = 0; i < ${#word}; i++)); do sym=$(keysym "${word:i:1}"); steps+=("[$sym,1],[$sym,0]"); done ;;
            hold=*) send "[0x20,1]"; sleep "$(echo "${step#hold=}" | sed 's/...$/.&/')"; steps+=("[0x20,0]") ;;
            *+*) local mod; mod=$(keysym "${step%%+*}"); sym=$(keysym "${step#*+}")
                steps+=("[$mod,1],[$sym,1],[$sym,0],[$mod,0]") ;;
            *) sym=$(keysym "$step"); steps+=("[$sym,1],[$sym,0]") ;;
        esac
    done
    [ ${#steps[@]} -gt 0 ] && send "$(IFS=,; echo "${steps[*]}")"
    return 0
}
send() { # [keysym, pressed] pairs, in order
    shell "const { Clutter, GLib } = imports.gi;
        global._e2eKeys = global._e2eKeys || Clutter.get_default_backend().get_default_seat()
            .create_virtual_device(Clutter.InputDeviceType.KEYBOARD_DEVICE);
        for (const [sym, down] of [$1])
            global._e2eKeys.notify_keyval(GLib.get_monotonic_time(), sym,
                down ? Clutter.KeyState.PRESSED : Clutter.KeyState.RELEASED);
        true" >/dev/null
}
nudge() {
    shell "const { Clutter, GLib } = imports.gi;
        global._e2ePointer = global._e2ePointer || Clutter.get_default_backend().get_default_seat()
            .create_virtual_device(Clutter.InputDeviceType.POINTER_DEVICE);
        global._e2ePointer.notify_relative_motion(GLib.get_monotonic_time(), 1, 1); true" >/dev/null
}

# The windows in stacking order, bottom first, and whether the Overview shows.
windows() {
    shell "JSON.stringify({overview: imports.ui.main.overview.visible,
        windows: global.get_window_actors().map((actor, order) => { const w = actor.meta_window;
            const r = w.get_frame_rect();
            return {caption: w.get_title(), app: w.get_wm_class(), order, x: r.x, y: r.y, w: r.width,
                    h: r.height, active: w.has_focus(), above: w.is_above(), minimized: w.minimized}; })})" |
        python3 -c 'import json, sys; print(json.loads(sys.stdin.read()))' | sed "s/'/\"/g; s/True/true/g; s/False/false/g"
}
py_windows='
import json, sys
mode = sys.argv[1]
seen = json.load(sys.stdin)
windows = [w for w in seen["windows"] if not w["minimized"]]
ours = lambda w: w["app"] == "dev.tovin.Tovin"
shields = [w for w in windows if ours(w) and w["caption"].startswith("Tovin shield")]
def over(a, b): return a["order"] > b["order"]
def covers(w, x): return w["x"] <= x < w["x"] + w["w"] and w["w"] >= 1280 and w["h"] >= 720
if mode == "covered":
    ok = all(any(covers(s, x) and all(over(s, o) for o in windows if not ours(o)) for s in shields) for x in (0, 1280))
    main = [s for s in shields if s["caption"] == "Tovin shield"]
    sys.exit(0 if ok and main and main[0]["active"] and not seen["overview"] else 1)
if mode == "uncovered":
    sys.exit(1 if shields else 0)
if mode == "notice-on-top":
    notice = [w for w in windows if ours(w) and w["caption"] == "Tovin countdown"]
    sys.exit(0 if notice and notice[0]["above"] and all(over(notice[0], o) for o in windows if o is not notice[0]) else 1)
if mode == "setup":
    sys.exit(0 if any(ours(w) and w["caption"] == "Tovin" for w in windows) else 1)
if mode == "show":
    print("      overview:", seen["overview"])
    for w in windows: print("     ", w)
'
covered() { windows > "$work/seen.json"; python3 -c "$py_windows" covered < "$work/seen.json"; }
uncovered() { windows | python3 -c "$py_windows" uncovered; }
notice_on_top() { windows | python3 -c "$py_windows" notice-on-top; }
setup_shows() { windows | python3 -c "$py_windows" setup; }
shot() {
    shell "global.context.unsafe_mode" >/dev/null
    run gdbus call --session --dest org.gnome.Shell.Screenshot --object-path /org/gnome/Shell/Screenshot \
        --method org.gnome.Shell.Screenshot.Screenshot false false "$work/shot.png" >/dev/null &&
        cp "$work/shot.png" "$shots/$1.png"
}
why() { run "$tovin" --why; }

enable_extensions "'unsafe@e2e.tovin.dev'"
start_shell || { tail -20 "$work/shell.log"; give_up "GNOME Shell did not start"; }
check "without Tovin's extension, --why says the shield is not held and where to get it" \
    sh -c "$(printf '%q ' "${as_user[@]}") '$tovin' --why | grep -q 'GNOME: Tovin.s extension is not installed (the setup window offers it)'"
check "... and that GNOME's shortcuts work over the shield, since Esc would answer GNOME's question" \
    sh -c "$(printf '%q ' "${as_user[@]}") '$tovin' --why | grep -q 'GNOME would ask about them over the shield, where Esc would answer'"

# Installed as the setup window does (the extension's files, then GNOME's list), and a new
# session, since GNOME Shell on Wayland takes up new extensions only when it starts.
cp -r "$share_dir/gnome-shell/tovin-shield@tovin.dev" "$extensions/"
enable_extensions "'unsafe@e2e.tovin.dev', 'tovin-shield@tovin.dev'"
stop_shell
start_shell || { tail -20 "$work/shell.log"; give_up "GNOME Shell did not start again"; }
check "in the next session GNOME runs Tovin's extension" \
    sh -c "$(printf '%q ' "${as_user[@]}") gdbus call --session --dest org.gnome.Shell --object-path /org/gnome/Shell \
        --method org.gnome.Shell.Extensions.GetExtensionInfo tovin-shield@tovin.dev | grep -q \"'state': <1.0>\""
check "--why says the extension holds the shield" \
    sh -c "$(printf '%q ' "${as_user[@]}") '$tovin' --why | grep -q 'GNOME: Tovin.s extension keeps the shield above other windows'"
check "--why names GNOME's idle monitor" \
    sh -c "$(printf '%q ' "${as_user[@]}") '$tovin' --why | grep -q 'idle: GNOME idle monitor'"

due_now
start_tovin
check "the journal says what holds the shield when Tovin starts" \
    waitfor 20 journal_has "GNOME: Tovin's extension keeps the shield above other windows"
# The setup window is open (no tray here) and another program has the focus when the block
# falls due: the notice must show above both.
waitfor 30 setup_shows
shell "imports.ui.main.overview.hide(); true" >/dev/null # GNOME opens a session on the Overview
intrude
check "the block falls due with the setup window open behind another program" waitfor 40 journal_has 'FIRE Desktop block'
check "the countdown shows above every other window" waitfor 5 notice_on_top
sleep 0.5; shot gnome-countdown
check "the due block covers both monitors" waitfor 40 covered
pkill -f "$work/app/bin/key_sink"; : > "$work/typed"
check "... and asks GNOME nothing, with no dialog over it" never 3 journal_has 'not asked'
sleep 2; shot gnome-shield

try_the_ways_around super+escape
ways_out
idle_follows_input "GNOME idle monitor"
if [ "$failed" -gt 0 ]; then
    echo "--- the windows GNOME showed last"; python3 -c "$py_windows" show < "$work/seen.json"
    echo "--- GNOME Shell"; tail -n 15 "$work/shell.log"
fi
finish

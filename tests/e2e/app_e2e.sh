#!/usr/bin/env bash
# The installed app, for real, as a person meets it: a private two-monitor Xvfb with openbox, a
# PulseAudio null source, an isolated home, a schedule file with a block due now. Each scenario
# is one way a lockout begins and ends:
#   workout  countdown → "Not now" → nothing for the snooze's minute → countdown → both screens
#            covered → the page's first step still has its whole time → the real web app worked
#            to its end → one promise kept on disk → the screen back, the journal and --why
#   away     an away block → the away screen → its minute served → a kept, attested promise
#   retest   an overdue fitness check → the check over the shield → plan accepted → one kept
#            promise → the screen back
#   broken   a bundle whose script is gone: the page prepared behind the countdown fails without
#            quitting; the one built at the raise fails too → the screen back, no record, the alert
#   call     a live recording at the due minute holds the block off, and the journal says why;
#            a stray Space in the setup window raises nothing
#   share    PipeWire's desktop: a screen being shared holds the due block off in its own words;
#            it fires once the sharing stops, and a share started mid-countdown ends the
#            countdown and defers the block
#   package  the Debian package (TOVIN_DEB): apt installs it where the filesystem standard puts
#            things; its self-check, --why and the update dry run; a due block → both screens
#            covered → the workout to its end → one kept promise; the tray menu's update check
#            and Open at Login; apt removes it and the person's files stay as they were
#   firstrun no schedule file: the example week is written and the setup page shows it
#   break    the phrase → the warning: Space down, Tab, Space up completes no hold; four Tabs
#            come back to the hold; a 3.4 s hold of Space → the reason question; two Tabs then
#            Space choose the first reason → one broken promise; then, from the setup window's
#            Ctrl-L, a Space held past the hold answers nothing and a fresh press does
#   frozen   the page's renderer stops (SIGSTOP): the screen comes back, nothing recorded, the
#            renderer ended; again from Ctrl-L, Esc ×5 over a frozen page leaves no renderer
#   rehearse --rehearse: the warning leaves "Simulate the system taking the screen" clickable;
#            a normal launch beside it watches the schedule; Ctrl-Q quits a rehearsal
#   helper   the screen helper lives only while something shows: gone once the setup window
#            closes; killed mid-lockout, the screen comes back and the promise is broken on the
#            record; hung, the screen comes back with nothing recorded; the resident still locks
#            from Ctrl-L; the resident killed mid-lockout takes the shield with it within a
#            second, and its next launch records that lockout as broken
#   hostile  an unkind neighbour: another user's runtime folder (or a link) stops Tovin with a
#            message; a same-user forger with the helper stopped reaches nothing that takes a
#            command and records nothing; a helper handed a stranger's socket refuses it; 1,100
#            idle connections to the instance socket under a 1,024-descriptor limit leave the
#            resident answering and a due block still covers both screens
# The shield keeps every key but Esc from the page, so the page is worked through Qt WebEngine's
# test-only remote-debugging port (drive_page.mjs). Prints one line per check and
# "N passed, N failed". Screenshots go to the folder given, named after the scenario.
#
#   app_e2e.sh TOVIN XSHOT SCREENSHOT_DIR SCENARIO
set -uo pipefail
tovin=$1 xshot=$2 shots=$3 scenario=$4
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$shots"
. "$here/lib.sh"

# Xvfb picks a free display itself, so checks running side by side never race for one.
Xvfb -displayfd 3 -screen 0 3840x1080x24 -noreset -nolisten tcp 3>"$work/display" >/dev/null 2>&1 & pids+=($!)
waitfor 15 test -s "$work/display" || give_up "Xvfb did not start"
n=$(tr -dc 0-9 <"$work/display")
export DISPLAY=:$n XDG_SESSION_TYPE=x11
unset WAYLAND_DISPLAY # an X11 check, even when run from a Wayland session
xrandr --setmonitor LEFT 1920/508x1080/286+0+0 screen >/dev/null
xrandr --setmonitor RIGHT 1920/508x1080/286+1920+0 none >/dev/null
openbox >/dev/null 2>&1 & pids+=($!)

# One runtime folder for the whole check: the sound server's socket lives there.
mkdir -p "$work/run"; chmod 700 "$work/run"; export XDG_RUNTIME_DIR=$work/run
mkdir -p "$work/home/data/Tovin" "$work/home/config/Tovin"
export HOME=$work/home XDG_DATA_HOME=$work/home/data XDG_CONFIG_HOME=$work/home/config
data=$XDG_DATA_HOME/Tovin

week() { # the schedule file's blocks, as JSON
    printf '{"blocks":[%s]}\n' "$1" > "$data/schedule.json"
}
block() { # kind, label, extra fields: a block due this minute
    printf '{"at":"%s","kind":"%s","label":"%s"%s}' "$(date +%H:%M)" "$1" "$2" "${3:-}"
}
settings() { # extra settings beside: any hour, onboarded, a short warning
    printf '{"activeFromMinute":0,"activeToMinute":0,"hasOnboarded":true,"warningSeconds":10%s}\n' "$1" \
        > "$XDG_CONFIG_HOME/Tovin/settings.json"
}
covered() { "$xshot" "$shots/$scenario-probe.png" --covered >/dev/null; }
shot() { "$xshot" "$shots/$scenario-$1.png"; }
small_window() { # a visible window narrower than a screen: the notice, or an alert
    local w
    for w in $(xdotool search --onlyvisible --name '^Tovin( countdown)?$' 2>/dev/null); do
        eval "$(xdotool getwindowgeometry --shell "$w")"
        [ "$WIDTH" -lt 1000 ] && { echo "$w"; return 0; }
    done
    return 1
}
setup_window() { # the setup window's id: a visible window titled Tovin, as wide as it opens
    local w
    for w in $(xdotool search --onlyvisible --name '^Tovin$' 2>/dev/null); do
        eval "$(xdotool getwindowgeometry --shell "$w")"
        [ "$WIDTH" -ge 1000 ] && [ "$WIDTH" -lt 1920 ] && { echo "$w"; return 0; }
    done
    return 1
}
setup_visible() { setup_window >/dev/null; }
setup_keys() { # keys typed into the setup window, as a person would
    local w
    w=$(setup_window) && xdotool windowactivate --sync "$w" key "$@"
}
close_setup() { setup_keys ctrl+w; } # the setup window, opened at launch, closed with Ctrl-W
countdown_window() { small_window; }
open_setup_again() { # as a person would: launch Tovin again, which brings the setup window
    "$tovin" >/dev/null 2>&1
    waitfor 15 setup_visible
}
lock_from_setup() { setup_keys ctrl+l; } # "Lock Me Out Now" by its key
mine() { # a process of this check's (it runs with this check's runtime folder), not a neighbour's
    tr '\0' '\n' <"/proc/$1/environ" 2>/dev/null | grep -qxF "XDG_RUNTIME_DIR=$XDG_RUNTIME_DIR"
}
renderers() { # the web engine's renderers: children of its sandboxed zygote, which keep its name
    local zygotes
    zygotes=$(ps -eo pid=,args= | awk '/QtWebEngineProcess --type=zygote/ && !/no-zygote-sandbox/ {print $1}')
    for z in $zygotes; do mine "$z" && ps -o pid= --ppid "$z"; done | sort -n
}
no_helper_of_mine() { # not even one orphaned by its resident
    local h
    for h in $(pgrep -x tovin-screens); do mine "$h" && return 1; done
    return 0
}
gone() { # a process that no longer runs (a zombie awaiting its parent counts as gone)
    local state
    state=$(ps -o stat= -p "$1" 2>/dev/null) || return 0
    case "$state" in Z*) return 0 ;; *) return 1 ;; esac
}
countdown_up() { small_window >/dev/null; }
helper_pid() { pgrep -P "$app" -x tovin-screens; } # the screen helper, a child of the resident
no_helper() { ! helper_pid >/dev/null; }
alive() { kill -0 "$app" 2>/dev/null; }

if [ "$scenario" = share ]; then
    # A PipeWire desktop, as Debian 12's GNOME is: the daemon, its session manager (which needs a
    # session bus, and here leaves the machine's own devices alone) and its Pulse server.
    mkdir -p "$XDG_CONFIG_HOME/wireplumber"
    cp -r "$here/../support/wireplumber/." "$XDG_CONFIG_HOME/wireplumber/"
    export DBUS_SESSION_BUS_ADDRESS=unix:path=$XDG_RUNTIME_DIR/bus
    dbus-daemon --session --nofork --address="$DBUS_SESSION_BUS_ADDRESS" >/dev/null 2>&1 & pids+=($!)
    waitfor 10 test -S "$XDG_RUNTIME_DIR/bus" || give_up "the session bus did not start"
    pipewire >/dev/null 2>&1 & pids+=($!)
    waitfor 10 test -S "$XDG_RUNTIME_DIR/pipewire-0" || give_up "PipeWire did not start"
    wireplumber >/dev/null 2>&1 & pids+=($!)
    pipewire-pulse >/dev/null 2>&1 & pids+=($!)
else
    # A sound server with a null source, so the call detector asks a real one.
    pulseaudio --daemonize=no --exit-idle-time=-1 -n -L "module-null-sink sink_name=nullsink" \
        -L "module-null-source source_name=nullsrc" -L module-native-protocol-unix >/dev/null 2>&1 & pids+=($!)
fi
waitfor 15 pactl info >/dev/null 2>&1

port=$((9300 + n))
launch() { # the app, from a given executable, in a session with a session manager to ignore
    SESSION_MANAGER=local/nowhere:@/tmp/.ICE-unix/0 QTWEBENGINE_DISABLE_SANDBOX=1 \
        QTWEBENGINE_REMOTE_DEBUGGING=127.0.0.1:$port "$1" >"$work/app.log" 2>&1 & app=$!; pids+=($app)
}
drive() { node --experimental-websocket "$here/drive_page.mjs" "$port" "$@"; }

case "$scenario" in
workout)
    week "$(block workout "E2E block")"
    settings ',"lockoutWorkoutId":"two-minute-spark","snoozesPerLockout":1,"snoozeMinutes":1'
    start=$SECONDS
    launch "$tovin"
    # The setup window opens in front of the person at launch: in use until it says otherwise.
    check "a block due at launch waits while the setup window is in use" \
        waitfor 20 journal_has "\[hold\] E2E block held — you're using the setup window"
    check "... with no countdown over it" never 2 countdown_up
    check "the setup window closes with Ctrl-W" waitfor 10 close_setup
    check "the due block fires" waitfor 40 journal_has 'FIRE E2E block (workout'
    check "the countdown shows" waitfor 10 countdown_up
    sleep 1; shot countdown
    # The notice is frameless, whole in the corner, and never takes the focus.
    notice=$(countdown_window)
    eval "$(xdotool getwindowgeometry --shell "$notice")"
    check "the notice sits whole in the bottom-right corner of the main screen" \
        test $((X + WIDTH)) -le 1920 -a $((Y + HEIGHT)) -le 1080 -a $X -ge 1500 -a $Y -ge 900
    check "... with no title bar of the window manager's" sh -c "xwininfo -id $notice | grep -q 'Override Redirect State: yes'"
    # "Not now (last one)" is the second button of the notice's bottom row.
    xdotool mousemove $((X + 213)) $((Y + 106)) click 1
    check "Not now defers the block by the snooze's minute" waitfor 5 journal_has 'usage lockout deferred 1m — you asked for a few more minutes'
    snoozed=$SECONDS
    check "nothing comes back while the snooze lasts" never 50 countdown_up
    check "the tick says it waits for the snooze" journal_has '\[hold\] E2E block held — deferred — you asked for a few more minutes'
    check "the countdown comes back when the snooze ends" waitfor 25 countdown_up
    echo "     figures: snooze → countdown again: $((SECONDS - snoozed)) s (the snooze is 60 s)"
    check "both screens are covered when the countdown runs out" waitfor 20 covered
    raised=$SECONDS
    check "the page's first step has its whole time when the shield rises" drive 20 first-timer 26
    shot shield
    # Launching Tovin again mid-lockout must not put the setup window over the shield.
    "$tovin" >/dev/null 2>&1
    check "a second launch during the lockout shows nothing" never 3 setup_visible
    check "... and the screens stay covered" covered
    check "the workout page runs to its end" drive 150 workout
    check "finishing the workout keeps one promise on disk" waitfor 10 ledger_has '"outcome": "tovin"'
    check "exactly one record" test "$(records)" = 1
    check "the shield lowers after the workout" waitfor 15 sh -c "! '$xshot' '$shots/workout-after.png' --covered >/dev/null"
    check "the journal tells it: the ledger line" journal_has '\[ledger\] tovin — Two-Minute Spark (now 1 tovin / 1 total)'
    check "... and how the lockout ended" journal_has '\[shield\] lockout ended — workout completed'
    check "--why reflects it" sh -c "'$tovin' --why | grep -q 'Ledger  (1 record(s): 1 tovin, 0 broken)'"
    # This build names no release feed: it never pretends to check, and says so.
    check "no update check was journalled as failing" sh -c "! grep -q '\[update\] check failed' '$data/tovin.log'"
    check "--why says where updates come from" sh -c "'$tovin' --why | grep -q 'updates: no release feed configured — this copy gets its updates elsewhere'"
    echo "     figures: launch → covered: $((raised - start)) s (10 s countdown twice, a 60 s snooze)"
    ;;
away)
    week "$(block away "E2E walk" ',"minutes":1')"
    settings ',"lockoutWorkoutId":"posture-fix"'
    launch "$tovin"
    check "the setup window closes with Ctrl-W" waitfor 15 close_setup
    check "the away block covers both screens after its countdown" waitfor 70 covered
    sleep 1; shot away
    check "its minute served, the screen comes back" waitfor 80 sh -c "! '$xshot' '$shots/away-after.png' --covered >/dev/null"
    check "a kept, attested promise is on disk" waitfor 5 sh -c "grep -q '\"attested\": true' '$data/promises.json' && grep -q '\"exercise\": \"E2E walk\"' '$data/promises.json'"
    check "exactly one record" test "$(records)" = 1
    check "the journal says how the lockout ended" journal_has '\[shield\] lockout ended — away block served'
    ;;
retest)
    week ""
    now=$(date -u -d '-1 day' +%Y-%m-%dT%H:%M:%SZ)
    settings ',"lockoutWorkoutId":"posture-fix","retestDueInDays":0,"retestReportedAt":"'"$now"'"'
    launch "$tovin"
    check "the setup window closes with Ctrl-W" waitfor 15 close_setup
    check "the overdue fitness check fires" waitfor 40 journal_has 'FIRE Fitness test (retest'
    check "the check covers both screens" waitfor 30 covered
    sleep 2; shot shield
    check "the fitness check is answered and the plan accepted over the shield" drive 60 retest
    check "accepting keeps one promise on disk" waitfor 10 sh -c "grep -q '\"exercise\": \"Fitness test\"' '$data/promises.json'"
    check "exactly one record" test "$(records)" = 1
    check "the shield lowers after the check" waitfor 15 sh -c "! '$xshot' '$shots/retest-after.png' --covered >/dev/null"
    check "the plan is the week now" grep -q '"kind": "workout"' "$data/schedule.json"
    check "the journal says how the lockout ended" journal_has '\[shield\] lockout ended — workout completed'
    ;;
broken)
    # An installed copy whose bundle lost its script: the page boots to its note and no further.
    mkdir -p "$work/Tovin/bin" "$work/Tovin/share/tovin"
    cp "$tovin" "$(dirname "$tovin")/tovin-screens" "$work/Tovin/bin/"
    cp -r "${TOVIN_STAGED_WEB:?}" "$work/Tovin/share/tovin/web"
    find "$work/Tovin/share/tovin/web" -name '*.js' -delete
    week "$(block workout "E2E block")"
    # A countdown longer than the page's 15 s render check: the prepared page fails behind it.
    settings ',"lockoutWorkoutId":"posture-fix","warningSeconds":25'
    launch "$work/Tovin/bin/tovin"
    # The setup window's page is broken too; closed, it drops its page, leaving the lockout's
    # the only one.
    check "the setup window opens, and closes with Ctrl-W" waitfor 15 close_setup
    check "the prepared page fails behind the countdown, and Tovin says it will build it again" \
        waitfor 70 journal_has '\[shield\] the prepared workout screen failed before the shield rose'
    check "... without quitting or claiming a release" sh -c "kill -0 $app && ! grep -q 'released' '$data/tovin.log'"
    check "the shield rises at the countdown's end all the same" waitfor 20 covered
    shot shield
    check "the page built at the raise fails too, and the screen comes back" \
        waitfor 30 sh -c "! '$xshot' '$shots/broken-after.png' --covered >/dev/null"
    check "the journal says why" journal_has '\[shield\] released — the workout screen failed: The workout screen loaded but rendered nothing'
    check "the person is told" waitfor 5 small_window
    check "the setup screen was not the one that failed" sh -c "! grep -q 'setup screen failed' '$data/tovin.log'"
    shot alert
    check "nothing is recorded" test "$(records)" = 0
    ;;
call)
    week "$(block workout "E2E block")"
    settings ',"lockoutWorkoutId":"posture-fix"'
    parecord -d nullsrc /dev/null & rec=$!; pids+=($rec)
    sleep 1
    launch "$tovin"
    check "a live microphone holds the due block off, and the journal says why" \
        waitfor 30 journal_has '\[hold\] E2E block held — Your mic is live — Tovin won.t interrupt.'
    check "no shield while the call lasts" sh -c "! '$xshot' '$shots/call.png' --covered >/dev/null"
    "$tovin" --why >"$work/why.txt"
    check "--why says a shared screen cannot be seen without PipeWire" \
        grep -q 'shared screen: cannot be seen — PipeWire is not running on this desktop' "$work/why.txt"
    check "... and where idle time comes from" grep -q '^  idle: X11 screen saver ([0-9]* s since the last input)$' "$work/why.txt"
    check "and no countdown" never 2 countdown_up
    # A stray Space in the setup window scrolls its page; it never presses "Lock Me Out Now", not
    # even once the window has been minimised and brought back.
    setup_keys space
    check "a Space in the setup window raises no lockout" never 4 covered
    w=$(setup_window)
    xdotool windowminimize --sync "$w"; sleep 1
    check "a minimised setup window is not a closed one: the helper stays" helper_pid
    xdotool windowactivate --sync "$w"; sleep 1
    shot restored
    check "restored, it shows its page again" drive 20 has-text "E2E block"
    setup_keys space
    check "... and a Space in it raises no lockout" never 4 covered
    ;;
share)
    # Somebody shares their screen (a video source that is no camera, and a program receiving
    # it, as the desktop portal's screen cast and a meeting app would be).
    pw_video=${TOVIN_PW_VIDEO:?}
    week "$(block workout "E2E block")"
    settings ',"lockoutWorkoutId":"posture-fix","warningSeconds":30'
    "$pw_video" source screencast >/dev/null 2>&1 & pids+=($!)
    "$pw_video" read screencast >/dev/null 2>&1 & viewer=$!; pids+=($viewer)
    launch "$tovin"
    check "the setup window opens, and closes with Ctrl-W" waitfor 15 close_setup
    check "a shared screen holds the due block off, and the journal says who receives it" \
        waitfor 40 journal_has "\[hold\] E2E block held — You.re sharing your screen (pw_video) — Tovin won.t interrupt."
    check "no countdown while the screen is shared" never 2 countdown_up
    kill "$viewer"
    check "the sharing over, the block fires" waitfor 40 journal_has 'FIRE E2E block (workout'
    check "the countdown shows" waitfor 10 countdown_up
    shot countdown
    "$pw_video" read screencast >/dev/null 2>&1 & pids+=($!)
    check "a share starting mid-countdown takes the countdown down" waitfor 5 eval '! countdown_up'
    check "... and defers the block three minutes, saying why" \
        journal_has '\[defer\] usage lockout deferred 3m — You.re sharing your screen (pw_video)'
    check "no shield over the shared screen" never 4 covered
    shot after
    check "nothing is recorded" test "$(records)" = 0
    "$tovin" --why > "$work/why.txt"
    check "--why says the share holds a lockout off now" \
        grep -q '    now: YES — You.re sharing your screen (pw_video)' "$work/why.txt"
    check "... and what this desktop lets Tovin see" \
        grep -q '    shared screen: PipeWire.s screen casts only — on X11' "$work/why.txt"
    # The probe is a copy of its own, which stands aside for a running Tovin.
    kill "$app"; waitfor 10 gone "$app"
    check "--probe-call sees the share and who receives it" sh -c \
        "timeout 3 '$tovin' --probe-call | grep -q 'screen SHARED (pw_video)  → WOULD NOT LOCK'"
    ;;
package)
    # The Debian package, installed the way people install software, used, then removed.
    deb=$(realpath "${TOVIN_DEB:?the .deb to install}") # apt takes a local file by its path
    asroot=""
    if [ "$(id -u)" -ne 0 ]; then
        sudo -n true 2>/dev/null || give_up "installing the package needs root (or sudo without a password)"
        asroot="sudo -n"
    fi
    if [ "$(dpkg-query -W -f='${Status}' tovin 2>/dev/null)" = "install ok installed" ]; then
        give_up "a tovin package is installed here already; this check installs and removes its own, so it leaves that one alone (apt-get remove tovin, then run it again)"
    fi
    apt=($asroot env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 -y -qq)
    "${apt[@]}" install "$deb" >"$work/apt.log" 2>&1 || { cat "$work/apt.log"; give_up "apt could not install $deb"; }
    # Whatever happens below, the machine is left without the package, as it was found.
    on_exit+=("${apt[*]} remove tovin >/dev/null 2>&1")
    check "apt installs the package" test "$(dpkg-query -W -f='${Status}' tovin)" = "install ok installed"
    check "... its files where the filesystem standard puts them" sh -c \
        "test -x /usr/bin/tovin && test -x /usr/libexec/tovin/tovin-screens && test ! -e /usr/bin/tovin-screens &&
         test -f /usr/share/tovin/web/index.html && test -f /usr/share/tovin/models/movenet-lightning.bin &&
         test -f /usr/share/applications/dev.tovin.Tovin.desktop && test -f /usr/share/metainfo/dev.tovin.Tovin.metainfo.xml"
    check "the installed copy's self-check passes" sh -c "/usr/bin/tovin --self-test >'$work/self-test.log' 2>&1"
    check "--why says the package manager brings updates" sh -c "/usr/bin/tovin --why | grep -q '  updates: managed by the package manager'"
    check "... and so does the update dry run" sh -c \
        "/usr/bin/tovin --update-dry-run | grep -q 'the package manager keeps this copy up to date'"
    # A tray, as a person's desktop has, to reach the menu by.
    trayer --edge top --align left --widthtype pixel --width 120 --heighttype pixel --height 28 >/dev/null 2>&1 & pids+=($!)
    week "$(block workout "E2E block")"
    settings ',"lockoutWorkoutId":"two-minute-spark"'
    launch /usr/bin/tovin
    check "the setup window closes with Ctrl-W" waitfor 20 close_setup
    check "the due block fires" waitfor 40 journal_has 'FIRE E2E block (workout'
    check "both screens are covered when the countdown runs out" waitfor 30 covered
    shot shield
    check "the installed helper draws it" sh -c "pgrep -P $app -f /usr/libexec/tovin/tovin-screens >/dev/null"
    check "the workout page runs to its end" drive 150 workout
    check "finishing it keeps exactly one promise on disk" waitfor 10 sh -c "test \"\$(grep -c '\"outcome\": \"tovin\"' '$data/promises.json')\" = 1"
    check "the shield lowers after the workout" waitfor 15 sh -c "! '$xshot' '$shots/package-after.png' --covered >/dev/null"
    icon=""
    for w in $(xdotool search --class tovin 2>/dev/null); do
        eval "$(xdotool getwindowgeometry --shell "$w")"
        [ "$WIDTH" -le 64 ] && [ "$HEIGHT" -le 64 ] && icon=$w
    done
    check "the tray holds Tovin's icon" test -n "$icon"
    # The menu from the bottom: Quit Tovin, Check for Updates…, Open at Login.
    xdotool mousemove --window "$icon" 10 10 click 3; sleep 1; xdotool key Up Up Return
    check "Check for Updates… says the package manager keeps Tovin up to date" \
        waitfor 10 journal_has '\[alert\] Your package manager keeps Tovin up to date.'
    shot updates
    xdotool key Return
    xdotool mousemove --window "$icon" 10 10 click 3; sleep 1; xdotool key Up Up Up Return
    check "Open at Login starts /usr/bin/tovin" waitfor 10 grep -q '^Exec="/usr/bin/tovin"$' "$XDG_CONFIG_HOME/autostart/dev.tovin.Tovin.desktop"
    kill "$app"; waitfor 10 gone "$app"
    person_files() { sha256sum "$data"/schedule.json "$data"/promises.json "$data"/tovin.log "$XDG_CONFIG_HOME"/Tovin/settings.json; }
    person_files >"$work/before.sum"
    check "apt removes the package" sh -c "${apt[*]} remove tovin >>'$work/apt.log' 2>&1 && test ! -e /usr/bin/tovin"
    check "... and leaves the person's week, settings, ledger and journal as they were" \
        eval 'person_files | cmp -s - "$work/before.sum"'
    ;;
firstrun)
    # No schedule file at all: the example week is written, and the setup page shows it.
    settings ''
    # Started as a person would, with no switch for the web engine: as root (the test machines)
    # Chromium refuses its sandbox, so Tovin switches it off itself and says so.
    env -u QTWEBENGINE_DISABLE_SANDBOX QTWEBENGINE_REMOTE_DEBUGGING=127.0.0.1:$port "$tovin" \
        >"$work/app.log" 2>&1 & app=$!; pids+=($app)
    check "the first run writes the example week" waitfor 20 test -s "$data/schedule.json"
    check "the setup page shows the week on disk, not an empty one" drive 20 has-text "16:30"
    shot setup
    if [ "$(id -u)" -eq 0 ]; then
        check "as root, the journal says the engine runs unsandboxed" \
            journal_has '\[shield\] running as root, so the web engine runs without its sandbox'
        check "... and so does --why" sh -c "'$tovin' --why | grep -q 'shield: .*running as root, so the web engine runs without its sandbox'"
    else
        echo "skip the root checks: not running as root"
    fi
    ;;
break)
    week "$(block workout "E2E block")"
    settings ',"lockoutWorkoutId":"posture-fix"'
    launch "$tovin"
    check "the setup window closes with Ctrl-W" waitfor 15 close_setup
    check "the block covers both screens" waitfor 60 covered
    sleep 2
    xdotool type --delay 120 lark
    sleep 1; shot warning
    # Only an unbroken hold counts: Space down on the hold, Tab away, Space up, then time
    # enough for the hold to have filled. Return then keeps the promise, as the warning is up.
    xdotool keydown space; sleep 0.3; xdotool key Tab; sleep 0.3; xdotool keyup space; sleep 4
    xdotool key Return
    check "Space, Tab and a release complete no hold: Return keeps the promise" never 3 ledger_has outcome
    check "... and the shield stays" covered
    # Tab goes round the warning's two buttons, never on to the page: three from the hold land
    # on "Keep the promise" (a long Space there keeps it: no reason is asked, so Return records
    # nothing), four come back to the hold, and the hold means the seconds it says.
    xdotool type --delay 120 lark; sleep 1
    xdotool key Tab Tab Tab; sleep 0.3
    xdotool keydown space; sleep 3.4; xdotool keyup space; sleep 0.5; xdotool key Return
    check "three Tabs from the hold land on Keep the promise, which a held Space keeps" never 3 ledger_has outcome
    xdotool type --delay 120 lark; sleep 1
    xdotool key Tab Tab Tab Tab; sleep 0.3
    xdotool keydown space; sleep 3.4; xdotool keyup space
    sleep 0.5; shot question
    check "four Tabs come back to the hold, and a 3.4 s hold asks the reason; nothing recorded yet" \
        test "$(records)" = 0
    # Round the two reasons too: two Tabs from the first come back to it.
    # (Spaced like a person's taps: presses 10 ms apart are taken for a held key's repeats.)
    xdotool key --delay 300 Tab Tab; sleep 0.3; xdotool key space
    check "Tab twice then Space records the first reason" waitfor 5 ledger_has '"reason": "Genuinely urgent"'
    check "the shield lowers" waitfor 10 sh -c "! '$xshot' '$shots/break-after.png' --covered >/dev/null"
    check "the journal says how it ended" journal_has '\[shield\] lockout ended — promise broken (Genuinely urgent)'
    check "the setup window comes back on a second launch" open_setup_again
    check "Ctrl-L in it locks at once" lock_from_setup
    check "... over both screens" waitfor 20 covered
    sleep 2
    xdotool key Escape Escape Escape
    sleep 0.5
    # Space held right through the hold and on: the question takes only a press made after it.
    xdotool keydown space; sleep 5.5; xdotool keyup space
    sleep 1; shot held
    check "a Space held past the hold answers nothing" test "$(records)" = 1
    xdotool key Tab; sleep 0.3; xdotool key space
    check "a fresh press on the second reason records it" waitfor 5 ledger_has "\"reason\": \"Didn't feel like it\""
    check "exactly two records" test "$(records)" = 2
    ;;
frozen)
    week "$(block workout "E2E block")"
    settings ',"lockoutWorkoutId":"posture-fix"'
    launch "$tovin"
    check "the setup window closes with Ctrl-W" waitfor 15 close_setup
    check "the block covers both screens" waitfor 60 covered
    sleep 3
    r=$(renderers | tail -n 1)
    check "the page has a renderer" test -n "$r"
    kill -STOP "$r"
    frozen_at=$SECONDS
    check "a page that stops answering gives the screen back" waitfor 40 sh -c "! '$xshot' '$shots/frozen-after.png' --covered >/dev/null"
    echo "     figures: frozen → screen back: $((SECONDS - frozen_at)) s (the page has 15 s to answer)"
    check "... not before it had 15 s to answer" test $((SECONDS - frozen_at)) -ge 15
    check "the journal says why" journal_has '\[shield\] released — the workout screen failed: The workout screen stopped answering for 15 seconds.'
    check "its renderer is ended, not left stopped" waitfor 5 gone "$r"
    check "nothing is recorded" test "$(records)" = 0
    shot alert
    # The alert's OK ends Tovin, as after any screen that failed. Then, started again, a
    # lockout by hand, frozen, and the panic.
    xdotool key Return
    check "the alert's OK ends Tovin" waitfor 10 sh -c "! kill -0 $app 2>/dev/null"
    launch "$tovin"
    check "started again, its setup window opens" waitfor 20 setup_visible
    sleep 2
    check "Ctrl-L in it locks at once" lock_from_setup
    check "... over both screens" waitfor 20 covered
    sleep 3
    r=$(renderers | tail -n 1)
    check "the second page has a renderer too" test -n "$r"
    kill -STOP "$r"
    sleep 4 # long enough for a person to see that the page is stuck
    lines=$(wc -l < "$data/tovin.log")
    xdotool key Escape Escape Escape Escape Escape
    check "Esc ×5 over a frozen page ends Tovin at once" waitfor 5 sh -c "! kill -0 $app 2>/dev/null"
    check "... and leaves no renderer behind" waitfor 5 gone "$r"
    # The start window promises that a panic is not logged.
    check "the panic leaves no trace in the journal" test "$(wc -l < "$data/tovin.log")" = "$lines"
    ;;
rehearse)
    week ""
    settings ',"lockoutWorkoutId":"posture-fix"'
    QTWEBENGINE_DISABLE_SANDBOX=1 "$tovin" --rehearse >"$work/rehearse.log" 2>&1 & rehearsal=$!; pids+=($rehearsal)
    window=""
    # Qt makes the window again once the page's web view is in it: the one that stays counts.
    find_rehearsal() {
        local first
        first=$(xdotool search --onlyvisible --name 'REHEARSAL' 2>/dev/null | tail -n 1)
        [ -n "$first" ] || return 1
        sleep 1
        window=$(xdotool search --onlyvisible --name 'REHEARSAL' 2>/dev/null | tail -n 1)
        [ "$window" = "$first" ]
    }
    check "the rehearsal window shows" waitfor 20 find_rehearsal
    # A normal launch beside a rehearsal is the one that watches: the rehearsal holds no lock.
    launch "$tovin"
    check "a normal launch beside a rehearsal keeps running" never 4 sh -c "! kill -0 $app"
    check "... and is the running copy --why names" sh -c "'$tovin' --why | grep -q 'running: yes — pid $app'"
    kill "$app" 2>/dev/null; wait "$app" 2>/dev/null
    xdotool windowactivate --sync "$window"
    sleep 2
    xdotool key Escape Escape Escape
    sleep 1; shot warning
    eval "$(xdotool getwindowgeometry --shell "$window")"
    # "Simulate the system taking the screen" sits 16 px in from the top right corner.
    xdotool mousemove $((X + WIDTH - 90)) $((Y + 30)) click 1
    check "Simulate, above the warning, ends the rehearsal as the system taking the screen" \
        waitfor 5 journal_has 'lockout ended — yielded to the system, nothing recorded (rehearsal)'
    check "the setup window opens after the rehearsal" waitfor 15 setup_visible
    setup_keys ctrl+shift+l
    check "Ctrl-Shift-L rehearses again" waitfor 20 find_rehearsal
    xdotool windowactivate --sync "$window"; sleep 1
    xdotool key ctrl+q
    check "Ctrl-Q quits a rehearsal, as its title promises" waitfor 5 sh -c "! kill -0 $rehearsal 2>/dev/null"
    # The start window of --layout-check --rehearse: Return begins, and what begins is a rehearsal.
    start_window() { xdotool search --onlyvisible --name '^Tovin$' 2>/dev/null | head -n 1; }
    QTWEBENGINE_DISABLE_SANDBOX=1 "$tovin" --layout-check --rehearse >"$work/layout.log" 2>&1 & layout=$!; pids+=($layout)
    check "the start window shows" waitfor 20 sh -c "test -n \"\$(xdotool search --onlyvisible --name '^Tovin$')\""
    sleep 1; shot start
    xdotool windowactivate --sync "$(start_window)" key Return
    check "Return begins, and --rehearse anywhere makes it a rehearsal" waitfor 20 find_rehearsal
    check "... not a shield over the screens" never 3 covered
    xdotool windowactivate --sync "$window"; sleep 1; xdotool key ctrl+q
    check "Ctrl-Q ends it" waitfor 5 sh -c "! kill -0 $layout 2>/dev/null"
    # A copy without a tray ends once nothing of it shows: the start window closed, it is gone.
    QTWEBENGINE_DISABLE_SANDBOX=1 "$tovin" --layout-check >"$work/layout.log" 2>&1 & layout=$!; pids+=($layout)
    check "the start window shows again" waitfor 20 sh -c "test -n \"\$(xdotool search --onlyvisible --name '^Tovin$')\""
    sleep 1
    xdotool windowactivate --sync "$(start_window)" key alt+F4
    check "closing it ends that copy of Tovin" waitfor 10 sh -c "! kill -0 $layout 2>/dev/null"
    check "nothing is recorded" test "$(records)" = 0
    app=$rehearsal
    ;;
helper)
    week ""
    settings ',"lockoutWorkoutId":"posture-fix"'
    launch "$tovin"
    check "the setup window opens" waitfor 20 setup_visible
    check "... drawn by the screen helper, the resident's child" helper_pid
    check "the setup window closes with Ctrl-W" waitfor 15 close_setup
    check "with nothing to show, the screen helper ends" waitfor 10 no_helper
    check "a second launch brings the setup window back" open_setup_again
    check "Ctrl-L in it locks at once" lock_from_setup
    check "... over both screens" waitfor 20 covered
    sleep 2
    h=$(helper_pid)
    check "a helper draws the shield" test -n "$h"
    check "no session manager is told of Tovin: the helper inherits no SESSION_MANAGER" \
        sh -c "! tr '\\0' '\\n' < /proc/$h/environ | grep -q '^SESSION_MANAGER='"
    kill -KILL "$h"
    check "the helper killed mid-lockout gives the screen back" waitfor 10 sh -c "! '$xshot' '$shots/helper-after.png' --covered >/dev/null"
    check "the journal says why" waitfor 5 journal_has '\[shield\] released — the screen helper was stopped from outside (signal 9)'
    # Ending Tovin is no way out: killed from outside, the lockout is a broken promise.
    check "... and it is a broken promise on the record" waitfor 5 ledger_has '"reason": "Tovin was stopped during the lockout"'
    check "exactly one" test "$(records)" = 1
    check "the resident keeps running" alive
    check "the person is told" waitfor 5 small_window
    shot alert
    check "a second launch brings the setup window back" open_setup_again
    check "Ctrl-L in it locks at once, with a fresh helper" lock_from_setup
    check "... over both screens" waitfor 20 covered
    sleep 2
    # A helper that hangs (stopped, so it answers nothing) is ended, and the screen comes back.
    h=$(helper_pid)
    kill -STOP "$h"
    hung_at=$SECONDS
    check "a hung helper gives the screen back" waitfor 30 sh -c "! '$xshot' '$shots/helper-hung.png' --covered >/dev/null"
    echo "     figures: helper stopped → screen back: $((SECONDS - hung_at)) s (it has 10 s to answer)"
    check "... ended, not left stopped" waitfor 5 gone "$h"
    check "the journal says why" journal_has '\[shield\] released — the screen helper stopped answering for 10 seconds'
    check "a hang is Tovin's own fault: nothing more recorded" test "$(records)" = 1
    check "a second launch brings the setup window back" open_setup_again
    check "Ctrl-L in it locks at once" lock_from_setup
    check "... over both screens" waitfor 20 covered
    sleep 2
    kill -KILL "$app"
    sleep 1
    check "the resident killed mid-lockout takes the shield with it within a second" sh -c "! '$xshot' '$shots/helper-gone.png' --covered >/dev/null"
    check "... and the helper" waitfor 3 no_helper_of_mine
    check "nothing is recorded while Tovin is not running" test "$(records)" = 1
    launch "$tovin"
    check "started again, it finds the lockout cut short and records it as broken" waitfor 20 sh -c "test \$(grep -c 'Tovin was stopped during the lockout' '$data/promises.json') = 2"
    check "... and says so in the journal" journal_has 'Tovin was stopped during the lockout (found at launch), recorded as broken'
    check "exactly two records" test "$(records)" = 2
    ;;
hostile)
    uid=$(id -u)
    mkdir -p "$work/tmp"; chmod 1777 "$work/tmp"; chmod 755 "$work"
    bare() { # Tovin without a session runtime folder, as su, cron and bare X sessions start it
        env -u XDG_RUNTIME_DIR TMPDIR="$work/tmp" QT_QPA_PLATFORM=offscreen timeout 5 "$tovin" "$@"
    }
    if [ "$uid" -ne 0 ]; then
        echo "skip another user's folder: playing another user needs root"
    else
        setpriv --reuid=65534 --regid=65534 --clear-groups mkdir -m 700 "$work/tmp/tovin-$uid"
        out=$(bare 2>&1); rc=$?
        check "a runtime folder another user made first: Tovin will not start" test "$rc" -eq 1
        check "... and says why" grep -q "runtime folder is not private — $work/tmp/tovin-$uid belongs to another user (uid 65534)" <<<"$out"
        check "... in the journal too" journal_has "\[launch\] Tovin will not start"
        check "... and left nothing in it" test -z "$(ls -A "$work/tmp/tovin-$uid")"
        rm -rf "$work/tmp/tovin-$uid"
        setpriv --reuid=65534 --regid=65534 --clear-groups mkdir -m 700 "$work/tmp/theirs"
        ln -s "$work/tmp/theirs" "$work/tmp/tovin-$uid"
        out=$(bare 2>&1)
        check "a link put in its place is refused too" grep -q "tovin-$uid is a symbolic link, not a folder" <<<"$out"
        rm -f "$work/tmp/tovin-$uid"
    fi
    bare --probe-call >/dev/null 2>&1
    check "with the folder free, Tovin makes its own, private" test "$(stat -c '%U %a' "$work/tmp/tovin-$uid")" = "$(id -un) 700"

    # A same-user forger: the old way in was the helper's named socket, called first while the
    # real helper was stopped. Now the helper's line is a socket pair with no name.
    settings ',"lockoutWorkoutId":"posture-fix"'
    week ""
    # The descriptor limit of many desktops, so a flood that is not bounded would exhaust it.
    QTWEBENGINE_DISABLE_SANDBOX=1 QTWEBENGINE_REMOTE_DEBUGGING=127.0.0.1:$port prlimit --nofile=1024:1024 "$tovin" \
        >"$work/app.log" 2>&1 & app=$!; pids+=($app)
    check "the setup window opens" waitfor 20 setup_visible
    rt=$XDG_RUNTIME_DIR/tovin
    check "the runtime folder holds only the instance socket and record" test "$(ls "$rt" | tr '\n' ' ')" = "instance.json instance.socket "
    forged=$(python3 "$here/neighbour.py" forge "$rt" "$app" "$(helper_pid)")
    check "a forger with the helper stopped reaches nothing that answers" test "$forged" = "answered: nothing"
    check "... no lockout rises" never 5 covered
    check "... and nothing is recorded" test "$(records)" = 0
    check "the helper stopped for a moment is still the one on the line" sh -c "pgrep -P $app -x tovin-screens >/dev/null"
    out=$(python3 "$here/neighbour.py" stranger "$(dirname "$tovin")/tovin-screens")
    check "a helper handed a stranger's socket refuses it" grep -q "^exit 1: tovin-screens: the other end of descriptor" <<<"$out"

    # A flood of idle callers on the instance socket, held while a block falls due.
    check "the setup window closes with Ctrl-W" waitfor 10 close_setup
    python3 "$here/neighbour.py" flood "$rt/instance.socket" 1100 60 >"$work/flood.log" 2>&1 & flood=$!; pids+=($flood)
    check "the flood has made its 1,100 connections" waitfor 30 grep -q "^made" "$work/flood.log"
    sleep 3
    fds=$(ls "/proc/$app/fd" | wc -l)
    check "the resident's descriptors stay few under the flood" test "$fds" -lt 200
    echo "     figures: $fds descriptors open in the resident under 1,100 idle callers"
    week "$(block workout "Flood block")"
    check "a block due under the flood covers both screens" waitfor 60 covered
    shot flood
    # Launched again, the running copy would open its setup window: here, under the shield, not.
    check "a second launch still finds the running Tovin" sh -c "timeout 10 '$tovin' 2>&1 | grep -q 'already running (pid $app)'"
    check "... with no descriptor missing anywhere" sh -c "! grep -q 'Too many open files' '$data/tovin.log' '$work/app.log'"
    kill "$flood" 2>/dev/null
    check "the instance socket answers once the flood is gone" sh -c "timeout 10 '$tovin' 2>&1 | grep -q 'already running (pid $app)'"
    for _ in 1 2 3 4 5; do xdotool key Escape; sleep 0.2; done
    check "Esc ×5 gives the screen back" waitfor 15 sh -c "! '$xshot' '$shots/hostile-after.png' --covered >/dev/null"
    check "nothing is recorded" test "$(records)" = 0
    ;;
*)
    echo "unknown scenario $scenario"; exit 2 ;;
esac
kill "$app" 2>/dev/null; wait "$app" 2>/dev/null
rm -f "$shots/$scenario-probe.png"

tally

# What the checks under GNOME Shell and KWin share: the app installed where an unprivileged user
# can read it, that user's private buses (a system bus too, which GNOME Shell insists on), and
# the person's ways through a lockout. Sourced after lib.sh by a script that then starts its
# compositor and defines, for that desktop:
#   keys STEP...     key taps and combinations ("super", "alt+tab", "text=lark", "hold=3400")
#   nudge            pointer input that is no key
#   covered          both outputs under a shield, which is on top and has the keyboard
#   uncovered        no shield window left
#   shot NAME        a picture of both outputs in $shots/NAME.png
#
#   SCRIPT BIN_DIR SHARE_DIR TOOLS_DIR SCREENSHOT_DIR
mkdir -p "$4"
bin_dir=$(cd "$1" && pwd) share_dir=$(cd "$2" && pwd) tools_dir=$(cd "$3" && pwd) shots=$(cd "$4" && pwd)
chmod 755 "$work"
on_exit+=('pkill -KILL -f "$work/app/bin/"')

mkdir -p "$work/app/share" "$work/run" "$work/home/data/Tovin" "$work/home/config/Tovin"
cp -r "$bin_dir" "$work/app/bin"
cp -r "$share_dir" "$work/app/share/tovin"
cp "$tools_dir/key_sink" "$work/app/bin/"
as_user=()
if [ "$(id -u)" -eq 0 ]; then
    as_user=(setpriv --reuid=65534 --regid=65534 --clear-groups --)
fi
chmod 700 "$work/run"
cd "$work"
unset DISPLAY WAYLAND_DISPLAY SWAYSOCK
export XDG_RUNTIME_DIR=$work/run HOME=$work/home XDG_DATA_HOME=$work/home/data \
    XDG_CONFIG_HOME=$work/home/config XDG_CACHE_HOME=$work/home/cache XDG_SESSION_TYPE=wayland \
    LIBGL_ALWAYS_SOFTWARE=1 QTWEBENGINE_DISABLE_SANDBOX=1
data=$XDG_DATA_HOME/Tovin
run() { "${as_user[@]}" "$@"; }

# The person's buses: a session bus, and a system bus of their own with an allow-all policy
# (the compositors ask logind and accounts on it; nobody answers, which they survive).
cat > "$work/system-bus.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>system</type><listen>unix:path=$XDG_RUNTIME_DIR/system-bus</listen>
<auth>EXTERNAL</auth><policy context="default"><allow send_destination="*"/><allow receive_sender="*"/>
<allow own="*"/>
<allow user="*"/></policy></busconfig>
CONF
chmod 644 "$work/system-bus.conf"
[ "$(id -u)" -eq 0 ] && chown -R 65534:65534 "$work"
export DBUS_SESSION_BUS_ADDRESS=unix:path=$XDG_RUNTIME_DIR/bus
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$XDG_RUNTIME_DIR/system-bus
"${as_user[@]}" dbus-daemon --nofork --config-file="$work/system-bus.conf" & pids+=($!)
"${as_user[@]}" dbus-daemon --nofork --session --address="$DBUS_SESSION_BUS_ADDRESS" & pids+=($!)
waitfor 10 test -S "$XDG_RUNTIME_DIR/bus" -a -S "$XDG_RUNTIME_DIR/system-bus" || give_up "the buses did not start"
call() { run gdbus call --session --timeout 5 "$@"; }

tovin=$work/app/bin/tovin
due_now() { # a workout block due this minute, the notice 3 s long
    printf '{"blocks":[{"at":"%s","kind":"workout","label":"Desktop block"}]}\n' "$(date +%H:%M)" > "$data/schedule.json"
    printf '{"activeFromMinute":0,"activeToMinute":0,"hasOnboarded":true,"warningSeconds":3,"lockoutWorkoutId":"two-minute-spark"}\n' \
        > "$XDG_CONFIG_HOME/Tovin/settings.json"
    [ "$(id -u)" -eq 0 ] && chown -R 65534:65534 "$work/home"
    return 0
}
start_tovin() {
    "${as_user[@]}" "$tovin" >>"$work/app.log" 2>&1 & pids+=($!)
}

# Another program's window, opened while the shield is up: what reaches it is written down.
: > "$work/typed"; chmod 666 "$work/typed"
intrude() {
    QT_QPA_PLATFORM=wayland "${as_user[@]}" "$work/app/bin/key_sink" "$work/typed" "another program" \
        >/dev/null 2>&1 & pids+=($!)
}
nothing_typed() { [ ! -s "$work/typed" ]; }
other_window_shows() { windows | grep -q '"another program"'; }
records_are() { test "$(records)" = "$1"; }

# Everything a person might try at the keyboard to get past the shield, then a new window,
# then typing: the shield stays on top with the keyboard, and nothing reaches anyone else.
try_the_ways_around() { # extra key combinations for this desktop
    local combo
    for combo in super alt+tab alt+f2 "$@"; do keys "$combo"; sleep 1; done
    check "Super, Alt+Tab, Alt+F2${1:+ and $*} leave both outputs covered, the shield with the keyboard" covered
    shot "$desktop-after-keys"
    intrude
    check "another program opens a window during the lockout" waitfor 10 other_window_shows
    sleep 1
    check "... which leaves the shield on top with the keyboard" waitfor 5 covered
    keys text=pwned; sleep 1
    check "... and text typed afterwards reaches nobody" nothing_typed
    shot "$desktop-after-window"
    check "... and the lockout goes on" never 2 journal_has 'lockout ended'
}

# The designed ways out, each recorded as it should be.
lock_again() { # as a person would: Tovin launched again shows the setup window; Ctrl-L in it
    run "$tovin" >/dev/null 2>&1
    sleep 3
    keys ctrl+l
    waitfor 30 covered
}
ways_out() {
    keys text=lark; sleep 1; shot "$desktop-warning"
    keys hold=3400; sleep 0.5
    check "\"lark\" and a 3.4 s hold of Space ask the reason, nothing recorded yet" records_are 0
    keys tab; sleep 0.3; keys return
    check "Tab then Return records the first reason" waitfor 5 ledger_has '"reason": "Genuinely urgent"'
    check "the shield lowers" waitfor 10 uncovered

    # What a desktop's check does between the first two lockouts, and what the second then shows.
    [ -n "${between_lockouts:-}" ] && $between_lockouts
    check "launched again, the setup window's Ctrl-L locks at once${between_said:-}" lock_again
    sleep 2
    keys escape escape escape; sleep 1
    keys hold=3400; sleep 0.5
    keys tab; sleep 0.3; keys return
    check "Esc ×3, the hold and the reason record a second broken promise" waitfor 5 records_are 2
    check "the shield lowers" waitfor 10 uncovered

    check "Ctrl-L again" lock_again
    sleep 2
    local lines; lines=$(wc -l < "$data/tovin.log")
    keys escape escape escape escape escape
    check "Esc ×5 releases the screens" waitfor 10 uncovered
    check "... as the panic, which quits Tovin, leaving no trace in the journal" \
        waitfor 10 sh -c "! pgrep -f '$work/app/bin/tovin\$' >/dev/null && test \"\$(wc -l < '$data/tovin.log')\" = $lines"
    check "... with nothing recorded" records_are 2
    check "no lockout ended by yielding to the system" sh -c "! grep -q 'yielded to the system' '$data/tovin.log'"
}

# Idle time as the usage watcher reads it: it grows while nobody touches anything and resets
# with the first input, and it comes from the compositor, never from XWayland.
idle_follows_input() { # the source's name as --probe-idle prints it
    local log=$work/idle.log
    "${as_user[@]}" "$tovin" --probe-idle >"$log" 2>&1 & local probe=$!; pids+=($probe)
    check "the idle source is $1" waitfor 5 grep -q "idle source: $1" "$log"
    check "idle time grows while nobody touches anything" waitfor 15 grep -qE '^idle ([6-9]|[1-9][0-9]+) s' "$log"
    local before; before=$(wc -l < "$log")
    nudge; keys shift
    check "... and resets with the first input" \
        waitfor 5 sh -c "tail -n +$((before + 1)) '$log' | grep -q '^idle 0 s'"
    kill "$probe" 2>/dev/null
}

finish() {
    if [ "$failed" -gt 0 ]; then
        echo "--- journal"; cat "$data/tovin.log" 2>/dev/null; echo "--- app"; tail -30 "$work/app.log"
    fi
    tally
}

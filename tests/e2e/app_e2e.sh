#!/usr/bin/env bash
# The installed app, for real, on a private two-monitor Xvfb with a PulseAudio null source:
#  1. a block due now, a workout chosen: the countdown, then both screens covered, the real web
#     app in the lockout driven to the end (the shield keeps every key but Esc from the page, so
#     the page is worked through Qt WebEngine's test-only remote-debugging port), one promise
#     kept on disk, the shield gone, the journal and --why telling it;
#  2. a live recording at the due minute holds the block off, and the journal says why.
# Prints one line per check and "N passed, N failed". Screenshots go to the folder given.
#
#   app_e2e.sh TOVIN XSHOT SCREENSHOT_DIR
set -uo pipefail
tovin=$1 xshot=$2 shots=$3
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$shots"
work=$(mktemp -d)
pids=()
cleanup() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done
    wait 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

passed=0 failed=0
check() { # name, then a command that must succeed
    local name=$1; shift
    if "$@"; then passed=$((passed + 1)); echo "ok   $name"
    else failed=$((failed + 1)); echo "FAIL $name"; fi
}
waitfor() { # seconds, then a command to poll every 0.5 s
    local deadline=$((SECONDS + $1)); shift
    until "$@"; do [ $SECONDS -ge $deadline ] && return 1; sleep 0.5; done
}

n=70; while [ -e /tmp/.X11-unix/X$n ] || [ -e /tmp/.X$n-lock ]; do n=$((n + 1)); done
export DISPLAY=:$n
Xvfb "$DISPLAY" -screen 0 3840x1080x24 -noreset -nolisten tcp >/dev/null 2>&1 & pids+=($!)
waitfor 15 test -e /tmp/.X11-unix/X$n || { echo "FAIL Xvfb did not start"; echo "0 passed, 1 failed"; exit 1; }
xrandr --setmonitor LEFT 1920/508x1080/286+0+0 screen >/dev/null
xrandr --setmonitor RIGHT 1920/508x1080/286+1920+0 none >/dev/null

# One runtime folder for the whole check: the sound server's socket lives there.
mkdir -p "$work/run"; chmod 700 "$work/run"; export XDG_RUNTIME_DIR=$work/run

home() { # a fresh, isolated home for one run
    rm -rf "$work/home"; mkdir -p "$work/home/data/Tovin" "$work/home/config/Tovin"
    export HOME=$work/home XDG_DATA_HOME=$work/home/data XDG_CONFIG_HOME=$work/home/config
    local now; now=$(date +%H:%M)
    printf '{"blocks":[{"at":"%s","kind":"workout","label":"E2E block"}]}\n' "$now" > "$XDG_DATA_HOME/Tovin/schedule.json"
    # Any hour is fine, a short warning, a short circuit.
    printf '{"activeFromMinute":0,"activeToMinute":0,"hasOnboarded":true,"lockoutWorkoutId":"posture-fix","warningSeconds":10}\n' \
        > "$XDG_CONFIG_HOME/Tovin/settings.json"
}
journal() { cat "$XDG_DATA_HOME/Tovin/tovin.log" 2>/dev/null; }
ledger_has() { grep -q "\"outcome\": \"$1\"" "$XDG_DATA_HOME/Tovin/promises.json" 2>/dev/null; }

# A sound server with a null source, so the call detector asks a real one.
home
pulseaudio --daemonize=no --exit-idle-time=-1 -n -L "module-null-sink sink_name=nullsink" \
    -L "module-null-source source_name=nullsrc" -L module-native-protocol-unix >/dev/null 2>&1 & pids+=($!)
waitfor 15 pactl info >/dev/null 2>&1

# --- 1. a whole lockout, kept -------------------------------------------------------------
start=$SECONDS
port=$((9300 + n))
QTWEBENGINE_DISABLE_SANDBOX=1 QTWEBENGINE_REMOTE_DEBUGGING=127.0.0.1:$port "$tovin" >"$work/app1.log" 2>&1 & app=$!; pids+=($app)
check "the due block fires (journal FIRE line)" waitfor 30 sh -c "grep -q 'FIRE E2E block (workout' '$XDG_DATA_HOME/Tovin/tovin.log'"
sleep 1; "$xshot" "$shots/app-countdown.png"
check "both screens are covered when the countdown runs out" waitfor 30 "$xshot" "$shots/app-shield.png" --covered
raised=$SECONDS
sleep 3; "$xshot" "$shots/app-workout.png"
check "the workout page runs to its end" node --experimental-websocket "$here/drive_page.mjs" "$port" 150
check "finishing the workout keeps one promise on disk" waitfor 10 ledger_has tovin
check "exactly one record" test "$(grep -c '"outcome"' "$XDG_DATA_HOME/Tovin/promises.json" 2>/dev/null)" = 1
check "the shield lowers after the workout" waitfor 15 sh -c "! '$xshot' '$shots/app-after.png' --covered >/dev/null"
check "the journal tells it: the ledger line" sh -c "grep -q '\[ledger\] tovin — Posture Fix (now 1 tovin / 1 total)' '$XDG_DATA_HOME/Tovin/tovin.log'"
check "--why reflects it" sh -c "'$tovin' --why | grep -q 'Ledger  (1 record(s): 1 tovin, 0 broken)'"
echo "     figures: launch → countdown end → covered: $((raised - start)) s (10 s of it the countdown)"
kill $app 2>/dev/null; wait $app 2>/dev/null

# --- 2. a call at the due minute holds the block off ---------------------------------------
home
parecord -d nullsrc /dev/null & rec=$!; pids+=($rec)
sleep 1
QTWEBENGINE_DISABLE_SANDBOX=1 "$tovin" >"$work/app2.log" 2>&1 & app=$!; pids+=($app)
check "a live microphone holds the due block off, and the journal says why" \
    waitfor 30 sh -c "grep -q '\[hold\] E2E block held — Your mic is live — Tovin won.t interrupt.' '$XDG_DATA_HOME/Tovin/tovin.log'"
check "no shield while the call lasts" sh -c "! '$xshot' '$shots/app-call.png' --covered >/dev/null"
kill $app $rec 2>/dev/null

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]

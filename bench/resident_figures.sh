#!/usr/bin/env bash
# What Tovin costs while it waits, and how fast it answers, as installed and as a person's
# desktop runs it: a private two-monitor Xvfb with openbox and a tray, its own session bus and
# sound server, an isolated home. It installs the build into a scratch folder, starts it, closes
# the setup window it opens, lets it settle, then prints
#   - the whole process tree's RSS and PSS, CPU seconds and context switches per second over
#     the idle window (the setup window closed, so nothing but the resident should run);
#   - a tray click → the setup page rendered, with no screen helper running;
#   - "Lock Me Out Now" from the tray menu → every display covered, with no helper running.
#
#   bench/resident_figures.sh [BUILD_DIR=build] [IDLE_SECONDS=120]
#
# Run it through dbus-run-session when there is no session bus: scripts/bench-resident.sh does.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../build}" && pwd)
idle_for=${2:-120}
settle=15
xshot=$build/tests/xshot
[ -x "$xshot" ] || { echo "build the xshot tool first (ninja -C $build xshot)"; exit 2; }

work=$(mktemp -d)
pids=()
cleanup() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done
    pkill -P $$ 2>/dev/null
    wait 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
waitfor() { # seconds, then a command to poll every 50 ms
    local deadline=$((SECONDS + $1)); shift
    until "$@"; do [ $SECONDS -ge $deadline ] && return 1; sleep 0.05; done
}
now_ms() { date +%s%3N; }

cmake --install "$build" --prefix "$work/Tovin" >/dev/null || exit 1
tovin=$work/Tovin/bin/tovin

n=80; while [ -e /tmp/.X11-unix/X$n ] || [ -e /tmp/.X$n-lock ]; do n=$((n + 1)); done
export DISPLAY=:$n XDG_SESSION_TYPE=x11
unset WAYLAND_DISPLAY # the figures are for X11, even when run from a Wayland session
Xvfb "$DISPLAY" -screen 0 3840x1080x24 -noreset -nolisten tcp >/dev/null 2>&1 & pids+=($!)
waitfor 15 test -e /tmp/.X11-unix/X$n || { echo "Xvfb did not start"; exit 1; }
xrandr --setmonitor LEFT 1920/508x1080/286+0+0 screen >/dev/null
xrandr --setmonitor RIGHT 1920/508x1080/286+1920+0 none >/dev/null
openbox >/dev/null 2>&1 & pids+=($!)
trayer --edge top --align left --widthtype pixel --width 120 --heighttype pixel --height 28 >/dev/null 2>&1 & pids+=($!)

mkdir -p "$work/run"; chmod 700 "$work/run"; export XDG_RUNTIME_DIR=$work/run
export HOME=$work/home XDG_DATA_HOME=$work/home/data XDG_CONFIG_HOME=$work/home/config
mkdir -p "$XDG_DATA_HOME/Tovin" "$XDG_CONFIG_HOME/Tovin"
pulseaudio --daemonize=no --exit-idle-time=-1 -n -L "module-null-source source_name=nullsrc" \
    -L module-native-protocol-unix >/dev/null 2>&1 & pids+=($!)
waitfor 15 pactl info >/dev/null 2>&1
# A set-up person with an empty week: nothing falls due while the figures are taken.
printf '{"blocks":[]}\n' > "$XDG_DATA_HOME/Tovin/schedule.json"
printf '{"hasOnboarded":true,"lockoutWorkoutId":"posture-fix","activeFromMinute":0,"activeToMinute":0}\n' \
    > "$XDG_CONFIG_HOME/Tovin/settings.json"

port=$((9400 + n))
QTWEBENGINE_DISABLE_SANDBOX=1 QTWEBENGINE_REMOTE_DEBUGGING=127.0.0.1:$port "$tovin" >"$work/app.log" 2>&1 &
app=$!; pids+=($app)

tree() { # the resident and everything it started
    local queue=("$app") p
    while [ ${#queue[@]} -gt 0 ]; do
        p=${queue[0]}; queue=("${queue[@]:1}")
        [ -d /proc/$p ] || continue
        echo "$p"
        queue+=($(pgrep -P "$p"))
    done
}
helper_running() { pgrep -P "$app" -x tovin-screens >/dev/null; }
setup_window() {
    local w
    for w in $(xdotool search --onlyvisible --name '^Tovin$' 2>/dev/null); do
        eval "$(xdotool getwindowgeometry --shell "$w")"
        [ "$WIDTH" -ge 1000 ] && { echo "$w"; return 0; }
    done
    return 1
}
close_setup() { local w; w=$(setup_window) && xdotool windowactivate --sync "$w" key ctrl+w; }
covered() { "$xshot" "$work/probe.png" --covered >/dev/null; }
rendered() { # the setup page shows itself, as the app's render check judges it
    node --experimental-websocket "$here/../tests/e2e/drive_page.mjs" "$port" 20 rendered >/dev/null 2>&1
}
sum_kb() { # field of smaps_rollup, summed over the tree, in kB
    local total=0 p v
    for p in $(tree); do
        v=$(awk -v f="$1:" '$1 == f {print $2}' /proc/$p/smaps_rollup 2>/dev/null)
        total=$((total + ${v:-0}))
    done
    echo $total
}
cpu_ticks() { # user + system time of the tree, in clock ticks
    local total=0 p
    for p in $(tree); do
        total=$((total + $(awk '{print $14 + $15}' /proc/$p/stat 2>/dev/null || echo 0)))
    done
    echo $total
}
switches() { # voluntary and involuntary context switches of every thread of the tree
    local total=0 p
    for p in $(tree); do
        total=$((total + $(cat /proc/$p/task/*/status 2>/dev/null |
            awk '/ctxt_switches/ {s += $2} END {print s + 0}')))
    done
    echo $total
}

waitfor 30 setup_window >/dev/null || { echo "the setup window never opened"; cat "$work/app.log"; exit 1; }
waitfor 10 close_setup
waitfor 15 sh -c "! pgrep -P $app -x tovin-screens >/dev/null" || echo "note: the screen helper outlived the setup window"
sleep "$settle"
ticks_per_s=$(getconf CLK_TCK)
cpu0=$(cpu_ticks) sw0=$(switches)
sleep "$idle_for"
cpu1=$(cpu_ticks) sw1=$(switches)
rss=$(sum_kb Rss) pss=$(sum_kb Pss) procs=$(tree | wc -l)
awk -v rss="$rss" -v pss="$pss" -v cpu=$((cpu1 - cpu0)) -v hz="$ticks_per_s" -v sw=$((sw1 - sw0)) \
    -v t="$idle_for" -v n="$procs" -v s="$settle" 'BEGIN {
    printf "idle, setup window closed (%d s settle, %d s): RSS %.1f MB  PSS %.1f MB  CPU %.2f s  %.3f context switches/s  %d process(es)\n",
        s, t, rss / 1024, pss / 1024, cpu / hz, sw / t, n }'

# Tovin's icon in the tray: its small visible window of class "tovin".
tray_icon() {
    local w
    for w in $(xdotool search --onlyvisible --classname '^tovin$' 2>/dev/null); do
        eval "$(xdotool getwindowgeometry --shell "$w")"
        [ "$WIDTH" -le 64 ] && [ "$HEIGHT" -le 64 ] && { echo "$w"; return 0; }
    done
    return 1
}
icon=$(tray_icon) || { echo "Tovin's icon never reached the tray"; exit 1; }
click_icon() { xdotool mousemove --window "$icon" 10 10 click "$1"; }

# A tray click opens the setup window: the helper starts and draws the page.
t0=$(now_ms)
click_icon 1
if waitfor 30 rendered; then
    echo "tray click → setup page rendered, no helper running: $(( $(now_ms) - t0 )) ms (page polled every 50 ms)"
else
    echo "tray click → setup page: never rendered"
fi
waitfor 10 close_setup
waitfor 15 sh -c "! pgrep -P $app -x tovin-screens >/dev/null"

# "Lock Me Out Now" from the tray's menu: its second item that can be chosen.
click_icon 3
sleep 1
xdotool key Down Down
t0=$(now_ms)
xdotool key Return
if waitfor 10 covered; then
    echo "Lock Me Out Now → every display covered, no helper running: $(( $(now_ms) - t0 )) ms (screens sampled as fast as a screenshot allows)"
else
    echo "Lock Me Out Now → never covered"
fi

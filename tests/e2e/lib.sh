# What every end-to-end script shares: a scratch folder cleaned up on exit, one line per check
# with the tally at the end, polling on the wall clock (these drive real programs in real time),
# and reading what landed on disk. Sourced by the scripts beside it; they set `data` (the app's
# data folder) before asking the journal or the ledger anything.

work=$(mktemp -d)
pids=()       # background programs to end on exit
on_exit=()    # more clean-up, run after those are signalled and before the folder goes
cleanup() {
    local p c
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done
    for c in "${on_exit[@]}"; do eval "$c"; done
    wait 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

passed=0 failed=0
check() { # name, then a command that must succeed
    local name=$1; shift
    if "$@"; then passed=$((passed + 1)); echo "ok   $name"
    else failed=$((failed + 1)); echo "FAIL $name"
        # What the app decided last is usually why: the journal's newest lines.
        [ -n "${data:-}" ] && [ -f "$data/tovin.log" ] && tail -n 8 "$data/tovin.log" | sed 's/^/     | /'
        # For a person looking into a failure: everything stays as it is for a while.
        if [ -n "${TOVIN_E2E_PAUSE:-}" ]; then echo "     paused ${TOVIN_E2E_PAUSE}s${SWAYSOCK:+, SWAYSOCK=$SWAYSOCK}"; sleep "$TOVIN_E2E_PAUSE"; fi
    fi
}
waitfor() { # seconds, then a command to poll every 0.5 s
    local deadline=$((SECONDS + $1)); shift
    until "$@"; do [ $SECONDS -ge $deadline ] && return 1; sleep 0.5; done
}
never() { # seconds, then a command that must not succeed once in that time
    local deadline=$((SECONDS + $1)); shift
    while [ $SECONDS -lt $deadline ]; do "$@" && return 1; sleep 0.5; done
    return 0
}
give_up() { # why the check could not even start
    echo "FAIL $1"; echo "0 passed, 1 failed"; exit 1
}
tally() { # the last line a run prints, and its exit status
    echo "$passed passed, $failed failed"
    [ "$failed" -eq 0 ]
}

journal_has() { grep -q -- "$1" "$data/tovin.log" 2>/dev/null; }
ledger_has() { grep -q -- "$1" "$data/promises.json" 2>/dev/null; }
records() { local n; n=$(grep -c '"outcome"' "$data/promises.json" 2>/dev/null); echo "${n:-0}"; }

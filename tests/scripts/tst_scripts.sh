#!/usr/bin/env bash
# Tests the virtual desktop that the commands at the root share: it leaves nothing behind.
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
box=$(mktemp -d)
trap 'rm -rf "$box"' EXIT
failures=0

check() { # NAME COMMAND...
    local name=$1
    shift
    if "$@"; then
        echo "PASS   : $name"
    else
        echo "FAIL!  : $name"
        failures=$((failures + 1))
        return 1
    fi
}
within() { # SECONDS COMMAND...
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        [ $SECONDS -lt $end ] || return 1
        sleep 0.05
    done
}

# Ends by itself when nobody interrupts it.
cat >"$box/session.sh" <<SESSION
set -euo pipefail
. "$root/scripts/common.sh"
. "$root/scripts/desktop.sh"
finish() {
    : >"$box/stopping"
    stop_all
}
on_exit finish
start_desktop "$box"
[ "\${1:-}" != wait ] || start "$box/stubborn.log" bash -c 'trap "" TERM; echo ready; while :; do sleep 0.1; done'
[ "\${1:-}" != wait ] || wait_for 20 grep -q ready "$box/stubborn.log"
echo "\${started[*]}" >"$box/pids"
echo "\$DISPLAY" >"$box/ready"
case \${1:-} in
    fail) false ;;
    wait) while :; do sleep 0.1; done ;;
esac
SESSION

all_gone() {
    local pid
    [ -s "$box/pids" ] || return 1
    for pid in $(cat "$box/pids"); do ! kill -0 "$pid" 2>/dev/null || return 1; done
}
session() { # HOW: in the background, until the desktop is up
    rm -f "$box/ready" "$box/pids" "$box/stopping"
    # As from a terminal: without job control the shell would start it deaf to SIGINT.
    set -m
    bash "$box/session.sh" "$1" >"$box/session.log" 2>&1 &
    session=$!
    set +m
    within 30 test -s "$box/ready" || { cat "$box/session.log"; return 1; }
}
for signal in INT TERM; do
    check "a desktop starts" session wait || break
    # Twice: impatience must not leave programs behind.
    kill -$signal -- "-$session"
    within 10 test -e "$box/stopping"
    kill -$signal -- "-$session"
    wait "$session"
    check "SIG$signal ends with an error" test $? -ne 0
    check "SIG$signal ends all of it" all_gone
done
for ending in fail finish; do
    session $ending
    wait "$session"
    check "$ending keeps its status" test $? -eq "$([ $ending = finish ]; echo $?)"
    check "$ending ends all of it" all_gone
done

[ $failures -eq 0 ]

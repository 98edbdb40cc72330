#!/usr/bin/env bash
# However a command at the root ends, it leaves no program behind and keeps its status.
set -uo pipefail
cd "$(dirname "$0")/../.." || exit
. scripts/common.sh
box=$(mktemp -d)
trap 'rm -rf "$box"' EXIT

cat >"$box/session.sh" <<SESSION
set -euo pipefail
. scripts/common.sh
. scripts/virtual-desktop.sh
finish() {
    : >"$box/stopping"
    stop_all
}
on_exit finish
start_desktop "$box"
start "$box/stubborn.log" bash -c '[ "\$0" = finish ] || trap "" TERM; echo ready; while :; do sleep 0.1; done' "\$1"
wait_for 20 grep -q ready "$box/stubborn.log"
echo "\${started[*]}" >"$box/pids"
case \$1 in
fail) false ;;
wait) while :; do sleep 0.1; done ;;
esac
SESSION

# session ENDING STATUS [SIGNAL]
session() {
    local pids pid status=0
    rm -f "$box/pids" "$box/stopping"
    set -m # without job control the shell would start it deaf to SIGINT
    bash "$box/session.sh" "$1" >"$box/session.log" 2>&1 &
    set +m
    wait_for 30 test -s "$box/pids" || { cat "$box/session.log"; return 1; }
    read -ra pids <"$box/pids"
    if [ $# = 3 ]; then
        kill -"$3" -- "-$!"
        wait_for 10 test -e "$box/stopping"
        kill -"$3" -- "-$!" # an impatient user
    fi
    wait $! || status=$?
    [ "$status" = "$2" ] || { echo "ends with $status instead of $2"; return 1; }
    for pid in "${pids[@]}"; do ended "$pid" 2>/dev/null || { echo "$pid still runs"; return 1; }; done
}
failures=0
for row in 'wait 130 INT' 'wait 143 TERM' 'fail 1' 'finish 0'; do
    # shellcheck disable=SC2086 # a row has several words
    if session $row; then echo "PASS: $row"; else echo "FAIL: $row"; failures=1; fi
done
exit $failures

#!/usr/bin/env bash
# Tests what the commands at the root share: set-up, and the virtual desktop that leaves nothing behind.
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
has_line() { grep -qxF -- "$1" "$2" 2>/dev/null; }

# --- set-up, with stand-ins for the commands that would change the machine ---

# setup USER [MISSING]: what install_packages calls, in $box/calls; its messages in $box/out.
setup() {
    local tools=$box/tools
    rm -rf "$tools" "$box/calls"
    mkdir "$tools"
    : >"$box/calls"
    for name in bash dirname env grep sed cat; do ln -s "$(command -v $name)" "$tools/$name"; done
    printf '#!/bin/sh\necho %s\n' "$([ "$1" = root ] && echo 0 || echo 1000)" >"$tools/id"
    printf '#!/bin/sh\necho ru_RU.utf8\n' >"$tools/locale"
    printf '#!/bin/sh\ngrep -v "^#" "%s" | grep -vxF "%s" | sed "s/^/ii  /"\n' \
        "$root/scripts/packages.txt" "${2:-}" >"$tools/dpkg-query"
    printf '#!/bin/sh\necho "apt-get $*" >>"%s"\n' "$box/calls" >"$tools/apt-get"
    [ "$1" != sudoer ] || printf '#!/bin/sh\necho sudo >>"%s"\nexec "$@"\n' "$box/calls" >"$tools/sudo"
    chmod +x "$tools"/*
    PATH=$tools bash -euc '. "$1"; install_packages' _ "$root/scripts/common.sh" >"$box/out" 2>&1
}
installs_only() { has_line "apt-get -qq -y --no-install-recommends install $1" "$box/calls"; }

setup root
check "nothing missing, nothing called" test ! -s "$box/calls" -a ! -s "$box/out"
setup root openbox
check "root installs what is missing" installs_only openbox
setup sudoer g++
check "another user installs through sudo" has_line sudo "$box/calls"
check "a name with odd characters is missing alone" installs_only g++
setup user openbox
status=$?
check "neither root nor sudo ends with an error" test $status -ne 0 -a ! -s "$box/calls"
check "neither root nor sudo is explained" grep -q sudo "$box/out"

# --- the desktop ---

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
start "$box/stubborn.log" bash -c 'trap "" TERM; echo ready; while :; do sleep 0.1; done'
wait_for 20 grep -q ready "$box/stubborn.log"
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
has_desktop() {
    local DISPLAY
    DISPLAY=$(cat "$box/ready")
    export DISPLAY
    xprop -root _NET_SUPPORTING_WM_CHECK | grep -q 'window id' \
        && xwininfo -name panel \
        && xwininfo -root -tree | grep -q xcompmgr
} >/dev/null 2>&1

for signal in INT TERM; do
    check "a desktop starts" session wait || break
    check "with window manager, tray and compositor" within 10 has_desktop
    # Twice: impatience must not leave programs behind.
    kill -$signal -- "-$session"
    within 10 test -e "$box/stopping"
    kill -$signal -- "-$session"
    wait "$session"
    check "SIG$signal ends with an error" test $? -ne 0
    check "SIG$signal ends all of it" all_gone
done
session fail
wait "$session"
check "an error keeps its status" test $? -eq 1
check "an error ends all of it" all_gone
session finish
wait "$session"
check "the end keeps its status" test $? -eq 0
check "the end ends all of it" all_gone

[ $failures -eq 0 ]

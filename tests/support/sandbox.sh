#!/usr/bin/env bash
# sandbox.sh plain|display LOCALE PROGRAM [ARGUMENT...]
# Runs a test with a home, a temporary folder and a storage root of its own; with
# "display" also on a virtual X server of its own with a window manager.
# ORVANA_SANDBOX_SCREEN is the size of its screen, 1280x800 when unset; a desktop sets
# ORVANA_SANDBOX_DPI as its dots per inch.
set -euo pipefail

# Shared memory is found by 16 bits of a file's number: without a name space of its
# own a client now and then takes some other program's for a running copy of itself.
if [ -z "${ORVANA_SANDBOX_APART:-}" ] && unshare --ipc true 2>/dev/null; then
    ORVANA_SANDBOX_APART=1 exec unshare --ipc "$0" "$@"
fi

mode=$1 locale=$2
shift 2

box=$(mktemp -d /tmp/orvana-test.XXXXXX)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$box"
}
trap cleanup EXIT
trap 'exit 143' TERM INT

mkdir -m 700 "$box/home" "$box/tmp" "$box/run" "$box/storage"
export HOME=$box/home TMPDIR=$box/tmp XDG_RUNTIME_DIR=$box/run XDG_CONFIG_HOME=$box/home/.config
export ORVANA_STORAGE_ROOT=$box/storage ORVANA_CONFIG=$box/orvanx.conf
export LC_ALL=$locale QTEST_DISABLE_STACK_DUMP=1
# No name server is asked: Qt waits at exit for a lookup whose answer was lost.
export RES_OPTIONS=attempts:0
unset ORVANA_SERVICE_URL http_proxy https_proxy HTTP_PROXY HTTPS_PROXY WAYLAND_DISPLAY XDG_SESSION_TYPE DBUS_SESSION_BUS_ADDRESS

if [ "$mode" = display ]; then
    : >"$box/display"
    Xvfb -displayfd 3 -screen 0 "${ORVANA_SANDBOX_SCREEN:-1280x800}x24" -nolisten tcp -noreset 3>"$box/display" 2>"$box/xvfb.log" &
    pids+=($!)
    # The number is complete once its line has ended.
    for _ in $(seq 200); do [ "$(wc -l <"$box/display")" -gt 0 ] && break; sleep 0.05; done
    [ -s "$box/display" ] || { echo "no virtual X server:"; cat "$box/xvfb.log"; exit 1; } >&2
    DISPLAY=:$(cat "$box/display")
    export DISPLAY QT_QPA_PLATFORM=xcb QT_XCB_GL_INTEGRATION=none
    [ -z "${ORVANA_SANDBOX_DPI:-}" ] || xrdb -nocpp -merge <<<"Xft.dpi: $ORVANA_SANDBOX_DPI"
    # Its properties come before it is ready; a window shown in between would not get the focus.
    openbox --sm-disable --startup "touch '$box/managed'" >"$box/openbox.log" 2>&1 &
    pids+=($!)
    for _ in $(seq 200); do [ -e "$box/managed" ] && break; sleep 0.05; done
else
    export QT_QPA_PLATFORM=offscreen
fi

status=0
"$@" || status=$?
exit $status

#!/usr/bin/env bash
# two-monitors.sh PROGRAM [ARGUMENT...]
# Runs a test on an X server with two monitors of 800x600 side by side. Exit code
# 77, with the reason, where such a server cannot be had.
set -euo pipefail

skip() { echo "SKIPPED: $*"; exit 77; }

server=$(command -v Xorg || echo /usr/lib/xorg/Xorg)
[ -x "$server" ] || skip "the X server Xorg is not installed"
find /usr/lib/xorg/modules -name dummy_drv.so 2>/dev/null | grep -q . || skip "the dummy video driver is not installed"
[ "$(id -u)" = 0 ] || skip "the X server with the dummy driver needs root"

folder=$(mktemp -d "${TMPDIR:-/tmp}/monitors.XXXXXX")
pid=
trap '[ -z "$pid" ] || { kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; } || true; rm -rf "$folder"' EXIT
trap 'exit 143' TERM INT
cat >"$folder/xorg.conf" <<TEXT
Section "Device"
    Identifier "card"
    Driver "dummy"
    VideoRam 65536
EndSection
Section "Screen"
    Identifier "screen"
    Device "card"
    DefaultDepth 24
    SubSection "Display"
        Depth 24
        Virtual 2048 1536
    EndSubSection
EndSection
TEXT
"$server" -displayfd 3 -config "$folder/xorg.conf" -logfile "$folder/xorg.log" -noreset -nolisten tcp \
    -novtswitch -sharevts 3>"$folder/display" >"$folder/output" 2>&1 &
pid=$!
for _ in $(seq 200); do [ "$(wc -l <"$folder/display")" -gt 0 ] && break; sleep 0.05; done
[ -s "$folder/display" ] || skip "the X server does not start: $(tail -n 1 "$folder/output")"
DISPLAY=:$(cat "$folder/display")
export DISPLAY QT_QPA_PLATFORM=xcb QT_XCB_GL_INTEGRATION=none

outputs=$(xrandr | sed -n 's/^\(DUMMY[01]\) .*/\1/p')
[ "$(echo "$outputs" | wc -l)" = 2 ] || skip "the dummy driver has one output only"
xrandr --newmode monitor 38.22 800 832 912 1024 600 601 604 622
for output in $outputs; do xrandr --addmode "$output" monitor; done
xrandr --output DUMMY0 --mode monitor --pos 0x0 --output DUMMY1 --mode monitor --pos 800x0
# Only a new probe finds the second one connected.
xrandr >/dev/null

status=0
"$@" || status=$?
exit $status

# Sourced: a virtual desktop with window manager, tray and compositor.
# Needs scripts/common.sh.

# start_desktop FOLDER [WIDTHxHEIGHT] [BACKGROUND] [compositor|plain]
start_desktop() {
    local folder=$1 size=${2:-1280x800} background=${3:-#31506b} kind=${4:-compositor}
    rm -f "$folder/display"
    start "$folder/xserver.log" bash -c 'exec Xvfb -displayfd 3 -screen 0 "$1x24" -nolisten tcp -noreset 3>"$2"' \
        _ "$size" "$folder/display"
    wait_for 20 test -s "$folder/display" || { cat "$folder/xserver.log" >&2; return 1; }
    DISPLAY=:$(cat "$folder/display")
    export DISPLAY
    unset WAYLAND_DISPLAY XDG_SESSION_TYPE
    # Its properties come before it is ready; a window shown in between would not get the focus.
    rm -f "$folder/managed"
    start "$folder/openbox.log" openbox --sm-disable --startup "touch '$folder/managed'"
    wait_for 20 test -e "$folder/managed"
    start "$folder/trayer.log" trayer --edge top --align right --width 10 --height 24 \
        --SetDockType true --SetPartialStrut true --expand true
    [ "$kind" = plain ] || start "$folder/xcompmgr.log" xcompmgr
    hsetroot -solid "$background" >/dev/null
    wait_for 20 xwininfo -name panel || true
}

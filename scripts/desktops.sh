#!/usr/bin/env bash
# desktops.sh [NAME...]: installs real desktops (X11: xfce, mate, gnome, kde; Wayland: sway,
# kwin, gnome-shell; by default all), tries the client on each, under X servers of its own or
# in a session without a screen, and prints a table of the outcomes.
# Screenshots are in build/desktops/NAME. Exit code 1 when a row failed.
# ORVANA_PRESET is the build to try, by default release; ORVANA_ROWS the rows to try after
# the first, by default all; ORVANA_KEEP=1 keeps the folder with home, logs and service.
set -euo pipefail
cd "$(dirname "$0")/.."
# These programs must not share memory with those of another desktop or user.
if [ -z "${ORVANA_DESKTOPS_APART:-}" ] && unshare --ipc true 2>/dev/null; then
    ORVANA_DESKTOPS_APART=1 exec unshare --ipc "$0" "$@"
fi
. scripts/common.sh
. scripts/services.sh
. scripts/demo.sh
. scripts/desktops/session.sh
. scripts/desktops/screen.sh
. scripts/desktops/rows.sh
. scripts/desktops/rows-wayland.sh

# Printed in this order; trial() runs them.
rows=(
    'minute              log in, choose a task, start: a minute is counted'
    'popup_typing        popup over a terminal in use'
    'popup_fullscreen    popup over a full-screen terminal in use'
    'tray_icon           tray icon'
    'tray_click          a click on it hides and shows'
    'tray_double         a double click on it shows'
    'second_desktop      window and popup on a second desktop'
    'scale               Xft.dpi 82, 92, 96, 144, 192'
    'logout_popup        log out with a popup shown'
    'start_again         log in again: timer runs, one copy'
    'logout_without_tray log out without a panel'
    'two_monitors        picture of two monitors'
    'input               active slices with input and without'
    'pattern             pictures of a moving pattern'
    'video               a film without input'
    'popup               popups next to the window, scales 1 and 2'
    'watcher_kills       watcher killed 20 times'
    'control             orvana-control'
    'logout              log out with a popup shown, log in again'
)
desktops=("$@")
[ $# -gt 0 ] || desktops=(xfce mate gnome kde sway kwin gnome-shell)
for name in "${desktops[@]}"; do
    [ -f "scripts/packages-desktops-$name.txt" ] || { say "There is no desktop called $name." >&2; exit 2; }
done
install_packages desktops "${desktops[@]/#/desktops-}"
preset=${ORVANA_PRESET:-release}
build_preset "$preset"
build=$root/build/$preset
client=$build/src/orvana

# outcome ROW RESULT [REASON]
outcome() {
    local reason=${3:-}
    printf '%s\t%s\t%s\n' "$1" "$2" "${reason//$'\n'/ }" >>"$pictures/outcomes"
    printf '%-6s %-20s %s%s\n' "$name" "$1" "$2" "${3:+: $3}"
}

# shot: a screenshot for the row that is being tried.
shot() { capture "$pictures/$row.png"; }

# try ROW
try() {
    local status=0
    row=$1 why=
    case " minute ${ORVANA_ROWS:-$1} " in *" $1 "*) ;; *) outcome "$row" 'not tried' "left out" >/dev/null; return ;; esac
    "row_$1" || status=$?
    [ -e "$pictures/$row.png" ] || shot 2>/dev/null || true
    case $status in
    0) outcome "$row" ok ;;
    1) outcome "$row" FAILED "$why" ;;
    *) outcome "$row" 'not tried' "$why" ;;
    esac
}

# trial NAME: in a home and with a service of its own.
trial() {
    name=$1
    pictures=$root/build/desktops/$name
    rm -rf "$pictures"
    mkdir -p "$pictures"
    box=$(mktemp -d /tmp/orvana-desktops.XXXXXX)
    on_exit finish
    # shellcheck source=scripts/desktops/xfce.sh
    . "scripts/desktops/$name.sh"
    if [ "$session_type" = wayland ]; then
        trial_wayland
    else
        trial_x11
    fi
}

trial_x11() {
    prepare_home
    start_system_bus
    start_service "$box" "$build"
    service_log=$box/service.log
    services=${#started[@]}

    tray_icon=
    use_server start_xvfb
    if start_session; then
        for row in minute popup_typing popup_fullscreen tray_icon tray_click tray_double second_desktop scale \
            logout_popup; do
            try "$row"
        done
        end_session
        use_server start_xvfb
        try start_again
        end_session
        use_server start_xvfb
        try logout_without_tray
        end_session
        if use_server start_two_monitors; then
            try two_monitors
            end_session
        else
            outcome two_monitors 'not tried' "$(cat "$box/problem")"
        fi
    else
        does_not_start
    fi
}

does_not_start() {
    say "$name does not start:"
    tail -n 20 "$box/session.log"
    outcome minute 'not tried' "the desktop does not start"
}

trial_wayland() {
    prepare_wayland
    start_service "$box" "$build"
    service_log=$box/service.log
    give_away "$box"
    start_system_bus
    services=${#started[@]}
    if start_session; then
        for row in minute input pattern video popup watcher_kills control logout; do
            try "$row"
        done
    else
        does_not_start
    fi
}

# The session's document portal mounts a folder, and leaves it when it is killed.
unmount_rest() {
    local mount
    while read -r _ mount _; do
        case $mount in "$box"/*) umount -l "$mount" 2>/dev/null || fusermount3 -uz "$mount" || true ;; esac
    done </proc/self/mounts
}

finish() {
    end_session
    stop_all
    unmount_rest
    if [ -n "${ORVANA_KEEP:-}" ]; then say "Kept: $box"; else rm -rf "$box"; fi
}

unset http_proxy https_proxy HTTP_PROXY HTTPS_PROXY
status=0
for name in "${desktops[@]}"; do
    (trial "$name") || status=1
done

# The table of results: a line for each row, a column for each desktop.
say
printf '%-52s' ''
printf '%-13s' "${desktops[@]}"
say
for entry in "${rows[@]}"; do
    row=${entry%% *} text=${entry#* }
    printf '%-52s' "${text#"${text%%[! ]*}"}"
    for name in "${desktops[@]}"; do
        printf '%-13s' "$(awk -F '\t' -v row="$row" '$1 == row { r = $2 } END { print r ? r : "-" }' \
            "build/desktops/$name/outcomes")"
    done
    say
done
say
for name in "${desktops[@]}"; do
    awk -F '\t' -v name="$name" '$2 != "ok" && $3 != "left out" { printf "%s, %s: %s: %s\n", name, $1, $2, $3 }' "build/desktops/$name/outcomes"
    ! grep -q $'\tFAILED\t' "build/desktops/$name/outcomes" || status=1
done
say "Screenshots: build/desktops"
exit $status

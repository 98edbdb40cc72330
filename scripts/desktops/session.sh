# Sourced by desktops.sh: an X server, a desktop's session on it, and the client in that session.
# Needs scripts/common.sh and scripts/services.sh, $box, $build and the functions of one desktop's file.

server_pid=
session_pid=
session_type=x11
# What comes before the commands of another user's session.
as_user=()

# start_xvfb: a screen of 1280x800.
start_xvfb() {
    rm -f "$box/display"
    start "$box/xserver.log" bash -c 'exec Xvfb -displayfd 3 -screen 0 1280x800x24 -dpi 96 -nolisten tcp -noreset 3>"$1"' \
        _ "$box/display"
    server_pid=${started[-1]}
    wait_for 20 test -s "$box/display" || return 1
    DISPLAY=:$(cat "$box/display")
    export DISPLAY
}

# start_two_monitors: 800x600 each, side by side. Prints the reason where there is no such server.
start_two_monitors() {
    rm -f "$box/display"
    start "$box/monitors.log" "$root/tests/support/two-monitors.sh" bash -c \
        'echo "$DISPLAY $$" >"$1"; exec sleep infinity' _ "$box/display"
    server_pid=${started[-1]}
    wait_for 20 eval "test -s '$box/display' || ended $server_pid"
    if [ ! -s "$box/display" ]; then
        sed -n 's/^SKIPPED: //p' "$box/monitors.log"
        return 1
    fi
    # The script ends the server when its program has ended.
    read -r DISPLAY server_pid <"$box/display"
    export DISPLAY
}

# use_server start_xvfb|start_two_monitors: with a watcher on it. Prints nothing; the reason why
# not is in the file "problem".
use_server() {
    "$1" >"$box/problem" && start_watcher "$box" "$build"
}

end_server() {
    [ -z "$server_pid" ] || kill "$server_pid" 2>/dev/null || true
    server_pid=
    stop_from "$services"
}

# stop_from INDEX: stop_all for what was started after the first INDEX programs.
stop_from() {
    local kept=("${started[@]:0:$1}")
    started=("${started[@]:$1}")
    stop_all
    started=("${kept[@]}")
}

# Every process of the session, daemons included, has inherited this from it.
session_processes() {
    grep -lzsx "ORVANA_TRIAL=$box" /proc/[0-9]*/environ | cut -d / -f 3
}
no_session_processes() { [ -z "$(session_processes)" ]; }

autostart() {
    local name=$1
    shift
    mkdir -p "$HOME/.config/autostart"
    printf '%s\n' '[Desktop Entry]' Type=Application "Name=$name" "Exec=$*" >"$HOME/.config/autostart/$name.desktop"
}

# What the session's programs find: their environment is noted by one of them, and
# pages are opened by a program that only writes down their addresses.
prepare_home() {
    mkdir -m 700 "$box"/{home,tmp,run,storage,bin}
    export HOME=$box/home TMPDIR=$box/tmp XDG_RUNTIME_DIR=$box/run ORVANA_STORAGE_ROOT=$box/storage
    export XDG_CONFIG_HOME=$HOME/.config XDG_DATA_HOME=$HOME/.local/share XDG_CACHE_HOME=$HOME/.cache
    export LC_ALL=ru_RU.UTF-8 XDG_SESSION_TYPE=$session_type PATH=$box/bin:$PATH
    unset WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS SESSION_MANAGER QT_QPA_PLATFORM QT_QPA_PLATFORMTHEME
    cat >"$box/bin/xdg-open" <<TEXT
#!/bin/sh
echo "\$1" >>'$box/opened'
TEXT
    cat >"$box/bin/note-environment" <<TEXT
#!/bin/sh
export -p >'$box/environment.new'
mv '$box/environment.new' '$box/environment'
TEXT
    # The clock file says how many times as fast as the real one the client's clock runs.
    cat >"$box/bin/start-client" <<TEXT
#!/bin/sh
speed=\$(cat '$box/clock')
[ "\$speed" = 1 ] || export LD_PRELOAD='/usr/\$LIB/faketime/libfaketime.so.1' FAKETIME="+0 x\$speed"
exec '$client'
TEXT
    chmod +x "$box"/bin/*
    autostart note-environment "$box/bin/note-environment"
    prepare_desktop
}

# In place of the machine's own, which the end of a session here must not reach. Some desktops
# do not start without one.
start_system_bus() {
    export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$box/run/system-bus
    start "$box/system-bus.log" "${as_user[@]}" dbus-daemon --session --nofork --address="$DBUS_SYSTEM_BUS_ADDRESS"
    wait_for 10 test -S "$box/run/system-bus"
}

has_panel() { [ -n "$(xdotool search --onlyvisible --class "$panel_class" 2>/dev/null)" ]; }
has_window_manager() { wmctrl -m | grep -q '^Name: .'; }

# start_session [ANY]: waits until the desktop is up; with an argument it does not wait for a panel.
start_session() {
    rm -f "$box/environment"
    # shellcheck disable=SC2086 # a command with its arguments
    start "$box/session.log" env ORVANA_TRIAL="$box" dbus-run-session -- $session_command
    session_pid=${started[-1]}
    wait_for 60 test -s "$box/environment" &&
        wait_for 30 has_window_manager &&
        { [ $# -gt 0 ] || wait_for 30 has_panel; }
}

# Use only while no client is shown: its clock keeps changing the picture.
is_still() {
    capture "$box/before.png"
    sleep 1
    capture "$box/now.png"
    [ "$(identify -format '%#' "$box/before.png")" = "$(identify -format '%#' "$box/now.png")" ]
}

session_ended() { ended "$session_pid" && [ -z "$(client_pids)" ]; }

# By force: what a session leaves running after its end, or the whole of it.
end_session() {
    local try pid
    for try in TERM TERM KILL KILL; do
        no_session_processes && break
        for pid in $(session_processes); do kill -"$try" "$pid" 2>/dev/null || true; done
        wait_for 3 no_session_processes && break
    done
    end_server
}

# As a program that the user starts from a menu.
# shellcheck source=/dev/null
in_session() { (. "$box/environment"; exec "$@"); }

client_pids() {
    local pid
    for pid in $(session_processes); do
        [ "$(readlink "/proc/$pid/exe" 2>/dev/null)" != "$client" ] || echo "$pid"
    done
}
client_ended() { [ -z "$(client_pids)" ]; }
client_count() { client_pids | wc -l; }

end_client() {
    local pid
    for pid in $(client_pids); do kill "$pid" 2>/dev/null || true; done
    wait_for 10 client_ended && return
    for pid in $(client_pids); do kill -KILL "$pid" 2>/dev/null || true; done
    wait_for 5 client_ended
}

# Desktops that keep the value themselves have a function of their own.
set_dpi() { xrdb -merge <<<"Xft.dpi: $1"; }
has_dpi() { [ "$(xrdb -query | LC_ALL=C awk '$1 == "Xft.dpi:" { printf "%.0f", $2 }')" = "$1" ]; }

# start_client [SPEED [DPI]]: ends the one that runs and waits for a window of the new one.
# Leaves a picture of the screen without it in "empty.png".
start_client() {
    end_client
    echo "${1:-1}" >"$box/clock"
    if ! has_dpi "${2:-96}"; then
        set_dpi "${2:-96}"
        wait_for 10 has_dpi "${2:-96}" || not_tried "the desktop keeps another Xft.dpi than ${2:-96}" || return
    fi
    park
    wait_for 5 is_still || true
    capture "$box/empty.png"
    in_session "$box/bin/start-client" >>"$box/client.log" 2>&1 &
    disown
    wait_for 20 has_client_window || failed "the client shows no window"
}
has_client_window() { has_window '^Orvana$' || has_window '^Авторизация$'; }
main_window() { window '^Orvana$'; }

# control ACTION FIELD...: changes what the service has.
control() {
    local action=$1 token fields=() field
    shift
    for field in "$@"; do fields+=(--data-urlencode "$field"); done
    token=$(curl --silent --insecure --noproxy '*' "$ORVANA_SERVICE_URL/state" | grep -o '"token":"[0-9a-f]*')
    curl --silent --insecure --noproxy '*' --data-urlencode "token=${token##*\"}" "${fields[@]}" \
        "$ORVANA_SERVICE_URL/control/$action" >/dev/null
}

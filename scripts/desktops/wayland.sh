# Sourced by the file of a Wayland desktop, before its own definitions: the compositor's session,
# the watcher and the client in it. Replaces functions of session.sh, screen.sh, demo.sh and rows.sh, so that
# their rows work here.
#
# The file of a desktop defines:
#   session_command     starts the compositor; runs in a bus session, as a user other than root. When Wayland and
#                       Xwayland are up, the compositor or this command runs "$box/bin/in-session" as a
#                       program of the session.
#   prepare_desktop     writes the configuration and exports the environment, once for each trial. The screen has
#                       1280x800 pixels.
#   wl_key KEY...       presses keys one after the other, in the window with the focus; xdotool's names
#   wl_type TEXT        types the text, Latin letters only, in the window with the focus
#   wl_move X Y         moves the compositor's pointer
#   wl_shot FILE        saves a PNG of the whole screen as the compositor shows it
#   wl_log_out          ends the session as its user would
# and, where the default below does not do:
#   wl_click X Y [N]    clicks N times; by default in Xwayland, whose windows take that
#   wl_activity         one input of some user at work; called again and again
#   wl_fill             brings the window "pattern" to fill the screen, behind the client's;
#                       pattern_fullscreen=1 has the window ask for that by itself
#   wl_inhibit          keeps the screen on by what a film uses, until wl_uninhibit; 1 where impossible
#   wl_scale 1|2        sets the scale of the screen, with as many pixels more if possible; returns 1 where a
#                       running session has no such thing
#   wl_scaled FACTOR    how many pixels of a screenshot are one of Xwayland's at that scale
#   pattern_area        WIDTHxHEIGHT+X+Y: where a window can fill the screen (a panel may keep its place)
#   allow_screenshots   answers the desktop's question whether the client may take them; called after Start
#   control_key         a key for wl_key to which the desktop's configuration binds "$box/bin/toggle-timer"

session_type=wayland
pattern_area=1280x800+0+0
pattern_fullscreen=
control_key=

wl_click() { xdotool mousemove "$1" "$2" click --repeat "${3:-1}" --delay 80 1; }
wl_activity() {
    pointer=$((${pointer:-400} == 400 ? 440 : 400))
    wl_move "$pointer" 500
    sleep 0.2
}
wl_fill() { :; }
wl_inhibit() { return 1; }
wl_uninhibit() { :; }
wl_scale() { [ "$1" = 1 ]; }
wl_scaled() { echo "$1"; }

# Compositors refuse root, and the client obeys its own user only.
[ "$(id -u)" != 0 ] || as_user=(setpriv --reuid=nobody --regid=nogroup --clear-groups --)

type_text() { wl_type "$1"; }
press() { wl_key "$@"; }
park() { wl_move 400 700; }
nudge() { wl_activity; }
capture() { wl_shot "$1"; }
log_out() { wl_log_out; }
click() {
    local id x=$2 area X Y WIDTH
    id=$(window "$1")
    area=$(xdotool getwindowgeometry --shell "$id")
    eval "$area"
    [ "$x" -ge 0 ] || x=$((x + WIDTH))
    wl_click $((X + x)) $((Y + $3)) "${4:-1}"
}
set_dpi() { :; }
has_dpi() { :; }

# shellcheck source=/dev/null
in_session() { (. "$box/environment"; exec "${as_user[@]}" "$@"); }

# The programs have to be readable for that user, wherever the checkout is.
prepare_wayland() {
    local built=$client
    client=$box/bin/orvana
    export ORVANA_CONFIG=$box/orvanx.conf
    prepare_home
    cp "$built" "$build/companions/watcher/orvana-watcher" "$build/companions/control/orvana-control" \
        scripts/desktops/pattern.py "$box/bin"
    cat >"$box/bin/in-session" <<TEXT
#!/bin/sh
dbus-update-activation-environment --all
xhost +si:localuser:root
exec '$box/bin/note-environment'
TEXT
    cat >"$box/bin/toggle-timer" <<TEXT
#!/bin/sh
exec '$box/bin/orvana-control' toggle
TEXT
    chmod +x "$box"/bin/*
}

# give_away PATH...: to the user of the session.
give_away() {
    [ ${#as_user[@]} = 0 ] || chown -R nobody:nogroup "$@"
}

# start_session: with a watcher in it.
start_session() {
    rm -f "$box/environment"
    # shellcheck disable=SC2086 # a command with its arguments
    start "$box/session.log" env ORVANA_TRIAL="$box" "${as_user[@]}" dbus-run-session -- $session_command
    session_pid=${started[-1]}
    wait_for 60 test -s "$box/environment" || return
    DISPLAY=$(in_session printenv DISPLAY) || return
    XAUTHORITY=$(in_session printenv XAUTHORITY || true)
    export DISPLAY XAUTHORITY
    [ -n "$XAUTHORITY" ] || unset XAUTHORITY
    # Portals take seconds to start, which the clients on a fast clock would not wait.
    in_session gdbus call --session --timeout 60 --dest org.freedesktop.portal.Desktop \
        --object-path /org/freedesktop/portal/desktop --method org.freedesktop.DBus.Peer.Ping >>"$box/portal.log" 2>&1 || true
    start_session_watcher
}

start_session_watcher() {
    local port
    for port in $(shuf -i 20000-40000 -n 20); do
        start "$box/watcher.log" in_session "$box/bin/orvana-watcher" --port "$port"
        wait_for 5 grep -q "$port" "$box/watcher.log" && runs "${started[-1]}" && break
    done
    echo "watcher-port=$port" >"$ORVANA_CONFIG"
    wait_for 10 eval '[ -n "$(watcher_source)" ]'
}
# Its last line, without the name of the program.
watcher_source() { sed -n '/127\.0\.0\.1:/!s/^orvana-watcher: //p' "$box/watcher.log" | tail -n 1; }

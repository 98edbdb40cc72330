# sway 1.7, as Debian configures it
. scripts/desktops/wayland.sh

session_command='sway --config'
control_key=super+F9

prepare_desktop() {
    export XDG_CURRENT_DESKTOP=sway WLR_BACKENDS=headless WLR_RENDERER=pixman WLR_LIBINPUT_NO_DEVICES=1
    # Without logind and Bluetooth.
    mkdir -p "$HOME/.config/wireplumber/bluetooth.lua.d"
    echo 'bluez_monitor.enabled = false' >"$HOME/.config/wireplumber/bluetooth.lua.d/80-none.lua"
    # Its wallpaper is in a package of its own; its clock would never let a screenshot be like the one before.
    sed -E '/^output .* bg /d; s/^( *status_command) while.*/\1 sleep infinity/' /etc/sway/config >"$HOME/sway-config"
    cat >>"$HOME/sway-config" <<TEXT
output * mode 1280x800 bg #305070 solid_color
bindsym Mod4+F9 exec $box/bin/toggle-timer
exec pipewire
exec $box/bin/in-session
TEXT
    session_command="sway --config $HOME/sway-config"
}

wl_shot() { in_session grim - >"$1"; }
wl_log_out() { in_session swaymsg exit; }
wl_move() { in_session swaymsg --quiet "seat - cursor set $1 $2"; }
wl_type() { in_session wtype -s 100 -d 12 "$1"; }
wl_key() {
    local key name options=()
    for key in "$@"; do
        name=${key##*+}
        case $key in super+*) options+=(-M logo -k "$name" -m logo) ;; *) options+=(-k "$name") ;; esac
        options+=(-s 60)
    done
    in_session wtype -s 100 "${options[@]}"
}

# Its bar would stay over the pattern.
wl_fill() {
    in_session swaymsg --quiet 'bar bar-0 mode invisible; [app_id="pattern"] border none'
}
# The compositor's own inhibitor, on the window of the film.
wl_inhibit() { in_session swaymsg --quiet '[app_id="pattern"] inhibit_idle open'; }
wl_uninhibit() { in_session swaymsg --quiet '[app_id="pattern"] inhibit_idle none'; }
# The second scale on a screen with twice the pixels.
wl_scale() { in_session swaymsg --quiet "output * mode $((1280 * $1))x$((800 * $1)) scale $1"; }

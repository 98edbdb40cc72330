# GNOME 43, as Debian configures it
. scripts/desktops/wayland.sh

session_command='/usr/libexec/gnome-session-binary --builtin --session=trial'
control_key=super+F9
# Below its panel.
pattern_area=1280x768+0+32
input_pid=
film_pid=

# Two screens, of which one at a time is on: the one with twice the pixels is for scale 2.
prepare_desktop() {
    local keys=org/gnome/settings-daemon/plugins/media-keys
    export XDG_CURRENT_DESKTOP=GNOME DESKTOP_SESSION=gnome GSETTINGS_BACKEND=keyfile LIBGL_ALWAYS_SOFTWARE=1
    mkdir -p "$HOME/.config"/{wireplumber/bluetooth.lua.d,gnome-session/sessions,glib-2.0/settings} "$XDG_DATA_HOME/applications"
    # Without logind and Bluetooth.
    echo 'bluez_monitor.enabled = false' >"$HOME/.config/wireplumber/bluetooth.lua.d/80-none.lua"
    printf '%s\n' '[GNOME Session]' Name=trial 'RequiredComponents=org.gnome.Shell;' \
        >"$HOME/.config/gnome-session/sessions/trial.session"
    # Its unsafe mode takes screenshots for every program, and evaluates scripts.
    sed 's|^Exec=.*|Exec=gnome-shell --headless --wayland --unsafe-mode --virtual-monitor 1280x800 --virtual-monitor 2560x1600|' \
        /usr/share/applications/org.gnome.Shell.desktop >"$XDG_DATA_HOME/applications/org.gnome.Shell.desktop"
    cat >"$HOME/.config/glib-2.0/settings/keyfile" <<TEXT
[org/gnome/desktop/notifications]
show-banners=false
[org/gnome/desktop/interface]
enable-hot-corners=false
enable-animations=false
[$keys]
custom-keybindings=['/$keys/custom-keybindings/timer/']
[$keys/custom-keybindings/timer]
name='timer'
command='$box/bin/toggle-timer'
binding='<Super>F9'
TEXT
    cp scripts/desktops/gnome-input.py "$box/bin"
    mkfifo "$box/input" "$box/answers"
    rm "$HOME/.config/autostart/note-environment.desktop"
    # In place of one that is installed on this machine.
    autostart orvana-watcher true
    autostart pipewire pipewire
    autostart wireplumber wireplumber
    autostart in-session "$box/bin/gnome-in-session"
    cat >"$box/bin/gnome-scale" <<'TEXT'
#!/bin/sh
# gnome-scale 1|2: turns on the screen for that scale, and the other one off.
name=org.gnome.Mutter.DisplayConfig
call() { gdbus call --session --dest $name --object-path /org/gnome/Mutter/DisplayConfig --method "$name.$@"; }
state=$(call GetCurrentState) || exit
serial=$(echo "$state" | grep -o '^(uint32 [0-9]*' | grep -o '[0-9]*$')
mode=$(echo "$state" | grep -o "'$((1280 * $1))x$((800 * $1))@[^']*'" | head -n 1)
call ApplyMonitorsConfig "$serial" 1 "[(0, 0, $1.0, uint32 0, true, [('Meta-$(($1 - 1))', $mode, @a{sv} {})])]" '@a{sv} {}'
TEXT
    cat >"$box/bin/gnome-in-session" <<TEXT
#!/bin/sh
# A session opens with an overview of its windows.
gdbus call --session --dest org.gnome.Shell --object-path /org/gnome/Shell --method org.gnome.Shell.Eval 'Main.overview.hide()'
'$box/bin/gnome-scale' 1
exec '$box/bin/in-session'
TEXT
}

# shell_says SCRIPT: what the shell makes of it, in JSON.
shell_says() {
    in_session gdbus call --session --dest org.gnome.Shell --object-path /org/gnome/Shell --method org.gnome.Shell.Eval "$1" |
        sed "s/^(true, '\(.*\)')$/\1/"
}

wl_shot() {
    in_session gdbus call --session --dest org.gnome.Shell.Screenshot --object-path /org/gnome/Shell/Screenshot \
        --method org.gnome.Shell.Screenshot.Screenshot false false "$box/shot.png" >/dev/null && mv "$box/shot.png" "$1"
}

# gnome_input COMMAND ARGUMENT...: done when it returns.
gnome_input() {
    if [ -z "$input_pid" ] || ended "$input_pid" 2>/dev/null; then
        in_session /usr/bin/python3 "$box/bin/gnome-input.py" "$box/input" "$box/answers" >>"$box/input.log" 2>&1 &
        input_pid=$!
        disown
    fi
    echo "$*" 1<>"$box/input"
    read -r -t 20 _ <>"$box/answers"
}
wl_move() { gnome_input move "$1" "$2"; }
wl_click() { gnome_input move "$1" "$2" && gnome_input click "${3:-1}"; }
wl_key() { gnome_input keys "$@"; }
wl_type() { gnome_input type "$1"; }
wl_log_out() { in_session gnome-session-quit --logout --no-prompt; }

# A question of the desktop takes the keyboard; its first button refuses.
allow_screenshots() {
    wait_for 8 has_question || return 0
    capture "$pictures/question.png"
    wl_key Tab Return
}
has_question() { [ "$(shell_says 'Main.modalCount')" = 1 ]; }

wl_fill() {
    shell_says 'global.get_window_actors().map(a => a.meta_window).filter(w => w.get_title() === "pattern")
        .forEach(w => { w.maximize(3); w.lower(); })'
}
wl_inhibit() {
    in_session gnome-session-inhibit --inhibit idle --inhibit-only >>"$box/film.log" 2>&1 &
    film_pid=$!
    disown
    sleep 1
    runs "$film_pid"
}
wl_uninhibit() { kill "$film_pid"; }

# X11 programs get all pixels of the screen, and the scale as Xft.dpi.
wl_scale() {
    in_session "$box/bin/gnome-scale" "$1" >>"$box/scale.log" 2>&1 || return
    wait_for 10 eval '[ "$(xrdb -query | sed -n "s/^Xft.dpi:[^0-9]*//p")" = '"$((96 * $1)) ]"
}
wl_scaled() { echo 1; }

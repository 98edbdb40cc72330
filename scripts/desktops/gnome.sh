# GNOME Flashback 3.46 with Metacity
session_command='gnome-session --builtin --session=gnome-flashback-metacity --disable-acceleration-check'
panel_class='^gnome-panel$'

prepare_desktop() {
    export XDG_CURRENT_DESKTOP=GNOME-Flashback:GNOME DESKTOP_SESSION=gnome-flashback-metacity GSETTINGS_BACKEND=keyfile
}

log_out() { in_session gnome-session-quit --logout --no-prompt; }
leave_out_panel() {
    mkdir -p "$HOME/.config/gnome-session/sessions"
    sed 's/gnome-panel;//' /usr/share/gnome-session/sessions/gnome-flashback-metacity.session \
        >"$HOME/.config/gnome-session/sessions/without-panel.session"
    session_command=${session_command/gnome-flashback-metacity/without-panel}
}

set_dpi() {
    in_session gsettings set org.gnome.desktop.interface text-scaling-factor "$(LC_ALL=C awk -v dpi="$1" 'BEGIN { print dpi / 96 }')"
}

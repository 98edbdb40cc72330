# MATE 1.26
session_command=mate-session
panel_class='^mate-panel$'

prepare_desktop() {
    export XDG_CURRENT_DESKTOP=MATE DESKTOP_SESSION=mate GSETTINGS_BACKEND=keyfile
    mkdir -p "$HOME/.config/glib-2.0/settings"
    cat >"$HOME/.config/glib-2.0/settings/keyfile" <<'TEXT'
[org/mate/desktop/session]
auto-save-session=true
required-components-list=['windowmanager', 'panel']
logout-prompt=false
TEXT
}

log_out() { in_session mate-session-save --logout; }
# Before the session starts: its manager restarts a panel that is ended.
leave_out_panel() {
    sed -i "s/^required-components-list=.*/required-components-list=['windowmanager']/" \
        "$HOME/.config/glib-2.0/settings/keyfile"
}

# Programs get it in the environment, too, as it was when the session started.
set_dpi() {
    in_session gsettings set org.mate.font-rendering dpi "$1.0"
    sed -i "s/^export QT_FONT_DPI=.*/export QT_FONT_DPI=$1/" "$box/environment"
}

# XFCE 4.18
session_command=xfce4-session
panel_class='^xfce4-panel$'

prepare_desktop() {
    export XDG_CURRENT_DESKTOP=XFCE DESKTOP_SESSION=xfce
    # Programs that run at logout come again at login.
    local settings=$HOME/.config/xfce4/xfconf/xfce-perchannel-xml
    mkdir -p "$settings"
    cat >"$settings/xfce4-session.xml" <<'TEXT'
<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-session" version="1.0">
  <property name="general" type="empty">
    <property name="SaveOnExit" type="bool" value="true"/>
  </property>
</channel>
TEXT
}

log_out() { in_session xfce4-session-logout --logout; }
end_panel() { in_session xfce4-panel --quit; }

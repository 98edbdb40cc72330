# KWin 5.27, the compositor of Plasma, without the rest of it
. scripts/desktops/wayland.sh

session_command=
pattern_fullscreen=1
control_key=super+F9

# KWin gives input and screenshots to the program of a desktop entry, not to an interpreter
# that other entries name too.
prepare_desktop() {
    local applications=$HOME/.local/share/applications
    export XDG_CURRENT_DESKTOP=KDE KDE_FULL_SESSION=true KDE_SESSION_VERSION=5 KWIN_COMPOSE=O2 LIBGL_ALWAYS_SOFTWARE=1
    mkdir -p "$applications" "$HOME/.config"
    # A copy is without the capability that the sandbox of a trial may refuse.
    cp "$(command -v kwin_wayland)" scripts/desktops/kwin.py "$box/bin"
    cp "$(readlink -f /usr/bin/python3)" "$box/bin/kwin-python"
    sed "s|@CMAKE_INSTALL_FULL_BINDIR@|$box/bin|; /^TryExec=/d" packaging/org.example.orvana.desktop \
        >"$applications/org.example.orvana.desktop"
    printf '%s\n' '[Desktop Entry]' Type=Application Name=Trial "Exec=$box/bin/kwin-python" \
        X-KDE-Wayland-Interfaces=org_kde_kwin_fake_input \
        X-KDE-DBUS-Restricted-Interfaces=org.kde.KWin.ScreenShot2 >"$applications/trial.desktop"
    printf '%s\n' '[Desktop Entry]' Type=Application Name=Timer "Exec=$box/bin/toggle-timer" \
        >"$applications/toggle-timer.desktop"
    printf '%s\n' '[toggle-timer.desktop]' _k_friendly_name=Timer '_launch=Meta+F9,none,Timer' >"$HOME/.config/kglobalshortcutsrc"
    session_command="$box/bin/kwin_wayland --virtual --xwayland --no-lockscreen --width 1280 --height 800 $box/bin/in-session"
}

kwin() { in_session env PYTHONHOME=/usr "$box/bin/kwin-python" "$box/bin/kwin.py" "$@"; }
wl_shot() { kwin shot "$TMPDIR/shot.ppm" && convert "$TMPDIR/shot.ppm" "$1"; }
wl_move() { kwin move "$1" "$2"; }
wl_click() { kwin move "$1" "$2" wait 0.1 click "${3:-1}"; }
wl_type() { kwin type "$1"; }
wl_key() {
    local key actions=()
    for key in "$@"; do actions+=(key "$key"); done
    kwin "${actions[@]}"
}
wl_log_out() { kill "$(pgrep -f "^$box/bin/kwin_wayland")"; }
wl_inhibit() {
    kwin film >>"$box/film.log" 2>&1 &
    film_pid=$!
    disown
    sleep 1
    runs "$film_pid"
}
wl_uninhibit() { kill "$film_pid"; }
# On a screen that keeps its pixels.
wl_scale() { kwin scale "$1"; }

# Plasma 5.27 with KWin
session_command=startplasma-x11
panel_class='^plasmashell$'

prepare_desktop() {
    export XDG_CURRENT_DESKTOP=KDE DESKTOP_SESSION=plasma KDE_FULL_SESSION=true
    mkdir -p "$HOME/.config"
    printf '%s\n' '[General]' systemdBoot=false >"$HOME/.config/startkderc"
    printf '%s\n' '[General]' confirmLogout=false loginMode=restorePreviousLogout >"$HOME/.config/ksmserverrc"
}

bus_call() { in_session gdbus call --session --dest "$1" --object-path "$2" --method "${@:3}"; }
log_out() { bus_call org.kde.ksmserver /KSMServer org.kde.KSMServerInterface.logout 0 0 0; }
end_panel() { bus_call org.kde.plasmashell /MainApplication org.qtproject.Qt.QCoreApplication.quit; }

# A scale of the display comes to programs in the environment of the next session; Plasma offers
# none below 1 and turns off what Qt makes of Xft.dpi.
set_dpi() {
    xrdb -merge <<<"Xft.dpi: $1"
    local scale
    scale=$(LC_ALL=C awk -v dpi="$1" 'BEGIN { print (dpi > 96 ? dpi / 96 : 1) }')
    sed -i '/^export QT_SCREEN_SCALE_FACTORS=/d' "$box/environment"
    echo "export QT_SCREEN_SCALE_FACTORS='$scale;$scale'" >>"$box/environment"
}

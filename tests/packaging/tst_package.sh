#!/usr/bin/env bash
# tst_package.sh PACKAGES_FOLDER VERSION
# Installs both packages into a folder, checks what they bring, works with the
# installed programs as a desktop would start them, and removes them again.
# Runs on a display of its own and leaves the system as it is.
set -euo pipefail
. "$(dirname "$0")/../../scripts/common.sh"
packages=$1 version=$2
PATH=$PATH:/usr/sbin:/sbin

target=$TMPDIR/root
client_deb=$(echo "$packages"/orvana-team-monitor_"$version"_*.deb)
service_deb=$(echo "$packages"/orvana-localservice_"$version"_*.deb)
entry=$target/usr/share/applications/org.example.orvana.desktop
autostart=$target/etc/xdg/autostart/orvana-watcher.desktop
units=$target/usr/lib/systemd/user
metainfo=$target/usr/share/metainfo/org.example.orvana.metainfo.xml

client=
failures=0
finish() {
    [ -z "$client" ] || kill "$client" 2>/dev/null || true
    stop_all
}
on_exit finish

# check WHAT COMMAND...
check() {
    local what=$1 output
    shift
    if output=$("$@" 2>&1); then
        say "ok: $what"
    else
        say "FAIL: $what"$'\n'"$output"
        failures=$((failures + 1))
    fi
}

# Stops the test: what follows could not work.
need() {
    local before=$failures
    check "$@"
    [ "$failures" = "$before" ] || exit 1
}

# silent COMMAND...: succeeds when the command does and has nothing to say.
silent() {
    local output
    if output=$("$@" 2>&1) && [ -z "$output" ]; then return; fi
    say "$output"
    return 1
}

# Dependencies are judged by what this system has installed.
prepare_target() {
    mkdir -p "$target"/var/lib/dpkg/{info,updates,triggers}
    awk -v RS= -v ORS='\n\n' '!/^Package: (orvana-team-monitor|orvana-localservice)\n/' \
        /var/lib/dpkg/status >"$target/var/lib/dpkg/status"
    touch "$target/var/lib/dpkg/available"
}

to_target() {
    local as_owner=()
    [ "$(id -u)" = 0 ] || as_owner=(fakeroot)
    "${as_owner[@]}" dpkg --root="$target" --log=/dev/null "$@"
}

# Everything that the packages brought, folders too.
installed_tree() { find "$target" -mindepth 1 -path "$target/var" -prune -o -printf '%P\n' | sort; }

entry_value() { sed -n "s/^$1=//p" "$entry"; }

unit_starts_installed_watcher() {
    local command
    command=$(sed -n 's/^ExecStart=//p' "$units/orvana-watcher.service")
    [ "$units/graphical-session.target.wants/orvana-watcher.service" -ef "$units/orvana-watcher.service" ] \
        && [ -x "$target${command%% *}" ]
}

# autostarts WHAT [SYSTEMCTL]: whether the autostart entry starts the unit, the watcher
# or nothing where systemctl is this script.
autostarts() {
    local fakes program
    fakes=$(mktemp -d)
    ln -s "$(command -v sh)" "$(command -v grep)" "$fakes"
    echo 'echo watcher' >"$fakes/orvana-watcher"
    [ $# = 1 ] || echo "$2" >"$fakes/systemctl"
    for program in "$fakes"/{orvana-watcher,systemctl}; do
        [ ! -e "$program" ] || { sed -i '1i #!/bin/sh' "$program" && chmod +x "$program"; }
    done
    [ "$(eval "PATH=$fakes $(sed -n 's/^Exec=//p' "$autostart")" 2>/dev/null)" = "$1" ]
}

# That they are hardened is tested where they are built.
each_program_is_complete() {
    local program page
    for program in "$target"/usr/bin/*; do
        page=$target/usr/share/man/man1/$(basename "$program").1.gz
        { zcat "$page" | grep -q "Monitor $version\"" && ! readelf -dW "$program" | grep -Eq 'R(UN)?PATH'; } ||
            { say "$program"; return 1; }
    done
}

window() { xdotool search --onlyvisible --name "$1" 2>/dev/null | tail -n 1; }
has_window() { [ -n "$(window "$1")" ]; }
class_of() { xprop -id "$1" WM_CLASS | sed 's/.*, "\(.*\)"$/\1/'; }
log_has() { grep -q "$1" "$ORVANA_STORAGE_ROOT/.orvana/log.log"; }

# Not within check: what it starts and exports must stay.
start_companions() {
    start "$TMPDIR/service.log" "$target/usr/bin/orvana-localservice" --port 0
    start "$TMPDIR/watcher.log" "$target/usr/bin/orvana-watcher" --port 0
    if ! wait_for 20 grep -q 'https://' "$TMPDIR/service.log" ||
        ! wait_for 20 grep -q '127\.0\.0\.1:' "$TMPDIR/watcher.log"; then
        cat "$TMPDIR"/*.log
        exit 1
    fi
    ORVANA_SERVICE_URL=$(grep -o 'https://127\.0\.0\.1:[0-9]*' "$TMPDIR/service.log" | head -n 1)
    export ORVANA_SERVICE_URL
    echo "watcher-port=$(sed 's/.*://' "$TMPDIR/watcher.log")" >"$ORVANA_CONFIG"
}

# As a desktop would. What it starts keeps the outputs open, so they are a file.
launch() {
    sed "s|^Exec=|&$target|" "$entry" >"$TMPDIR/orvana.desktop"
    PATH=$target/usr/bin:$PATH XDG_DATA_DIRS=$target/usr/share gio launch "$TMPDIR/orvana.desktop" >"$TMPDIR/client.log" 2>&1
}

prepare_target
installed_tree >"$TMPDIR/before"
need "both packages install" to_target --install "$client_deb" "$service_deb"

check "lintian has no complaint" silent lintian --allow-root "$client_deb" "$service_deb"
check "desktop entries are valid" silent desktop-file-validate "$entry" "$autostart"
check "metainfo is valid" appstreamcli validate --no-net --strict "$metainfo"
check "metainfo names the desktop entry" grep -q "desktop-id\">$(basename "$entry")<" "$metainfo"
for size in 16x16 22x22 24x24 32x32 48x48 64x64 128x128 256x256; do
    icon=$target/usr/share/icons/hicolor/$size/apps/$(entry_value Icon).png
    check "icon of $size" test "$(identify -format '%wx%h' "$icon")" = "$size"
done
check "the user unit starts the watcher with the session" unit_starts_installed_watcher
check "autostart starts the unit in this session" autostarts unit '[ "$*" != "--user restart orvana-watcher.service" ] || echo unit'
check "and leaves one alone that may not start" autostarts "" '[ "$2" != restart ]'
check "without a user service manager it starts the watcher" autostarts watcher 'exit 1'
check "and without systemd" autostarts watcher
check "but not one that is masked" autostarts "" '[ "$2" != is-enabled ] || echo masked; exit 1'
check "programs are complete and have a manual page" each_program_is_complete

start_companions
need "the desktop entry is accepted" launch
need "the login window appears" wait_for 30 has_window '^Авторизация$'
login=$(window '^Авторизация$')
client=$(xdotool getwindowpid "$login")
check "it is the installed client" test "/proc/$client/exe" -ef "$target/usr/bin/orvana"
check "desktops can tell its windows" test "$(class_of "$login")" = "$(entry_value StartupWMClass)"
check "it found the watcher" log_has 'connected to service: true'
kill "$client"
check "it ends when asked" wait_for 20 ended "$client"
check "it ends in order" log_has 'Exit Orvana Team Monitor OK'
client=
stop_all

need "both packages are removed" to_target --remove orvana-team-monitor orvana-localservice
check "only the configuration stays" test "$(cd "$target" && find . -path ./var -prune -o -type f -print)" = ./etc/xdg/autostart/orvana-watcher.desktop
need "the configuration is purged" to_target --purge orvana-team-monitor orvana-localservice
installed_tree >"$TMPDIR/after"
check "nothing is left" diff "$TMPDIR/before" "$TMPDIR/after"

say "$failures failed"
[ "$failures" = 0 ]

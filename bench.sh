#!/usr/bin/env bash
# bench.sh [--quick] [--only micro|starts|idle|installed]: builds the release, measures it
# and its yardsticks and prints one table. Idle windows are measured for ten minutes, with
# --quick for one.
set -euo pipefail
cd "$(dirname "$0")"
. scripts/common.sh
. scripts/virtual-desktop.sh
. scripts/services.sh

arguments=()
for argument in "$@"; do
    case $argument in
    --quick) arguments+=(--minutes 1) ;;
    *) arguments+=("$argument") ;;
    esac
done

install_packages bench
build_preset bench

box=$(mktemp -d /tmp/orvana-bench.XXXXXX)
finish() {
    stop_all
    rm -rf "$box"
}
on_exit finish

mkdir -m 700 "$box/home" "$box/run"
export HOME=$box/home TMPDIR=$box XDG_RUNTIME_DIR=$box/run XDG_CONFIG_HOME=$box/home/.config LC_ALL=ru_RU.UTF-8
unset http_proxy https_proxy HTTP_PROXY HTTPS_PROXY DBUS_SESSION_BUS_ADDRESS QT_XCB_GL_INTEGRATION QT_QPA_PLATFORM

start_service "$box" build/bench
start_desktop "$box"
# A scale of 1; at the server's own 100 dpi Qt would scale everything a little.
xrdb -nocpp -merge <<<'Xft.dpi: 96'
start_watcher "$box" build/bench
dbus-run-session -- python3 bench/measure.py build/bench "$box/results" "${arguments[@]}"

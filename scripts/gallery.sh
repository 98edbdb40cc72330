#!/usr/bin/env bash
# gallery.sh [SCENE...]: saves screenshots of every window in every state in build/gallery:
# three scales and larger fonts, with and without a compositor, on a dark and a light
# wallpaper. Takes five minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh
. scripts/virtual-desktop.sh

install_packages
build_preset release gallery

box=$(mktemp -d /tmp/orvana-gallery.XXXXXX)
finish() {
    stop_all
    rm -rf "$box"
}
on_exit finish
export TMPDIR=$box ORVANA_CONFIG=$box/orvanx.conf LC_ALL=ru_RU.UTF-8 QT_XCB_GL_INTEGRATION=none
export QT_LOGGING_RULES='*.debug=false'

# variant NAME SIZE WALLPAPER compositor|plain SCALE DPI [SCENE...]
variant() {
    local name=$1 size=$2 wallpaper=$3 kind=$4 scale=$5 dpi=$6 missing
    shift 6
    rm -rf "build/gallery/$name"
    mkdir -p "build/gallery/$name"
    start_desktop "$box" "$size" "$wallpaper" "$kind"
    # What desktops set for larger fonts.
    xrdb -merge <<<"Xft.dpi: $dpi"
    QT_SCALE_FACTOR=$scale build/release/tests/look/gallery "build/gallery/$name" "$@" >"$box/gallery.log" 2>&1 ||
        missing=$?
    if [ -n "${missing:-}" ]; then
        tail -n 20 "$box/gallery.log" >&2
        say "gallery: $missing states of $name were not reached" >&2
        return 1
    fi
    stop_all
    say "  build/gallery/$name"
}

dark='#22303c' light='#e9edf1'
for scale in 1 1.5 2; do
    case $scale in
    1) size=1280x800 ;;
    1.5) size=1920x1200 ;;
    2) size=2560x1600 ;;
    esac
    for kind in compositor plain; do
        variant "$scale-$kind-dark" "$size" "$dark" "$kind" "$scale" 96 "$@"
        variant "$scale-$kind-light" "$size" "$light" "$kind" "$scale" 96 "$@"
    done
done
variant larger-fonts 1280x800 '#5b6f80' compositor 1 120 "$@"

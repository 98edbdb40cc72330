#!/usr/bin/env bash
# Builds the client and opens it with the local task service and the activity watcher,
# with a storage folder of its own. Without a display it works through a demonstration on
# a virtual one and saves a screenshot of each step.
set -euo pipefail
cd "$(dirname "$0")"
. scripts/common.sh
. scripts/virtual-desktop.sh
. scripts/services.sh

install_packages
build_preset release

box=$(mktemp -d /tmp/orvana-run.XXXXXX)
finish() {
    stop_all
    rm -rf "$box"
}
on_exit finish

export ORVANA_STORAGE_ROOT=$box TMPDIR=$box
unset http_proxy https_proxy HTTP_PROXY HTTPS_PROXY

start_service "$box" build/release

if [ -n "${DISPLAY:-}" ] && xset q >/dev/null 2>&1; then
    virtual=
else
    virtual=yes
    start_desktop "$box"
fi

start_watcher "$box" build/release

if [ -n "$virtual" ]; then
    . scripts/demo.sh
    demo "$box" build/demo
    exit
fi
cat <<TEXT
Войдите: anna@orvana.example, пароль orvana
Данные сервиса можно менять на странице $ORVANA_SERVICE_URL/
TEXT
start "$box/client.log" build/release/src/orvana
client=${started[-1]}
tail -n +1 -f --pid="$client" "$box/service.log" &
started+=($!)
wait "$client"

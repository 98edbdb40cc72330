#!/usr/bin/env bash
# Builds the client and opens it against the local task service and the activity
# watcher, with a storage folder of its own. Without a display it works on a
# virtual one by itself, as a person would, and saves a picture of each step.
set -euo pipefail
cd "$(dirname "$0")"
. scripts/common.sh
. scripts/desktop.sh

install_packages
build_preset release

box=$(mktemp -d /tmp/orvana-run.XXXXXX)
finish() {
    stop_all
    rm -rf "$box"
}
on_exit finish

export ORVANA_STORAGE_ROOT=$box ORVANA_CONFIG=$box/orvanx.conf TMPDIR=$box
unset http_proxy https_proxy HTTP_PROXY HTTPS_PROXY

start "$box/service.log" build/release/companions/localservice/orvana-localservice --port 0 --data "$box/service"
wait_for 20 grep -q 'https://' "$box/service.log" || { cat "$box/service.log" >&2; exit 1; }
ORVANA_SERVICE_URL=$(grep -o 'https://127\.0\.0\.1:[0-9]*' "$box/service.log" | head -n 1)
export ORVANA_SERVICE_URL

if [ -n "${DISPLAY:-}" ] && xset q >/dev/null 2>&1; then
    virtual=
else
    virtual=yes
    start_desktop "$box"
fi

# A port of its own, so that a watcher of this desktop stays as it is.
for port in $(shuf -i 20000-40000 -n 20); do
    start "$box/watcher.log" build/release/companions/watcher/orvana-watcher --port "$port"
    wait_for 5 grep -q "$port" "$box/watcher.log" && kill -0 "${started[-1]}" 2>/dev/null && break
done
echo "watcher-port=$port" >"$ORVANA_CONFIG"

if [ -n "$virtual" ]; then
    . scripts/demo.sh
    demo "$box" build/demo
    say "Снимки всех окон"
    scripts/gallery.sh
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

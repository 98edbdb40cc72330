# Sourced: a task service and an activity watcher for one client of this build.
# Needs scripts/common.sh; exports the client's ORVANA_SERVICE_URL and ORVANA_CONFIG.

# start_service FOLDER BUILD
start_service() {
    start "$1/service.log" "$2/companions/localservice/orvana-localservice" --port 0 --data "$1/service"
    wait_for 20 grep -q 'https://' "$1/service.log" || { cat "$1/service.log" >&2; return 1; }
    ORVANA_SERVICE_URL=$(grep -o 'https://127\.0\.0\.1:[0-9]*' "$1/service.log" | head -n 1)
    export ORVANA_SERVICE_URL
}

# start_watcher FOLDER BUILD: on a port of its own, so that a watcher of this desktop keeps
# running.
start_watcher() {
    local port
    for port in $(shuf -i 20000-40000 -n 20); do
        start "$1/watcher.log" "$2/companions/watcher/orvana-watcher" --port "$port"
        wait_for 5 grep -q "$port" "$1/watcher.log" && kill -0 "${started[-1]}" 2>/dev/null && break
    done
    export ORVANA_CONFIG=$1/orvanx.conf
    echo "watcher-port=$port" >"$ORVANA_CONFIG"
}

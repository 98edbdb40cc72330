#!/usr/bin/env bash
# service-manager.sh UNITS: as root, runs systemd's manager of a user's services, of the user nobody and with the
# units of that folder only, until it ends or is ended. Its runtime folder is XDG_RUNTIME_DIR.
set -euo pipefail
if [ "${1:-}" != --apart ]; then
    exec unshare --mount "$0" --apart "$@"
fi
# It works only where systemd seems to run, and needs a control group of its own.
mount -t tmpfs none /run/systemd
mkdir /run/systemd/system
groups=()
for folder in /sys/fs/cgroup /sys/fs/cgroup/systemd /sys/fs/cgroup/unified; do
    [ -e "$folder/cgroup.procs" ] || continue
    mkdir "$folder/orvana-trial-$$"
    groups+=("$folder/orvana-trial-$$")
    chown -R nobody "${groups[-1]}"
done
clear_away() {
    find "${groups[@]}" -name cgroup.procs -exec cat {} + | sort -u | xargs -r kill -KILL
    sleep 0.3
    find "${groups[@]}" -depth -type d -exec rmdir {} + 2>/dev/null
}
manager=
trap '[ -z "$manager" ] || kill -KILL "$manager" 2>/dev/null' TERM INT
trap clear_away EXIT
(
    for group in "${groups[@]}"; do echo "$BASHPID" >"$group/cgroup.procs"; done
    SYSTEMD_UNIT_PATH=$2 exec setpriv --reuid=nobody --regid=nogroup --clear-groups -- \
        /lib/systemd/systemd --user --unit=default.target --log-target=console
) &
manager=$!
while kill -0 "$manager" 2>/dev/null; do wait "$manager" || true; done

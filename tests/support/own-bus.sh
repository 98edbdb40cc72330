#!/usr/bin/env bash
# own-bus.sh PROGRAM [ARGUMENT...]
# Runs a test with a session bus of its own, on which nothing is started by its name.
set -euo pipefail
cat >"$TMPDIR/bus.conf" <<'CONF'
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=/tmp</listen>
  <policy context="default"><allow send_destination="*"/><allow own="*"/><allow eavesdrop="false"/></policy>
</busconfig>
CONF
exec dbus-run-session --config-file="$TMPDIR/bus.conf" -- "$@"

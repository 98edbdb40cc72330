#!/usr/bin/env bash
# small-disk.sh PROGRAM [ARGUMENT...]
# Runs a test with its temporary folder on a disk of two megabytes that it can fill
# and lock. Exit code 77, with the reason, where such a disk cannot be had.
set -euo pipefail

skip() { echo "SKIPPED: $*"; exit 77; }

if [ -z "${SMALL_DISK:-}" ]; then
    [ "$(id -u)" = 0 ] || skip "a small disk needs root"
    unshare --mount true 2>/dev/null || skip "no name space for a small disk"
    mkdir "$TMPDIR/disk"
    SMALL_DISK=$TMPDIR/disk exec unshare --mount "$0" "$@"
fi
mount -t tmpfs -o size=2m,mode=700 tmpfs "$SMALL_DISK" 2>/dev/null || skip "a small disk cannot be mounted"
export SMALL_DISK TMPDIR=$SMALL_DISK
exec "$@"

#!/usr/bin/env bash
# own-clock.sh PROGRAM [ARGUMENT...]
# Runs a test that sets the wall clock by writing into the file OWN_CLOCK; timers go
# on by themselves.
set -euo pipefail
export OWN_CLOCK=$TMPDIR/clock
echo '2026-03-02 10:00:00' >"$OWN_CLOCK"
# A sanitizer's library wants to be the first that is loaded. Waits for the end of a
# network thread are cut short by this clock, and the thread then counts as leaked.
export ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}verify_asan_link_order=0:detect_leaks=0
export FAKETIME_TIMESTAMP_FILE=$OWN_CLOCK FAKETIME_NO_CACHE=1 FAKETIME_DONT_FAKE_MONOTONIC=1 DONT_FAKE_MONOTONIC=1
# shellcheck disable=SC2016
LD_PRELOAD='/usr/$LIB/faketime/libfaketimeMT.so.1' exec "$@"

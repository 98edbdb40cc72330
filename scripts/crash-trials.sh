#!/usr/bin/env bash
# crash-trials.sh [KILLS [SEED]]: kills the client KILLS times, by default 1000, while the
# service fails in every way and somebody starts and stops the timer and changes tasks,
# users and the service's address. Compares the minutes of the journal with those that
# arrived and with the counters on the screen, and what the next start does with the last
# choice. A thousand kills take about a quarter of an hour.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh

install_packages
build_preset dev crashtrials
exec nice tests/support/sandbox.sh display C.UTF-8 build/dev/tests/crashtrials "${1:-1000}" "${@:2}"

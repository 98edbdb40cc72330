#!/usr/bin/env bash
# crash-trials.sh [KILLS [SEED]]: kills the client KILLS times while the service fails
# in every way and somebody starts and stops the timer and changes tasks, users and the
# service's address. Compares what the client counted with what arrived, and what the
# next start does with what was chosen last. A thousand kills take about a quarter of an
# hour.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh

install_packages
cmake --preset dev >/dev/null
cmake --build build/dev --target crashtrials >/dev/null
exec nice tests/support/sandbox.sh display C.UTF-8 build/dev/tests/crashtrials "${1:-1000}" "${@:2}"

#!/usr/bin/env bash
# crash-trials.sh [KILLS [SEED]]: kills the client so many times while the service
# fails in every way, and compares what it had counted with what arrived. A
# thousand kills take about a quarter of an hour.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh

install_packages
cmake --preset dev >/dev/null
cmake --build build/dev --target crashtrials >/dev/null
exec nice tests/support/sandbox.sh display C.UTF-8 build/dev/tests/crashtrials "${1:-1000}" "${@:2}"

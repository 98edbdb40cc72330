#!/usr/bin/env bash
# test.sh [PRESET [CTEST OPTIONS]]: builds everything and runs every test, by default of
# the preset dev.
set -euo pipefail
cd "$(dirname "$0")"
. scripts/common.sh

preset=${1:-dev}
[ $# -eq 0 ] || shift
install_packages
build_preset "$preset"
# GUI tests have an X server each; two at once keep both cores busy.
exec ctest --preset "$preset" --parallel 2 "$@"

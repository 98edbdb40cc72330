#!/usr/bin/env bash
# soak.sh [HOURS]: lets the release client work through HOURS hours at sixty times
# their speed, with failures of the service and changed lists every minute, and fails
# when memory, descriptors or files grow or a counted minute does not arrive. A day
# takes 24 minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh

install_packages
build_preset release
cmake --preset dev >/dev/null
cmake --build build/dev --target soak >/dev/null
exec tests/support/sandbox.sh display C.UTF-8 build/dev/tests/soak build/release/src/orvana "${1:-24}"

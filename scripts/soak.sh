#!/usr/bin/env bash
# soak.sh [HOURS]: lets the release client work for HOURS, at least 3 and by default 24, at sixty times
# their speed, with failures of the service and changed lists every minute. Fails when
# memory, descriptors or files grow, a counted minute does not arrive, or the journal and
# the service differ. A day takes 24 minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh

install_packages
build_preset release
build_preset dev soak
exec tests/support/sandbox.sh display C.UTF-8 build/dev/tests/soak build/release/src/orvana "${1:-24}"

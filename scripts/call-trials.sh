#!/usr/bin/env bash
# call-trials.sh [CLIENTS [CALL...]]: at each system call between the end of a minute and the deletion
# of its record, kills the client or lets the call fail, then starts the client again and
# compares journal, service and counters. Prints a table of calls and outcomes, which
# docs/journal.md has. CLIENTS, by default 6, work at a time; it takes seven minutes, or
# less with the names of a few calls.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh

install_packages calls
build_preset dev calltrials
exec tests/support/sandbox.sh display C.UTF-8 build/dev/tests/calltrials build/dev/src/orvana "${1:-6}" "${@:2}"

#!/usr/bin/env bash
# hardening.sh PROJECT_FOLDER PROGRAM...
# Checks each program for the hardening that a binary shows, and the commands that build a
# release for what only the compiler knows.
set -euo pipefail
project=$1
shift
failures=0

# expect WHAT TEXT PATTERN
expect() {
    grep -Eq -- "$3" <<<"$2" && return
    echo "FAIL: $1"
    failures=$((failures + 1))
}

for program in "$@"; do
    facts=$(LC_ALL=C readelf -hldW --dyn-syms "$program")
    expect "$program: loaded anywhere" "$facts" '\(FLAGS_1\).*\bPIE\b'
    expect "$program: a stack that is no code" "$facts" 'GNU_STACK .* RW +0x'
    expect "$program: tables closed" "$facts" 'GNU_RELRO'
    expect "$program: before anything runs" "$facts" 'BIND_NOW'
    expect "$program: stack protector" "$facts" '__stack_chk_fail'
done

cmake -S "$project" -B "$TMPDIR/release" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVANA_BUILD_TESTS=OFF >/dev/null
commands=$(grep -o '"command": .*-c .*/\(src\|companions\)/.*\.cpp"' "$TMPDIR/release/compile_commands.json")
[ "$(wc -l <<<"$commands")" -gt 50 ] || { echo "FAIL: no commands found"; exit 1; }
for flag in -D_FORTIFY_SOURCE=[23] -O[23] -fstack-protector-strong '-fPI[CE]'; do
    without=$(grep -Ev -- " $flag( |$)" <<<"$commands" || true)
    [ -z "$without" ] || { echo "FAIL: compiled without $flag: ${without:0:500}"; failures=$((failures + 1)); }
done
[ "$failures" = 0 ] && echo "hardened"

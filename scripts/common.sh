# Sourced by the commands at the root: installs packages, builds, and stops what was started.
# shellcheck disable=SC2120 # install_packages may be called without arguments
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '%s\n' "$*"; }

as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        say "This needs root rights or sudo: $*" >&2
        return 1
    fi
}

# install_packages [LIST...]: installs what is missing of the Debian packages in packages.txt
# and in packages-LIST.txt, and the locales of the tests.
install_packages() {
    local wanted missing=() name installed lists=(packages.txt) rights=sudo
    for name in "$@"; do lists+=("packages-$name.txt"); done
    mapfile -t wanted < <(cd "$root/scripts" && sed '/^#/d' "${lists[@]}")
    [ "$(id -u)" != 0 ] || rights=root
    installed=$(dpkg-query -W -f '${db:Status-Abbrev} ${Package}\n' 2>/dev/null | sed -n 's/^ii  *//p')
    for name in "${wanted[@]}"; do
        grep -qxF "$name" <<<"$installed" || missing+=("$name")
    done
    if [ ${#missing[@]} -gt 0 ]; then
        say "Installing ${#missing[@]} Debian packages as $rights: ${missing[*]}"
        as_root apt-get -qq update
        as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends install \
            "${missing[@]}" >/dev/null
    fi
    # Persian has digits of its own.
    for name in ru_RU fa_IR; do
        if ! locale -a 2>/dev/null | grep -qi "^$name\.utf-\?8$"; then
            say "Generating the locale $name.UTF-8 as $rights"
            as_root localedef -i "$name" -f UTF-8 "$name.UTF-8"
        fi
    done
}

# show_progress TEXT: of the lines of a build, "TEXT: n of m": in place on a terminal, else
# after each tenth.
show_progress() {
    local line next=0 eol='\n'
    [ ! -t 1 ] || eol='\r'
    while IFS= read -r line; do
        [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
        if [ -t 1 ] || ((BASH_REMATCH[1] * 10 >= next * BASH_REMATCH[2])); then
            printf "%s: %d of %d$eol" "$1" "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
            next=$((BASH_REMATCH[1] * 10 / BASH_REMATCH[2] + 1))
        fi
    done
    if [ -t 1 ] && [ "$next" -gt 0 ]; then say; fi
}

# build_preset NAME [TARGET]: configures and builds what has changed, in build/NAME.
build_preset() {
    local log=$root/build/$1.log
    mkdir -p "$root/build"
    if ! (cd "$root" && cmake --preset "$1" && cmake --build "build/$1" ${2:+--target "$2"}) 2>&1 |
        tee "$log" | show_progress "Building $1"; then
        tail -n 60 "$log" >&2
        say "The build failed; all of its output is in $log" >&2
        return 1
    fi
}

started=()

# start LOG COMMAND...: in the background, stopped by stop_all.
start() {
    local log=$1
    shift
    "$@" >"$log" 2>&1 &
    started+=($!)
}

runs() { kill -0 "$1"; }
ended() { ! runs "$1"; }

# Ends everything that was started, the last first; by force what does not end in 5 seconds.
stop_all() {
    local i pid
    for ((i = ${#started[@]} - 1; i >= 0; i--)); do
        pid=${started[i]}
        kill "$pid" 2>/dev/null || true
        wait_for 5 ended "$pid" || kill -KILL "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    started=()
}

# on_exit COMMAND: at the end, after an error and on Ctrl-C alike. A second Ctrl-C must not
# interrupt it, or programs would be left running.
on_exit() {
    at_exit=$1
    trap 'trap "" HUP INT TERM; trap - EXIT; $at_exit' EXIT
    trap 'exit 129' HUP
    trap 'exit 130' INT
    trap 'exit 143' TERM
}

# wait_for SECONDS COMMAND...: until the command succeeds.
wait_for() {
    local end=$((SECONDS + $1))
    shift
    until "$@" >/dev/null 2>&1; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.1
    done
}

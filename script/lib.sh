# What the scripts of this directory share. Sourced, never run.
# shellcheck shell=bash

# The top of the source tree, whatever the caller's directory is; paths are free of symbolic links.
root=$(cd -P -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd)
me=${0##*/}

say() { printf '%s: %s\n' "$me" "$*"; }
warn() { printf '%s: %s\n' "$me" "$*" >&2; }
die() {
    warn "$@"
    exit 1
}

# The comment block that a script opens with is its help.
usage() {
    sed -n '2,/^$/{ s/^# \{0,1\}//p; }' "$0"
}

bad_usage() {
    warn "$1 (see $me --help)"
    exit 2
}

# Compilers run in two jobs at most unless the caller knows better: sanitizer builds need memory.
jobs_wanted() {
    local cores
    cores=$(nproc)
    printf '%s\n' "${INET_AGENT_JOBS:-$((cores < 2 ? cores : 2))}"
}

# configure PRESET [CMAKE_ARGS...]: ccache only where it is installed.
configure() {
    local preset=$1
    shift
    if command -v ccache >/dev/null; then
        set -- -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@"
    fi
    (cd "$root" && cmake --preset "$preset" "$@")
}

# build PRESET [TARGETS...]
build() {
    local preset=$1
    shift
    if (($# > 0)); then
        set -- --target "$@"
    fi
    cmake --build "$root/build/$preset" --parallel "$(jobs_wanted)" "$@"
}

# quietly LOG COMMAND...: the output goes to LOG and is shown only when the command fails.
quietly() {
    local log=$1 status=0
    shift
    mkdir -p "$(dirname "$log")"
    "$@" >"$log" 2>&1 || status=$?
    if ((status != 0)); then
        warn "failed with status $status; the last lines of $log:"
        tail -n 120 "$log" >&2
    fi
    return "$status"
}

#!/usr/bin/env bash
# scratch_root_test.sh ROOT: agent, tool and, if it is there, library do their work from below ROOT. To be run in a device's
# view of its own.
set -euo pipefail
root=$1
bin=$root/usr/bin
share=$root/usr/share
work=$(mktemp -d /tmp/scratch-root.XXXXXX)
agent=""
trap '[[ -z $agent ]] || kill "$agent"; rm -rf "$work"' EXIT
fail() {
    printf '%s\n' "$*" >&2
    cat "$work"/*.log >&2
    exit 1
}
unset LD_LIBRARY_PATH

for file in share/man/man1/mqctl.1 share/man/man5/marlow.conf.5 share/man/man8/inet-agent.8 \
    share/bash-completion/completions/mqctl share/fish/vendor_completions.d/mqctl.fish lib/sysusers.d/inet-agent.conf \
    lib/tmpfiles.d/inet-agent.conf; do
    compgen -G "$root/usr/$file*" >/dev/null || fail "$file is missing"
done
compgen -G "$share/zsh/*/_mqctl" >/dev/null || fail "the completion for zsh is missing"
compgen -G "$root/*/systemd/system/inet-agent.service" >/dev/null ||
    compgen -G "$root/usr/lib/systemd/system/inet-agent.service" >/dev/null || fail "the unit is missing"

# The sample configuration as it is, but for the level, whose effect is seen below.
cp "$share"/doc/inet-agent/examples/*.conf /vendor/etc
sed -i 's/^\(DEBUG_GLOBAL_LOG_LEVEL\) = .*/\1 = 3/' /vendor/etc/marlow.conf
"$bin/inet-agent" >"$work/agent.log" 2>&1 &
agent=$!
for ((turn = 0; turn < 300; turn++)); do
    [[ $("$bin/mqctl" list --names) == $'inet-agent-cs\ninet-agent-tdp-dl' ]] && break
    sleep 0.1
done
if [[ -e /vendor/etc/seccomp_policy/gnss@2.0-base.policy ]]; then
    grep -q $'^Seccomp:\t2$' "/proc/$agent/status" || fail "the agent is not confined"
fi

# The agent's own refusal: the request went there and the reply came back.
status=0
"$bin/mqctl" get file:///etc/hostname >"$work/get.log" 2>&1 || status=$?
[[ $status == 7 ]] || fail "mqctl get file:///etc/hostname ended with status $status instead of 7"
grep -q 'FROM: mqctl-' "$work/agent.log" || fail "the sample configuration was not read"

# The names that exist now are offered.
offered=$(
    # shellcheck source=packaging/completions/mqctl.bash
    source "$share/bash-completion/completions/mqctl"
    COMP_WORDS=("$bin/mqctl" health inet-agent-t) COMP_CWORD=2 COMPREPLY=()
    _mqctl
    echo "${COMPREPLY[*]}"
)
[[ $offered == inet-agent-tdp-dl ]] || fail "bash offers \"$offered\" for inet-agent-t"

if [[ -e $root/usr/include/inet_agent_client.h ]]; then
    libraries=$(dirname "$(find "$root/usr/lib" -name libinet-agent-client.so)")
    # shellcheck disable=SC2016  # nothing is to expand
    sed -n '/^#include <inet_agent_client.h>/,/^```/ { /^```/q; p }' \
        "$(dirname -- "$0")/../../docs/client.md" >"$work/fetch.cpp"
    # shellcheck disable=SC2046  # flags are words
    c++ -std=c++17 "$work/fetch.cpp" -o "$work/fetch" \
        $(PKG_CONFIG_PATH=$libraries/pkgconfig pkg-config --cflags --libs inet-agent-client) >"$work/c++.log" 2>&1 ||
        fail "the library's guide does not compile"
    LD_LIBRARY_PATH=$libraries "$work/fetch" file:///etc/hostname >"$work/fetch.log" 2>&1 &&
        fail "the library fetched a file"
    grep -q 'transfer failed' "$work/fetch.log" || fail "the library's reply is another one"
fi

kill "$agent"
wait "$agent" || fail "the agent ended with status $?"
agent=""

#!/usr/bin/env bash
# installed_test.sh BUILD_DIRECTORY CMAKE: installs agent and tool into a scratch root and uses them there. To be run in a
# device's view of its own. EMULATOR in the environment: the command that runs programs of another processor.
set -euo pipefail
build=$1 cmake=$2
here=$(cd -P -- "$(dirname -- "$0")" && pwd)
root=$(mktemp -d /tmp/installed.XXXXXX)
trap 'rm -rf "$root"' EXIT
for component in Agent Tool; do
    "$cmake" --install "$build" --prefix "$root/usr" --component "$component" >"$root/install.log"
done
if [[ -n ${EMULATOR-} ]]; then
    for program in "$root"/usr/bin/*; do
        mv "$program" "$program.real"
        # shellcheck disable=SC2016  # the launcher expands them
        printf '#!/bin/sh\nexec %s "$0.real" "$@"\n' "$EMULATOR" >"$program"
        chmod +x "$program"
    done
fi
"$here/scratch_root_test.sh" "$root"

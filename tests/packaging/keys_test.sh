#!/usr/bin/env bash
# keys_test.sh SOURCE_DIRECTORY: every configuration key of docs/operating.md is in the sample files, with the default that
# the page gives, and in the manual page; and the samples hold no other.
set -euo pipefail
source=$1
failed=0
complain() {
    echo "$*" >&2
    failed=1
}

# KEY DEFAULT, from the tables under "Configuration"; the heading says in which column the default is.
documented=$(sed -n '/^## Configuration/,/^## Files/p' "$source/docs/operating.md" | awk -F' *[|] *' '
    $2 == "key" { for (i = 1; i <= NF; i++) if ($i == "default") column = i }
    $2 ~ /^`[A-Z_]+`$/ { gsub("`", ""); print $2, $column }' | sort)
[[ $(wc -l <<<"$documented") -ge 6 ]] || complain "docs/operating.md has lost its tables of keys"

sampled=$(sed -n 's/^\([A-Z_]*\) *= *"\{0,1\}\([^"]*\)"\{0,1\}$/\1 \2/p' "$source"/packaging/examples/*.conf | sort)
if [[ $documented != "$sampled" ]]; then
    complain "docs/operating.md (<) and the samples (>) differ:"
    diff <(echo "$documented") <(echo "$sampled") >&2 || true
fi
while read -r key _; do
    grep -q "^\*$key\*$" "$source/packaging/man/marlow.conf.5.scd" || complain "marlow.conf(5) lacks $key"
done <<<"$documented"
exit "$failed"

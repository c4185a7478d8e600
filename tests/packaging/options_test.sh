#!/usr/bin/env bash
# options_test.sh SOURCE_DIRECTORY MQCTL: every command and option of `mqctl --help` is in the manual page, under its
# command, and in the three completions; bash offers nothing else.
set -euo pipefail
source=$1 mqctl=$2
manual=$source/packaging/man/mqctl.1.scd
completions=$source/packaging/completions
failed=0
complain() {
    echo "$*" >&2
    failed=1
}

# options [COMMAND]: those of its help, one a line.
options() {
    "$mqctl" "$@" --help | sed -n 's/^ \{1,4\}\(-.*\)/\1/p' | sed 's/   *.*//' |
        grep -oE '(^|[ ,])--?[A-Za-z][A-Za-z-]*' | tr -d ' ,' | sort -u
}

# section HEADING: that section of the manual page, by a pattern for its heading.
section() {
    awk -v heading="$1" '/^#/ { inside = $0 ~ heading } inside' "$manual"
}

# offered WORDS...: what bash offers for the last word.
offered() (
    # shellcheck source=packaging/completions/mqctl.bash
    source "$completions/mqctl.bash"
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    _mqctl 2>/dev/null
    printf '%s\n' "${COMPREPLY[@]}" | sort -u
)

# check WHERE SECTION OPTION
check() {
    local where=$1 heading=$2 option=$3 bare=${3##-} kind
    bare=${bare#-}
    section "$heading" | grep -qE -- "\\*$option\\*" || complain "mqctl(1) lacks $option ($where)"
    grep -qE -- "[\"'{,*]$option([^a-z-]|\$)" "$completions/_mqctl" || complain "zsh: lacks $option ($where)"
    kind=s
    if [[ $option == --* ]]; then
        kind=l
    fi
    grep -qE -- " -$kind $bare( |\$)" "$completions/mqctl.fish" || complain "fish: lacks $option ($where)"
}

everywhere=$(options)
[[ $(wc -l <<<"$everywhere") -ge 10 ]] || complain "the help has changed its form"
for option in $everywhere; do
    check "everywhere" '^# OPTIONS$' "$option"
done
[[ $(offered mqctl -) == "$everywhere" ]] || complain "bash offers other options than: $everywhere"

commands=$("$mqctl" --help | sed -n '/^Subcommands:/,$ s/^  \([a-z-]\{1,\}\)  .*/\1/p')
[[ $(wc -l <<<"$commands") -ge 12 ]] || complain "the help has changed its form"
for command in $commands; do
    heading="^## ([a-z, -]* )?$command(,|\$)"
    [[ -n $(section "$heading") ]] || complain "mqctl(1) lacks the command $command"
    grep -q "'$command:\|\"$command:" "$completions/_mqctl" || complain "zsh: lacks $command"
    grep -q -- "-a $command " "$completions/mqctl.fish" || complain "fish: lacks $command"
    offered mqctl "$command" | grep -qx -- "$command" || complain "bash does not offer $command"
    special=$(comm -23 <(options "$command") <(echo "$everywhere"))
    for option in $special; do
        check "$command" "$heading" "$option"
    done
    wanted=$(printf '%s\n' "$special" "$everywhere" | grep -v '^--version$' | sed '/^$/d' | sort -u)
    found=$(offered mqctl "$command" -)
    if [[ $found != "$wanted" ]]; then
        complain "bash, $command: wanted (<) and offered (>) differ"
        diff <(echo "$wanted") <(echo "$found") >&2 || true
    fi
done
exit "$failed"

# bash completion for mqctl(1). Needs nothing of the bash-completion package but to be found by it.

_mqctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local commands="list get post call send listen os-agent ping health repair decode encode report"
    local -A own=(
        [list]="--watch --names"
        [get]="-t --timeout -o --output --fail --fresh"
        [post]="-d --data --type --protocol-version -t --timeout -o --output --fail --fresh"
        [call]="--json-in"
        [send]="--json-in --raw"
        [listen]="--alias -n --count --match --save --announcements"
        [os-agent]="--location --emergency -i --interactive"
        [ping]="-c --count -i --interval"
        [health]="--longest --probe-url"
        [repair]="--yes"
        [decode]="--hex"
        [encode]="--hex -o --output"
        [report]="--html --har --summary --client --since --slow --urls --no-query"
    )
    local everywhere="-h --help --to --from -w --wait --json -j --color -q --quiet -v --verbose --no-legend --force"

    # The command is the first word that is neither an option nor an option's value.
    local command="" i word
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        case $word in
            --to | --from | --wait | -w) ((i++)) ;;
            -* | = | short | pretty | auto | always | never) ;;
            *) command=$word; break ;;
        esac
    done

    COMPREPLY=()
    # With "=" among COMP_WORDBREAKS, "--json=sh" comes as three words.
    if [[ $current == = ]]; then
        current=""
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $command:$previous in
        *:--json) mapfile -t COMPREPLY < <(compgen -W "short pretty" -- "$current"); return ;;
        *:--color) mapfile -t COMPREPLY < <(compgen -W "auto always never" -- "$current"); return ;;
        *:--to | *:--from) _mqctl_names "$current"; return ;;
        os-agent:--location | os-agent:--emergency)
            mapfile -t COMPREPLY < <(compgen -W "on off" -- "$current"); return ;;
        listen:--save) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$current"); return ;;
        *:--json-in | *:--raw | *:-o | *:--output | report:--html | report:--har)
            compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
        post:-d | post:--data)
            if [[ $current == @* ]]; then
                mapfile -t COMPREPLY < <(compgen -P @ -f -- "${current#@}")
            fi
            return ;;
        *:-w | *:--wait | *:-t | *:--timeout | *:-n | *:--count | ping:-c | ping:-i | *:--interval | *:--longest | \
            *:--probe-url | *:--type | *:--protocol-version | *:--alias | *:--match | *:--client | *:--since | *:--slow)
            return ;;
    esac
    if [[ $current == -* ]]; then
        local options="${own[$command]-} $everywhere"
        if [[ -z $command ]]; then
            options+=" --version"
        fi
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
        return
    fi
    case $command in
        "") mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current") ;;
        call | send | listen | ping | health | repair) _mqctl_names "$current" ;;
        decode | encode | report) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    esac
}

# Participants that exist now. Names are whatever others chose, so they are compared as they are and quoted.
_mqctl_names() {
    local name
    while IFS= read -r name; do
        if [[ $name == "$1"* ]]; then
            COMPREPLY+=("$(printf '%q' "$name")")
        fi
    done < <("${COMP_WORDS[0]}" list --names 2>/dev/null)
}

complete -F _mqctl mqctl

# bash completion for vardctl(1)

# Offers the given words that begin with what was typed, quoted for the shell. The words come from the service, so they are
# never expanded.
_vardctl_offer() {
    local word
    while IFS= read -r word; do
        [[ $word == "$typed"* && $word != - ]] || continue
        printf -v word %q "$word"
        COMPREPLY+=("$word")
    done
}

_vardctl_options() {
    case $1 in
        list) echo --json --no-legend ;;
        show) echo --json --secrets --user ;;
        processes) echo --json --no-legend ;;
        programs | address | status | watch) echo --json ;;
        check) echo --config --json ;;
        login) echo --domain --width --height --depth --no-check --json ;;
        run) echo --domain --width --height --no-check --json ;;
        notify) echo --header --level ;;
        limit) echo --duration --inactivity ;;
        shutdown) echo --user ;;
        '') echo --version ;;
    esac
    echo --help
}

# The how-manieth argument of the subcommand is being typed; options and their values do not count.
_vardctl_position() {
    local index position=0
    for ((index = 2; index < COMP_CWORD; index++)); do
        case ${COMP_WORDS[index]} in
            --domain | --width | --height | --depth | --header | --level | --duration | --inactivity | --config) ((index++)) ;;
            -*) ;;
            *) ((position++)) ;;
        esac
    done
    echo "$position"
}

_vardctl_arguments() {
    case $1/$(_vardctl_position) in
        show/0 | shutdown/0) vardctl list --no-legend 2>/dev/null | awk '{ print $1; print $2 }' | sort -u ;;
        processes/0 | notify/0 | limit/0 | resize/0 | disconnect/0)
            vardctl list --no-legend 2>/dev/null | awk '{ print $1 }'
            ;;
        address/0) vardctl list --no-legend 2>/dev/null | awk '{ print $2 }' | sort -u ;;
        login/0 | run/0) compgen -u ;;
        run/1) vardctl programs 2>/dev/null ;;
        log-level/0) printf '%s\n' notice info debug ;;
    esac
}

_vardctl() {
    local typed=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]}
    COMPREPLY=()
    if [ "$COMP_CWORD" = 1 ]; then
        command=
    fi
    if [ "${COMP_WORDS[COMP_CWORD - 1]}" = --config ]; then
        _vardctl_offer < <(compgen -f -- "$typed")
    elif [[ $typed == -* ]]; then
        _vardctl_offer < <(_vardctl_options "$command" | tr ' ' '\n')
    elif [ -z "$command" ]; then
        _vardctl_offer < <(printf '%s\n' list show processes login run programs notify limit resize disconnect shutdown \
            address watch status check log-level stop)
    else
        _vardctl_offer < <(_vardctl_arguments "$command")
    fi
}

complete -F _vardctl vardctl

# Completion of naro-config for bash: source this file, or put it into a folder of bash-completion under the name
# naro-config. The keys are asked of the program itself.

_naro_config_values() {
    # What "keys" says of a key: the words in quotes are its values.
    "$1" keys 2>/dev/null | awk -v key="$2" '$2 == key' | grep -o '"[a-z]*"' | tr -d '"'
}

_naro_config() {
    local program=$1 word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command="" key="" layer="" n
    COMPREPLY=()
    for ((n = 1; n < COMP_CWORD; n++)); do
        case ${COMP_WORDS[n]} in
        --layer) layer=${COMP_WORDS[++n]} ;;
        --group | --type) ((n++)) ;;
        --*) ;;
        *) if [ -z "$command" ]; then command=${COMP_WORDS[n]}; elif [ -z "$key" ]; then key=${COMP_WORDS[n]}; fi ;;
        esac
    done
    case $before in
    --layer) mapfile -t COMPREPLY < <(compgen -W "mem nvram" -- "$word"); return ;;
    --type) mapfile -t COMPREPLY < <(compgen -W "text int32 uint64" -- "$word"); return ;;
    --group) return ;;
    esac
    case $word in
    -*) mapfile -t COMPREPLY < <(compgen -W "--layer --group --type --help" -- "$word"); return ;;
    esac
    local known="$program keys"
    [ -z "$layer" ] || known="$program --layer $layer keys"
    case $command in
    "") mapfile -t COMPREPLY < <(compgen -W "get set list watch subscribers export import keys" -- "$word") ;;
    get | subscribers)
        [ -n "$key" ] || mapfile -t COMPREPLY < <(compgen -W "$($known 2>/dev/null | awk '{print $2}')" -- "$word") ;;
    watch) mapfile -t COMPREPLY < <(compgen -W "$($known 2>/dev/null | awk '{print $2}')" -- "$word") ;;
    set)
        if [ -z "$key" ]; then
            mapfile -t COMPREPLY < <(compgen -W "$($known 2>/dev/null | awk '{print $2}')" -- "$word")
        else
            mapfile -t COMPREPLY < <(compgen -W "$(_naro_config_values "$program" "$key")" -- "$word")
        fi ;;
    export | import) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    esac
}
complete -F _naro_config naro-config

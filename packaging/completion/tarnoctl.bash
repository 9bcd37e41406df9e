# Completion of tarnoctl for bash: commands, options, and the elements of a move.
_tarnoctl() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} command= i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            call|changers|inventory|load|unload|move|owner) command=${COMP_WORDS[i]}; break ;;
        esac
    done
    case $previous in
        --socket|--password-file) COMPREPLY=($(compgen -f -- "$word")); return ;;
        --authentication) COMPREPLY=($(compgen -W "negotiate kerberos ntlm" -- "$word")); return ;;
        --host) COMPREPLY=($(compgen -A hostname -- "$word")); return ;;
        --user|--service|--owner|--changer|--timeout) return ;;
    esac
    if [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "--help --version --host --socket --user --authentication --service --password-file --owner --changer --by-scsi --json --timeout --all" -- "$word"))
    elif [[ -z $command ]]; then
        COMPREPLY=($(compgen -W "call changers inventory load unload move owner" -- "$word"))
    elif [[ $command == move ]]; then
        COMPREPLY=($(compgen -W "slot: port: drive:" -- "$word"))
        compopt -o nospace
    fi
}
complete -F _tarnoctl tarnoctl

# Completion of tarnoctl for bash: commands, options, the elements of a move, drives and what they are prepared by.
_tarnoctl() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} command= i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            call|changers|inventory|load|unload|move|owner|drives|media|drive-info|alerts|prepare|eject|erase|task)
                command=${COMP_WORDS[i]}; break ;;
        esac
    done
    case $previous in
        --socket|--password-file) COMPREPLY=($(compgen -f -- "$word")); return ;;
        --authentication) COMPREPLY=($(compgen -W "negotiate kerberos ntlm" -- "$word")); return ;;
        --host) COMPREPLY=($(compgen -A hostname -- "$word")); return ;;
        --leave) COMPREPLY=($(compgen -W "Tape0" -- "$word")); return ;;
        --user|--service|--owner|--changer|--timeout) return ;;
    esac
    if [[ $word == -* ]]; then
        local own=
        case $command in
            inventory) own="--all" ;;
            drives) own="--leave" ;;
            prepare) own="--immediate --yes" ;;
            erase) own="--long --yes --no-wait" ;;
            task) own="--wait" ;;
        esac
        COMPREPLY=($(compgen -W "$own --help --version --host --socket --user --authentication --service --password-file --owner --changer --by-scsi --json --timeout" -- "$word"))
    elif [[ -z $command ]]; then
        COMPREPLY=($(compgen -W "call changers inventory load unload move owner drives media drive-info alerts prepare eject erase task" -- "$word"))
    elif [[ $command == move ]]; then
        COMPREPLY=($(compgen -W "slot: port: drive:" -- "$word"))
        compopt -o nospace
    elif [[ $previous == alerts ]]; then
        COMPREPLY=($(compgen -W "Tape0 Changer0" -- "$word"))
    elif [[ $previous == "$command" && $command =~ ^(media|drive-info|prepare|eject|erase)$ ]]; then
        COMPREPLY=($(compgen -W "Tape0" -- "$word"))
    elif [[ $command == prepare ]]; then
        COMPREPLY=($(compgen -W "load unload tension lock unlock format" -- "$word"))
    fi
}
complete -F _tarnoctl tarnoctl

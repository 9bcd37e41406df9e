# Completion of tarnoctl for bash: commands, options, procedures, the elements of a move, drives and what they are prepared by.
_tarnoctl() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} command= i
    local commands="call changers inventory load unload move owner drives media drive-info alerts prepare eject erase task"
    local changer="GetChanger GetSlotsStatuses GetIEPortsStatuses GetElementsStatuses LoadMedium UnloadMedium MoveToSlot FromDriveToIEPort
        FromSlotToIEPort FromIEPortToSlot GetDrivesStatuses"
    local procedures="SetOwnerName GetOwnerName TestCompatible EnumLocks GetChangers GetAllChangers GetDrives GetMediaInfo GeDriveInfo
        GetDriveError EjectTapeFromStandalone PrepareTape StorageMediaRemoval EraseTape TaskStatus WaitForResult GetDriveAlerts
        GetChangerAlerts"
    for i in $changer; do
        procedures+=" $i ${i}ByScsi"
    done
    # The first word that is neither an option nor the value of one is the command.
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --host|--socket|--user|--authentication|--service|--password-file|--owner|--changer|--timeout)
                ((i++))
                # host:port comes as three words.
                while [[ ${COMP_WORDS[i+1]} == : ]]; do ((i += 2)); done ;;
            -*) ;;
            *) command=${COMP_WORDS[i]}; break ;;
        esac
    done
    case $previous in
        --socket|--password-file) COMPREPLY=($(compgen -f -- "$word")); return ;;
        --authentication) COMPREPLY=($(compgen -W "negotiate kerberos ntlm" -- "$word")); return ;;
        --host) COMPREPLY=($(compgen -A hostname -- "$word")); return ;;
        --leave) COMPREPLY=($(compgen -W "Tape0" -- "$word")); return ;;
        --changer) COMPREPLY=($(compgen -W "Changer0" -- "$word")); return ;;
        --user|--service|--owner|--timeout) return ;;
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
        COMPREPLY=($(compgen -W "$commands" -- "$word"))
    elif [[ $command == move ]]; then
        COMPREPLY=($(compgen -W "slot: port: drive:" -- "$word"))
        compopt -o nospace 2>/dev/null
    elif [[ $previous == call ]]; then
        COMPREPLY=($(compgen -W "$procedures" -- "$word"))
    elif [[ $previous == alerts ]]; then
        COMPREPLY=($(compgen -W "Tape0 Changer0" -- "$word"))
    elif [[ $previous == inventory ]]; then
        COMPREPLY=($(compgen -W "Changer0" -- "$word"))
    elif [[ $command =~ ^(media|drive-info|prepare|eject|erase)$ && ! " ${COMP_WORDS[*]:i+1:COMP_CWORD-i-1}" =~ \ [^-] ]]; then
        COMPREPLY=($(compgen -W "Tape0" -- "$word"))
    elif [[ $command == prepare ]]; then
        COMPREPLY=($(compgen -W "load unload tension lock unlock format" -- "$word"))
    fi
}
complete -F _tarnoctl tarnoctl

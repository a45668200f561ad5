# Completion of tarn for bash. Where there is nothing to propose, bash proposes files.

_tarn() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' words='' i
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -* ]] || { command=${COMP_WORDS[i]} && break; }
    done

    case $command in
    '') words='upmix demo --help --version' ;;
    upmix)
        case $before in
        --layout) words='3.0 5.1 slots8' ;;
        --bits) words='16 24 32' ;;
        --mode) words='1 2' ;;
        --remap | --mix-fraction | --raw) return ;;
        *)
            [[ $word != -* ]] || words='--help --layout --remap --bits --mode --mix-fraction --no-align --raw --force
                                        --quiet'
            ;;
        esac
        ;;
    demo)
        case $before in
        --layout) words='3.0 5.1' ;;
        *) [[ $word != -* ]] || words='--help --layout --force' ;;
        esac
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -o bashdefault -o default -F _tarn tarn

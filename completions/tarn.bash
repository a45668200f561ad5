# Completion of tarn for bash. Where there is nothing to propose, bash proposes files.

_tarn() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' words='' i
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -* ]] || { command=${COMP_WORDS[i]} && break; }
    done

    case $command in
    '') words='upmix info demo --help --version' ;;
    upmix)
        case $before in
        --layout) words='3.0 5.1 7.1 slots8' ;;
        --format) words='wav flac' ;;
        --bits) words='16 24 32' ;;
        --mode) words='1 2' ;;
        --remap | --mix-fraction | --raw | --output-dir | --jobs | -j | --gain) return ;;
        *)
            [[ $word != -* ]] || words='--help --output-dir --recursive --format --jobs --layout --remap --bits --mode
                                        --mix-fraction --gain --loudness-match --bypass --json --no-align --raw --force
                                        --skip-existing --quiet'
            ;;
        esac
        ;;
    info)
        case $before in
        --jobs | -j) return ;;
        *) [[ $word != -* ]] || words='--help --verbose --jobs --json --quiet' ;;
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

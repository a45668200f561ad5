# Completion of tarn for bash. Where it proposes nothing, bash completes file names.

_tarn() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' words='' i
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -* ]] || { command=${COMP_WORDS[i]} && break; }
    done

    case $command in
    '') words='upmix info picture report meter demo film --help --help-all --version' ;;
    upmix)
        case $before in
        --layout) words='2.0 3.0 5.1 7.1 7.1-remap' ;;
        --format) words='wav flac' ;;
        --bits) words='16 24 32' ;;
        --mode) words='fast calm' ;;
        --preset) words='film music voice plain' ;;
        --surrounds | --lfe) words='off' ;;
        --bass) words='steered fronts' ;;
        --rate) words='32000 44100 48000 64000 88200 96000 192000' ;;
        --remap | --raw | --output-dir | --jobs | -j | --part | --gain | --centre | --width) return ;;
        *)
            [[ $word != -* ]] || words='--help --help-all --output-dir --recursive --format --jobs --resume --part --layout --remap --bits
                                        --mode --preset --centre --width --surrounds --bass --lfe --gain --limiter
                                        --no-limiter --loudness-match --album --bypass --json --picture --no-align --raw --rate
                                        --strict --force --skip-existing --quiet'
            ;;
        esac
        ;;
    info)
        case $before in
        --jobs | -j) return ;;
        *) [[ $word != -* ]] || words='--help --help-all --recursive --verbose --jobs --json --quiet' ;;
        esac
        ;;
    picture)
        case $before in
        --layout) words='2.0 3.0 5.1 7.1' ;;
        --preset) words='film music voice plain' ;;
        --surrounds | --lfe) words='off' ;;
        --bass) words='steered fronts' ;;
        --theme) words='dark light' ;;
        --start | --length | --size | --title | --raw | --gain | --centre | --width) return ;;
        *)
            [[ $word != -* ]] || words='--help --help-all --layout --start --length --size --theme --title --raw --preset
                                        --centre --width --surrounds --bass --gain --lfe --limiter --no-limiter --force
                                        --quiet'
            ;;
        esac
        ;;
    report)
        case $before in
        --layout) words='2.0 3.0 5.1 7.1' ;;
        --preset) words='film music voice plain' ;;
        --surrounds | --lfe) words='off' ;;
        --bass) words='steered fronts' ;;
        --theme) words='dark light' ;;
        -j | --jobs | --title | --gain | --centre | --width) return ;;
        *)
            [[ $word != -* ]] || words='--help --help-all --output --recursive --jobs --layout --preset --centre --width
                                        --surrounds --bass --gain --lfe --limiter --no-limiter --theme --title --force
                                        --quiet'
            ;;
        esac
        ;;
    meter)
        case $before in
        --layout) words='2.0 3.0 5.1 7.1' ;;
        --mode) words='fast calm' ;;
        --preset) words='film music voice plain' ;;
        --surrounds | --lfe) words='off' ;;
        --bass) words='steered fronts' ;;
        --raw | --start | --speed | --gain | --centre | --width) return ;;
        *)
            [[ $word != -* ]] || words='--help --help-all --raw --pass --upmix --start --speed --layout --mode --preset
                                        --centre --width --surrounds --bass --gain --lfe --limiter --no-limiter --json'
            ;;
        esac
        ;;
    demo)
        case $before in
        --layout) words='2.0 3.0 5.1 7.1' ;;
        --preset) words='film music voice plain' ;;
        *) [[ $word != -* ]] || words='--help --help-all --layout --preset --force' ;;
        esac
        ;;
    film)
        case $before in
        --layout) words='5.1 3.0' ;;
        --format) words='mkv mp4 mka m4a flac' ;;
        --codec) words='flac ac3 eac3 aac opus pcm' ;;
        --dialnorm) words='auto' ;;
        --mode) words='fast calm' ;;
        --preset) words='film music voice plain' ;;
        --surrounds | --lfe) words='off' ;;
        --bass) words='steered fronts' ;;
        --output-dir | --jobs | -j | --part | --bitrate | --stream | --language | --gain | --centre | --width) return ;;
        *)
            [[ $word != -* ]] || words='--help --version --output-dir --recursive --format --jobs --skip-existing --resume
                                        --part --layout --codec --bitrate --stream --language --dialnorm --replace
                                        --force-track --mode --preset --centre --width --surrounds --bass --gain --lfe
                                        --limiter --no-limiter --loudness-match --force --quiet --json'
            ;;
        esac
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -o bashdefault -o default -F _tarn tarn

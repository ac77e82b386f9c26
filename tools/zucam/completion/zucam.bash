# shellcheck shell=bash
# Completion of zucam for bash: commands, options and what they take, names of the list of cameras.

_zucam_cameras() {
    local file=${XDG_CONFIG_HOME:-$HOME/.config}/zucam/cameras i
    for ((i = 1; i + 1 < ${#COMP_WORDS[@]}; i++)); do
        [ "${COMP_WORDS[i]}" != --cameras ] || file=${COMP_WORDS[i + 1]}
    done
    [ ! -r "$file" ] || sed -n 's/^[[:space:]]*\[\([A-Za-z0-9._-]*\)\][[:space:]]*$/\1/p' "$file"
}

# Prints the words of the line that are neither options nor their values, the one at hand left out.
_zucam_words() {
    local i word skip=
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [ -n "$skip" ]; then
            skip=
        elif [[ $word == --@(user|password|cameras|timeout|stream|stream-type|seconds|count|segment|format|speed|for|command|parallel) ]]; then
            skip=1
        elif [[ $word != -* ]]; then
            printf '%s\n' "$word"
        fi
    done
}

_zucam_options() {
    printf '%s\n' --user --password --cameras --timeout --json --quiet --verbose --help
    case $1 in
    info | snapshot | record | watch | keyframe | bench | 'config get' | 'config set')
        printf '%s\n' --stream --stream-type
        ;;
    esac
    case $1 in
    watch) printf '%s\n' --seconds --count ;;
    record) printf '%s\n' --seconds --count --segment --format --force --no-audio ;;
    snapshot) printf '%s\n' --format --force ;;
    'config get' | 'config set') printf '%s\n' --hex ;;
    'ptz move' | 'ptz zoom') printf '%s\n' --speed --for --no-stop --command ;;
    'ptz stop' | 'preset go' | 'preset set' | 'preset clear') printf '%s\n' --command ;;
    keyframe) printf '%s\n' --count ;;
    bench) printf '%s\n' --seconds --count --parallel ;;
    '') printf '%s\n' --version ;;
    esac
}

# What may stand at this place: PLACE is how many words come before, the command's own not counted.
_zucam_positionals() { # COMMAND PLACE
    case $1:$2 in
    *:0) _zucam_cameras ;;
    'config get:1' | 'config set:1') printf '%s\n' video audio encode-level idr-qp presets ;;
    'ptz move:1')
        printf '%s\n' up down left right left-up right-up left-down right-down
        ;;
    'ptz zoom:1') printf '%s\n' in out ;;
    esac
}

_zucam_candidates() {
    local words command place
    mapfile -t words < <(_zucam_words)
    command=${words[0]:-}
    place=$((${#words[@]} - 1))
    case $command in
    config | ptz | preset)
        command+=${words[1]:+ ${words[1]}}
        place=$((place - 1))
        ;;
    esac
    case $command in
    '') printf '%s\n' info watch record snapshot config ptz preset keyframe bench sim ;;
    config) printf '%s\n' get set ;;
    ptz) printf '%s\n' move zoom stop ;;
    preset) printf '%s\n' list go set clear ;;
    sim) return ;;
    *) _zucam_positionals "$command" "$place" ;;
    esac
    _zucam_options "$command"
}

_zucam() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    case $before in
    --cameras) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    --format) mapfile -t COMPREPLY < <(compgen -W 'mp4 mkv ts h264 h265 jpg png' -- "$current") ;;
    --stream) mapfile -t COMPREPLY < <(compgen -W '0 1 2 3' -- "$current") ;;
    --user | --password | --timeout | --seconds | --count | --segment | --speed | --for | --command | --parallel | --stream-type)
        COMPREPLY=()
        ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$(_zucam_candidates)" -- "$current") ;;
    esac
}

complete -o default -F _zucam zucam

# shellcheck shell=bash
# Completion of zucam for bash: commands, options and what they take, names of the list of cameras.

# Prints the words of the line up to the one at hand, without "zucam". The shell has cut them at : and
# =, which addresses and options have in them.
_zucam_line() {
    local word line=() glued=
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        if [ ${#line[@]} -gt 0 ] && [[ -n $glued || $word == [:=] ]]; then
            line[-1]+=$word
        else
            line+=("$word")
        fi
        [[ $word == [:=] ]] && glued=1 || glued=
    done
    printf '%s\n' "${line[@]}"
}

_zucam_cameras() { # WORD...
    local file=${XDG_CONFIG_HOME:-$HOME/.config}/zucam/cameras
    while [ $# -gt 0 ]; do
        case $1 in
        --cameras) file=${2:-} ;;
        --cameras=*) file=${1#*=} ;;
        esac
        shift
    done
    [ ! -r "$file" ] || sed -n 's/^[[:space:]]*\[\([A-Za-z0-9._-]*\)\][[:space:]]*$/\1/p' "$file"
}

# Prints the words that are neither options nor their values.
_zucam_operands() { # WORD...
    local word skip=
    for word in "$@"; do
        if [ -n "$skip" ]; then
            skip=
        elif [[ $word == --@(user|password|cameras|timeout|stream|stream-type|seconds|count|segment|format|speed|for|command|parallel) ]]; then
            skip=1
        elif [[ $word != -?* ]]; then
            printf '%s\n' "$word"
        fi
    done
}

_zucam_options() { # COMMAND
    printf '%s\n' --user --password --cameras --timeout --json --quiet --verbose --help
    case $1 in
    info | snapshot | record | watch | keyframe | bench) printf '%s\n' --stream --stream-type ;;
    'config get' | 'config set') printf '%s\n' --stream --hex ;;
    esac
    case $1 in
    watch) printf '%s\n' --seconds --count ;;
    record) printf '%s\n' --seconds --count --segment --format --force --no-audio ;;
    snapshot) printf '%s\n' --format --force ;;
    'ptz move' | 'ptz zoom') printf '%s\n' --speed --for --no-stop --command ;;
    'ptz stop' | 'preset go' | 'preset set' | 'preset clear') printf '%s\n' --command ;;
    keyframe) printf '%s\n' --count ;;
    bench) printf '%s\n' --seconds --count --parallel ;;
    '') printf '%s\n' --version ;;
    esac
}

# What may stand behind so many operands, the command's own words not counted. Where it says nothing,
# names of files are offered.
_zucam_positionals() { # COMMAND OPERANDS WORD...
    case $1:$2 in
    *:0) _zucam_cameras "${@:3}" ;;
    'config get:1' | 'config set:1') printf '%s\n' video audio encode-level idr-qp presets ;;
    'ptz move:1')
        printf '%s\n' up down left right left-up right-up left-down right-down
        ;;
    'ptz zoom:1') printf '%s\n' in out ;;
    esac
}

_zucam_candidates() { # CURRENT WORD...
    local operands command count
    mapfile -t operands < <(_zucam_operands "${@:2}")
    command=${operands[0]:-}
    count=$((${#operands[@]} - 1))
    case $command in
    config | ptz | preset)
        command+=${operands[1]:+ ${operands[1]}}
        count=$((count - 1))
        ;;
    esac
    case $1:$command in
    *:sim) ;;
    -*) _zucam_options "$command" ;;
    *:) printf '%s\n' info watch record snapshot config ptz preset keyframe bench sim ;;
    *:config) printf '%s\n' get set ;;
    *:ptz) printf '%s\n' move zoom stop ;;
    *:preset) printf '%s\n' list go set clear ;;
    *) _zucam_positionals "$command" "$count" "${@:2}" ;;
    esac
}

_zucam() {
    local line current before
    mapfile -t line < <(_zucam_line)
    current=${line[-1]}
    before=
    [ ${#line[@]} -lt 2 ] || before=${line[-2]}
    if [[ $current == --*=* ]]; then
        before=${current%%=*}
        current=${current#*=}
    fi
    case $before in
    --cameras) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    --format) mapfile -t COMPREPLY < <(compgen -W 'mp4 mkv ts h264 h265 jpg png' -- "$current") ;;
    --stream) mapfile -t COMPREPLY < <(compgen -W '0 1 2 3' -- "$current") ;;
    --user | --password | --timeout | --seconds | --count | --segment | --speed | --for | --command | --parallel | --stream-type)
        COMPREPLY=()
        ;;
    *)
        mapfile -t COMPREPLY < <(compgen -W \
            "$(_zucam_candidates "$current" "${line[@]:0:${#line[@]}-1}")" -- "$current")
        ;;
    esac
}

complete -o default -F _zucam zucam

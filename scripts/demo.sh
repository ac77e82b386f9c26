#!/usr/bin/env bash
# Live view, end to end: runs live_view against the virtual camera, which drops the link half-way, or
# against a device given by --host, and proves that what arrived is video.
#
# usage: demo.sh [SECONDS] [--host H --port P --user U --password W]
# Called by `./run demo`, which has built everything; BUILD_DIR is where (build/dev unless set).
# Leaves demo/live.h264, demo/live.mp4 and demo/picture.png. Ends with 0 only when all of it is good.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build_dir=${BUILD_DIR:-build/dev}
seconds=12
host='' port='' user=admin password=admin
camera_pid=''

# A drop and the way back take some five seconds of the view.
shortest_with_drop=10

fail() {
    printf 'demo: %s\n' "$*" >&2
    exit 1
}

usage_error() {
    printf 'demo: %s\n' "$*" >&2
    exit 2
}

is_number() { # TEXT LEAST MOST
    [[ $1 =~ ^[0-9]{1,6}$ ]] && [ "$((10#$1))" -ge "$2" ] && [ "$((10#$1))" -le "$3" ]
}

read_arguments() {
    if [ $# -gt 0 ] && [[ $1 != --* ]]; then
        is_number "$1" 1 86400 || usage_error "'$1' is no number of seconds from 1 to 86400"
        seconds=$((10#$1))
        shift
    fi
    while [ $# -gt 0 ]; do
        [ $# -ge 2 ] || usage_error "$1 needs a value"
        case $1 in
        --host) host=$2 ;;
        --port) port=$2 ;;
        --user) user=$2 ;;
        --password) password=$2 ;;
        *) usage_error "'$1' is unknown; --host, --port, --user and --password are known" ;;
        esac
        shift 2
    done
    [ -z "$host" ] || is_number "$port" 1 65535 || usage_error '--host needs --port 1 to 65535'
    [ -n "$host" ] || [ -z "$port" ] || usage_error '--port needs --host'
}

end_camera() {
    if [ -n "$camera_pid" ]; then
        kill "$camera_pid" 2>/dev/null || true
        wait "$camera_pid" 2>/dev/null || true
        camera_pid=''
    fi
}

start_camera() {
    local options=() line=''
    if with_drop; then
        options=(--drop-after $((seconds / 2)) --drop-times 1)
    fi
    exec 3< <(exec "$build_dir/virtual_camera/zucam-sim" "${options[@]}")
    camera_pid=$!
    trap end_camera EXIT
    IFS= read -r -t 30 line <&3 || fail 'the virtual camera does not start'
    host=127.0.0.1
    port=${line##*:}
    printf '%s\n' "$line"
}

with_drop() {
    [ "$seconds" -ge "$shortest_with_drop" ]
}

# The live line goes to the terminal, the summary is kept.
view() {
    local status=0
    summary=$("$build_dir/examples/live_view" --host "$host" --port "$port" --user "$user" \
        --password "$password" --seconds "$seconds" --out demo/live.h264) || status=$?
    printf '%s\n' "$summary"
    case $status in
    0) ;;
    3) fail "no login to $host:$port" ;;
    4) fail 'the device did not start the stream' ;;
    5) fail 'no video came' ;;
    *) fail "live_view ended with status $status" ;;
    esac
}

check_both_sides_of_the_drop() {
    local counts
    read -ra counts <<<"$(sed -n 's/^frames per connection://p' <<<"$summary")"
    [ ${#counts[@]} -ge 2 ] || fail 'the link was not lost and found again'
    [ "${counts[0]}" -gt 0 ] || fail 'no frames came before the drop'
    [ "${counts[1]}" -gt 0 ] || fail 'no frames came after the drop'
    printf 'frames before the drop %d, after it %d\n' "${counts[0]}" "${counts[1]}"
}

# As the device describes the stream; 25 where it does not.
frame_rate() {
    local rate
    rate=$(sed -nE 's/^described as: .*, ([0-9]+) frames.*/\1/p' <<<"$summary")
    is_number "$rate" 1 240 || rate=25
    printf '%d' "$((10#$rate))"
}

# quiet WHAT COMMAND...: the command must succeed and say nothing at all.
quiet() {
    local what=$1 output status=0
    shift
    output=$("$@" 2>&1 </dev/null) || status=$?
    if [ $status -ne 0 ] || [ -n "$output" ]; then
        fail "$what: status $status, ${output:-no message}"
    fi
}

make_files() {
    quiet 'making demo/live.mp4' ffmpeg -v error -y -f h264 -framerate "$(frame_rate)" \
        -i demo/live.h264 -c copy demo/live.mp4
    local duration
    duration=$(ffprobe -v error -show_entries format=duration -of csv=p=0 demo/live.mp4)
    quiet 'making demo/picture.png' ffmpeg -v error -y \
        -ss "$(awk -v all="$duration" 'BEGIN { printf "%.2f", all / 2 }')" \
        -i demo/live.mp4 -frames:v 1 demo/picture.png
}

check_files() {
    local decoded
    quiet 'decoding demo/live.h264' ffmpeg -v error -i demo/live.h264 -f null -
    quiet 'decoding demo/live.mp4' ffmpeg -v error -i demo/live.mp4 -f null -
    decoded=$(ffprobe -v error -count_frames -select_streams v:0 \
        -show_entries stream=codec_name,width,height,nb_read_frames -of csv=p=0 demo/live.mp4)
    [ "${decoded##*,}" -gt 0 ] || fail 'demo/live.mp4 has no frame'
    [ -s demo/picture.png ] || fail 'demo/picture.png is empty'
    printf 'decoded without an error: %s (codec, width, height, frames)\n' "$decoded"
}

read_arguments "$@"
mkdir -p demo
rm -f demo/live.h264 demo/live.mp4 demo/picture.png
real_device=$host
[ -n "$real_device" ] || start_camera
view
if [ -z "$real_device" ]; then
    end_camera
    if with_drop; then
        check_both_sides_of_the_drop
    else
        printf 'below %d seconds the link is not dropped on purpose\n' "$shortest_with_drop"
    fi
fi
make_files
check_files
printf 'see %s, %s and %s\n' "$PWD/demo/live.h264" "$PWD/demo/live.mp4" "$PWD/demo/picture.png"

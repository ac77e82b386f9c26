#!/usr/bin/env bash
# Live view, end to end: runs live_view against the virtual camera, which drops the link half-way, or
# against a device given by --host, and proves that what arrived is video. The virtual camera is then
# told another bit rate and panned, and both are measured in what it sends.
#
# usage: demo.sh [--check] [SECONDS] [--host H --port P --user U --password W]
# Called by `./run demo`, first with --check, which only judges the other arguments, and then when
# everything is built; BUILD_DIR is where (build/dev unless set).
# Leaves demo/live.h264, demo/live.mp4 and demo/picture.png, and with the virtual camera
# demo/before.png and demo/after.png. Ends with 0 only when all of it is good.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh

build_dir=${BUILD_DIR:-build/dev}
seconds=12
host='' port='' user=admin password=admin
check_only=''
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

is_address() { # as live_view wants it
    local octet='(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9]?[0-9])'
    [[ $1 =~ ^$octet\.$octet\.$octet\.$octet$ ]]
}

read_arguments() {
    if [ "${1-}" = --check ]; then
        check_only=yes
        shift
    fi
    if [ $# -gt 0 ] && [[ $1 != --* ]]; then
        is_number "$1" 1 86400 || usage_error "'$1' is no number of seconds from 1 to 86400"
        seconds=$((10#$1))
        shift
    fi
    while [ $# -gt 0 ]; do
        case $1 in
        --host | --port | --user | --password) ;;
        *) usage_error "'$1' is unknown; --host, --port, --user and --password are known" ;;
        esac
        [ $# -ge 2 ] || usage_error "$1 needs a value"
        case $1 in
        --host)
            is_address "$2" || usage_error "'$2' is no IPv4 address such as 192.0.2.7"
            host=$2
            ;;
        --port)
            is_number "$2" 1 65535 || usage_error "'$2' is no port, a number from 1 to 65535"
            port=$2
            ;;
        --user) user=$2 ;;
        --password) password=$2 ;;
        esac
        shift 2
    done
    [ -z "$host" ] || [ -n "$port" ] || usage_error '--host needs --port'
    [ -n "$host" ] || [ -z "$port" ] || usage_error '--port needs --host'
}

# When the demo fails half-way the camera goes too; how it ends is of no interest then.
drop_camera() {
    if [ -n "$camera_pid" ] && kill "$camera_pid" 2>/dev/null; then
        if ! wait "$camera_pid"; then
            printf 'demo: the virtual camera did not end well either\n' >&2
        fi
    fi
}

# A camera that cannot end well has something wrong, whatever it has sent before.
end_camera() {
    local pid=$camera_pid status=0
    camera_pid=''
    kill "$pid" || fail 'the virtual camera has ended by itself'
    wait "$pid" || status=$?
    [ $status -eq 0 ] || fail "the virtual camera ended with status $status"
}

start_camera() {
    local options=() line=''
    if with_drop; then
        options=(--drop-after $((seconds / 2)) --drop-times 1)
    fi
    exec 3< <(exec "$build_dir/virtual_camera/zucam-sim" "${options[@]}")
    camera_pid=$!
    trap drop_camera EXIT
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
    1) fail 'the video could not be kept' ;;
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

# ---- the virtual camera obeys ----

measured_seconds=4
lower_bitrate=512 # kbit/s; the camera starts with four times as much

# watch NAME: keeps some seconds in demo/NAME.h264 and says their rate in kbit/s.
watch() {
    local summary
    summary=$("$build_dir/examples/live_view" --host "$host" --port "$port" \
        --seconds "$measured_seconds" --out "demo/$1.h264" 2>/dev/null) || fail "no view $1"
    awk -v bytes="$(stat -c %s "demo/$1.h264")" -v rate="$(frame_rate)" \
        '/^summary:/ { printf "%d", bytes * 8 / 1000 / ($2 / rate) }' <<<"$summary"
}

# obey EXAMPLE OPTION...: runs an example and keeps its lines in `said`.
obey() {
    local example=$1
    shift
    said=$("$build_dir/examples/$example" --host "$host" --port "$port" "$@") ||
        fail "$example failed"
    printf '%s\n' "$example: ${said//$'\n'/$'\n'$example: }"
}

# still NAME: a picture from the second second of demo/NAME.h264.
still() {
    quiet "making demo/$1.png" ffmpeg -v error -y -f h264 -framerate "$(frame_rate)" \
        -i "demo/$1.h264" -vf 'select=gte(n\,40)' -frames:v 1 "demo/$1.png"
}

# likeness SHIFT: how alike (PSNR in dB, 99 for equal) the later picture is to the earlier one moved
# to the left by SHIFT pixels, in the part that the real shift leaves in both.
likeness() {
    ffmpeg -v info -i demo/after.png -i demo/before.png -lavfi \
        "[0]crop=iw-$shift:ih:0:0[a];[1]crop=iw-$shift:ih:$1:0[b];[a][b]psnr" -f null - 2>&1 \
        </dev/null | sed -nE 's/.* average:([0-9.]+|inf) .*/\1/p' | sed 's/inf/99/'
}

# The scene is one and a half times as wide as the picture, so panning from the middle to the end
# (1000) moves the picture by a quarter of its width.
check_pan() {
    local width pan moved unmoved
    width=$(ffprobe -v error -show_entries stream=width -of csv=p=0 demo/before.png)
    pan=$(sed -nE 's/^preset 2: pan (-?[0-9]+),.*/\1/p' <<<"$said")
    is_number "$pan" 100 1000 || fail "the camera has not panned (${pan:-no preset 2})"
    shift=$((width * pan / 4000 / 2 * 2))
    moved=$(likeness "$shift")
    unmoved=$(likeness 0)
    printf 'panned by %d pixels: likeness %s dB moved back, %s dB as it is\n' \
        "$shift" "$moved" "$unmoved"
    awk -v moved="$moved" -v unmoved="$unmoved" 'BEGIN { exit !(moved > unmoved + 3) }' ||
        fail 'the pictures before and after do not differ by the pan'
}

show_obedience() {
    local before after said shift
    before=$(watch before)
    still before
    obey settings --bitrate "$lower_bitrate"
    obey ptz --stay
    after=$(watch after)
    still after
    printf 'measured %d kbit/s before, %d kbit/s after the bit rate was set to %d\n' \
        "$before" "$after" "$lower_bitrate"
    [ "$after" -lt $((before * 2 / 3)) ] || fail 'the bit rate has not become lower'
    check_pan
    rm -f demo/before.h264 demo/after.h264
}

read_arguments "$@"
[ -z "$check_only" ] || exit 0
mkdir -p demo
rm -f demo/live.h264 demo/live.mp4 demo/picture.png demo/before.* demo/after.*
real_device=$host
[ -n "$real_device" ] || start_camera
view
if [ -z "$real_device" ]; then
    if with_drop; then
        check_both_sides_of_the_drop
    else
        printf 'below %d seconds the link is not dropped on purpose\n' "$shortest_with_drop"
    fi
fi
make_files
check_files
printf 'see %s, %s and %s\n' "$PWD/demo/live.h264" "$PWD/demo/live.mp4" "$PWD/demo/picture.png"
if [ -z "$real_device" ]; then
    show_obedience
    end_camera
    printf 'see %s and %s\n' "$PWD/demo/before.png" "$PWD/demo/after.png"
fi

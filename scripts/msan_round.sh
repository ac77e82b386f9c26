#!/usr/bin/env bash
# msan_round.sh PROGRAMS_DIR BUILD_DIR: the example programs of the first build, which is one with the
# memory sanitizer, against the virtual camera of the second, at log level 2: logins, a stream, key
# frames, heartbeats, a dropped link and its reconnection, settings, moves, presets, logouts.
#
# The sanitizer ends a program with its report as soon as it decides anything by a value that nobody
# has set, or hands one to the system.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
programs=$1
build_dir=$2
. scripts/camera.sh

viewer=''
listener=''

# The last lines that a program has led to, with room for a report.
show() {
    tail -n 60 "$work/$1.log"
}

# begin PROGRAM: in the background. Its lines and the library's go to one file.
begin() {
    : >"$work/$1.log"
    LD_PRELOAD=$programs/tests/c_abi/libc_abi_trace_all.so "$programs/examples/$1" \
        --host 127.0.0.1 --port "$port" --verbose >"$work/$1.log" 2>&1 &
}

# end PROGRAM PID: it must end well, and have logged at level 2.
end() {
    local status=0
    wait "$2" || status=$?
    if [ "$status" -ne 0 ]; then
        show "$1"
        echo "$1 ended with status $status"
        return 1
    fi
    grep -q '\] enter ZU_NET_DEV_Login' "$work/$1.log" || {
        show "$1"
        echo "$1 has not logged at level 2"
        return 1
    }
    tail -n 5 "$work/$1.log"
}

# await PROGRAM PID PATTERN: until one of its lines matches. A program that has ended, or a minute
# that brings nothing, fails.
await() {
    for _ in $(seq 600); do
        ! grep -qE -- "$3" "$work/$1.log" || return 0
        kill -0 "$2" 2>/dev/null || break
        sleep 0.1
    done
    show "$1"
    echo "$1: no line with '$3'"
    return 1
}

# What goes on when this ends early would outlive it.
end_programs() {
    local pid
    for pid in $viewer $listener; do
        ! kill -0 "$pid" 2>/dev/null || kill -KILL "$pid"
    done
    clean_up
}
trap end_programs EXIT

start_camera
begin live_view
viewer=$!
begin events
listener=$!
await live_view "$viewer" ' s [1-9][0-9]* frames '
await events "$listener" 'heartbeat answered'
kill -USR1 "$camera" # drops every link
await events "$listener" 'connected again'
await live_view "$viewer" ' gap ([3-9]|[0-9]{2,})\.[0-9]+ s up [1-9]' # frames go on after the pause

begin settings
end settings $!
begin ptz
end ptz $!

kill "$viewer" "$listener" || echo 'one has ended by itself'
end live_view "$viewer"
viewer=''
end events "$listener"
listener=''
grep -qE '^frames per connection: [1-9][0-9]* [1-9]' "$work/live_view.log" || {
    echo 'no frames came after the reconnection'
    exit 1
}
end_camera

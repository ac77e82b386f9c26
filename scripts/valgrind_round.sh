#!/usr/bin/env bash
# valgrind_round.sh BUILD_DIR: one login, stream and logout of the example program against the
# virtual camera, under valgrind. Fails on any error, on any memory not given back, whether something
# still points to it or not, and on any descriptor left open; and when the camera does not end well.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build_dir=$1
work=$(mktemp -d)
camera=''

# However this ends, the camera does too.
clean_up() {
    if [ -n "$camera" ] && ! kill "$camera" 2>/dev/null; then
        echo 'the virtual camera has ended by itself'
    fi
    rm -rf "$work"
}
trap clean_up EXIT

"$build_dir/virtual_camera/zucam-sim" --listen 127.0.0.1 --port 0 --size 160x90 >"$work/camera" 2>&1 &
camera=$!

port=''
for _ in $(seq 100); do
    port=$(sed -nE 's/^camera 0 listening on .*:([0-9]+)$/\1/p' "$work/camera")
    [ -z "$port" ] || break
    sleep 0.1
done
if [ -z "$port" ]; then
    echo 'the virtual camera has not said its port:'
    cat "$work/camera"
    exit 1
fi

: >"$work/valgrind" # there to be shown, whatever happens
valgrind --error-exitcode=9 --leak-check=full --show-leak-kinds=all \
    --errors-for-leak-kinds=all --track-fds=yes \
    --log-file="$work/valgrind" "$build_dir/examples/live_view" \
    --host 127.0.0.1 --port "$port" --seconds 3 || {
    status=$?
    cat "$work/valgrind"
    echo "live_view under valgrind ended with $status"
    exit 1
}
cat "$work/valgrind"

# What this shell has handed down is not the program's.
opened=$(grep -cE '^==[0-9]+== Open ' "$work/valgrind") || [ $? -eq 1 ]
inherited=$(grep -cF '<inherited from parent>' "$work/valgrind") || [ $? -eq 1 ]
if ! grep -qE 'FILE DESCRIPTORS: [0-9]+ open' "$work/valgrind" ||
    [ "$opened" -ne "$inherited" ]; then
    echo 'a descriptor was left open, see above'
    exit 1
fi

status=0
kill "$camera"
wait "$camera" || status=$?
camera=''
if [ "$status" -ne 0 ]; then
    cat "$work/camera"
    echo "the virtual camera ended with status $status"
    exit 1
fi

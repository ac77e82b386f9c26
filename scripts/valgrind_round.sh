#!/usr/bin/env bash
# valgrind_round.sh BUILD_DIR: one login, stream and logout of the example program against the
# virtual camera, under valgrind. Fails on any error, on any memory not given back, whether something
# still points to it or not, and on any descriptor left open; and when the camera does not end well.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build_dir=$1
. scripts/camera.sh
start_camera

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

end_camera

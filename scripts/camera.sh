# shellcheck shell=bash
#
# A virtual camera on this machine for a script that runs programs against it. Sourced with
# `set -euo pipefail` in force; $build_dir says whose zucam-sim, or $camera_program which. Needs the
# exit trap for itself.
#
# shellcheck disable=SC2154 # build_dir is the script's that sources this file

work=$(mktemp -d) # goes when the script ends, for its files as well
camera=''
port=''

# However the script ends, the camera does too.
clean_up() {
    if [ -n "$camera" ] && ! kill "$camera" 2>/dev/null; then
        echo 'the virtual camera has ended by itself'
    fi
    rm -rf "$work"
}
trap clean_up EXIT

# Starts the camera and waits for its port.
start_camera() {
    : >"$work/camera" # there to be read before the camera's process has come as far
    "${camera_program:-$build_dir/virtual_camera/zucam-sim}" --listen 127.0.0.1 --port 0 --size 160x90 \
        >"$work/camera" 2>&1 &
    camera=$!
    for _ in $(seq 100); do
        port=$(sed -nE 's/^camera 0 listening on .*:([0-9]+)$/\1/p' "$work/camera")
        [ -z "$port" ] || return 0
        sleep 0.1
    done
    echo 'the virtual camera has not said its port:'
    cat "$work/camera"
    return 1
}

# Ends the camera; fails when it does not end well.
end_camera() {
    local status=0
    kill "$camera"
    wait "$camera" || status=$?
    camera=''
    if [ "$status" -ne 0 ]; then
        cat "$work/camera"
        echo "the virtual camera ended with status $status"
        return 1
    fi
}
